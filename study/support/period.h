/// The analysis period as people write it: dates, hours of the day, and a step.
#pragma once

#include "study/export.h"
#include "study/support/summer_time.h"

#include <optional>
#include <string>
#include <string_view>

namespace insolate::study {

/// Every year has 365 days here; there is no 29 February.
struct INSOLATE_STUDY_EXPORT StudyPeriod {
    int startDay = 1; ///< day of the year, 1..365
    int endDay = 365; ///< day of the year, included; before startDay the period wraps over new year
    double startHour = 0.0; ///< clock time in decimal hours, 0 <= startHour < endHour
    double endHour = 24.0;  ///< clock time in decimal hours, not included, up to 24
    double step = 0.1;      ///< hours, 0 < step <= 1
    /// On its days the hours are those of watches; else, and without it, of standard time.
    std::optional<SummerTime> summerTime = {};

    static constexpr int yearOfRules = 2025; ///< for the Sundays of summer time

    bool operator==(const StudyPeriod&) const = default;

    /// Whether the hours make a difference.
    [[nodiscard]] bool hasWholeDays() const { return startHour <= 0.0 && endHour >= 24.0; }
    [[nodiscard]] int dayCount() const;
    /// @param day of the year, 1..365
    [[nodiscard]] bool contains(int day) const;
    /// "1 June to 31 August, 8:00 to 18:00", with the summer time that the hours go by.
    [[nodiscard]] std::string text() const;
};

/// Whether the period has 30 or 31 December, which older stores of weather mix up.
INSOLATE_STUDY_EXPORT bool touchesLastDays(const StudyPeriod& period);

struct StudyDate {
    int day = 1;                  ///< of the year, 1..365
    std::optional<int> year = {}; ///< where the text has one
};

struct DateRange {
    StudyDate first;
    StudyDate last; ///< included; before the first one the range wraps over new year
};

/// A date as month/day ("6/21"), year-month-day ("2026-06-21"), in words ("21 June", "Jun 21") or
/// as day of the year ("172").
/// @throws UsageError that begins with the text in quotes, then what is impossible about it and the
///         fix; without the option, see inOption()
INSOLATE_STUDY_EXPORT StudyDate parseDate(std::string_view text);

/// "6/1-8/31", "152-243", "11/1-2/28" (over new year), "2026-06-01 to 2026-08-31", "1 June - 31
/// August", or a single date for one day. "6-21", which may be meant for 21 June, is refused.
/// @throws UsageError as parseDate does
INSOLATE_STUDY_EXPORT DateRange parseDateRange(std::string_view text);

/// The days of a range; of dates with a year they are those of any year.
INSOLATE_STUDY_EXPORT void parseDates(std::string_view text, StudyPeriod& period);

struct HourRange {
    double start = 0.0; ///< clock time in decimal hours, 0..24
    double end = 24.0;  ///< later than start, not included
};

/// "8-18", "8:30-17:15" or "8.5-17.25".
/// @throws UsageError as parseDate does
INSOLATE_STUDY_EXPORT HourRange parseHourRange(std::string_view text);

/// The hours of --hours.
INSOLATE_STUDY_EXPORT void parseHours(std::string_view text, StudyPeriod& period);

/// "--period '6/40': no such month and day; ...": what is wrong with an option's text. A message
/// that begins with the text has it once.
INSOLATE_STUDY_EXPORT std::string inOption(std::string_view option, std::string_view text,
                                           std::string_view message);

/// A step in decimal hours.
INSOLATE_STUDY_EXPORT void checkStep(double step);

/// "June" for 6; month 1 to 12.
INSOLATE_STUDY_EXPORT const char* monthName(int month);

/// "21 June".
INSOLATE_STUDY_EXPORT std::string dayText(int dayOfYear);

/// "8:30"; rounded to minutes.
INSOLATE_STUDY_EXPORT std::string clockText(double hours);

/// "8:30:36"; rounded to seconds.
INSOLATE_STUDY_EXPORT std::string clockTextToSeconds(double hours);

} // namespace insolate::study
