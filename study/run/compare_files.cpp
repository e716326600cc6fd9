#include "study/run/compare_files.h"

#include "study/output/compared_groups.h"
#include "study/output/picture.h"
#include "study/output/sensor_tables.h"
#include "study/output/summary.h"
#include "study/results/result_scene.h"
#include "study/results/sensor_groups.h"
#include "study/support/readable.h"

#include <algorithm>
#include <numeric>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace insolate::study {

namespace {

/// "A: before: Testville; ...; insolate 0.1.0".
std::string sideText(const char* side, const ResultFolder& results) {
    const std::string folder = printable(results.folder.string());
    const std::string& madeBy = results.facts.madeBy;
    return fmt::format("{}: {}{}{}", side, folder, folder.empty() || madeBy.empty() ? "" : ": ",
                       madeBy);
}

std::string subtitleOf(const ResultFolder& a, const ResultFolder& b) {
    if (a.facts.madeBy == b.facts.madeBy && !a.folder.empty() && !b.folder.empty()) {
        return fmt::format("A: {}; B: {}; {}", printable(a.folder.string()),
                           printable(b.folder.string()), b.facts.madeBy);
    }
    return sideText("A", a) + "; " + sideText("B", b);
}

/// A study's cells that the other has not, with all that is known of them.
void writeOnly(OutputFile& out, const ResultFolder& results,
               const std::vector<std::uint32_t>& sensors, const std::stop_token& stop) {
    std::vector<ResultColumn> columns = results.columns;
    if (!results.areas.empty()) {
        columns.push_back({"area", "m2", "Area of the cell", results.areas});
    }
    for (ResultColumn& column : columns) {
        std::vector<float> own;
        own.reserve(sensors.size());
        for (const std::uint32_t i : sensors) {
            own.push_back(column.values[i]);
        }
        column.values = std::move(own);
    }
    writeSensorsCsv(out, partOf(results.field, sensors), columns, {}, stop);
}

std::vector<ResultColumn> comparedColumns(const Comparison& comparison) {
    std::vector<ResultColumn> columns = comparison.columns;
    if (!comparison.areas.empty()) {
        columns.push_back({"area", "m2", "Area of the cell", comparison.areas});
    }
    std::vector<float> distances;
    distances.reserve(comparison.pairs.size());
    for (const SensorPair& pair : comparison.pairs) {
        distances.push_back(pair.distance);
    }
    if (comparison.samePlaces < comparison.pairs.size()) {
        columns.push_back({"distance", "m", "Distance between the pair", std::move(distances)});
    }
    return columns;
}

nlohmann::ordered_json recordOf(const CompareAnswer& answer) {
    const ResultFolder& a = answer.a;
    const ResultFolder& b = answer.b;
    const Comparison& comparison = answer.comparison;
    nlohmann::ordered_json record;
    record["versions"] = versionsInUse();
    const auto side = [&](const ResultFolder& results, std::size_t only) {
        nlohmann::ordered_json said;
        if (!results.folder.empty()) {
            std::error_code problem;
            said["folder"] = results.folder.string();
            said["folder_from_here"] =
                std::filesystem::proximate(results.folder, answer.options.out, problem).string();
        }
        said["made_by"] = results.facts.madeBy;
        said["sensors"] = results.field.size();
        said["without_a_partner"] = only;
        return said;
    };
    record["comparison"] = {{"a", side(a, comparison.onlyA.size())},
                            {"b", side(b, comparison.onlyB.size())},
                            {"values", comparison.values},
                            {"pairs", comparison.pairs.size()},
                            {"pairs_at_the_same_place", comparison.samePlaces},
                            {"tolerance_m", comparison.tolerance},
                            {"doubts", comparison.doubts}};
    if (!b.facts.period.empty()) {
        record["period"]["text"] = b.facts.period;
    }
    // The surroundings are those of B; their place is said from the new folder.
    const auto summary = nlohmann::ordered_json::parse(b.summary);
    if (const auto scene = summary.find("scene"); scene != summary.end() && scene->is_object()) {
        record["scene"] = *scene;
        record["scene"]["files_from_here"] = nlohmann::ordered_json::array();
        for (const std::filesystem::path& file : b.model.filesFromFolder) {
            std::error_code problem;
            record["scene"]["files_from_here"].push_back(
                std::filesystem::proximate(b.folder / file, answer.options.out, problem).string());
        }
    }
    record["sensors"]["count"] = comparison.field.size();
    if (!comparison.areas.empty()) {
        record["sensors"]["area_m2"] =
            std::accumulate(comparison.areas.begin(), comparison.areas.end(), 0.0);
    }
    record["sensors"]["means_weighted_by"] = comparison.areas.empty() ? "count" : "area";
    record["results"] = rangesOf(comparison.columns, comparison.areas);
    record["warnings"] = answer.warned.warnings();
    for (const auto& [stage, seconds] : answer.watch.stages()) {
        record["timings"][stage] = seconds;
    }
    record["timings"]["whole_s"] = answer.watch.whole();
    return record;
}

} // namespace

void writeTable(OutputFile& out, const CompareAnswer& answer, Progress&,
                const std::stop_token& stop) {
    writeSensorsCsv(out, answer.comparison.field, comparedColumns(answer.comparison), {}, stop);
}

void writeCells(OutputFile& out, const CompareAnswer& answer, Progress&,
                const std::stop_token& stop) {
    writeSensorsVtp(out, answer.comparison.field, comparedColumns(answer.comparison),
                    subtitleOf(answer.a, answer.b), stop);
}

/// The usual groups, of the names that both studies have.
void writeGroups(OutputFile& out, const CompareAnswer& answer, Progress&, const std::stop_token&) {
    const ResultFolder& a = answer.a;
    const ResultFolder& b = answer.b;
    const Comparison& comparison = answer.comparison;
    const auto columnsOf = [&](const ResultFolder& results) {
        std::vector<ResultColumn> columns;
        for (const std::string& value : comparison.values) {
            columns.push_back(*results.find(value));
        }
        return columns;
    };
    const std::vector<ResultColumn> columnsA = columnsOf(a);
    const std::vector<ResultColumn> columnsB = columnsOf(b);
    // A sensor that one side leaves out says nothing of the other's partner.
    std::vector<std::uint8_t> includedA(a.field.size(), 1);
    std::vector<std::uint8_t> includedB(b.field.size(), 1);
    for (const SensorPair& pair : comparison.pairs) {
        const bool counts = (a.included.empty() || a.included[pair.a] != 0) &&
                            (b.included.empty() || b.included[pair.b] != 0);
        if (!counts) {
            includedA[pair.a] = 0;
            includedB[pair.b] = 0;
        }
    }
    const std::vector<GroupBy> usualA = usualGroupings(a.field);
    std::vector<SensorGroups> groupsA;
    std::vector<SensorGroups> groupsB;
    for (const GroupBy& by : usualGroupings(b.field)) {
        if (std::find(usualA.begin(), usualA.end(), by) != usualA.end()) {
            groupsA.push_back(groupSensors(a.field, columnsA, a.areas, by,
                                           {.classes = answer.options.classes,
                                            .north = a.model.north,
                                            .included = includedA}));
            groupsB.push_back(groupSensors(b.field, columnsB, b.areas, by,
                                           {.classes = answer.options.classes,
                                            .north = b.model.north,
                                            .included = includedB}));
        }
    }
    writeComparedGroupsCsv(out, groupsA, groupsB, columnsB);
}

void writeOnlyA(OutputFile& out, const CompareAnswer& answer, Progress&,
                const std::stop_token& stop) {
    writeOnly(out, answer.a, answer.comparison.onlyA, stop);
}

void writeOnlyB(OutputFile& out, const CompareAnswer& answer, Progress&,
                const std::stop_token& stop) {
    writeOnly(out, answer.b, answer.comparison.onlyB, stop);
}

void writePicture(OutputFile& out, const CompareAnswer& answer, Progress& progress,
                  const std::stop_token& stop) {
    const Comparison& comparison = answer.comparison;
    ResultScene read;
    if (answer.scene == nullptr) {
        read = loadResultScene(answer.b, stop);
        if (!read.problem.empty()) {
            progress.warn(read.problem + "; the picture shows the cells alone");
        }
    }
    const ResultColumn column = inShownUnit(comparison.columns.front());
    PictureOptions picture;
    picture.subtitle = subtitleOf(answer.a, answer.b);
    picture.north = answer.b.model.north;
    picture.areas = comparison.areas;
    picture.colors = ColorScheme::diverging;
    drawPicture(out, answer.scene != nullptr ? *answer.scene : read.scene, comparison.field, column,
                picture, stop);
}

void writeSummary(OutputFile& out, const CompareAnswer& answer, Progress&, const std::stop_token&) {
    writeSummaryJson(out, recordOf(answer));
}

bool hasOnlyA(const CompareAnswer& answer) {
    return !answer.comparison.onlyA.empty();
}

bool hasOnlyB(const CompareAnswer& answer) {
    return !answer.comparison.onlyB.empty();
}

ResultFolder comparisonInMemory(const ResultFolder& a, const ResultFolder& b,
                                const Comparison& comparison) {
    const CompareRunOptions options;
    Stopwatch watch;
    Progress silent;
    KeptWarnings warned(silent);
    for (const std::string& doubt : comparison.doubts) {
        warned.warn(doubt);
    }
    ResultFolder folder =
        resultsInMemory(recordOf({options, watch, a, b, comparison, warned})
                            .dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace),
                        comparison.field, comparison.columns, comparison.areas);
    folder.facts.madeBy = subtitleOf(a, b);
    return folder;
}

} // namespace insolate::study
