#include "study/support/errors.h"
#include "study/weather/weather_check.h"
#include "study/weather/weather_year.h"
#include "tests/study/support/study_fixture.h"

#include <gmock/gmock.h>

#include <tuple>

namespace insolate::study {
namespace {

using test::StudyFolder;
using test::weatherLine;
using test::withLine;
using testing::HasSubstr;

/// What the user is told, or an empty text when the file is taken.
std::string verdict(const std::filesystem::path& file, bool allowGaps = false) {
    try {
        requireCompleteYear(inspectWeatherFile(file), file, allowGaps);
        return {};
    } catch (const DataError& error) {
        EXPECT_THAT(error.what(), HasSubstr("; ")) << "no fix";
        return error.what();
    }
}

TEST(WeatherCheck, TakesACompleteYearWithQuotesByteOrderMarkAndBothLineEnds) {
    const StudyFolder folder;
    std::string windows = "\xEF\xBB\xBF";
    for (const char c : withLine(test::clearYear(), 1, "Testville", "\"Test, ville\"")) {
        windows += c == '\n' ? "\r\n" : std::string(1, c);
    }
    for (const auto& [text, place] : {std::pair{test::clearYear(), "Testville, TST"},
                                      std::pair{windows + "\r\n", "Test, ville, TST"}}) {
        const auto file = folder.write("a.EPW", text);
        const WeatherReport report = inspectWeatherFile(file);
        EXPECT_EQ(report.hoursPresent, 8760U);
        EXPECT_EQ(report.site.text(), place);
        EXPECT_EQ(report.site.latitude, 40.0);
        EXPECT_EQ(report.site.elevation, 100.0);
        EXPECT_EQ(verdict(file), "");
    }
}

TEST(WeatherCheck, SaysWhatIsWrongAndWhere) {
    const std::string good = test::clearYear();
    const std::string body = good.substr(good.find('\n') + 1);
    const std::size_t noon = weatherLine(3, 5, 12);
    const std::string at = fmt::format("a.epw:{}: ", noon);
    const auto noonWith = [&](const std::string& part, const std::string& text) {
        return withLine(good, noon, part, text);
    };
    const std::size_t lastLine = good.rfind('\n', good.size() - 2) + 1;
    const StudyFolder folder;
    for (const auto& [content, message] : std::vector<std::pair<std::string, std::string>>{
             {"", "no LOCATION line"},
             {"solid cube\nfacet\n", "a.epw:1: no LOCATION line"},
             {noonWith("2001,3,5,12", "\xFF"), "not a weather file"},
             {"\xFF\xFEL", "a.epw: the text is UTF-16; save the weather file as UTF-8"},
             {body, "a.epw:2: no LOCATION line stands before the data"},
             {"LOCATION,a,b,c,d,1,40,0,0,100\n", "a.epw: the file holds no hourly data"},
             {withLine(good, 1, "40.0", "91"), "a.epw:1: LOCATION: field 7 (latitude): '91' is not "
                                               "a value from -90 to 90; give the site's "
                                               "degrees, north positive"},
             {withLine(good, 1, "100.0", "high"), "field 10 (elevation): 'high' is not a value"},
             {withLine(good, 1, "0.0,100.0", "0.0"), "has fewer than 10 fields; give place, "},
             {good + good, "a second LOCATION line"},
             {withLine(good, 2, "1,1", "1,4"), "a.epw:2: the file has 4 records an hour"},
             {"LOCATION;a;b;c;d;1;40,0;0,0;0,0;100,0\n",
              "a.epw:1: the fields are separated by semi"},
             {good.substr(0, lastLine),
              "a.epw:8761: 1 of the year's 8760 hours is missing: 31 Dec"},
             {good.substr(0, good.find("2001,12,1,1,")),
              "744 of the year's 8760 hours are missing, the first is 1 December, 0:00 to 1:00, "
              "after this line"},
             {noonWith("2001,3,5,12", "2001,3,5,13"),
              fmt::format("a.epw:{}: the hour was given before (1 such", noon + 1)},
             {noonWith("2001,3,5,12", "2001,3,5,25"),
              at + "month '3', day '5', hour '25' (1 to 24) is no hour"},
             {noonWith("2001,3,5,12", "2001,3,5,12\n"), at + "the line has 4 fields"},
             {noonWith(",300,0,", ",300,0,bright"), at + "field 15 (direct normal radiation)"},
             {noonWith(",300,0,793,", ",300,0,1501,"), "'1501' is not a value from 0 to 1500"},
             {noonWith(",300,0,793,118", ",300,0,793,9999"),
              at + "radiation is missing in 1 hour: 5 March, 11:00"},
             {noonWith("2001,3,5,12", "year"), at + "'year"}}) {
        EXPECT_THAT(verdict(folder.write("a.epw", content)), HasSubstr(message));
    }
}

TEST(WeatherCheck, TellsAClockThatTheLightDoesNotKeep) {
    const StudyFolder folder;
    for (const auto& [site, message] : std::vector<std::pair<std::string, std::string>>{
             {"-40.0,-3.0,0.5", ""}, // half an hour between record and sun is common
             {"-40.0,85.3,5.0", ""},
             {"40.0,0.0,1.0", "1.0 h before the sun's noon at 0.00 E by the time zone UTC+1: the "
                              "hours would fit about UTC+0;"},
             {"-40.0,179.0,10.0", "1.9 h after"},
             {"-40.0,179.0,-12.0", ""}, // across the date line
             {"40.0,0.0,6.0", "UTC+6 does not go with longitude 0.00 E"}}) {
        const auto file =
            folder.write("a.epw", withLine(test::clearYear(), 1, "40.0,0.0,0.0", site));
        const WeatherReport report = inspectWeatherFile(file);
        EXPECT_THAT(report.oddClock, HasSubstr(message)) << site;
        EXPECT_EQ(report.oddClock.empty(), message.empty()) << report.oddClock;
        EXPECT_EQ(report.notes.size(), message.empty() ? 0U : 1U);
    }
}

TEST(WeatherCheck, TheZoneThatWouldFitIsOneOfTheWorld) {
    const StudyFolder folder;
    const auto odd = [&](int firstHour, const std::string& site) {
        const std::string text = test::weatherText([=](int hour) {
            return hour > firstHour && hour <= firstHour + 11 ? test::HourOfWeather{500, 100}
                                                              : test::HourOfWeather{};
        });
        return inspectWeatherFile(
                   folder.write("a.epw", test::withLine(text, 1, "40.0,0.0,0.0", site)))
            .oddClock;
    };
    // Past the date line the clock is that of the other day.
    EXPECT_THAT(odd(10, "40.0,180.0,13.0"), HasSubstr("would fit about UTC-8.5;"));
    EXPECT_THAT(odd(4, "40.0,-180.0,-12.0"), HasSubstr("would fit about UTC+9.5;"));
}

TEST(WeatherCheck, TellsDirectRadiationThatNoOtherGoesWith) {
    const StudyFolder folder;
    const auto nights = [](int direct) {
        return test::weatherText([=](int hour) {
            return hour > 6 && hour <= 18 ? test::HourOfWeather{500, 100}
                                          : test::HourOfWeather{hour == 3 ? direct : 0, 0};
        });
    };
    const auto file = folder.write("a.epw", nights(40));
    const WeatherReport report = inspectWeatherFile(file);
    EXPECT_EQ(report.strayDirect.hours, 365U);
    EXPECT_EQ(report.strayDirect.sum, 14600.0);
    EXPECT_THAT(report.notes, testing::ElementsAre(
                                  HasSubstr("a.epw: 365 hours have direct normal radiation but ")));
    // It is reported once, by whatever reads the file, and does not put the time zone in doubt.
    HourlySky sky;
    sky.report.diffuseHorizontal = sky.report.directNormal = 1.0e6;
    sky.report.directWithoutSun = 14600.0;
    EXPECT_EQ(sunDownText(file, sky, report.strayDirect), "");
    EXPECT_EQ(readWeatherYear(file).report.notes, report.notes);
    sky.report.diffuseWithoutSun = 5000.0;
    EXPECT_THAT(sunDownText(file, sky, report.strayDirect), HasSubstr("time zone"));
    EXPECT_TRUE(inspectWeatherFile(folder.write("a.epw", nights(5))).notes.empty());
    // Where the level got some radiation, the sun shone.
    std::string shone = nights(40);
    for (std::size_t at = 0; (at = shone.find(",300,0,40,0,", at)) != std::string::npos;) {
        shone.replace(at, 12, ",300,9,40,0,");
    }
    EXPECT_EQ(inspectWeatherFile(folder.write("a.epw", shone)).strayDirect.hours, 0U);
}

/// Fields at the end of a record.
std::string zeros(int count) {
    std::string text;
    for (int i = 0; i < count; ++i) {
        text += ",0";
    }
    return text + "\n";
}

TEST(WeatherCheck, RepeatedHoursAreRefusedByBothReadingsAndElseTheLastHolds) {
    const StudyFolder folder;
    std::string text = test::clearYear();
    const std::size_t at = text.find("2001,3,5,13,");
    text.insert(at, "2001,3,5,12,0,?9,10.0,5.0,50,100000,0,0,300,0,321,45" + zeros(13));
    const auto file = folder.write("a.epw", text);
    const std::string said =
        fmt::format("a.epw:{}: the hour was given before (1 such line); give a file with one "
                    "record an hour, or --allow-gaps to let the last one",
                    test::weatherLine(3, 5, 13));
    EXPECT_THAT(verdict(file), HasSubstr(said));
    const WeatherYear year = readWeatherYear(file);
    EXPECT_THAT(test::messageOf([&] { requireCompleteYear(year.report, file, false); }),
                HasSubstr(said));
    const auto marked = static_cast<std::size_t>(dayIndex(3, 5) * 24 + 11);
    EXPECT_EQ(year.series.directNormal[marked], 321.0f);
    EXPECT_EQ(year.series.diffuseHorizontal[marked], 45.0f);
    EXPECT_EQ(verdict(file, true), "");
}

TEST(WeatherCheck, GapsPassWhenTheyAreAllowed) {
    const StudyFolder folder;
    for (const auto& [from, to] : {std::pair{"2001,3,5,12", "2001,3,5,13"}, {",793,", ",99999,"}}) {
        const auto gap =
            folder.write("gap.epw", withLine(test::clearYear(), weatherLine(3, 5, 12), from, to));
        EXPECT_EQ(verdict(gap, true), "");
        const WeatherReport report = inspectWeatherFile(gap);
        ASSERT_EQ(report.gapCount(), 1U);
        EXPECT_EQ((report.hoursMissing.empty() ? report.radiationMissing : report.hoursMissing)[0],
                  HourOfYear(63, 11));
    }
}

TEST(WeatherCheck, KnowsLeapDaysAndTheUnreadLastLine) {
    const StudyFolder folder;
    const auto inspect = [&](const std::string& text) {
        return inspectWeatherFile(folder.write("a.epw", text));
    };
    std::string text = test::clearYear();
    text.insert(text.find("2001,3,1,1,"), "2004,2,29,1,0,?,1,1,1,1,1,1,1,1,0,0" + zeros(13));
    EXPECT_EQ(inspect(text).hoursPresent, 8760U);
    EXPECT_EQ(inspect(text).hoursRepeated, 0U);
    EXPECT_THAT(inspect(text).notes, testing::ElementsAre(HasSubstr("29 February")));
    // What stands in the place of 28 February is what counts: the leap day, or a later line.
    EXPECT_THAT(inspect(withLine(text, 4, ",0,0", ",0,0,0")).notes,
                testing::Contains(HasSubstr("a.epw:4: 30 fields where the first record has 29 (1 "
                                            "such record); if a comma is too many")));
    const std::string marked = withLine(text, weatherLine(3, 1, 1), ",0,0", ",9999,0");
    EXPECT_THAT(inspect(marked).radiationMissing, testing::ElementsAre(HourOfYear(58, 0)));
    EXPECT_EQ(inspect(marked).firstRadiationMissingLine, weatherLine(3, 1, 1));
    const std::string repeated =
        withLine(withLine(marked, weatherLine(3, 5, 12) + 1, ",793,", ",9999,"),
                 weatherLine(3, 5, 13) + 1, "5,13,", "5,12,");
    EXPECT_EQ(inspect(repeated).radiationMissing.size(), 1U);
    text.pop_back();
    EXPECT_THAT(inspect(text).hoursMissing, testing::ElementsAre(HourOfYear(364, 23)));
    EXPECT_THAT(inspect(text).notes.at(0), HasSubstr("last line"));
}

TEST(WeatherCheck, TellsBinaryFilesByTheirSignatureAndSize) {
    std::string good(141608, '\0');
    const auto with = [&](std::size_t at, auto value) {
        return std::string(good).replace(at, sizeof value, reinterpret_cast<const char*>(&value),
                                         sizeof value);
    };
    good.replace(0, 15, "xqt_WEA_ver1.10");
    good.replace(16, 4, "Rome");
    good = with(141592, 41.9f);
    const StudyFolder folder;
    EXPECT_EQ(inspectWeatherFile(folder.write("a.mra", good)).site.city, "Rome");
    const std::string marked = with(80 + 30 * 16 + 10, std::int16_t{9999}); // 2 January, 7 h
    for (const auto& [name, content, message] :
         {std::tuple{"a.wea", good, ""},
          {"a.wea", good.substr(1), "not a weather file"},
          {"a.wea", good.substr(0, 141607), "141607 bytes"},
          {"a.txt", good, ""}, // what a file holds decides
          {"a.txt", std::string("solid"), "not a weather file"},
          {"a.wea", with(141592, 95.0f), "not on earth"},
          {"a.wea", marked, "in 1 hour: 2 January, 6:00 to 7:00"}}) {
        EXPECT_THAT(verdict(folder.write(name, content)), HasSubstr(message));
    }
    EXPECT_THAT(verdict(folder.path() / "none.epw"), HasSubstr("no such file"));
    // A marked hour has no radiation that anything could count.
    const WeatherYear year = readWeatherYear(folder.write("a.wea", marked));
    EXPECT_TRUE(std::isnan(year.series.directNormal[30]) &&
                std::isnan(year.series.diffuseHorizontal[30]));
    EXPECT_EQ(year.series.directNormal[31], 0.0f);
    const auto large = folder.write("large.epw", test::clearYear());
    std::filesystem::resize_file(large, (std::uintmax_t{256} << 20U) + 1); // takes no room
    EXPECT_THAT(verdict(large), HasSubstr("large.epw: 256 MB are too much for a weather file"));
}

} // namespace
} // namespace insolate::study
