/// `insolate sky`: the radiation of a period by sky cell.
#pragma once

#include "study/export.h"

#include "study/run/run_options.h"
#include "study/support/progress.h"

#include <stop_token>

namespace insolate::study {

/// Writes sky.csv, sky.png and, last, sky.json.
/// @throws Error; no file is left then
INSOLATE_STUDY_EXPORT void runSky(const SkyOptions& options, Progress& progress,
                                  const std::stop_token& stop = {});

} // namespace insolate::study
