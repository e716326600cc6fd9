#include "study/run/run_sun.h"
#include "study/run/run_weather.h"
#include "study/run/site_options.h"
#include "study/support/errors.h"
#include "study/weather/weather_year.h"
#include "tests/study/support/study_fixture.h"

#include <stop_token>
#include <tuple>

#include <gmock/gmock.h>

namespace insolate::study {
namespace {

using test::Heard;
using test::StudyFolder;
using testing::HasSubstr;
using testing::Not;

/// The clear year as a text .wea; rows stand at the middle of the hours.
std::string textWea() {
    std::string text = "place Here\nlatitude 40\nlongitude 0\ntime_zone 0\nsite_elevation 100\n"
                       "weather_data_file_units 1\n";
    for (int k = 0; k < hoursPerYear; ++k) {
        const MonthAndDay date = monthAndDay(k / 24);
        const int hour = k % 24;
        const bool isDay = hour >= 6 && hour < 18;
        text += fmt::format("{} {} {}.5 {} {}\n", date.month, date.day, hour, isDay ? 500.4 : 0,
                            isDay ? 99.6 : 0);
    }
    return text;
}

TEST(ConvertWeather, SaysWhatItWroteAndFillsGapsOnlyWhenAsked) {
    const StudyFolder folder;
    const std::string good = test::clearYear();
    const std::string hole =
        test::withLine(good, test::weatherLine(3, 5, 12), ",793,118,", ",9999,9999,");
    const std::string noLastDay = good.substr(0, good.find("2001,12,31,1,"));
    struct Case {
        std::string name, text;
        bool allowGaps;
        std::string refusal;
        std::size_t warnings;
    };
    for (const Case& c : {Case{"good.epw", good, false, "", 1},
                          {"hole.epw", hole, false, "radiation is missing in 1 hour", 0},
                          {"hole.epw", hole, true, "", 2},
                          {"short.epw", noLastDay, false, "24 of the year's 8760 hours", 0},
                          {"short.epw", noLastDay, true, "", 1},
                          {"text.wea", textWea(), false, "", 0}}) {
        SCOPED_TRACE(c.name);
        const auto from = folder.write(c.name, c.text);
        const auto to = folder.path() / "out.wea";
        Heard heard;
        ESolarPosition::Global.setLocation(0.5, 0.25, 0.0);
        const std::string said =
            test::messageOf([&] { convertWeather(from, to, c.allowGaps, heard); });
        EXPECT_EQ(std::filesystem::exists(to), c.refusal.empty());
        EXPECT_EQ(heard.warnings.size(), c.warnings);
        if (!c.refusal.empty()) {
            EXPECT_THAT(said, HasSubstr(c.refusal));
            EXPECT_TRUE(heard.notes.empty());
            continue;
        }
        EXPECT_THAT(heard.notes, testing::ElementsAre(HasSubstr("wrote ")));
        const WeatherYear year = readWeatherYear(to);
        (void)weatherInfo(to);
        EXPECT_EQ(ESolarPosition::Global.getLatitudeInRadians(), 0.5)
            << "the process's site has moved";
        const auto noon = static_cast<std::size_t>(dayIndex(3, 5) * 24 + 11);
        EXPECT_EQ(year.series.directNormal[noon], c.name == "text.wea"   ? 500.0f
                                                  : c.name == "hole.epw" ? 0.0f
                                                                         : 793.0f);
        // The store keeps no 31 December of an .epw file, but one of other formats.
        EXPECT_EQ(year.series.diffuseHorizontal[364 * 24 + 12],
                  c.name == "text.wea" ? 100.0f : 0.0f);
        EXPECT_EQ(year.report.site.latitude, 40.0);
        std::filesystem::remove(to);
    }
    // What was there before is replaced where it is a record of ours, and by no other name.
    for (const auto& [to, message] : {std::pair{"text.wea", "text.wea: is read by this run"},
                                      {"other.wea", "other.wea: was not written by insolate"},
                                      {"none/x.wea", "there is no folder"}}) {
        const auto from = folder.write("text.wea", textWea());
        folder.write("other.wea", textWea() + "\n");
        Heard heard;
        EXPECT_THAT(test::messageOf([&, name = to] {
                        convertWeather(from, folder.path() / name, false, heard);
                    }),
                    HasSubstr(message));
        EXPECT_EQ(test::readFile(from), textWea());
        EXPECT_EQ(test::readFile(folder.path() / "other.wea"), textWea() + "\n");
    }
    const auto record = folder.write("a.epw", good);
    Heard heard;
    convertWeather(record, folder.path() / "a.wea", false, heard);
    convertWeather(record, folder.path() / "a.wea", false, heard);
    EXPECT_THAT(test::messageOf([&] {
                    convertWeather(folder.path() / "a.wea", folder.path() / "b.wea", false, heard);
                }),
                HasSubstr("a.wea: is such a file already; "));
    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW(convertWeather(record, folder.path() / "c.wea", false, heard, stop.get_token()),
                 Stopped);
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "c.wea"));
    EXPECT_FALSE(std::filesystem::exists(folder.path() / ".insolate.lock"));
}

TEST(WeatherInfo, SaysHowAFileIsUnderstoodOnce) {
    const StudyFolder folder;
    const WeatherInfo text = weatherInfo(folder.write("text", textWea()));
    EXPECT_EQ(text.refusal, "");
    EXPECT_THAT(text.text, HasSubstr("usable by 'insolate run'"));
    // A clock that is odd is judged once, though two readings of the file are compared.
    const std::string odd =
        weatherInfo(folder.write("a.epw", test::withLine(test::clearYear(), 1, "40.0,0.0,0.0",
                                                         "40.0,0.0,1.0")))
            .text;
    EXPECT_EQ(odd.find("sun's noon"), odd.rfind("sun's noon"));
    EXPECT_THAT(odd, HasSubstr("sun's noon"));
}

TEST(SunTable, WarnsOfPlacesThatDoNotGoWithTheirZone) {
    const struct {
        double latitude, longitude, zone;
        const char* message;
    } cases[] = {
        {8.5, 49.5, 1.0, "look swapped; give --lat 49.5 --lon 8.5 if that is the place"},
        {40.7, 74.0, -5.0, "longitudes are east positive; give --lon -74 if that is the place"},
        {40.7, -74.0, 5.0,
         "--tz 5 does not go with --lat 40.7 --lon -74, where clocks keep about "
         "UTC-5; check all three"},
    };
    for (const auto& c : cases) {
        EXPECT_THAT(namedSite({{}, c.latitude, c.longitude, c.zone}).note, HasSubstr(c.message));
    }
    // Summer time, universal time, and countries whose clock is far from the sun.
    for (const auto& [latitude, longitude, zone] : {std::tuple{49.5, 8.5, 2.0},
                                                    {40.7, -74.0, -4.0},
                                                    {40.7, -74.0, 0.0},
                                                    {43.8, 87.6, 8.0},
                                                    {27.7, 85.3, 5.75},
                                                    {-77.8, 166.7, 12.0},
                                                    {90.0, 0.0, 5.0}}) {
        EXPECT_EQ(namedSite({{}, latitude, longitude, zone}).note, "") << longitude;
    }
}

TEST(WeatherCheck, KnowsSwappedCoordinatesByTheLight) {
    const StudyFolder folder;
    const auto oddClockAt = [&](const std::string& site) {
        return inspectWeatherFile(folder.write("a.epw", test::withLine(test::clearYear(), 1,
                                                                       "40.0,0.0,0.0", site)))
            .oddClock;
    };
    EXPECT_EQ(oddClockAt("40.0,15.0,1.0"), ""); // latitude, longitude, zone
    EXPECT_THAT(oddClockAt("15.0,40.0,1.0"),
                HasSubstr("latitude 15.00 and longitude 40.00 look swapped; check"));
}

TEST(SunTable, RefusesZonesThatNoClockKeepsAndTakesHalfHours) {
    SunOptions options;
    options.latitude = 19.1;
    options.longitude = 72.85;
    options.day = 80;
    options.step = 1.0;
    for (const auto& [zone, message] : {std::pair{99.0, "--tz 99: time zones run from -12 to 14"},
                                        {-12.5, "--tz -12.5"},
                                        {14.25, "--tz 14.25"},
                                        {-12.0, "nothing is wrong"},
                                        {14.0, "nothing is wrong"}}) {
        options.timeZone = zone;
        EXPECT_THAT(test::messageOf([&] { (void)sunTable(options); }), HasSubstr(message));
    }
    options.timeZone = 5.5;
    EXPECT_THAT(sunTable(options), HasSubstr("UTC+5.5"));
    EXPECT_THAT(sunTable(options), Not(HasSubstr("--tz")));
    options.timeZone.reset();
    EXPECT_THAT(sunTable(options), HasSubstr("UTC+5.5 is from the built-in map"));
}

} // namespace
} // namespace insolate::study
