// Parts of a period: which days they have, and what they are called.
#include "study/run/period_parts.h"

#include "tests/study/support/study_fixture.h"

#include <gmock/gmock.h>

namespace insolate::study {
namespace {

/// "jan 1-31" of each part.
std::vector<std::string> namesOf(const std::vector<NamedPeriod>& parts) {
    std::vector<std::string> names;
    for (const NamedPeriod& part : parts) {
        names.push_back(
            fmt::format("{} {}-{}", part.name, part.period.startDay, part.period.endDay));
    }
    return names;
}

TEST(PeriodParts, SplitsAtMonthsSeasonsAndDays) {
    using testing::ElementsAre;
    const StudyPeriod year;
    const std::vector<std::string> months = namesOf(partsOf(year, PeriodSplit::month, {}));
    ASSERT_EQ(months.size(), 12U);
    EXPECT_EQ(months[1], "feb 32-59");
    EXPECT_EQ(months[11], "dec 335-365");
    EXPECT_THAT(
        namesOf(partsOf(year, PeriodSplit::season, {})),
        ElementsAre("dec_feb 335-59", "mar_may 60-151", "jun_aug 152-243", "sep_nov 244-334"));
    EXPECT_EQ(partsOf(year, PeriodSplit::day, {}).size(), 365U);
    EXPECT_THAT(namesOf(partsOf({.startDay = 364, .endDay = 1}, PeriodSplit::day, {})),
                ElementsAre("12_30 364-364", "12_31 365-365", "01_01 1-1"));
    EXPECT_THAT(namesOf(partsOf({.startDay = 20, .endDay = 40}, PeriodSplit::month, {})),
                ElementsAre("jan 20-31", "feb 32-40"));
    // Over the new year, and a month at both ends.
    EXPECT_THAT(namesOf(partsOf({.startDay = 350, .endDay = 40}, PeriodSplit::month, {})),
                ElementsAre("dec 350-365", "jan 1-31", "feb 32-40"));
    EXPECT_EQ(namesOf(partsOf({.startDay = 166, .endDay = 160}, PeriodSplit::month, {})).back(),
              "jun_2 152-160");
}

TEST(PeriodParts, TakesPeriodsWithAndWithoutHours) {
    const StudyPeriod summer{.startDay = 100, .endDay = 300, .startHour = 6.0, .endHour = 20.0};
    const std::vector<NamedPeriod> parts =
        partsOf(summer, PeriodSplit::none,
                {parseAskedPeriod("6/21"), parseAskedPeriod(" 6/1-8/31:8:30-17 "),
                 parseAskedPeriod("6/21")});
    ASSERT_EQ(parts.size(), 2U) << "the same part once";
    EXPECT_EQ(parts[0].name, "06_21");
    EXPECT_EQ(parts[0].period.startHour, 6.0);
    EXPECT_EQ(parts[1].name, "06_01_08_31_0830_1700");
    EXPECT_EQ(parts[1].text, "1 June to 31 August, 8:30 to 17:00");
    EXPECT_THAT(test::messageOf(
                    [&] { partsOf(summer, PeriodSplit::none, {parseAskedPeriod("6/21:5-9")}); }),
                testing::HasSubstr("--periods: 21 June, 5:00 to 9:00 does not lie in"));
    // Hours in seconds would have one name.
    EXPECT_THAT(test::messageOf([&] {
                    partsOf(summer, PeriodSplit::none,
                            {parseAskedPeriod("6/21:8-9"), parseAskedPeriod("6/21:8.002-9")});
                }),
                testing::HasSubstr("would both be called 06_21_0800_0900; give hours in whole"));
    EXPECT_EQ(test::messageOf([] { parseAskedPeriod("6/21:9-25"); }),
              "--periods '6/21:9-25': '25' is not a time of day; write hours from 0 to 24 such as "
              "8-18, 8:30-18 or 8.5-18");
}

} // namespace
} // namespace insolate::study
