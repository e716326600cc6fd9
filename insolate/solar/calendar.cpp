#include <insolate/solar/calendar.h>
#include <insolate/solar/solar_position.h>

#include <algorithm>
#include <cstdint>

namespace insolate {

// Not const: the month names are handed out as char*.
Month monthTable[13] = {{"January", 31},   {"February", 28}, {"March", 31},    {"April", 30},
                        {"May", 31},       {"June", 30},     {"July", 31},     {"August", 31},
                        {"September", 30}, {"October", 31},  {"November", 30}, {"December", 31},
                        {"Oops!", -1}};

CalendarDate calendarDateOf(int dayOfYear) {
    int month = 0;
    int daysBefore = 0;
    while (month < ESolarPosition::MONTHS_PER_YEAR - 1 &&
           daysBefore + monthTable[month].dayCount < dayOfYear) {
        daysBefore += monthTable[month].dayCount;
        ++month;
    }
    return {month, std::min(dayOfYear - daysBefore, monthTable[month].dayCount)};
}

} // namespace insolate

using insolate::monthTable;

char* ESolarPosition::getMonthName(int month) const {
    static char noName[1] = "";
    return isValidMonth(month) ? monthTable[month].name : noName;
}

int ESolarPosition::getMonthDayCount(int month) const {
    return isValidMonth(month) ? monthTable[month].dayCount : 0;
}

bool ESolarPosition::isValidMonth(int month) const {
    return month >= 0 && month < MONTHS_PER_YEAR;
}

int ESolarPosition::getDayOfTheYear(int month, int day) const {
    if (!isValidMonth(month)) {
        return 0;
    }
    std::int64_t result = day;
    for (int before = 0; before < month; ++before) {
        result += monthTable[before].dayCount;
    }
    return static_cast<int>(std::clamp<std::int64_t>(result, 0, DAYS_PER_YEAR - 1));
}

int ESolarPosition::calculateDayOfTheYear(ESolarDayAndTime& date) const {
    date.month = std::clamp(date.month, 0, MONTHS_PER_YEAR - 1);
    date.day = std::clamp(date.day, 1, monthTable[date.month].dayCount);
    return getDayOfTheYear(date.month, date.day);
}

int ESolarPosition::getDayOfTheYear(int* day, int* month) const {
    ESolarDayAndTime date;
    date.day = *day;
    date.month = *month;
    const int result = calculateDayOfTheYear(date);
    *day = date.day;
    *month = date.month;
    return result;
}

void ESolarPosition::calculateMonthAndDay(int dayOfYear, ESolarDayAndTime& date) const {
    const insolate::CalendarDate found = insolate::calendarDateOf(dayOfYear);
    date.time = localTime;
    date.day = found.day;
    date.month = found.month;
}

int ESolarPosition::getDate(int dayOfYear, int* day, int* month) const {
    ESolarDayAndTime date;
    calculateMonthAndDay(dayOfYear, date);
    *day = date.day;
    *month = date.month;
    return dayOfYear;
}

int ESolarPosition::getDayOfTheYear() const {
    return dayOfTheYear;
}

int ESolarPosition::getYear() const {
    return year;
}

int ESolarPosition::getGenericDayOfTheWeek(int dayOfYear) const {
    return static_cast<int>((std::int64_t{dayOfYear} - 1) % 7);
}

bool ESolarPosition::isGenericWeekDay(int dayOfYear) const {
    return getGenericDayOfTheWeek(dayOfYear) < 5;
}
