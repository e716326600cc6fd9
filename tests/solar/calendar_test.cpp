#include <insolate/solar/solar_position.h>

#include <gtest/gtest.h>

#include <climits>

namespace {

const ESolarPosition calendar;

TEST(Calendar, EveryDayOfTheYearReturnsFromItsMonthAndDay) {
    for (int day = 1; day <= 365; ++day) {
        ESolarPosition::ESolarDayAndTime date;
        calendar.calculateMonthAndDay(day, date);
        ASSERT_GE(date.day, 1);
        ASSERT_LE(date.day, calendar.getMonthDayCount(date.month));
        // 31 December shares day 364 with the 30th.
        ASSERT_EQ(calendar.getDayOfTheYear(date.month, date.day), day == 365 ? 364 : day);
    }
}

TEST(Calendar, DayOfTheYearIsHeldBelow365) {
    EXPECT_EQ(calendar.getDayOfTheYear(11, 31), 364);
    EXPECT_EQ(calendar.getDayOfTheYear(11, 30), 364);
    EXPECT_EQ(calendar.getDayOfTheYear(0, 1), 1);
    EXPECT_EQ(calendar.getDayOfTheYear(0, -5), 0);
    EXPECT_EQ(calendar.getDayOfTheYear(11, INT_MAX), 364);
    EXPECT_EQ(calendar.getDayOfTheYear(12, 1), 0);
    EXPECT_EQ(calendar.getDayOfTheYear(-1, 1), 0);
}

TEST(Calendar, ImpossibleDatesAreHeldWithinTheCalendarAndWrittenBack) {
    struct Case {
        int day, month, dayAfter, monthAfter, dayOfYear;
    };
    for (const Case& one : {Case{30, 1, 28, 1, 59}, Case{0, -3, 1, 0, 1}, Case{31, 12, 31, 11, 364},
                            Case{31, 3, 30, 3, 120}, Case{4, 6, 4, 6, 185}}) {
        int day = one.day;
        int month = one.month;
        EXPECT_EQ(calendar.getDayOfTheYear(&day, &month), one.dayOfYear);
        EXPECT_EQ(day, one.dayAfter);
        EXPECT_EQ(month, one.monthAfter);
    }
}

TEST(Calendar, DatesOfDaysOfTheYear) {
    struct Case {
        int dayOfYear, day, month;
    };
    for (const Case& one : {Case{1, 1, 0}, Case{32, 1, 1}, Case{59, 28, 1}, Case{60, 1, 2},
                            Case{365, 31, 11}, Case{1000, 31, 11}, Case{-4, -4, 0}}) {
        int day = 99;
        int month = 99;
        EXPECT_EQ(calendar.getDate(one.dayOfYear, &day, &month), one.dayOfYear);
        EXPECT_EQ(day, one.day) << one.dayOfYear;
        EXPECT_EQ(month, one.month) << one.dayOfYear;
    }
    ESolarPosition position;
    position.setLocalTime(9.5);
    ESolarPosition::ESolarDayAndTime date;
    position.calculateMonthAndDay(200, date);
    EXPECT_EQ(date.time, 9.5);
}

TEST(Calendar, MonthsHaveNamesWithinTheYearOnly) {
    EXPECT_STREQ(calendar.getMonthName(0), "January");
    EXPECT_STREQ(calendar.getMonthName(11), "December");
    EXPECT_EQ(calendar.getMonthDayCount(1), 28);
    for (const int outside : {-1, 12, 13, INT_MIN, INT_MAX}) {
        EXPECT_STREQ(calendar.getMonthName(outside), "");
        EXPECT_EQ(calendar.getMonthDayCount(outside), 0);
        EXPECT_FALSE(calendar.isValidMonth(outside));
    }
}

TEST(Calendar, GenericWeekBeginsOnTheFirstOfJanuary) {
    const int expected[][2] = {{1, 0}, {5, 4}, {6, 5}, {7, 6}, {8, 0}, {0, -1}, {-7, -1}};
    for (const auto& [day, dayOfWeek] : expected) {
        EXPECT_EQ(calendar.getGenericDayOfTheWeek(day), dayOfWeek);
        EXPECT_EQ(calendar.isGenericWeekDay(day), dayOfWeek < 5);
    }
    EXPECT_EQ(calendar.getGenericDayOfTheWeek(INT_MIN), -3); // -(2^31 + 1) = -7 * 306783378 - 3
}

} // namespace
