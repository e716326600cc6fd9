/// The fixed calendar of 365 days.
#pragma once

#include <cstdint>

namespace insolate {

struct Month {
    char name[12];
    std::int32_t dayCount;
};

/// Twelve months and a closing record that no operation returns.
extern Month monthTable[13];

/// A month index (0 to 11) and a day of that month.
struct CalendarDate {
    int month;
    int day;
};

/// Days beyond 365 give 31 December; days below 1 give January with the day as it is.
CalendarDate calendarDateOf(int dayOfYear);

} // namespace insolate
