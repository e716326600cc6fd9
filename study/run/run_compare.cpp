#include "study/run/run_compare.h"

#include "study/files/folder_hold.h"
#include "study/files/output_folder.h"
#include "study/output/compared_groups.h"
#include "study/output/group_table.h"
#include "study/output/picture.h"
#include "study/output/sensor_tables.h"
#include "study/output/summary.h"
#include "study/results/result_folder.h"
#include "study/results/result_scene.h"
#include "study/results/sensor_groups.h"
#include "study/run/stopwatch.h"
#include "study/support/errors.h"
#include "study/support/kept_warnings.h"
#include "study/support/readable.h"

#include <algorithm>
#include <numeric>
#include <string>
#include <system_error>
#include <vector>

#include <fmt/format.h>
#include <insolate/version.h>
#include <nlohmann/json.hpp>

namespace insolate::study {

namespace {

constexpr ResultName tableFile{"sensors.csv", isOurSensorsCsv};
constexpr ResultName cellsFile{"sensors.vtp", isOurSensorsVtp};
constexpr ResultName groupsFile{"groups.csv", isOurGroupsCsv};
constexpr ResultName onlyAFile{"only_a.csv", isOurSensorsCsv};
constexpr ResultName onlyBFile{"only_b.csv", isOurSensorsCsv};
constexpr ResultName pictureFile{"heatmap.png", isOurPicture};
constexpr ResultName summaryFile{"summary.json", isOurSummary};

/// "A: before: Testville; ...; insolate 0.1.0".
std::string sideText(const char* side, const ResultFolder& results) {
    return fmt::format("{}: {}{}{}", side, printable(results.folder.string()),
                       results.facts.madeBy.empty() ? "" : ": ", results.facts.madeBy);
}

std::string subtitleOf(const ResultFolder& a, const ResultFolder& b) {
    if (a.facts.madeBy == b.facts.madeBy) {
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

/// The usual groups, of the names that both studies have.
void writeGroups(OutputFile& out, const ResultFolder& a, const ResultFolder& b,
                 const Comparison& comparison) {
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
                                           {.north = a.model.north, .included = includedA}));
            groupsB.push_back(groupSensors(b.field, columnsB, b.areas, by,
                                           {.north = b.model.north, .included = includedB}));
        }
    }
    writeComparedGroupsCsv(out, groupsA, groupsB, columnsB);
}

nlohmann::ordered_json recordOf(const CompareRunOptions& options, const ResultFolder& a,
                                const ResultFolder& b, const Comparison& comparison,
                                const std::vector<std::string>& warnings, const Stopwatch& watch) {
    nlohmann::ordered_json record;
    record["versions"] = versionsInUse();
    const auto side = [&](const ResultFolder& results, std::size_t only) {
        std::error_code problem;
        return nlohmann::ordered_json{
            {"folder", results.folder.string()},
            {"folder_from_here",
             std::filesystem::proximate(results.folder, options.out, problem).string()},
            {"made_by", results.facts.madeBy},
            {"sensors", results.field.size()},
            {"without_a_partner", only}};
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
                std::filesystem::proximate(b.folder / file, options.out, problem).string());
        }
    }
    record["sensors"]["count"] = comparison.field.size();
    if (!comparison.areas.empty()) {
        record["sensors"]["area_m2"] =
            std::accumulate(comparison.areas.begin(), comparison.areas.end(), 0.0);
    }
    record["sensors"]["means_weighted_by"] = comparison.areas.empty() ? "count" : "area";
    record["results"] = rangesOf(comparison.columns, comparison.areas);
    record["warnings"] = warnings;
    for (const auto& [stage, seconds] : watch.stages()) {
        record["timings"][stage] = seconds;
    }
    record["timings"]["whole_s"] = watch.whole();
    return record;
}

/// What a person should know of the pairs and of the first quantity.
void reportComparison(const ResultFolder& a, const ResultFolder& b, const Comparison& comparison,
                      Progress& progress) {
    for (const std::string& doubt : comparison.doubts) {
        progress.warn(doubt);
    }
    std::string text =
        fmt::format("sensors: {} of A, {} of B; {} pairs, {} of them at the same place",
                    groupedDigits(a.field.size()), groupedDigits(b.field.size()),
                    groupedDigits(comparison.pairs.size()), groupedDigits(comparison.samePlaces));
    if (comparison.samePlaces < comparison.pairs.size()) {
        text += fmt::format(", the others within {:.3g} m", comparison.tolerance);
    }
    progress.note(text);
    const auto noteOnly = [&](const char* side, const ResultFolder& results, std::string_view name,
                              const std::vector<std::uint32_t>& sensors) {
        if (sensors.empty()) {
            return;
        }
        double area = 0.0;
        for (const std::uint32_t i : sensors) {
            area += results.areas.empty() ? 0.0 : static_cast<double>(results.areas[i]);
        }
        progress.note(fmt::format("{} {} only in {}{}: {}", groupedDigits(sensors.size()),
                                  counted(sensors.size(), "sensor is", "sensors are"), side,
                                  results.areas.empty() ? "" : fmt::format(" ({:.4g} m2)", area),
                                  name));
    };
    noteOnly("A", a, onlyAFile.name, comparison.onlyA);
    noteOnly("B", b, onlyBFile.name, comparison.onlyB);
    const std::span columns(comparison.columns);
    const auto shown = [](ResultColumn column) {
        return column.unit == "Wh/m2" ? inKilowattHours(std::move(column)) : column;
    };
    const ResultColumn difference = shown(columns[0]);
    const ColumnRange range = rangeOf(difference.values, comparison.areas);
    progress.note(fmt::format(
        "{}: A {:.4g}, B {:.4g}, difference {:+.4g} {} ({}); {:+.4g} to {:+.4g} by sensor",
        b.find(comparison.values.front())->title,
        rangeOf(shown(columns[2]).values, comparison.areas).mean,
        rangeOf(shown(columns[3]).values, comparison.areas).mean, range.mean, difference.unit,
        comparison.areas.empty() ? "means" : "means by area", range.lowest, range.highest));
}

void drawDifference(OutputFile& out, const ResultFolder& a, const ResultFolder& b,
                    const Comparison& comparison, Progress& progress, const std::stop_token& stop) {
    const ResultScene scene = loadResultScene(b, stop);
    if (!scene.problem.empty()) {
        progress.warn(scene.problem + "; the picture shows the cells alone");
    }
    ResultColumn column = comparison.columns.front();
    if (column.unit == "Wh/m2") {
        column = inKilowattHours(std::move(column));
    }
    PictureOptions picture;
    picture.subtitle = subtitleOf(a, b);
    picture.north = b.model.north;
    picture.areas = comparison.areas;
    picture.colors = ColorScheme::diverging;
    drawPicture(out, scene.scene, comparison.field, column, picture, stop);
}

/// What the results must not replace.
std::vector<std::filesystem::path> filesReadBy(const CompareRunOptions& options) {
    std::vector<std::filesystem::path> files;
    for (const std::filesystem::path& folder : {options.a, options.b}) {
        for (const char* const name : {"sensors.csv", "sensors.vtp", "summary.json"}) {
            files.push_back(folder / name);
        }
    }
    return files;
}

} // namespace

void addCompareOptions(OptionTable& table, CompareRunOptions& options) {
    table.add({.name = "value",
               .kind = Option::Kind::list,
               .help = "Quantities to compare, by their names in sensors.csv: total,peak; by "
                       "default all that both have. The picture shows the first",
               .typeName = "NAME,...",
               .separator = ',',
               .take = [&](const std::string& text) { options.matching.values.push_back(text); }});
    table.number("tolerance", options.matching.tolerance, "M",
                 "How far apart sensors may be that stand for the same place [m], where the grids "
                 "differ; by default three quarters of the edge of the coarser study's cells. 0 "
                 "compares the same places alone",
                 "metres");
    Option& out = table.file("out", options.out, "Folder for the results; made when missing");
    out.typeName = "FOLDER";
    out.path = Option::Path::output;
}

void runCompare(const CompareRunOptions& options, Progress& told, const std::stop_token& stop) {
    Stopwatch watch;
    KeptWarnings progress(told);
    if (options.out.empty()) {
        throw UsageError("--out is missing; give the folder for the results");
    }
    OutputFolder folder(options.out, filesReadBy(options));
    const FolderHold hold(progress, folder);
    for (const std::string& note : folder.notes()) {
        progress.note(note);
    }
    for (const ResultName& result :
         {tableFile, cellsFile, groupsFile, onlyAFile, onlyBFile, pictureFile, summaryFile}) {
        folder.requireFree(result);
    }
    const ResultFolder a = readResultFolder(options.a, stop);
    const ResultFolder b = readResultFolder(options.b, stop);
    watch.lap("reading_s");
    const Comparison comparison = compareResults(a, b, options.matching, stop);
    watch.lap("comparison_s");
    reportComparison(a, b, comparison, progress);

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
    writeSensorsCsv(folder.stage(tableFile), comparison.field, columns, {}, stop);
    writeSensorsVtp(folder.stage(cellsFile), comparison.field, columns, subtitleOf(a, b), stop);
    writeGroups(folder.stage(groupsFile), a, b, comparison);
    std::string names = "sensors.csv, sensors.vtp, groups.csv";
    struct Only {
        const ResultName& file;
        const ResultFolder& results;
        const std::vector<std::uint32_t>& sensors;
    };
    for (const Only& only :
         {Only{onlyAFile, a, comparison.onlyA}, Only{onlyBFile, b, comparison.onlyB}}) {
        if (!only.sensors.empty()) {
            writeOnly(folder.stage(only.file), only.results, only.sensors, stop);
            names += fmt::format(", {}", only.file.name);
        } else {
            folder.retire(only.file);
        }
    }
    drawDifference(folder.stage(pictureFile), a, b, comparison, progress, stop);
    throwIfStopped(stop);
    watch.lap("files_s");
    writeSummaryJson(folder.stage(summaryFile),
                     recordOf(options, a, b, comparison, progress.warnings(), watch));
    folder.commit();
    progress.note(fmt::format("wrote {}, heatmap.png and summary.json in {} ({})", names,
                              options.out.string(), durationText(watch.whole())));
}

} // namespace insolate::study
