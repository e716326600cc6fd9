/// `insolate compare`: what differs between two studies, cell by cell and group by group.
#pragma once

#include "study/export.h"
#include "study/results/comparison.h"
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

} // namespace insolate::study
