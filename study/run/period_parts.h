/// Parts of a period whose results are wanted beside the whole: its months, or any others.
#pragma once

#include "study/export.h"
#include "study/support/period.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace insolate::study {

enum class PeriodSplit {
    none,
    month,
    season, ///< December to February, March to May, and so on
    day
};

/// A part as the user writes it; without hours it has those of the whole.
struct AskedPeriod {
    StudyPeriod period;
    bool hasHours = false;
    bool operator==(const AskedPeriod&) const = default;
};

struct NamedPeriod {
    /// The end of its columns' names: "jan", "jun_aug" for a season, "06_21" for a day,
    /// "06_01_08_31" for a range of days, "06_21_0900_1730" with hours.
    std::string name;
    std::string text; ///< "1 June to 31 August, 9:00 to 17:30"
    StudyPeriod period;
};

/// "month", "season" or "day".
/// @throws UsageError that begins with "--split"
INSOLATE_STUDY_EXPORT PeriodSplit parseSplit(std::string_view text);

/// Dates as for --period and, behind a colon, hours as for --hours: "3/21", "6/1-8/31:9-17".
/// @throws UsageError that begins with "--periods"
INSOLATE_STUDY_EXPORT AskedPeriod parseAskedPeriod(std::string_view text);

/// The parts of a period, in their order; a month that the period has at both of its ends is two
/// parts, "jun" and "jun_2".
/// @throws UsageError for one that does not lie in the period, or that differs from another by less
///         than their names say; the same part twice is one
INSOLATE_STUDY_EXPORT std::vector<NamedPeriod> partsOf(const StudyPeriod& whole, PeriodSplit split,
                                                       const std::vector<AskedPeriod>& asked);

} // namespace insolate::study
