/// `insolate sky`: the radiation of a period by sky cell.
#pragma once

#include "app/run/run_options.h"
#include "app/terminal/progress.h"

namespace insolate::app {

/// Writes sky.csv, sky.png and, last, sky.json.
/// @throws CommandError or OutputError; no file is left then
void runSky(const SkyOptions& options, Progress& progress);

} // namespace insolate::app
