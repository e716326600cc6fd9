#include "study/support/errors.h"
#include "study/support/period.h"
#include "tests/study/support/study_fixture.h"

#include <gmock/gmock.h>

namespace insolate::study {
namespace {

TEST(Period, ReadsDatesAndHoursInAllForms) {
    const struct {
        const char *dates, *hours, *text;
        int days;
    } cases[] = {
        {"6/1-8/31", "8:30-18", "1 June to 31 August, 8:30 to 18:00", 92},
        {"152-243", "8.5-17.25", "1 June to 31 August, 8:30 to 17:15", 92},
        {" 1/1 - 12/31 ", "0-24", "1 January to 31 December", 365},
        {"11/1-2/28", "6.5-7", "1 November to 28 February, 6:30 to 7:00", 120},
        {"2/28", "0-24", "28 February", 1},
        {"365-1", "0-24", "31 December to 1 January", 2},
        {"2026-06-21", "0-24", "21 June", 1},
        {"2025-11-01-2026-02-28", "0-24", "1 November to 28 February", 120},
        {"2026-6-1 - 8/31", "0-24", "1 June to 31 August", 92},
        {"21 June", "0-24", "21 June", 1},
        {"Jun. 1 to AUGUST 31", "0-24", "1 June to 31 August", 92},
        {"1 sept-2 Sep", "0-24", "1 September to 2 September", 2},
    };
    for (const auto& c : cases) {
        StudyPeriod period;
        parseDates(c.dates, period);
        parseHours(c.hours, period);
        EXPECT_EQ(period.text(), c.text);
        EXPECT_EQ(period.dayCount(), c.days) << c.dates;
        EXPECT_TRUE(period.contains(period.startDay) && period.contains(period.endDay));
        int days = 0;
        for (int day = 1; day <= 365; ++day) {
            days += period.contains(day) ? 1 : 0;
        }
        EXPECT_EQ(days, c.days) << c.dates;
    }
}

TEST(Period, RefusesTheImpossibleAndSaysTheFix) {
    const struct {
        void (*parse)(std::string_view, StudyPeriod&);
        const char *text, *message;
    } cases[] = {
        {parseDates, "2/30-3/1", "--period '2/30-3/1': '2/30': February has 28 days"},
        {parseDates, "6/40", "--period '6/40': June has 30 days"},
        {parseDates, "6-21",
         "--period '6-21': '6-21' may be 21 June, or the days 6 to 21 of the year, 6 "
         "January to 21 January; write 6/21 or 1/6-1/21"},
        {parseDates, "2/29", "without 29 February"},
        {parseDates, "13/1-13/2", "no such month"},
        {parseDates, "6/x", "no such month"},
        {parseDates, "0-10", "from 1 to 365"},
        {parseDates, "1-366", "from 1 to 365"},
        {parseDates, "", "no such day"},
        {parseDates, "6/1-", "the second date is missing"},
        {parseDates, "-6/1", "the first date is missing"},
        {parseDates, "2026-06", "no such month and day"},
        {parseDates, "2026-13-01",
         "no such month and day; write month/day such as 6/21, 2026-06-21"},
        {parseDates, "2026-02-29", "without 29 February"},
        {parseDates, "June", "no such month and day"},
        {parseDates, "31 June", "June has 30 days"},
        {parseDates, "21 Ju", "no such month and day"},
        {parseDates, "21 June -", "the second date is missing"},
        {parseHours, "8", "not a range"},
        {parseHours, "8-25", "--hours '8-25': '25' is not a time"},
        {parseHours, "8:60-9", "'8:60' is not a time"},
        {parseHours, "-1-9", "'-1' is not a time"},
        {parseHours, "nan-9", "'nan' is not a time"},
        {parseHours, "8-8", "the range is empty"},
    };
    StudyPeriod period;
    for (const auto& c : cases) {
        EXPECT_THAT(test::messageOf([&] { c.parse(c.text, period); }),
                    testing::HasSubstr(c.message));
    }
    EXPECT_THROW(checkStep(0.0), UsageError);
    EXPECT_THROW(checkStep(1.5), UsageError);
    EXPECT_NO_THROW(checkStep(0.25));
}

TEST(SummerTime, FollowsTheLaws) {
    const struct {
        const char *text, *days;
        int year;
    } cases[] = {
        // The last Sundays of March and October, the second of March and the first of November,
        // the last of September and the first of April: as calendars have them.
        {"eu", "summer time 30 March to 25 October (eu 2025)", 2025},
        {"eu", "summer time 29 March to 24 October (eu 2026)", 2026},
        {"uk", "summer time 31 March to 26 October (uk 2024)", 2024},
        {"us", "summer time 9 March to 1 November (us 2025)", 2025},
        {"us", "summer time 8 March to 31 October (us 2026)", 2026},
        {"nz", "summer time 28 September to 5 April (nz 2025)", 2025},
        {"3/20-9/21", "summer time 20 March to 21 September", 2025},
        {"2026-04-05 to 3 May", "summer time 5 April to 3 May", 2025},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(summerTimeOf(c.text, c.year).value().text(), c.days);
    }
    EXPECT_FALSE(summerTimeOf("none", 2025));
    const SummerTime south = summerTimeOf("nz", 2025).value();
    EXPECT_TRUE(south.contains(365) && south.contains(95) && !south.contains(96));
    EXPECT_THAT(test::messageOf([] { summerTimeOf("mars", 2025); }),
                testing::HasSubstr("--dst: there is no 'mars'; choose from eu, uk, us, nz, none"));
    EXPECT_THAT(test::messageOf([] { summerTimeOf("3/20-9/31", 2025); }),
                testing::HasSubstr("--dst '3/20-9/31': '9/31': September has 30 days"));
}

} // namespace
} // namespace insolate::study
