/// Rules about sunlight: when the sun counts, how it is counted, and who must have how much of it.
#pragma once

#include "study/export.h"
#include "study/support/summer_time.h"

#include <insolate/insolate.h>

#include <array>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace insolate::study {

/// What the hours of a window are counted by.
enum class TimeBasis {
    clock,   ///< of the site's time zone
    solar,   ///< true solar time: the sun crosses the meridian at 12
    daylight ///< from sunrise and to sunset, the disc's upper edge on the horizon
};

/// The part of a day in which the sun counts.
struct SunWindow {
    TimeBasis basis = TimeBasis::clock;
    double start = 0.0; ///< hour of the day; by daylight: hours after sunrise
    double end = 24.0;  ///< hour of the day; by daylight: hours before sunset
    /// By clock: on these days the hours are those of watches, one ahead of the site's zone.
    std::optional<SummerTime> summerTime = {};
};

/// Which of a rule's days must satisfy it.
enum class DayRule { every, any };

/// What of a day's spans of sun counts.
enum class SunCount {
    sum,        ///< all of them
    longest,    ///< the longest one
    longestFew, ///< the sum of the longest ones
    oneGap      ///< two that follow each other, with whatever gap between
};

enum class SunSense { sunAtLeast, shadowAtMost };

/// Who must satisfy the rule.
enum class SunPass {
    points, ///< every sensor
    area,   ///< a share of the area of every group
    groups  ///< one sensor of every group, or of a share of the groups
};

/// A long-term share of the possible sunshine by month, for rules that weigh a whole year by its
/// clouds: each minute of sun counts that much.
struct ProbableSun {
    std::array<double, 12> share{}; ///< 0..1
    double yearPercent = 25.0;      ///< least share of the year's probable sun
    double winterPercent = 5.0;     ///< least share of the same that must come in the winter part
    int winterStart = 264;          ///< day of the year, 21 September
    int winterEnd = 80;             ///< day of the year, 21 March
};

struct SunlightRule {
    std::vector<int> days; ///< of the year, 1..365, in order, each once
    DayRule dayRule = DayRule::every;
    SunWindow window;
    double leastAltitude = 0.0;  ///< of the sun's centre [degrees], 0..90
    double leastPlanAngle = 0.0; ///< between the sun's ray and a facade in plan [degrees], 0..89
    SunCount count = SunCount::sum;
    int few = 2;            ///< spans that SunCount::longestFew adds up, >= 1
    double leastSpan = 0.0; ///< shorter spans do not count [minutes]
    SunSense sense = SunSense::sunAtLeast;
    std::optional<double> hours;        ///< the threshold; absent: nothing passes or fails
    std::optional<double> hoursWithGap; ///< of SunCount::oneGap, when the longest span alone has
                                        ///< not reached `hours`; absent: `hours`
    SunPass pass = SunPass::points;
    double share = 100.0;                ///< of the area or of the groups [percent]
    std::optional<double> leastArea;     ///< satisfies a group, too [m2]
    std::optional<double> baselineRatio; ///< of what there was before; satisfies, too
    std::optional<ProbableSun> probable; ///< a rule of the year; hours and counting play no part
};

/// The minutes of a day that count, and when the sun came and went.
struct DayOfSun {
    double counted = 0.0; ///< by the rule's count and sense
    double longest = 0.0; ///< span, of those that count
    double first = 0.0;   ///< begin of the first one; NaN without any
    double last = 0.0;    ///< end of the last one; NaN without any
};

/// Differences of time that decide nothing: a thousandth of a minute is left at the ends of spans.
inline constexpr double leastDifference = 0.005; // minutes

/// @param lit spans of sun, in order
/// @param possible spans in which the rule's sun stands in the sky, in order
INSOLATE_STUDY_EXPORT DayOfSun dayOfSun(std::span<const TimeSpan> lit,
                                        std::span<const TimeSpan> possible,
                                        const SunlightRule& rule);

/// Whether a day satisfies the rule's threshold.
INSOLATE_STUDY_EXPORT bool dayPasses(const DayOfSun& day, const SunlightRule& rule);

/// The window of a date in minutes of the site's clock; empty where it has none, as in polar night.
INSOLATE_STUDY_EXPORT TimeSpan windowOf(const SunWindow& window, int year, int month, int day,
                                        const Site& site);

/// A published rule. What its sources leave open stands in `needed` and must be given.
struct SunlightPreset {
    std::string name;    ///< "nl-light"
    std::string title;   ///< "TNO light"
    std::string country; ///< "Netherlands"
    std::string edition; ///< as cited
    SunlightRule rule;
    std::vector<std::string> needed; ///< names of options: "min-altitude"
    std::string note;                ///< on what the rule asks for beyond this, or empty
};

/// All of them, by country.
INSOLATE_STUDY_EXPORT const std::vector<SunlightPreset>& sunlightPresets();

/// @throws UsageError that names the ones there are
INSOLATE_STUDY_EXPORT const SunlightPreset& sunlightPreset(std::string_view name);

/// What a user says of a rule. What is absent is as the preset has it or, without one, as a plain
/// SunlightRule does.
struct SunlightChoices {
    std::string preset; ///< empty: none
    std::optional<std::vector<int>> days;
    std::optional<DayRule> dayRule;
    std::optional<TimeBasis> basis;                 ///< clock or solar
    std::optional<std::pair<double, double>> hours; ///< of that basis
    std::optional<double> afterSunrise;  ///< hours; either makes the window one of daylight
    std::optional<double> beforeSunset;  ///< hours
    std::optional<double> leastAltitude; ///< as in SunlightRule, and so on
    std::optional<double> leastPlanAngle;
    std::optional<SunCount> count;
    std::optional<int> few;
    std::optional<double> leastSpan;
    std::optional<double> hoursOfSun;    ///< at least
    std::optional<double> hoursOfShadow; ///< at most
    std::optional<double> hoursWithGap;
    std::optional<SunPass> pass;
    std::optional<double> share;
    std::optional<double> leastArea;
    std::optional<double> ratio;
    std::vector<double> sunshine;      ///< percent of the possible, by month; or empty
    std::optional<double> yearPercent; ///< with sunshine
    std::optional<double> winterPercent;
};

/// The rule that the choices make.
/// @throws UsageError naming the option that is missing, out of its range, or contradicts another
INSOLATE_STUDY_EXPORT SunlightRule ruleOf(const SunlightChoices& choices);

/// "3/21,12/21", "2/19-10/21": days of the year in the order of the calendar, each once.
/// @throws UsageError that begins with "--dates"
/// @param year receives that of the dates where one has it
INSOLATE_STUDY_EXPORT std::vector<int> parseDays(std::string_view text,
                                                 std::optional<int>* year = nullptr);

/// "21 March; 9:00 to 15:00 true solar time; sum of all spans of sun; at least 2 h": all that was
/// asked, for people.
INSOLATE_STUDY_EXPORT std::string ruleText(const SunlightRule& rule);

} // namespace insolate::study
