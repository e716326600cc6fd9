/// `insolate run`: inputs -> study -> results -> files.
#pragma once

#include "study/export.h"
#include "study/run/run_options.h"
#include "study/support/progress.h"

#include <stop_token>

namespace insolate::study {

/// Prepares the study, calculates it, writes sensors.csv, groups.csv, sensors.vtp, heatmap.png,
/// what else the options ask for and, last, summary.json into the output folder, and reports what
/// came out.
/// @throws Error; no file is left then but finished sensors for --resume
INSOLATE_STUDY_EXPORT void runStudy(const RunOptions& options, Progress& progress,
                                    const std::stop_token& stop = {});

} // namespace insolate::study
