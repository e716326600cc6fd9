/// `insolate run`: a study from files to files.
#pragma once

#include "study/run/run_options.h"
#include "study/support/progress.h"

#include <stop_token>

namespace insolate::study {

/// Calculates and writes sensors.csv, sensors.vtp, heatmap.png and, last, summary.json.
/// @throws Error; no file is left then
void runStudy(const RunOptions& options, Progress& progress, const std::stop_token& stop = {});

} // namespace insolate::study
