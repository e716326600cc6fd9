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
        {parseDates, "2/30-3/1", "February has 28 days"},
        {parseDates, "2/29", "without 29 February"},
        {parseDates, "13/1-13/2", "no such month"},
        {parseDates, "6/x", "no such month"},
        {parseDates, "0-10", "from 1 to 365"},
        {parseDates, "1-366", "from 1 to 365"},
        {parseDates, "", "no such day"},
        {parseDates, "6/1-", "the second date is missing"},
        {parseDates, "-6/1", "the first date is missing"},
        {parseHours, "8", "not a range"},
        {parseHours, "8-25", "'25' is not a time"},
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

} // namespace
} // namespace insolate::study
