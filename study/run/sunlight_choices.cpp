#include "study/run/sunlight_rules.h"
#include "study/support/errors.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace insolate::study {

SunlightRule ruleOf(const SunlightChoices& choices) {
    SunlightRule rule;
    std::vector<std::string> needed = {"dates"};
    std::string of = "; give days such as 3/21,12/21 or 2/19-10/21, or a --rule that has them";
    if (!choices.preset.empty()) {
        const SunlightPreset& preset = sunlightPreset(choices.preset);
        rule = preset.rule;
        needed = preset.needed;
        of = fmt::format("; {} ({}) leaves it to the place", preset.name, preset.edition);
    }
    const std::vector<std::pair<std::string, bool>> given = {
        {"dates", choices.days.has_value()},
        {"days", choices.dayRule.has_value()},
        {"time", choices.basis.has_value()},
        {"min-altitude", choices.leastAltitude.has_value()},
        {"count", choices.count.has_value()},
        {"min", choices.hoursOfSun.has_value()},
        {"max-shadow", choices.hoursOfShadow.has_value()},
        {"sunshine", !choices.sunshine.empty()}};
    for (const auto& [name, isGiven] : given) {
        if (!isGiven && std::find(needed.begin(), needed.end(), name) != needed.end()) {
            throw UsageError(fmt::format("--{} is missing{}", name, of));
        }
    }
    const auto take = [](const auto& choice, auto& value) {
        if (choice) {
            value = *choice;
        }
    };
    const auto inRange = [](const char* name, const std::optional<double>& value, double least,
                            double most, const char* what) {
        if (value && !(*value >= least && *value <= most)) {
            throw UsageError(fmt::format("--{} {:g}: out of range; give {} from {:g} to {:g}", name,
                                         *value, what, least, most));
        }
    };
    inRange("min-altitude", choices.leastAltitude, 0.0, 90.0, "degrees");
    inRange("min-plan-angle", choices.leastPlanAngle, 0.0, 89.0, "degrees");
    inRange("min-span", choices.leastSpan, 0.0, 1440.0, "minutes");
    inRange("min", choices.hoursOfSun, 0.0, 24.0, "hours");
    inRange("min-with-gap", choices.hoursWithGap, 0.0, 24.0, "hours");
    inRange("max-shadow", choices.hoursOfShadow, 0.0, 24.0, "hours");
    inRange("share", choices.share, 0.0, 100.0, "percent");
    inRange("min-area", choices.leastArea, 0.0, 1.0e9, "m2");
    inRange("ratio", choices.ratio, 0.0, 10.0, "a share such as 0.8");
    inRange("after-sunrise", choices.afterSunrise, 0.0, 24.0, "hours");
    inRange("before-sunset", choices.beforeSunset, 0.0, 24.0, "hours");
    inRange("year-share", choices.yearPercent, 0.0, 100.0, "percent");
    inRange("winter-share", choices.winterPercent, 0.0, 100.0, "percent");

    take(choices.days, rule.days);
    take(choices.dayRule, rule.dayRule);
    if (choices.afterSunrise || choices.beforeSunset) {
        if (choices.hours || choices.basis) {
            throw UsageError(
                fmt::format("--{} contradicts {}; the window is one or the other",
                            choices.hours ? "hours" : "time",
                            choices.afterSunrise ? "--after-sunrise" : "--before-sunset"));
        }
        if (rule.window.basis != TimeBasis::daylight) {
            rule.window = {TimeBasis::daylight, 0.0, 0.0};
        }
        take(choices.afterSunrise, rule.window.start);
        take(choices.beforeSunset, rule.window.end);
    }
    if (choices.basis || choices.hours) {
        if (rule.window.basis == TimeBasis::daylight) {
            if (!choices.hours) {
                throw UsageError("--time: the window counts from sunrise and sunset; give --hours, "
                                 "too, to replace it");
            }
            rule.window = SunWindow();
        }
        take(choices.basis, rule.window.basis);
        if (choices.hours) {
            rule.window.start = choices.hours->first;
            rule.window.end = choices.hours->second;
        }
    }
    take(choices.leastAltitude, rule.leastAltitude);
    take(choices.leastPlanAngle, rule.leastPlanAngle);
    take(choices.count, rule.count);
    take(choices.few, rule.few);
    take(choices.leastSpan, rule.leastSpan);
    if (choices.hoursOfSun && choices.hoursOfShadow) {
        throw UsageError("--max-shadow contradicts --min; ask for one of them at a time");
    }
    if (choices.hoursOfSun) {
        rule.sense = SunSense::sunAtLeast;
        rule.hours = choices.hoursOfSun;
    }
    if (choices.hoursOfShadow) {
        rule.sense = SunSense::shadowAtMost;
        rule.hours = choices.hoursOfShadow;
    }
    if (choices.hoursWithGap) {
        rule.hoursWithGap = choices.hoursWithGap;
    }
    if (rule.hoursWithGap && rule.count != SunCount::oneGap) {
        if (choices.hoursWithGap) {
            throw UsageError("--min-with-gap belongs to --count one-gap; give both or neither");
        }
        rule.hoursWithGap.reset();
    }
    take(choices.pass, rule.pass);
    take(choices.share, rule.share);
    if (choices.leastArea) {
        rule.leastArea = choices.leastArea;
    }
    if (choices.ratio) {
        rule.baselineRatio = choices.ratio;
    }
    if (!choices.sunshine.empty()) {
        if (choices.sunshine.size() != 12) {
            throw UsageError(fmt::format("--sunshine: {} numbers, not twelve; give the percent of "
                                         "the possible sunshine from January to December",
                                         choices.sunshine.size()));
        }
        for (const double percent : choices.sunshine) {
            inRange("sunshine", percent, 0.0, 100.0, "percent by month");
        }
        if (!rule.probable) {
            rule.probable.emplace();
        }
        for (std::size_t month = 0; month < 12; ++month) {
            rule.probable->share[month] = choices.sunshine[month] / 100.0;
        }
        take(choices.yearPercent, rule.probable->yearPercent);
        take(choices.winterPercent, rule.probable->winterPercent);
        if (rule.hours) {
            throw UsageError("--sunshine weighs a whole year, which passes by --year-share and "
                             "--winter-share; leave --min and --max-shadow out");
        }
    } else if (choices.yearPercent || choices.winterPercent) {
        throw UsageError(fmt::format("--{}-share belongs to a year of probable sun; give "
                                     "--sunshine, too",
                                     choices.yearPercent ? "year" : "winter"));
    }
    if (!rule.hours && !rule.probable && (choices.pass || choices.share)) {
        throw UsageError(fmt::format("--{} asks who must pass, but there is no threshold; give "
                                     "--min or --max-shadow",
                                     choices.pass ? "pass" : "share"));
    }
    if (choices.share && rule.pass == SunPass::points) {
        throw UsageError("--share belongs to --pass area or groups; give both or neither");
    }
    if (rule.sense == SunSense::shadowAtMost) {
        rule.baselineRatio.reset();
    }
    return rule;
}

} // namespace insolate::study
