/// `insolate compare`: what differs between two studies, cell by cell and group by group.
#pragma once

#include "study/export.h"
#include "study/model/scene.h"
#include "study/results/comparison.h"
#include "study/results/result_folder.h"
#include "study/results/sensor_groups.h"
#include "study/run/option_table.h"
#include "study/support/progress.h"

#include <filesystem>
#include <stop_token>

namespace insolate::study {

struct CompareRunOptions {
    std::filesystem::path a; ///< folder of results, as they were
    std::filesystem::path b; ///< as they are now
    CompareOptions matching;
    OrientationClasses classes = {}; ///< of the groups
    std::filesystem::path out;
};

/// The options of the command behind its two folders, bound to the values that they set.
INSOLATE_STUDY_EXPORT void addCompareOptions(OptionTable& table, CompareRunOptions& options);

/// Writes sensors.csv, sensors.vtp, groups.csv, heatmap.png, only_a.csv and only_b.csv where there
/// are such cells and, last, summary.json.
/// @throws Error; no file is left then
INSOLATE_STUDY_EXPORT void runCompare(const CompareRunOptions& options, Progress& progress,
                                      const std::stop_token& stop = {});

/// Writes the files of `insolate compare` into the folder, which is made when it is missing, of
/// results that are in memory.
/// @param scene around the sensors of b
/// @throws OutputError, Stopped; no file is left then
INSOLATE_STUDY_EXPORT void saveComparison(const ResultFolder& a, const ResultFolder& b,
                                          const Comparison& comparison, const Scene& scene,
                                          const std::filesystem::path& out, Progress& progress,
                                          const std::stop_token& stop = {});

/// As what reads earlier results takes it: to draw it.
INSOLATE_STUDY_EXPORT ResultFolder comparisonInMemory(const ResultFolder& a, const ResultFolder& b,
                                                      const Comparison& comparison);

} // namespace insolate::study
