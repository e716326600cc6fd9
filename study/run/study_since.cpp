#include "study/run/calculate_sensors.h"
#include "study/run/changed_scene.h"
#include "study/run/study_steps.h"
#include "study/support/readable.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <fmt/format.h>
#include <xxhash.h>

namespace insolate::study {

namespace {

constexpr std::size_t unknownSensor = static_cast<std::size_t>(-1);

using Place = std::array<Vector3, 2>; // and normal

std::string_view placeBytes(const Place& place) {
    return {reinterpret_cast<const char*>(place.data()), sizeof place};
}

struct SamePlace {
    bool operator()(const Place& a, const Place& b) const { return placeBytes(a) == placeBytes(b); }
};
struct HashOfPlace {
    std::size_t operator()(const Place& place) const {
        return XXH3_64bits(place.data(), sizeof place);
    }
};

/// The sensor of the former field that stands and looks alike, by sensor of the new one.
std::vector<std::size_t> formerSensors(const SensorField& before, const SensorField& after) {
    const auto placeOf = [](const SensorField& field, std::size_t i) {
        return Place{field.positions[i], field.normals[i]};
    };
    std::unordered_map<Place, std::size_t, HashOfPlace, SamePlace> places; // once they are needed
    std::vector<std::size_t> former(after.size(), unknownSensor);
    for (std::size_t i = 0; i < after.size(); ++i) {
        const Place place = placeOf(after, i);
        if (i < before.size() && SamePlace()(placeOf(before, i), place)) {
            former[i] = i;
            continue;
        }
        if (places.empty()) {
            places.reserve(before.size());
            for (std::size_t k = 0; k < before.size(); ++k) {
                places.try_emplace(placeOf(before, k), k);
            }
        }
        const auto found = places.find(place);
        former[i] = found == places.end() ? unknownSensor : found->second;
    }
    return former;
}

/// Places and normals of some sensors.
SensorField partOf(const SensorField& field, std::span<const std::size_t> sensors) {
    SensorField part;
    for (const std::size_t sensor : sensors) {
        part.positions.push_back(field.positions[sensor]);
        part.normals.push_back(field.normals[sensor]);
    }
    return part;
}

bool haveSameNames(std::span<const ResultColumn> a, std::span<const ResultColumn> b) {
    return std::ranges::equal(a, b, {}, &ResultColumn::name, &ResultColumn::name);
}

} // namespace

StudyResults calculateStudySince(PreparedStudy& study, const PreparedStudy& earlier,
                                 const StudyResults& known, Progress& progress,
                                 const std::stop_token& stop) {
    const bool reflects = study.options.reflects();
    const std::vector<ResultColumn>& knownColumns = reflects ? known.direct : known.columns;
    const bool isComparable = study.options.rays == RayMethod::fast &&
                              earlier.options.rays == RayMethod::fast && !study.options.masks &&
                              !earlier.options.masks && *study.recentring == *earlier.recentring &&
                              study.method->isSameAs(*earlier.method) &&
                              haveSameNames(study.method->columns(), knownColumns);
    if (!isComparable) {
        progress.note(study.options.hourly.rules != nullptr
                          ? "what a change lets through may reach every sensor: all are "
                            "calculated; without --materials the others are kept"
                      : reflects && earlier.options.reflects() && known.direct.empty()
                          ? "the earlier study was calculated by others, without its parts: all "
                            "sensors are calculated"
                          : "more than scene and sensors differs from the earlier study: all "
                            "sensors are calculated");
        return calculateStudy(study, nullptr, progress, stop);
    }
    const SensorField& field = study.inputs.field;
    const std::vector<std::size_t> former = formerSensors(earlier.inputs.field, field);
    const SceneDifference difference = differenceOf(earlier.inputs.scene, study.inputs.scene);
    std::vector<std::uint8_t> marks(field.size(), 0);
    if (!difference.isEmpty()) {
        marks = study.method->touched(study.work(), difference, *earlier.masks,
                                      study.options.threads, stop);
    }
    std::vector<std::size_t> again;
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (marks[i] != 0 || former[i] == unknownSensor) {
            again.push_back(i);
        }
    }
    progress.note(fmt::format("{} of {} sensors are calculated; the change cannot touch {}the "
                              "others{}",
                              groupedDigits(again.size()), groupedDigits(field.size()),
                              reflects ? "sun, sky and ground of " : "",
                              reflects ? ", and what surfaces reflect is found anew for all" : ""));
    const SensorField part = partOf(field, again);
    const std::vector<ResultColumn> fresh =
        calculateSensors(*study.method, {part, *study.recentring, *study.masks},
                         study.options.threads, nullptr, progress, stop);
    StudyResults results;
    results.columns = study.method->columns();
    for (std::size_t c = 0; c < results.columns.size(); ++c) {
        std::vector<float>& values = results.columns[c].values;
        values.resize(field.size());
        for (std::size_t i = 0; i < field.size(); ++i) {
            values[i] = former[i] == unknownSensor ? 0.0f : knownColumns[c].values[former[i]];
        }
        for (std::size_t i = 0; i < again.size(); ++i) {
            values[again[i]] = fresh[c].values[i];
        }
    }
    addReflected(study, results, progress, stop);
    completeResults(study, results, progress, stop);
    return results;
}

} // namespace insolate::study
