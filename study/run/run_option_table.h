/// The options of `insolate run` and `insolate sky`, bound to their values.
#pragma once

#include "study/export.h"

#include "study/run/option_table.h"
#include "study/run/run_options.h"

#include <functional>
#include <string>

namespace insolate::study {

/// @param methods the names that --method takes
INSOLATE_STUDY_EXPORT void addSkyOptions(OptionTable& table, SkyOptions& options,
                                         const std::vector<std::string>& methods);

/// --dst, which gives a text that summerTimeOf() takes.
void addSummerTimeOption(OptionTable& table, std::function<void(const std::string&)> take);

/// --flat and --sectors: how `orientation` divides directions into groups.
void addOrientationOptions(OptionTable& table, OrientationClasses& classes);

/// --enclosed
void addEnclosedOption(OptionTable& table, bool& keep);

/// --page and --page-limit
void addPageOptions(OptionTable& table, bool& page, double& limit);

/// The unit of that name: mm, cm, m, ft or in.
/// @throws UsageError beginning with "--OPTION"
INSOLATE_STUDY_EXPORT LengthUnit lengthUnitOf(const std::string& option, const std::string& name);

/// Scene, sensors and the machine.
INSOLATE_STUDY_EXPORT void addModelOptions(OptionTable& table, ModelOptions& options);

/// Those of the sky, the model, and all others of a run.
INSOLATE_STUDY_EXPORT void addRunOptions(OptionTable& table, RunOptions& options);

} // namespace insolate::study
