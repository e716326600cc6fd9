#include "app/errors.h"
#include "app/input/period.h"
#include "tests/app/support/study_fixture.h"

#include <gmock/gmock.h>

namespace insolate::app {
namespace {

TEST(Period, ReadsDatesAndHoursInAllForms) {
    struct Case {
        const char* dates;
        const char* hours;
        StudyPeriod expected;
        int days;
        const char* text;
    };
    for (const Case& c : {Case{"6/1-8/31",
                               "8:30-18",
                               {152, 243, 8.5, 18.0},
                               92,
                               "1 June to 31 August, 8:30 to 18:00"},
                          Case{"152-243",
                               "8.5-17.25",
                               {152, 243, 8.5, 17.25},
                               92,
                               "1 June to 31 August, 8:30 to 17:15"},
                          Case{" 1/1 - 12/31 ", "0-24", {1, 365}, 365, "1 January to 31 December"},
                          Case{"11/1-2/28",
                               "6.5-7",
                               {305, 59, 6.5, 7.0},
                               120,
                               "1 November to 28 February, 6:30 to 7:00"},
                          Case{"2/28", "0-24", {59, 59}, 1, "28 February"},
                          Case{"365-1", "0-24", {365, 1}, 2, "31 December to 1 January"}}) {
        StudyPeriod period;
        parseDates(c.dates, period);
        parseHours(c.hours, period);
        EXPECT_EQ(period.startDay, c.expected.startDay) << c.dates;
        EXPECT_EQ(period.endDay, c.expected.endDay) << c.dates;
        EXPECT_DOUBLE_EQ(period.startHour, c.expected.startHour) << c.hours;
        EXPECT_DOUBLE_EQ(period.endHour, c.expected.endHour) << c.hours;
        int days = 0;
        for (int day = 1; day <= 365; ++day) {
            days += period.contains(day) ? 1 : 0;
        }
        EXPECT_EQ(days, c.days) << c.dates;
        EXPECT_EQ(period.dayCount(), c.days) << c.dates;
        EXPECT_EQ(period.text(), c.text);
    }
}

TEST(Period, RefusesTheImpossibleWithAMend) {
    StudyPeriod period;
    for (const auto& [dates, message] : {std::pair{"2/30-3/1", "February has 28 days"},
                                         {"2/29", "without 29 February"},
                                         {"13/1-13/2", "no such month"},
                                         {"0-10", "from 1 to 365"},
                                         {"1-366", "from 1 to 365"},
                                         {"", "no such day"},
                                         {"6/1-", "the second date is missing"},
                                         {"-6/1", "the first date is missing"},
                                         {"1-2-3", "no such day"},
                                         {"6/x", "no such month"}}) {
        EXPECT_THAT(test::messageOf([&, text = dates] { parseDates(text, period); }),
                    testing::HasSubstr(message));
    }
    for (const auto& [hours, message] : {std::pair{"8", "not a range"},
                                         {"8-25", "'25' is not a time"},
                                         {"8:60-9", "'8:60' is not a time"},
                                         {"-1-9", "'-1' is not a time"},
                                         {"nan-9", "'nan' is not a time"},
                                         {"18-8", "the range is empty"},
                                         {"8-8", "the range is empty"}}) {
        EXPECT_THAT(test::messageOf([&, text = hours] { parseHours(text, period); }),
                    testing::HasSubstr(message));
    }
    EXPECT_THROW(checkStep(0.0), UsageError);
    EXPECT_THROW(checkStep(1.5), UsageError);
    EXPECT_NO_THROW(checkStep(0.25));
}

} // namespace
} // namespace insolate::app
