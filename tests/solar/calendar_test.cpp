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

TEST(Calendar, ImpossibleDatesAreHeldWithinTheCalendar) {
    const int days[][3] = {{11, 31, 364}, {11, 30, 364},      {0, 1, 1}, {0, -5, 0},
                           {12, 1, 0},    {11, INT_MAX, 364}, {-1, 1, 0}};
    for (const auto& [month, day, dayOfYear] : days) {
        EXPECT_EQ(calendar.getDayOfTheYear(month, day), dayOfYear) << month << ' ' << day;
    }
    const struct {
        int day, month, dayAfter, monthAfter, dayOfYear;
    } writtenBack[] = {
        {30, 1, 28, 1, 59}, {0, -3, 1, 0, 1}, {31, 12, 31, 11, 364}, {31, 3, 30, 3, 120}};
    for (auto [day, month, dayAfter, monthAfter, dayOfYear] : writtenBack) {
        EXPECT_EQ(calendar.getDayOfTheYear(&day, &month), dayOfYear);
        EXPECT_EQ(day, dayAfter);
        EXPECT_EQ(month, monthAfter);
    }
}

TEST(Calendar, DatesOfDaysOfTheYear) {
    const int cases[][3] = {{1, 1, 0},     {32, 1, 1},     {59, 28, 1}, {60, 1, 2},
                            {365, 31, 11}, {1000, 31, 11}, {-4, -4, 0}};
    for (const auto& [dayOfYear, dayAfter, monthAfter] : cases) {
        int day = 99;
        int month = 99;
        EXPECT_EQ(calendar.getDate(dayOfYear, &day, &month), dayOfYear);
        EXPECT_EQ(day, dayAfter) << dayOfYear;
        EXPECT_EQ(month, monthAfter) << dayOfYear;
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
    for (const int outside : {-1, 12, INT_MIN, INT_MAX}) {
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
