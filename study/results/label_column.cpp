#include "study/results/label_column.h"

#include "study/support/iso_time.h"

#include <algorithm>
#include <map>
#include <utility>

namespace insolate::study {

namespace {

LabelColumn labelsOf(std::string name, const SensorField& field,
                     std::uint32_t CellOrigin::*member) {
    LabelColumn column{std::move(name), {}, {}, {}};
    column.indices.reserve(field.origins.size());
    std::vector<std::int32_t> indexOf(field.names.size(), LabelColumn::none); // by name
    for (const CellOrigin& origin : field.origins) {
        const std::uint32_t text = origin.*member;
        if (text == CellOrigin::unnamed) {
            column.indices.push_back(LabelColumn::none);
            continue;
        }
        if (indexOf[text] == LabelColumn::none) {
            indexOf[text] = static_cast<std::int32_t>(column.labels.size());
            column.labels.push_back(field.names[text]);
        }
        column.indices.push_back(indexOf[text]);
    }
    return column;
}

} // namespace

LabelColumn objectLabels(const SensorField& field) {
    return labelsOf("object", field, &CellOrigin::object);
}

LabelColumn materialLabels(const SensorField& field) {
    return labelsOf("material", field, &CellOrigin::material);
}

std::optional<LabelColumn> peakStarts(std::span<const ResultColumn> columns, double timeZone) {
    const auto hours = std::find_if(columns.begin(), columns.end(), [](const ResultColumn& column) {
        return column.name == "peak_hour";
    });
    if (hours == columns.end()) {
        return std::nullopt;
    }
    LabelColumn starts{"peak_start", {}, {}, hours->name};
    starts.indices.reserve(hours->values.size());
    std::map<int, std::int32_t> known; // by hour
    for (const float value : hours->values) {
        const auto hour = static_cast<int>(value); // counted by its end; 0 for no peak
        if (hour <= 0) {
            starts.indices.push_back(LabelColumn::none);
            continue;
        }
        const auto [place, isNew] =
            known.try_emplace(hour, static_cast<std::int32_t>(starts.labels.size()));
        if (isNew) {
            starts.labels.push_back(isoHourStart(hour - 1, timeZone));
        }
        starts.indices.push_back(place->second);
    }
    return starts;
}

} // namespace insolate::study
