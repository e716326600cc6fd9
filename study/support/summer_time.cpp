#include "study/support/summer_time.h"

#include "study/support/errors.h"
#include "study/support/period.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <vector>

#include <fmt/format.h>
#include <insolate/weather/weather_series.h>

namespace insolate::study {

namespace {

constexpr std::array rules = {
    SummerTimeRule{"eu",
                   "European Union",
                   {3, 5},
                   {10, 5},
                   "Directive 2000/84/EC of 19 January 2001, articles 2 and 3"},
    SummerTimeRule{"uk",
                   "United Kingdom",
                   {3, 5},
                   {10, 5},
                   "Summer Time Act 1972, as amended by the Summer Time Order 2002 (SI 2002/262)"},
    SummerTimeRule{"us",
                   "United States",
                   {3, 2},
                   {11, 1},
                   "15 U.S.C. 260a, as amended by the Energy Policy Act of 2005, section 110"},
    SummerTimeRule{
        "nz", "New Zealand", {9, 5}, {4, 1}, "New Zealand Daylight Time Order 2007 (SR 2007/185)"},
};

/// Day of a year of 365 days.
int dayOf(const ClockChange& change, int year) {
    namespace chrono = std::chrono;
    const chrono::year_month ofYear = chrono::year{year} / change.month;
    const chrono::sys_days sunday =
        change.sunday == 5
            ? chrono::sys_days(ofYear / chrono::Sunday[chrono::last])
            : chrono::sys_days(ofYear / chrono::Sunday[static_cast<unsigned>(change.sunday)]);
    const unsigned date = static_cast<unsigned>(chrono::year_month_day(sunday).day());
    return dayIndex(change.month, static_cast<int>(date)) + 1;
}

} // namespace

bool SummerTime::contains(int day) const {
    return lastDay >= firstDay ? day >= firstDay && day <= lastDay
                               : day >= firstDay || day <= lastDay;
}

std::string SummerTime::text() const {
    return fmt::format("summer time {} to {}{}", dayText(firstDay), dayText(lastDay),
                       rule.empty() ? "" : " (" + rule + ")");
}

std::span<const SummerTimeRule> summerTimeRules() {
    return rules;
}

std::optional<SummerTime> summerTimeOf(std::string_view text, int year) {
    if (text == "none") {
        return std::nullopt;
    }
    for (const SummerTimeRule& rule : rules) {
        if (text == rule.name) {
            return SummerTime{dayOf(rule.begin, year), (dayOf(rule.end, year) + 363) % 365 + 1,
                              fmt::format("{} {}", rule.name, year)};
        }
    }
    if (text.find_first_of("0123456789") == text.npos) {
        std::vector<std::string> names;
        names.reserve(rules.size());
        for (const SummerTimeRule& rule : rules) {
            names.emplace_back(rule.name);
        }
        throw UsageError(
            fmt::format("--dst: there is no {}; choose from {}, none, or give the first "
                        "and the last day: 3/30-10/25",
                        quoteText(text), fmt::join(names, ", ")));
    }
    try {
        const DateRange days = parseDateRange(text);
        return SummerTime{days.first.day, days.last.day};
    } catch (const UsageError& error) {
        throw UsageError(inOption("--dst", text, error.what()));
    }
}

} // namespace insolate::study
