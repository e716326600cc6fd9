#include "study/run/run_compare.h"

#include "study/files/folder_hold.h"
#include "study/files/output_folder.h"
#include "study/output/summary.h"
#include "study/results/result_folder.h"
#include "study/run/compare_files.h"
#include "study/run/result_files.h"
#include "study/run/run_option_table.h"
#include "study/run/run_options.h"
#include "study/run/stopwatch.h"
#include "study/support/kept_warnings.h"
#include "study/support/readable.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace insolate::study {

namespace {

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
    noteOnly("A", a, "only_a.csv", comparison.onlyA);
    noteOnly("B", b, "only_b.csv", comparison.onlyB);
    // A change closes a cell in, as a building on a square does, or opens it.
    const auto counts = [](const ResultFolder& results, std::uint32_t sensor) {
        return results.included.empty() || results.included[sensor] != 0;
    };
    for (const bool inB : {false, true}) {
        const auto closed = static_cast<std::size_t>(std::count_if(
            comparison.pairs.begin(), comparison.pairs.end(), [&](const SensorPair& pair) {
                return counts(a, pair.a) == inB && counts(b, pair.b) != inB;
            }));
        if (closed > 0) {
            progress.note(fmt::format(
                "{} {} enclosed in {} only and {} on neither side; --enclosed keep in both runs "
                "takes {} in, with what {} there",
                groupedDigits(closed), counted(closed, "sensor is", "sensors are"), inB ? "B" : "A",
                counted(closed, "counts", "count"), counted(closed, "it", "them"),
                counted(closed, "it gets", "they get")));
        }
    }
    const std::span columns(comparison.columns);
    const ResultColumn difference = inShownUnit(columns[0]);
    const ColumnRange range = rangeOf(difference.values, comparison.areas);
    progress.note(fmt::format(
        "{}: A {:.4g}, B {:.4g}, difference {:+.4g} {} ({}); {:+.4g} to {:+.4g} by sensor",
        b.find(comparison.values.front())->title,
        rangeOf(inShownUnit(columns[2]).values, comparison.areas).mean,
        rangeOf(inShownUnit(columns[3]).values, comparison.areas).mean, range.mean, difference.unit,
        comparison.areas.empty() ? "means" : "means by area", range.lowest, range.highest));
}

/// What the results must not replace.
std::vector<std::filesystem::path> filesReadBy(const CompareRunOptions& options) {
    std::vector<std::filesystem::path> files = resultFilesRead(options.a);
    for (std::filesystem::path& file : resultFilesRead(options.b)) {
        files.push_back(std::move(file));
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
               .take = [&](const std::string& text) {
                   std::vector<std::string>& values = options.matching.values;
                   if (std::find(values.begin(), values.end(), text) == values.end()) {
                       values.push_back(text);
                   }
               }});
    table.number("tolerance", options.matching.tolerance, "M",
                 "How far apart sensors may be that stand for the same place [m], where the grids "
                 "differ; by default three quarters of the edge of the coarser study's cells. 0 "
                 "compares the same places alone",
                 "metres");
    addOrientationOptions(table, options.classes);
    Option& out = table.file("out", options.out, "Folder for the results; made when missing");
    out.typeName = "FOLDER";
    out.path = Option::Path::output;
}

void runCompare(const CompareRunOptions& options, Progress& told, const std::stop_token& stop) {
    Stopwatch watch;
    KeptWarnings progress(told);
    checkOutFolder(options.out);
    checkClasses(options.classes);
    OutputFolder folder(options.out, filesReadBy(options));
    const FolderHold hold(progress, folder);
    requireFreeFolder<CompareAnswer>(folder, options);
    const ResultFolder a = readResultFolder(options.a, stop);
    const ResultFolder b = readResultFolder(options.b, stop);
    watch.lap("reading_s");
    const Comparison comparison = compareResults(a, b, options.matching, stop);
    watch.lap("comparison_s");
    reportComparison(a, b, comparison, progress);
    writeResults(folder, CompareAnswer{options, watch, a, b, comparison, progress}, progress, stop);
}

void saveComparison(const ResultFolder& a, const ResultFolder& b, const Comparison& comparison,
                    const Scene& scene, const std::filesystem::path& out, Progress& progress,
                    const std::stop_token& stop) {
    checkOutFolder(out);
    CompareRunOptions options;
    options.out = out;
    Stopwatch watch;
    Progress silent; // they were heard when the two were compared
    KeptWarnings warned(silent);
    for (const std::string& doubt : comparison.doubts) {
        warned.warn(doubt);
    }
    std::vector<std::filesystem::path> read = a.model.files;
    read.insert(read.end(), b.model.files.begin(), b.model.files.end());
    OutputFolder folder(out, std::move(read));
    const FolderHold hold(progress, folder);
    requireFreeFolder<CompareAnswer>(folder, options);
    writeResults(folder, CompareAnswer{options, watch, a, b, comparison, warned, &scene}, progress,
                 stop);
}

} // namespace insolate::study
