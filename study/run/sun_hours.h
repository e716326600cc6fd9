/// `insolate sunhours`: how long the sun shines on sensors, to a tenth of a minute, and whether
/// that satisfies a rule. From the place, the model and the calendar alone; no weather.
#pragma once

#include "study/export.h"
#include "study/run/option_table.h"
#include "study/run/run_options.h"
#include "study/run/site_options.h"
#include "study/run/sunlight_rules.h"
#include "study/support/progress.h"

#include <filesystem>
#include <stop_token>

namespace insolate::study {

/// What sensors are grouped by.
enum class SunGroups { object, material, all };

struct SunHoursOptions {
    ModelOptions model;
    SiteOptions site;
    int year = 2025;         ///< the sun of a date differs by 0.1 degrees between years; 1950..2050
    bool refraction = false; ///< the air lifts the sun, by half a degree at the horizon
    SunlightChoices rule;
    SunGroups groups = SunGroups::object;
    std::filesystem::path baseline; ///< results of an earlier run on the same sensors; or empty
    bool spans = false;             ///< spans.csv is wanted, too
    std::filesystem::path out;
};

/// All options of the command, bound to the values that they set.
INSOLATE_STUDY_EXPORT void addSunHoursOptions(OptionTable& table, SunHoursOptions& options);

/// Does the whole, and writes sensors.csv, sensors.vtp, groups.csv, heatmap.png, spans.csv where
/// asked for and, last, summary.json.
/// @throws Error; no file is left then
INSOLATE_STUDY_EXPORT void runSunHours(const SunHoursOptions& options, Progress& progress,
                                       const std::stop_token& stop = {});

} // namespace insolate::study
