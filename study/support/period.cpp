#include "study/support/period.h"

#include "study/support/errors.h"
#include "study/support/numbers.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>

#include <fmt/format.h>
#include <insolate/weather/weather_series.h>

namespace insolate::study {

namespace {

constexpr std::array<const char*, 12> monthNames = {
    "January", "February", "March",     "April",   "May",      "June",
    "July",    "August",   "September", "October", "November", "December"};

double parseClock(std::string_view text) {
    const auto fail = [&]() -> UsageError {
        return UsageError(fmt::format("{} is not a time of day; write hours from 0 to 24 such as "
                                      "8-18, 8:30-18 or 8.5-18",
                                      quoteText(trimmed(text))));
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

constexpr std::string_view dateFix =
    "write month/day such as 6/21, 2026-06-21, 21 June, or a day of the year from 1 to 365";

bool isDigits(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == text.npos;
}

/// "2026-06-21".
bool isIsoDate(std::string_view text) {
    const std::size_t dash = text.size() > 5 ? text.find('-', 5) : text.npos;
    return dash != text.npos && text[4] == '-' && isDigits(text.substr(0, 4)) &&
           isDigits(text.substr(5, dash - 5)) && isDigits(text.substr(dash + 1));
}

/// The month of an English name, whole or cut to three letters or more, in any case.
std::optional<int> monthOf(std::string_view word) {
    if (word.ends_with('.')) {
        word.remove_suffix(1);
    }
    for (std::size_t month = 0; word.size() >= 3 && month < monthNames.size(); ++month) {
        const std::string_view name = monthNames[month];
        if (word.size() <= name.size() &&
            std::equal(word.begin(), word.end(), name.begin(), [](char a, char b) {
                return std::tolower(static_cast<unsigned char>(a)) ==
                       std::tolower(static_cast<unsigned char>(b));
            })) {
            return static_cast<int>(month) + 1;
        }
    }
    return std::nullopt;
}

} // namespace

bool touchesLastDays(const StudyPeriod& period) {
    return period.contains(364) || period.contains(365);
}

StudyDate parseDate(std::string_view text) {
    text = trimmed(text);
    StudyDate date;
    if (const auto day = parseNumber<int>(text); day || text.empty()) {
        if (!day || *day < 1 || *day > 365) {
            throw UsageError(fmt::format("{}: no such day; {}", quoteText(text), dateFix));
        }
        date.day = *day;
        return date;
    }
    const std::size_t slash = text.find('/');
    std::optional<int> month;
    std::optional<int> day;
    if (slash != text.npos) {
        month = parseNumber<int>(text.substr(0, slash));
        day = parseNumber<int>(text.substr(slash + 1));
    } else if (isIsoDate(text)) {
        date.year = parseNumber<int>(text.substr(0, 4));
        const std::size_t dash = text.find('-', 5);
        month = parseNumber<int>(text.substr(5, dash - 5));
        day = parseNumber<int>(text.substr(dash + 1));
    } else {
        const std::size_t blank = text.find_first_of(" \t");
        const std::string_view one = text.substr(0, blank);
        const std::string_view other =
            blank == text.npos ? std::string_view() : trimmed(text.substr(blank));
        month = monthOf(one) ? monthOf(one) : monthOf(other);
        day = parseNumber<int>(monthOf(one) ? other : one);
    }
    if (!month || !day || *month < 1 || *month > 12) {
        throw UsageError(fmt::format("{}: no such month and day; {}", quoteText(text), dateFix));
    }
    if (*month == 2 && *day == 29) {
        throw UsageError(
            fmt::format("{}: the years here have 365 days, without 29 February; write 2/28 or 3/1",
                        quoteText(text)));
    }
    const int index = dayIndex(*month, *day);
    if (index < 0) {
        const int nextMonth = *month == 12 ? 365 : dayIndex(*month + 1, 1);
        throw UsageError(fmt::format("{}: {} has {} days; {}", quoteText(text), monthName(*month),
                                     nextMonth - dayIndex(*month, 1), dateFix));
    }
    date.day = index + 1;
    return date;
}

DateRange parseDateRange(std::string_view text) {
    const std::string_view dates = trimmed(text);
    // The dashes within a date of year, month and day part no range.
    std::size_t from = 0;
    if (dates.size() > 5 && dates[4] == '-' && isDigits(dates.substr(0, 4))) {
        from = dates.find('-', 5);
        from = from == dates.npos ? from : from + 1;
    }
    constexpr std::string_view word = " to ";
    const std::size_t to = dates.find(word);
    const std::size_t dash = from == dates.npos ? from : dates.find('-', from);
    const std::size_t end = to != dates.npos ? to : dash;
    if (end == dates.npos) {
        const StudyDate date = parseDate(dates);
        return {date, date};
    }
    const std::string_view first = trimmed(dates.substr(0, end));
    const std::string_view last = trimmed(dates.substr(end + (to != dates.npos ? word.size() : 1)));
    if (first.empty() || last.empty()) {
        throw UsageError(fmt::format("the {} date is missing; write two dates such as 6/1-8/31, or "
                                     "one without the dash",
                                     first.empty() ? "first" : "second"));
    }
    const DateRange range{parseDate(first), parseDate(last)};
    const auto month = parseNumber<int>(first);
    const auto day = parseNumber<int>(last);
    if (to == dates.npos && month && day && *month <= 12 && dayIndex(*month, *day) >= 0) {
        throw UsageError(fmt::format("{} may be {} {}, or the days {} to {} of the year, {} to {}; "
                                     "write {}/{} or {}/{}-{}/{}",
                                     quoteText(dates), *day, monthName(*month), *month, *day,
                                     dayText(range.first.day), dayText(range.last.day), *month,
                                     *day, 1, *month, 1, *day));
    }
    return range;
}

void parseDates(std::string_view text, StudyPeriod& period) {
    try {
        const DateRange range = parseDateRange(text);
        period.startDay = range.first.day;
        period.endDay = range.last.day;
    } catch (const UsageError& error) {
        throw UsageError(inOption("--period", text, error.what()));
    }
}

std::string inOption(std::string_view option, std::string_view text, std::string_view message) {
    const std::string quoted = quoteText(trimmed(text));
    return message.starts_with(quoted + ":") ? fmt::format("{} {}", option, message)
                                             : fmt::format("{} {}: {}", option, quoted, message);
}

HourRange parseHourRange(std::string_view text) {
    const std::string_view hours = trimmed(text);
    const std::size_t dash = hours.find('-', 1);
    if (dash == std::string_view::npos) {
        throw UsageError(fmt::format("{}: not a range of hours; write such as 8-18 or 8:30-18",
                                     quoteText(hours)));
    }
    const HourRange range{parseClock(hours.substr(0, dash)), parseClock(hours.substr(dash + 1))};
    if (!(range.start < range.end)) {
        throw UsageError(
            fmt::format("{}: the range is empty; the second time must be later on the same day",
                        quoteText(hours)));
    }
    return range;
}

void parseHours(std::string_view text, StudyPeriod& period) {
    try {
        const HourRange range = parseHourRange(text);
        period.startHour = range.start;
        period.endHour = range.end;
    } catch (const UsageError& error) {
        throw UsageError(inOption("--hours", text, error.what()));
    }
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
    if (!hasWholeDays()) {
        days += fmt::format(", {} to {}{}", clockText(startHour), clockText(endHour),
                            summerTime ? " by watches, " + summerTime->text() : "");
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
