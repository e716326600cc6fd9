#include "app/errors.h"
#include "app/input/period.h"

#include <gmock/gmock.h>

namespace insolate::app {
namespace {

using testing::HasSubstr;

TEST(Period, ReadsDatesInBothForms) {
    struct Case {
        const char* text;
        int first;
        int last;
        int days;
    };
    for (const Case& c : {Case{"6/1-8/31", 152, 243, 92}, Case{"152-243", 152, 243, 92},
                          Case{" 1/1 - 12/31 ", 1, 365, 365}, Case{"11/1-2/28", 305, 59, 120},
                          Case{"6/21", 172, 172, 1}, Case{"365-1", 365, 1, 2}}) {
        StudyPeriod period;
        parseDates(c.text, period);
        EXPECT_EQ(period.startDay, c.first) << c.text;
        EXPECT_EQ(period.endDay, c.last) << c.text;
        EXPECT_EQ(period.dayCount(), c.days) << c.text;
    }
}

TEST(Period, ReadsHours) {
    struct Case {
        const char* text;
        double start;
        double end;
    };
    for (const Case& c : {Case{"8-18", 8.0, 18.0}, Case{"8:30-17:15", 8.5, 17.25},
                          Case{"0-24", 0.0, 24.0}, Case{"6.5-7", 6.5, 7.0}}) {
        StudyPeriod period;
        parseHours(c.text, period);
        EXPECT_DOUBLE_EQ(period.startHour, c.start) << c.text;
        EXPECT_DOUBLE_EQ(period.endHour, c.end) << c.text;
    }
}

TEST(Period, RefusesTheImpossibleWithAMend) {
    struct Case {
        const char* dates;
        const char* hours;
        const char* message;
    };
    for (const Case& c :
         {Case{"2/30-3/1", "0-24", "February has 28 days"},
          Case{"2/29", "0-24", "without 29 February"}, Case{"13/1-13/2", "0-24", "no such month"},
          Case{"0-10", "0-24", "from 1 to 365"}, Case{"1-366", "0-24", "from 1 to 365"},
          Case{"", "0-24", "no such day"}, Case{"6/1-", "0-24", "the second date is missing"},
          Case{"1-2-3", "0-24", "no such day"}, Case{"6/x", "0-24", "no such month"},
          Case{"1-365", "8", "not a range"}, Case{"1-365", "8-25", "'25' is not a time"},
          Case{"1-365", "8:60-9", "'8:60' is not a time"},
          Case{"1-365", "-1-9", "'-1' is not a time"},
          Case{"1-365", "nan-9", "'nan' is not a time"},
          Case{"1-365", "18-8", "the range is empty"},
          Case{"1-365", "8-8", "the range is empty"}}) {
        StudyPeriod period;
        try {
            parseDates(c.dates, period);
            parseHours(c.hours, period);
            ADD_FAILURE() << c.dates << " " << c.hours << " was taken";
        } catch (const UsageError& error) {
            EXPECT_THAT(error.what(), HasSubstr(c.message));
            EXPECT_EQ(error.exitCode(), 2);
        }
    }
    EXPECT_THROW(checkStep(0.0), UsageError);
    EXPECT_THROW(checkStep(1.5), UsageError);
    EXPECT_NO_THROW(checkStep(0.25));
}

TEST(Period, IsToldInWords) {
    EXPECT_EQ((StudyPeriod{152, 243, 8.5, 18.0, 0.1}.text()), "1 June to 31 August, 8:30 to 18:00");
    EXPECT_EQ((StudyPeriod{59, 59, 0.0, 24.0, 0.1}.text()), "28 February");
}

} // namespace
} // namespace insolate::app
