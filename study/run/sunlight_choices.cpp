#include "study/run/sunlight_rules.h"
#include "study/support/errors.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace insolate::study {

namespace {

/// A choice that was made replaces the rule's own value.
constexpr auto take = [](const auto& choice, auto& value) {
    if (choice) {
        value = *choice;
    }
};

void requireInRange(const char* name, const std::optional<double>& value, double least, double most,
                    const char* what) {
    if (value && !(*value >= least && *value <= most)) {
        throw UsageError(fmt::format("--{} {:g}: out of range; give {} from {:g} to {:g}", name,
                                     *value, what, least, most));
    }
}

void requireRanges(const SunlightChoices& choices) {
    requireInRange("min-altitude", choices.leastAltitude, 0.0, 90.0, "degrees");
    requireInRange("min-plan-angle", choices.leastPlanAngle, 0.0, 89.0, "degrees");
    requireInRange("min-span", choices.leastSpan, 0.0, 1440.0, "minutes");
    requireInRange("min", choices.hoursOfSun, 0.0, 24.0, "hours");
    requireInRange("min-with-gap", choices.hoursWithGap, 0.0, 24.0, "hours");
    requireInRange("max-shadow", choices.hoursOfShadow, 0.0, 24.0, "hours");
    requireInRange("share", choices.share, 0.0, 100.0, "percent");
    requireInRange("min-area", choices.leastArea, 0.0, 1.0e9, "m2");
    requireInRange("ratio", choices.ratio, 0.0, 10.0, "a share such as 0.8");
    requireInRange("after-sunrise", choices.afterSunrise, 0.0, 24.0, "hours");
    requireInRange("before-sunset", choices.beforeSunset, 0.0, 24.0, "hours");
    requireInRange("year-share", choices.yearPercent, 0.0, 100.0, "percent");
    requireInRange("winter-share", choices.winterPercent, 0.0, 100.0, "percent");
}

/// The published rule, or one without any figures; what it leaves open must have been chosen.
SunlightRule startingRule(const SunlightChoices& choices) {
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
    return rule;
}

/// The hours of the day that count.
void takeWindow(const SunlightChoices& choices, SunWindow& window) {
    if (choices.afterSunrise || choices.beforeSunset) {
        if (choices.hours || choices.basis) {
            throw UsageError(
                fmt::format("--{} contradicts {}; the window is one or the other",
                            choices.hours ? "hours" : "time",
                            choices.afterSunrise ? "--after-sunrise" : "--before-sunset"));
        }
        if (window.basis != TimeBasis::daylight) {
            window = {TimeBasis::daylight, 0.0, 0.0};
        }
        take(choices.afterSunrise, window.start);
        take(choices.beforeSunset, window.end);
    }
    if (choices.basis || choices.hours) {
        if (window.basis == TimeBasis::daylight) {
            if (!choices.hours) {
                throw UsageError("--time: the window counts from sunrise and sunset; give --hours, "
                                 "too, to replace it");
            }
            window = SunWindow();
        }
        take(choices.basis, window.basis);
        if (choices.hours) {
            window.start = choices.hours->first;
            window.end = choices.hours->second;
        }
    }
}

/// How much sun or shadow decides.
void takeThreshold(const SunlightChoices& choices, SunlightRule& rule) {
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
}

/// The year of probable sun in the place of hours.
void takeSunshine(const SunlightChoices& choices, SunlightRule& rule) {
    if (choices.sunshine.empty()) {
        if (choices.yearPercent || choices.winterPercent) {
            throw UsageError(fmt::format("--{}-share belongs to a year of probable sun; give "
                                         "--sunshine, too",
                                         choices.yearPercent ? "year" : "winter"));
        }
        return;
    }
    if (choices.sunshine.size() != 12) {
        throw UsageError(fmt::format("--sunshine: {} numbers, not twelve; give the percent of "
                                     "the possible sunshine from January to December",
                                     choices.sunshine.size()));
    }
    for (const double percent : choices.sunshine) {
        requireInRange("sunshine", percent, 0.0, 100.0, "percent by month");
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
}

/// Who must pass.
void takePass(const SunlightChoices& choices, SunlightRule& rule) {
    take(choices.pass, rule.pass);
    take(choices.share, rule.share);
    if (choices.leastArea) {
        rule.leastArea = choices.leastArea;
    }
    if (choices.ratio) {
        rule.baselineRatio = choices.ratio;
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
}

} // namespace

SunlightRule ruleOf(const SunlightChoices& choices) {
    SunlightRule rule = startingRule(choices);
    requireRanges(choices);
    take(choices.days, rule.days);
    take(choices.dayRule, rule.dayRule);
    takeWindow(choices, rule.window);
    take(choices.leastAltitude, rule.leastAltitude);
    take(choices.leastPlanAngle, rule.leastPlanAngle);
    take(choices.count, rule.count);
    take(choices.few, rule.few);
    take(choices.leastSpan, rule.leastSpan);
    takeThreshold(choices, rule);
    takeSunshine(choices, rule);
    takePass(choices, rule);
    return rule;
}

} // namespace insolate::study
