#include <tests/support/test_data.h>

#include <insolate/weather/weather_series.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <numeric>

namespace insolate {
namespace {

struct Row {
    int month, day, hour, minute;
};

/// An EPW of a year with the given records an hour; edit changes or drops a row's text.
std::string madeYear(int recordsAnHour, bool leapYear,
                     const std::function<void(const Row&, std::string&)>& edit = {}) {
    std::string text = "LOCATION,Bombay,-,IND,made,430030,19.12,72.85,5.5,14.0\n"
                       "DATA PERIODS,1," +
                       std::to_string(recordsAnHour) + ",Data,Sunday,1/1,12/31\n";
    constexpr int lengths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    for (int month = 1; month <= 12; ++month) {
        const int days = lengths[month - 1] + (leapYear && month == 2 ? 1 : 0);
        for (int day = 1; day <= days; ++day) {
            for (int hour = 1; hour <= 24; ++hour) {
                for (int i = 1; i <= recordsAnHour; ++i) {
                    const Row row{month, day, hour, 60 * i / recordsAnHour};
                    // The radiation names its hour: direct = hour * 10 + part, diffuse = day.
                    std::string line =
                        "2003," + std::to_string(month) + ',' + std::to_string(day) + ',' +
                        std::to_string(hour) + ',' + std::to_string(row.minute) +
                        ",?9,20.5,11.5,50,100500,0,0,300," + std::to_string(hour * 20) + ',' +
                        std::to_string(hour * 10 + i - 1) + ',' + std::to_string(day) +
                        ",0,0,0,0,0,0,0,0,0,0,9,999999999,0,0.05,0,88,0.25,0,1\n";
                    if (edit) {
                        edit(row, line);
                    }
                    text += line;
                }
            }
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
    const WeatherReading a = parseWeatherSeries(plain, "a");
    const WeatherReading b = parseWeatherSeries(crlf, "b");
    ASSERT_TRUE(b.ok);
    EXPECT_EQ(a.series.directNormal, b.series.directNormal);
    EXPECT_TRUE(b.findings.empty());
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

TEST(WeatherSeries, ReportsWhatIsWrongWithLineAndCount) {
    std::string late;
    const std::string text = madeYear(1, false, [&](const Row& row, std::string& line) {
        const auto replace = [&](const char* from, const char* to) {
            line.replace(line.find(from), std::string(from).size(), to);
        };
        if (row.month == 1 && row.day == 2 && row.hour <= 3) {
            replace(",300,", ",300,9999,9999,9999,"); // shifts nothing that is read before them
        } else if (row.month == 1 && row.day == 3 && row.hour == 5) {
            replace(",100,50,3,", ",100,abc,3,");
        } else if (row.month == 1 && row.day == 3 && row.hour == 6) {
            replace(",120,60,3,", ",120,-60,3,");
        } else if (row.month == 1 && row.day == 4 && row.hour == 1) {
            line += line;
        } else if (row.month == 1 && row.day == 5 && row.hour <= 2) {
            late += line; // both hours again after the year's end
            line.clear();
        } else if (row.month == 1 && row.day == 6 && row.hour == 1) {
            line = "2003,1,32,1,60,x\n";
        }
    });
    const WeatherReading reading = parseWeatherSeries(text + late, "made.epw");
    ASSERT_TRUE(reading.ok);
    struct Expected {
        WeatherFindingKind kind;
        int line, count;
    };
    for (const Expected& e : {Expected{WeatherFindingKind::MissingValue, 27, 3},
                              Expected{WeatherFindingKind::BadNumber, 55, 1},
                              Expected{WeatherFindingKind::NegativeValue, 56, 1},
                              Expected{WeatherFindingKind::DuplicateHour, 76, 1},
                              Expected{WeatherFindingKind::BadLine, 122, 1},
                              Expected{WeatherFindingKind::OutOfOrder, 8762, 1},
                              Expected{WeatherFindingKind::Gap, 121, 1}}) {
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
    const std::string year = madeYear(1, false);
    const std::size_t afterLocation = year.find('\n') + 1;
    struct Case {
        std::string text;
        WeatherFindingKind kind;
    };
    for (const Case& c :
         {Case{"", WeatherFindingKind::NotEpw}, Case{"\xFF\xFE", WeatherFindingKind::NotEpw},
          Case{year.substr(afterLocation), WeatherFindingKind::NotEpw},
          Case{year.substr(0, afterLocation), WeatherFindingKind::NotEpw},
          Case{"LOCATION,a,b\n", WeatherFindingKind::BadLocation},
          Case{"LOCATION,a,b,c,d,e,91,0,0,0\n", WeatherFindingKind::BadLocation},
          Case{"LOCATION,a,b,c,d,e,nan,0,0,0\n", WeatherFindingKind::BadLocation}}) {
        const WeatherReading reading = parseWeatherSeries(c.text, "x.epw");
        EXPECT_FALSE(reading.ok);
        EXPECT_NE(find(reading, c.kind), nullptr) << c.text.substr(0, 40);
    }
    EXPECT_NE(find(readWeatherSeries("no/such/file.epw"), WeatherFindingKind::CannotOpen), nullptr);
    const std::vector<float> shortArray(24, 0.0f);
    EXPECT_FALSE(makeWeatherSeries(Site{}, shortArray, shortArray).ok);
    std::vector<float> hours(hoursPerYear, 100.0f);
    hours[7] = std::numeric_limits<float>::infinity();
    const WeatherReading holed = makeWeatherSeries(Site{}, hours, hours);
    EXPECT_TRUE(std::isnan(holed.series.directNormal[7]));
    EXPECT_EQ(holed.hoursWithoutRadiation, 1);
}

TEST(WeatherSeries, ReadsTheRealFiles) {
    struct City {
        const char* file;
        double zone;
        float albedo; // of July; negative for none
    };
    for (const City& city :
         {City{"weather/amsterdam.epw", 1.0, -1.0f}, City{"weather/chicago.epw", -6.0, -1.0f},
          City{"weather/mannheim.epw", 1.0, 0.2f}, City{"weather/tokyo.epw", 9.0, 0.17f}}) {
        INSOLATE_REQUIRE_TEST_DATA(file, city.file);
        const WeatherReading reading = readWeatherSeries(file);
        ASSERT_TRUE(reading.ok) << city.file;
        EXPECT_EQ(reading.hoursWithoutRadiation, 0);
        EXPECT_DOUBLE_EQ(reading.series.site.timeZone, city.zone);
        if (city.albedo < 0.0f) {
            EXPECT_TRUE(std::isnan(reading.series.monthlyAlbedo[6])) << city.file;
        } else {
            EXPECT_NEAR(reading.series.monthlyAlbedo[6], city.albedo, 0.1f) << city.file;
        }
        for (const WeatherFinding& finding : reading.findings) {
            std::printf("%s\n", finding.text.c_str());
        }
    }
}

} // namespace
} // namespace insolate
