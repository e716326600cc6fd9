#include "study/run/sunlight_rules.h"

#include "study/support/errors.h"
#include "study/support/numbers.h"
#include "study/support/period.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <set>

#include <fmt/format.h>

namespace insolate::study {

namespace {

constexpr double minutesOfDay = 1440.0;

/// What of the possible time is not lit.
std::vector<TimeSpan> shadowOf(std::span<const TimeSpan> lit, std::span<const TimeSpan> possible) {
    std::vector<TimeSpan> shadow;
    for (const TimeSpan& whole : possible) {
        double free = whole.begin;
        for (const TimeSpan& span : lit) {
            if (span.end <= whole.begin || span.begin >= whole.end) {
                continue;
            }
            if (span.begin > free) {
                shadow.push_back({free, span.begin});
            }
            free = std::max(free, span.end);
        }
        if (whole.end > free) {
            shadow.push_back({free, whole.end});
        }
    }
    return shadow;
}

double countedOf(std::span<const TimeSpan> spans, const SunlightRule& rule) {
    std::vector<double> lengths;
    lengths.reserve(spans.size());
    for (const TimeSpan& span : spans) {
        lengths.push_back(span.length());
    }
    if (lengths.empty()) {
        return 0.0;
    }
    switch (rule.count) {
    case SunCount::sum:
        return std::accumulate(lengths.begin(), lengths.end(), 0.0);
    case SunCount::longest:
        return *std::max_element(lengths.begin(), lengths.end());
    case SunCount::longestFew: {
        std::sort(lengths.begin(), lengths.end(), std::greater<>());
        const auto few = std::min(lengths.size(), static_cast<std::size_t>(rule.few));
        return std::accumulate(lengths.begin(), lengths.begin() + static_cast<std::ptrdiff_t>(few),
                               0.0);
    }
    case SunCount::oneGap:
        break;
    }
    double most = lengths.front();
    for (std::size_t i = 1; i < lengths.size(); ++i) {
        most = std::max(most, lengths[i - 1] + lengths[i]);
    }
    return most;
}

/// Minutes of the clock at which true solar time shows so many.
double clockOfSolar(double solarMinutes, double midnight, const Site& site) {
    const double shift = 4.0 * (site.longitude - 15.0 * site.timeZone);
    double clock = solarMinutes - shift;
    for (int i = 0; i < 3; ++i) { // the equation of time changes by half a minute in a day
        clock = solarMinutes - shift -
                sunPosition(midnight + clock / minutesOfDay, site, {0.0, 0.0}).equationOfTime;
    }
    return clock;
}

std::string daysText(const SunlightRule& rule) {
    std::string text;
    for (std::size_t i = 0; i < rule.days.size();) {
        std::size_t end = i;
        while (end + 1 < rule.days.size() && rule.days[end + 1] == rule.days[end] + 1) {
            ++end;
        }
        text += text.empty() ? "" : ", ";
        text += dayText(rule.days[i]);
        if (end > i) {
            text += " to " + dayText(rule.days[end]);
        }
        i = end + 1;
    }
    if (rule.days.size() > 1 && !rule.probable) {
        text += rule.dayRule == DayRule::every ? ", every day" : ", any one day";
    }
    return text;
}

std::string windowText(const SunWindow& window) {
    const auto span = [&] { return clockText(window.start) + " to " + clockText(window.end); };
    switch (window.basis) {
    case TimeBasis::solar:
        return span() + " true solar time";
    case TimeBasis::daylight:
        return fmt::format("{} after sunrise to {} before sunset", clockText(window.start),
                           clockText(window.end));
    case TimeBasis::clock:
        break;
    }
    return window.start <= 0.0 && window.end >= 24.0
               ? "whole day of the clock"
               : span() + " clock time" +
                     (window.summerTime ? " by watches, " + window.summerTime->text() : "");
}

std::string countText(const SunlightRule& rule) {
    const char* const what = rule.sense == SunSense::sunAtLeast ? "sun" : "shadow";
    std::string text = rule.count == SunCount::sum       ? fmt::format("all {}", what)
                       : rule.count == SunCount::longest ? fmt::format("longest span of {}", what)
                       : rule.count == SunCount::longestFew
                           ? fmt::format("longest {} spans of {}", rule.few, what)
                           : fmt::format("two spans of {} with one gap", what);
    if (rule.leastSpan > 0.0) {
        text += fmt::format(" of {:g} minutes or more", rule.leastSpan);
    }
    return text;
}

std::string hoursText(double hours) {
    return hours > 0.0 && hours < 0.1 ? fmt::format("{:g} minutes", hours * 60.0)
                                      : fmt::format("{:.4g} h", hours);
}

std::string passText(const SunlightRule& rule) {
    switch (rule.pass) {
    case SunPass::area:
        return fmt::format("on {:g} % of each group's area{}", rule.share,
                           rule.leastArea ? fmt::format(" or {:g} m2", *rule.leastArea) : "");
    case SunPass::groups:
        return rule.share < 100.0 ? fmt::format("at one point in {:g} % of the groups", rule.share)
                                  : "at one point of each group";
    case SunPass::points:
        break;
    }
    return "at every point";
}

} // namespace

DayOfSun dayOfSun(std::span<const TimeSpan> lit, std::span<const TimeSpan> possible,
                  const SunlightRule& rule) {
    std::vector<TimeSpan> spans = rule.sense == SunSense::sunAtLeast
                                      ? std::vector<TimeSpan>(lit.begin(), lit.end())
                                      : shadowOf(lit, possible);
    std::erase_if(spans, [&](const TimeSpan& span) {
        return span.length() < rule.leastSpan - leastDifference;
    });
    DayOfSun day;
    day.counted = countedOf(spans, rule);
    constexpr double none = std::numeric_limits<double>::quiet_NaN();
    day.first = spans.empty() ? none : spans.front().begin;
    day.last = spans.empty() ? none : spans.back().end;
    for (const TimeSpan& span : spans) {
        day.longest = std::max(day.longest, span.length());
    }
    return day;
}

bool dayPasses(const DayOfSun& day, const SunlightRule& rule) {
    if (!rule.hours) {
        return true;
    }
    const double wanted = *rule.hours * 60.0;
    if (rule.sense == SunSense::shadowAtMost) {
        return day.counted <= wanted + leastDifference;
    }
    if (rule.count == SunCount::oneGap) {
        return day.longest >= wanted - leastDifference ||
               day.counted >= rule.hoursWithGap.value_or(*rule.hours) * 60.0 - leastDifference;
    }
    return day.counted >= wanted - leastDifference;
}

TimeSpan windowOf(const SunWindow& window, int year, int month, int day, const Site& site) {
    switch (window.basis) {
    case TimeBasis::solar: {
        const double midnight = julianDay(year, month, day, -site.timeZone);
        return {clockOfSolar(window.start * 60.0, midnight, site),
                clockOfSolar(window.end * 60.0, midnight, site)};
    }
    case TimeBasis::daylight: {
        const SunTimes times = sunTimes(year, month, day, site);
        if (times.kind == DayKind::PolarNight) {
            return {};
        }
        if (times.kind == DayKind::PolarDay) {
            return {0.0, minutesOfDay};
        }
        const TimeSpan span{(times.rise + window.start) * 60.0, (times.set - window.end) * 60.0};
        return span.length() > 0.0 ? span : TimeSpan();
    }
    case TimeBasis::clock:
        break;
    }
    // Whole days are those of the calendar by any clock.
    const bool isAhead = window.summerTime && (window.start > 0.0 || window.end < 24.0) &&
                         window.summerTime->contains(dayIndex(month, day) + 1);
    const double shift = isAhead ? 60.0 : 0.0;
    return {window.start * 60.0 - shift, window.end * 60.0 - shift};
}

std::vector<int> parseDays(std::string_view text, std::optional<int>* year) {
    std::set<int> days;
    std::optional<int> ofDates;
    const auto takeYear = [&](const StudyDate& date) {
        if (date.year && ofDates && *date.year != *ofDates) {
            throw UsageError("the dates are of several years; give those of one");
        }
        ofDates = date.year ? date.year : ofDates;
    };
    std::string_view rest = text;
    for (bool more = true; more;) {
        const std::size_t comma = rest.find(',');
        const std::string_view part = trimmed(rest.substr(0, comma));
        more = comma != std::string_view::npos;
        rest.remove_prefix(more ? comma + 1 : rest.size());
        try {
            const DateRange range = parseDateRange(part);
            takeYear(range.first);
            takeYear(range.last);
            for (int day = range.first.day;; day = day % 365 + 1) {
                days.insert(day);
                if (day == range.last.day) {
                    break;
                }
            }
        } catch (const UsageError& error) {
            throw UsageError(inOption("--dates", text, error.what()));
        }
    }
    if (year != nullptr) {
        *year = ofDates;
    }
    return {days.begin(), days.end()};
}

std::string ruleText(const SunlightRule& rule) {
    std::string text = daysText(rule) + "; " + windowText(rule.window);
    if (rule.leastAltitude > 0.0) {
        text += fmt::format("; sun {:g} degrees high or more", rule.leastAltitude);
    }
    if (rule.leastPlanAngle > 0.0) {
        text += fmt::format("; {:g} degrees off the facade in plan or more", rule.leastPlanAngle);
    }
    if (rule.probable) {
        return text + fmt::format("; at least {:g} % of the year's probable sun, {:g} % of it in "
                                  "winter, {}",
                                  rule.probable->yearPercent, rule.probable->winterPercent,
                                  passText(rule));
    }
    text += "; " + countText(rule);
    if (rule.hours) {
        text += fmt::format("; at {} {}", rule.sense == SunSense::sunAtLeast ? "least" : "most",
                            hoursText(*rule.hours));
        if (rule.count == SunCount::oneGap && rule.hoursWithGap) {
            text += fmt::format(" at a stretch or {:g} h with the gap", *rule.hoursWithGap);
        }
        text += " " + passText(rule);
    }
    return text;
}

} // namespace insolate::study
