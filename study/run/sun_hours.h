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
#include <optional>
#include <stop_token>
#include <string>

namespace insolate::study {

/// What sensors are grouped by.
enum class SunGroups { object, material, all };

struct SunHoursOptions {
    ModelOptions model;
    SiteOptions site;
    /// The sun of a date differs by 0.1 degrees between years; 1950..2050. 0: that of the dates, or
    /// else usualYear.
    int year = 0;
    std::optional<int> yearOfDates = {}; ///< where a date has one
    std::string summerTime = "none";     ///< as summerTimeOf() takes it
    bool refraction = false;             ///< the air lifts the sun, by half a degree at the horizon
    SunlightChoices rule;
    SunGroups groups = SunGroups::object;
    std::filesystem::path baseline; ///< results of an earlier run on the same sensors; or empty
    bool spans = false;             ///< spans.csv is wanted, too
    bool page = false;              ///< also leave page.html
    double pageLimit = 25.0;        ///< what it may weigh [MB], PageOptions::limit
    /// Sensors that see neither sky nor ground count in groups, verdict and colours.
    bool keepEnclosed = false;
    std::filesystem::path out;

    static constexpr int usualYear = 2025;
};

/// All options of the command, bound to the values that they set.
INSOLATE_STUDY_EXPORT void addSunHoursOptions(OptionTable& table, SunHoursOptions& options);

/// Does the whole, and writes sensors.csv, sensors.vtp, groups.csv, heatmap.png, page.html and
/// spans.csv where asked for and, last, summary.json.
/// @throws Error; no file is left then
INSOLATE_STUDY_EXPORT void runSunHours(const SunHoursOptions& options, Progress& progress,
                                       const std::stop_token& stop = {});

} // namespace insolate::study
