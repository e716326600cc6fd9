/// The options of `insolate run` and `insolate sky`, bound to their values.
#pragma once

#include "study/run/option_table.h"
#include "study/run/run_options.h"

namespace insolate::study {

/// @param methods the names that --method takes
void addSkyOptions(OptionTable& table, SkyOptions& options, const std::vector<std::string>& methods);

/// Those of the sky and all others of a run.
void addRunOptions(OptionTable& table, RunOptions& options);

} // namespace insolate::study
