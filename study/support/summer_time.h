/// Summer time: the days on which watches run an hour ahead of the standard time of weather files
/// and sites.
#pragma once

#include "study/export.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace insolate::study {

struct INSOLATE_STUDY_EXPORT SummerTime {
    int firstDay = 1; ///< of the year, 1..365
    int lastDay = 1;  ///< included; before firstDay the days run over new year
    /// The rule that they come from, "eu 2025"; empty for dates that the user gave.
    std::string rule = {};
    bool operator==(const SummerTime&) const = default;

    /// @param day of the year, 1..365
    [[nodiscard]] bool contains(int day) const;
    /// "summer time 30 March to 25 October (eu 2025)".
    [[nodiscard]] std::string text() const;
};

/// The Sunday of a month at which clocks change.
struct ClockChange {
    int month = 1;  ///< 1..12
    int sunday = 1; ///< 1 is the first, 5 the last one
};

/// A law on summer time.
struct SummerTimeRule {
    const char* name;
    const char* title;
    ClockChange begin;
    ClockChange end;
    const char* source;
};

INSOLATE_STUDY_EXPORT std::span<const SummerTimeRule> summerTimeRules();

/// Summer time by the name of a rule or as two dates, both of them days of summer time,
/// "3/30-10/25"; nothing for "none". A day on which the clock changes counts as what holds from
/// morning on.
/// @param year of the calendar, for rules
/// @throws UsageError that begins with "--dst"
INSOLATE_STUDY_EXPORT std::optional<SummerTime> summerTimeOf(std::string_view text, int year);

} // namespace insolate::study
