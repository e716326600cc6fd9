#include "study/support/period.h"

#include "study/support/errors.h"
#include "study/support/numbers.h"

#include <array>
#include <cmath>

#include <fmt/format.h>
#include <insolate/weather/weather_series.h>

namespace insolate::study {

namespace {

constexpr std::array<const char*, 12> monthNames = {
    "January", "February", "March",     "April",   "May",      "June",
    "July",    "August",   "September", "October", "November", "December"};

double parseClock(std::string_view text, std::string_view whole) {
    const auto fail = [&]() -> UsageError {
        return UsageError(
            fmt::format("--hours {}: {} is not a time of day; write hours from 0 to 24 such as "
                        "8-18, 8:30-18 or 8.5-18",
                        quoteText(whole), quoteText(trimmed(text))));
    };
    double hours = 0.0;
    if (const std::size_t colon = text.find(':'); colon != std::string_view::npos) {
        const auto hour = parseNumber<int>(text.substr(0, colon));
        const auto minute = parseNumber<int>(text.substr(colon + 1));
        if (!hour || !minute || *hour < 0 || *minute < 0 || *minute > 59) {
            throw fail();
        }
        hours = *hour + *minute / 60.0;
    } else {
        const auto number = parseNumber<double>(text);
        if (!number) {
            throw fail();
        }
        hours = *number;
    }
    if (!(hours >= 0.0 && hours <= 24.0)) {
        throw fail();
    }
    return hours;
}

} // namespace

bool touchesLastDays(const StudyPeriod& period) {
    return period.contains(364) || period.contains(365);
}

int parseDate(std::string_view text) {
    constexpr std::string_view fix =
        "write month/day such as 6/21, or a day of the year from 1 to 365";
    text = trimmed(text);
    const std::size_t slash = text.find('/');
    if (slash == std::string_view::npos) {
        const auto day = parseNumber<int>(text);
        if (!day || *day < 1 || *day > 365) {
            throw UsageError(fmt::format("date {}: no such day; {}", quoteText(text), fix));
        }
        return *day;
    }
    const auto month = parseNumber<int>(text.substr(0, slash));
    const auto day = parseNumber<int>(text.substr(slash + 1));
    if (!month || !day || *month < 1 || *month > 12) {
        throw UsageError(fmt::format("date {}: no such month and day; {}", quoteText(text), fix));
    }
    if (*month == 2 && *day == 29) {
        throw UsageError(fmt::format(
            "date {}: the year of the weather has 365 days, without 29 February; write 2/28 or 3/1",
            quoteText(text)));
    }
    const int index = dayIndex(*month, *day);
    if (index < 0) {
        const int nextMonth = *month == 12 ? 365 : dayIndex(*month + 1, 1);
        throw UsageError(fmt::format("date {}: {} has {} days; {}", quoteText(text),
                                     monthName(*month), nextMonth - dayIndex(*month, 1), fix));
    }
    return index + 1;
}

void parseDates(std::string_view text, StudyPeriod& period) {
    const std::string_view dates = trimmed(text);
    const std::size_t dash = dates.find('-');
    if (dash == 0 || (!dates.empty() && dash == dates.size() - 1)) {
        throw UsageError(fmt::format("--period {}: the {} date is missing; write two dates such as "
                                     "6/1-8/31, or one without the dash",
                                     quoteText(text), dash == 0 ? "first" : "second"));
    }
    try {
        if (dash == std::string_view::npos) {
            period.startDay = parseDate(dates);
            period.endDay = period.startDay;
            return;
        }
        period.startDay = parseDate(dates.substr(0, dash));
        period.endDay = parseDate(dates.substr(dash + 1));
    } catch (const UsageError& error) {
        throw UsageError(fmt::format("--period {}: {}", quoteText(text), error.what()));
    }
}

void parseHours(std::string_view text, StudyPeriod& period) {
    const std::string_view hours = trimmed(text);
    const std::size_t dash = hours.find('-', 1);
    if (dash == std::string_view::npos) {
        throw UsageError(fmt::format(
            "--hours {}: not a range of hours; write such as 8-18 or 8:30-18", quoteText(text)));
    }
    const double start = parseClock(hours.substr(0, dash), text);
    const double end = parseClock(hours.substr(dash + 1), text);
    if (!(start < end)) {
        throw UsageError(fmt::format(
            "--hours {}: the range is empty; the second time must be later on the same day",
            quoteText(text)));
    }
    period.startHour = start;
    period.endHour = end;
}

void checkStep(double step) {
    if (!(step >= 0.01 && step <= 1.0)) {
        throw UsageError(fmt::format("--step {}: no usable step; give hours from 0.01 to 1", step));
    }
}

int StudyPeriod::dayCount() const {
    return endDay >= startDay ? endDay - startDay + 1 : endDay - startDay + 366;
}

bool StudyPeriod::contains(int day) const {
    return endDay >= startDay ? day >= startDay && day <= endDay : day >= startDay || day <= endDay;
}

std::string StudyPeriod::text() const {
    std::string days = startDay == endDay
                           ? dayText(startDay)
                           : fmt::format("{} to {}", dayText(startDay), dayText(endDay));
    if (startHour > 0.0 || endHour < 24.0) {
        days += fmt::format(", {} to {}", clockText(startHour), clockText(endHour));
    }
    return days;
}

const char* monthName(int month) {
    return monthNames[static_cast<std::size_t>(month - 1)];
}

std::string dayText(int dayOfYear) {
    const MonthAndDay date = monthAndDay(dayOfYear - 1);
    return fmt::format("{} {}", date.day, monthName(date.month));
}

std::string clockText(double hours) {
    const auto minutes = static_cast<int>(std::lround(hours * 60.0));
    return fmt::format("{}:{:02}", minutes / 60, minutes % 60);
}

std::string clockTextToSeconds(double hours) {
    const auto seconds = static_cast<int>(std::lround(hours * 3600.0));
    return fmt::format("{}:{:02}:{:02}", seconds / 3600, seconds / 60 % 60, seconds % 60);
}

} // namespace insolate::study
