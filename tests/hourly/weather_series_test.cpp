#include "../support/temporary_folder.h"

#include <insolate/hourly/hourly_sky.h>
#include <insolate/weather/weather_series.h>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numeric>

namespace insolate {
namespace {

/// An EPW of a year with the given records an hour.
std::string madeYear(int recordsAnHour, bool leapYear) {
    std::string text = fmt::format("LOCATION,Bombay,-,IND,made,430030,19.12,72.85,5.5,14.0\n"
                                   "DATA PERIODS,1,{},Data,Sunday,1/1,12/31\n",
                                   recordsAnHour);
    const auto addDay = [&](MonthAndDay date) {
        for (int record = 0; record < 24 * recordsAnHour; ++record) {
            const int hour = record / recordsAnHour + 1;
            const int part = record % recordsAnHour;
            // The radiation names its hour: direct = hour * 10 + part, diffuse = day.
            text +=
                fmt::format("2003,{},{},{},{},?9,20.5,11.5,50,100500,0,0,300,{},{},{},0,0,0,0,0,"
                            "0,0,0,0,0,9,999999999,0,0.05,0,88,0.25,0,1\n",
                            date.month, date.day, hour, 60 * (part + 1) / recordsAnHour, hour * 20,
                            hour * 10 + part, date.day);
        }
    };
    for (int day = 0; day < 365; ++day) {
        addDay(monthAndDay(day));
        if (leapYear && day == dayIndex(2, 28)) {
            addDay({2, 29});
        }
    }
    return text;
}

const WeatherFinding* find(const WeatherReading& reading, WeatherFindingKind kind) {
    for (const WeatherFinding& finding : reading.findings) {
        if (finding.kind == kind) {
            return &finding;
        }
    }
    return nullptr;
}

TEST(WeatherSeries, ReadsAYearWithSiteAndHalfHourZone) {
    const WeatherReading reading = parseWeatherSeries(madeYear(1, false), "made.epw");
    ASSERT_TRUE(reading.ok);
    EXPECT_TRUE(reading.findings.empty());
    const WeatherSeries& series = reading.series;
    EXPECT_EQ(series.place, "Bombay");
    EXPECT_DOUBLE_EQ(series.site.timeZone, 5.5);
    EXPECT_DOUBLE_EQ(series.site.latitude, 19.12);
    ASSERT_EQ(series.directNormal.size(), 8760u);
    EXPECT_EQ(series.directNormal[0], 10.0f);     // hour 1 is the first record
    EXPECT_EQ(series.directNormal[8759], 240.0f); // hour 24 of 31 December the last
    EXPECT_EQ(series.diffuseHorizontal[8759], 31.0f);
    EXPECT_EQ(series.dewPoint[100], 11.5f);
    EXPECT_EQ(series.pressure[100], 100500.0f);
    EXPECT_EQ(series.year[100], 2003);
    EXPECT_NEAR(series.monthlyAlbedo[6], 0.25f, 1e-6f);
    EXPECT_EQ(dayIndex(3, 1), 59);
    EXPECT_EQ(dayIndex(2, 29), -1);
    EXPECT_EQ(monthAndDay(364).day, 31);
}

TEST(WeatherSeries, ReadsTheSameThroughForeignLineEndsAndMarks) {
    const std::string plain = madeYear(1, false);
    std::string crlf = "\xEF\xBB\xBF";
    for (const char c : plain) {
        crlf += c == '\n' ? "\r\n" : std::string(1, c);
    }
    crlf.resize(crlf.size() - 2); // no final line end
    // Words of any case, quotes around a comma.
    crlf.replace(crlf.find("LOCATION,Bombay"), 15, "location,\"Bombay, fort\"");
    const WeatherReading a = parseWeatherSeries(plain, "a");
    const WeatherReading b = parseWeatherSeries(crlf, "b");
    ASSERT_TRUE(b.ok);
    EXPECT_EQ(a.series.directNormal, b.series.directNormal);
    EXPECT_TRUE(b.findings.empty());
    EXPECT_EQ(b.series.place, "Bombay, fort");
}

TEST(WeatherSeries, AveragesTheRecordsOfAnHourAndLeavesOutTheLeapDay) {
    for (const int perHour : {2, 4, 6}) {
        const WeatherReading reading =
            parseWeatherSeries(madeYear(perHour, perHour == 4), "made.epw");
        ASSERT_TRUE(reading.ok) << perHour;
        EXPECT_NE(find(reading, WeatherFindingKind::Averaged), nullptr);
        EXPECT_FLOAT_EQ(reading.series.directNormal[31 * 24 + 4],
                        50.0f + static_cast<float>(perHour - 1) / 2.0f);
        // 1 March is day 59 in every year.
        EXPECT_EQ(reading.series.diffuseHorizontal[59 * 24], 1.0f);
        const WeatherFinding* leap = find(reading, WeatherFindingKind::LeapDayLeftOut);
        ASSERT_EQ(leap != nullptr, perHour == 4);
        if (leap != nullptr) {
            EXPECT_THAT(leap->text, testing::HasSubstr("96 records"));
        }
    }
    const WeatherReading uneven = parseWeatherSeries(madeYear(7, false), "made.epw");
    EXPECT_FALSE(uneven.ok);
    EXPECT_NE(find(uneven, WeatherFindingKind::UnevenSteps), nullptr);
}

TEST(WeatherSeries, AnHourWithAHoleHasATemperatureButNoRadiation) {
    std::string text = madeYear(4, false);
    const std::size_t at = text.find(",100,50,1,", text.find("2003,1,1,5,15,")); // 1 January, 5 h
    const WeatherReading reading = parseWeatherSeries(text.replace(at, 10, ",100,x,1,"), "a");
    ASSERT_TRUE(reading.ok);
    EXPECT_TRUE(std::isnan(reading.series.directNormal[4]));
    EXPECT_EQ(reading.series.diffuseHorizontal[4], 1.0f);
    text.replace(text.find("20.5,", text.find("2003,1,1,6,15,")), 5, "99.9,");
    EXPECT_EQ(parseWeatherSeries(text, "a").series.dryBulb[5], 20.5f);
}

TEST(WeatherSeries, AlbedoIsWeightedWithTheLight) {
    std::vector<double> albedo(hoursPerYear, 0.6);
    std::vector<float> global(hoursPerYear, 0.0f);
    for (std::size_t k = 12; k < hoursPerYear; k += 24) {
        albedo[k] = 0.2;
        albedo[k + 1] = 0.4;
        albedo[k + 2] = 2.0; // unusable
        global[k] = 300.0f;
        global[k + 1] = global[k + 2] = 100.0f;
    }
    EXPECT_NEAR(monthlyAlbedoOf(albedo, global)[5], (0.2 * 300 + 0.4 * 100) / 400, 1e-4);
    // In the polar night all hours count alike.
    EXPECT_NEAR(monthlyAlbedoOf(std::vector<double>(hoursPerYear, 0.7),
                                std::vector<float>(hoursPerYear, 0.0f))[0],
                0.7, 1e-6);
}

TEST(WeatherSeries, TheSunStandsWhereTheSamplesWereTaken) {
    const std::vector<float> hours(hoursPerYear, 100.0f);
    WeatherSeries late = makeWeatherSeries({50.0, 8.0, 1.0, 100.0}, hours, hours).series;
    late.sampleOffset = 0.5;
    // The sun of half an hour later is that of a clock half an hour behind.
    const WeatherSeries behind = makeWeatherSeries({50.0, 8.0, 0.5, 100.0}, hours, hours).series;
    const HourlySky a = buildHourlySky(late, {170, 172});
    const HourlySky b = buildHourlySky(behind, {170, 172});
    ASSERT_EQ(a.sunCells.size(), b.sunCells.size());
    for (std::size_t i = 0; i < a.sunCells.size(); ++i) {
        EXPECT_EQ(a.sunCells[i].cell, b.sunCells[i].cell);
        EXPECT_EQ(a.sunCells[i].energy.x, b.sunCells[i].energy.x);
    }
}

TEST(WeatherSeries, ReportsWhatIsWrongWithLineAndCount) {
    std::string text = madeYear(1, false);
    const auto edit = [&](const char* hour, const std::string& from, const char* to) {
        text.replace(text.find(from, text.find(hour)), from.size(), to);
    };
    for (const char* hour : {"2003,1,2,1,", "2003,1,2,2,", "2003,1,2,3,"}) {
        edit(hour, ",300,", ",300,9999,9999,9999,"); // shifts nothing that is read before them
    }
    edit("2003,1,3,5,", ",100,50,3,", ",100,abc,3,");
    edit("2003,1,3,6,", ",120,60,3,", ",120,-60,3,");
    edit("2003,1,6,1,", ",6,1,60,", ",32,1,60,");
    const std::size_t fifth = text.find("2003,1,5,1,"); // its first two hours after the year's end
    const std::string late = text.substr(fifth, text.find("2003,1,5,3,") - fifth);
    text.erase(fifth, late.size());
    const std::size_t fourth = text.find("2003,1,4,1,"); // the hour twice
    text.insert(fourth, text.substr(fourth, text.find("2003,1,4,2,") - fourth));
    const WeatherReading reading = parseWeatherSeries(text + late, "made.epw");
    ASSERT_TRUE(reading.ok);
    using Kind = WeatherFindingKind;
    struct Expected {
        Kind kind;
        int line, count;
    };
    for (const Expected& e : {Expected{Kind::MissingValue, 27, 3}, Expected{Kind::BadNumber, 55, 1},
                              Expected{Kind::NegativeValue, 56, 1},
                              Expected{Kind::DuplicateHour, 76, 1}, Expected{Kind::BadLine, 122, 1},
                              Expected{Kind::OutOfOrder, 8762, 1}, Expected{Kind::Gap, 121, 1}}) {
        const WeatherFinding* finding = find(reading, e.kind);
        ASSERT_NE(finding, nullptr) << static_cast<int>(e.kind);
        EXPECT_EQ(finding->line, e.line) << finding->text;
        EXPECT_EQ(finding->count, e.count) << finding->text;
    }
    EXPECT_THAT(find(reading, WeatherFindingKind::BadNumber)->text,
                testing::StrEq("made.epw:55: field 15 (direct normal radiation): 'abc' is not a "
                               "number; the value counts as missing"));
    EXPECT_EQ(find(reading, WeatherFindingKind::BadNumber)->column, 15);
    EXPECT_TRUE(std::isnan(reading.series.directNormal[24]));
    EXPECT_TRUE(std::isnan(reading.series.directNormal[2 * 24 + 4]));
    EXPECT_EQ(reading.series.directNormal[2 * 24 + 5], 0.0f);
    EXPECT_EQ(reading.series.directNormal[4 * 24], 10.0f); // found at the end of the file
    EXPECT_EQ(reading.hoursWithoutRadiation, 3 + 1 + 1);
}

TEST(WeatherSeries, RefusesWhatIsNoWeather) {
    using Kind = WeatherFindingKind;
    const std::string year = madeYear(1, false);
    const std::size_t afterLocation = year.find('\n') + 1;
    for (const auto& [text, kind] : {std::pair{std::string("\xFF\xFE"), Kind::NotEpw},
                                     {year.substr(afterLocation), Kind::NotEpw},
                                     {year.substr(0, afterLocation), Kind::NotEpw},
                                     {"LOCATION,a,b\n", Kind::BadLocation},
                                     {"LOCATION,a,b,c,d,e,91,0,0,0\n", Kind::BadLocation},
                                     {"LOCATION,a,b,c,d,e,nan,0,0,0\n", Kind::BadLocation}}) {
        const WeatherReading reading = parseWeatherSeries(text, "x.epw");
        EXPECT_FALSE(reading.ok);
        EXPECT_NE(find(reading, kind), nullptr) << text.substr(0, 40);
    }
    EXPECT_NE(find(readWeatherSeries("no/such/file.epw"), WeatherFindingKind::CannotOpen), nullptr);
    const std::vector<float> shortArray(24, 0.0f);
    EXPECT_FALSE(makeWeatherSeries(Site{}, shortArray, shortArray).ok);
    std::vector<float> hours(hoursPerYear, 100.0f);
    hours[7] = std::numeric_limits<float>::infinity();
    const WeatherReading holed = makeWeatherSeries(Site{}, hours, hours);
    EXPECT_TRUE(std::isnan(holed.series.directNormal[7]));
    EXPECT_EQ(holed.hoursWithoutRadiation, 1);

    hours = {std::vector<float>(hoursPerYear, 100.0f)};
    hours[7] = -5.0f;
    hours[8] = 1e30f; // other hours would turn NaN with it
    hours[9] = 2500.0f;
    const WeatherReading odd = makeWeatherSeries(Site{}, hours, hours);
    EXPECT_EQ(odd.series.directNormal[7], 0.0f);
    EXPECT_TRUE(std::isnan(odd.series.directNormal[8]));
    EXPECT_EQ(odd.series.directNormal[9], 2500.0f);
    EXPECT_EQ(odd.hoursWithoutRadiation, 1);
    for (const Kind kind : {Kind::NegativeValue, Kind::MissingValue, Kind::ImplausibleValue}) {
        EXPECT_NE(find(odd, kind), nullptr) << static_cast<int>(kind);
    }

    const test::TemporaryFolder folder;
    const auto large = folder.write("large.epw", year);
    std::filesystem::resize_file(large, (std::uintmax_t{512} << 20U) + 1); // takes no room
    EXPECT_NE(find(readWeatherSeries(large), Kind::TooLarge), nullptr);
}

} // namespace
} // namespace insolate
