/// `insolate run`: a study from files to files.
#pragma once

#include "app/run/run_options.h"
#include "app/terminal/progress.h"

namespace insolate::app {

/// Calculates and writes sensors.csv, sensors.vtp, heatmap.png and, last, summary.json.
/// @throws CommandError or OutputError; no file is left then
void runStudy(const RunOptions& options, Progress& progress);

} // namespace insolate::app
