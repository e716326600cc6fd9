#include "../support/keep_global_site.h"
#include "../support/plain_epw_reader.h"
#include "../support/temporary_file.h"
#include "../support/test_data.h"

#include <insolate/weather/weather_data.h>

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

namespace {

using insolate::test::TemporaryFile;

const std::string denver = "LOCATION,Denver,CO,USA,TMY3,724666,39.74,-105.18,-7.0,1829\n";

// A full data line whose columns hold their own numbers unless given.
struct Line {
    std::string date = "1999,1,1,1,60";
    std::string dryBulb = "6";
    std::string humidity = "8";
    std::string direct = "14";
    std::string diffuse = "15";
    std::string windDirection = "20";
    std::string windSpeed = "21";
    std::string cover = "22";
    std::string tail = ",23,24,25,26,27,28,29,30,31,32,33,34\n";

    operator std::string() const {
        return date + ",?9?9E0," + dryBulb + ",7," + humidity + ",9,10,11,12,13," + direct + "," +
               diffuse + ",16,17,18,19," + windDirection + "," + windSpeed + "," + cover + tail;
    }
};

Line on(const std::string& date) {
    Line line;
    line.date = date;
    return line;
}

// Loads text over a store; the shared site is left alone.
void load(EWeatherData& weather, const std::string& text) {
    const TemporaryFile file(text, ".epw");
    auto result = ResultLoadWeatherData{};
    EXPECT_TRUE(weather.loadFile_EPW(file.wideName(), 0, result));
    EXPECT_EQ(result, ResultLoadWeatherData{});
}

int temperatureAfter(const std::string& text, int day = 0, int hour = 0) {
    EWeatherData weather;
    weather.getHourlyDataAsPointer(day, hour)->temp = -999;
    load(weather, text);
    return weather.getHourlyDataAsPointer(day, hour)->temp;
}

constexpr int untouched = -999;

TEST(EpwReader, SiteComesFromTheLocationLine) {
    const insolate::test::KeepGlobalSite keep;
    const TemporaryFile file(denver, ".epw");
    EWeatherData weather;
    auto result = ResultLoadWeatherData{};
    const double before = ESolarPosition::Global.getLatitudeInRadians();
    EXPECT_TRUE(weather.loadFile_EPW(file.wideName(), 0, result));
    EXPECT_EQ(ESolarPosition::Global.getLatitudeInRadians(), before);
    EXPECT_STREQ(weather.getName(), "Denver");
    EXPECT_STREQ(weather.getState(), "CO");
    // Degrees in the store, whatever the getters are called.
    EXPECT_EQ(weather.getLatitudeInRadians(), 39.74f);
    EXPECT_EQ(weather.getLongitudeInRadians(), -105.18f);
    EXPECT_EQ(weather.getDataForWrite().timeZone, -105.0f);
    EXPECT_EQ(weather.getTimeZone(), -7.0f);
    EXPECT_EQ(weather.getAltitude(), 1829.0f);
    EXPECT_EQ(weather.getDataForWrite().loaded, 1);

    EXPECT_TRUE(weather.loadFile_EPW(file.wideName(), 1, result));
    EXPECT_STREQ(ESolarPosition::Global.name, "Denver");
    EXPECT_NEAR(ESolarPosition::Global.getLatitudeInRadians(), 0.6936, 5e-5);
    EXPECT_NEAR(ESolarPosition::Global.getLongitudeInRadians(), -1.8357, 5e-5);
    EXPECT_NEAR(ESolarPosition::Global.getReferenceLongitudeInRadians(), -1.8326, 5e-5);
}

TEST(EpwReader, LocationTextIsUnquotedTrimmedAndCut) {
    EWeatherData weather;
    load(weather, "LOCATION, \t\"Fort Collins, CO\" ,\"\",x,x,x,4\"0.\"5,-105,abc\n");
    EXPECT_STREQ(weather.getName(), "Fort Collins, CO ");
    EXPECT_STREQ(weather.getState(), "");
    EXPECT_EQ(weather.getLatitudeInRadians(), 40.5f);
    EXPECT_EQ(weather.getTimeZone(), 0.0f);
    EXPECT_EQ(weather.getAltitude(), 0.0f);
    load(weather, "LOCATION," + std::string(40, 'n') + "," + std::string(300, 's') + "\n");
    EXPECT_EQ(std::string(weather.getName()), std::string(31, 'n'));
    EXPECT_EQ(std::string(weather.getState()), std::string(31, 's'));
    EXPECT_EQ(weather.getLatitudeInRadians(), 0.0f);
    // A file without a site leaves it.
    load(weather, Line());
    EXPECT_EQ(std::string(weather.getName()), std::string(31, 'n'));
}

TEST(EpwReader, EachColumnGoesToItsField) {
    EWeatherData weather;
    Line line;
    line.dryBulb = "-3.5";
    line.windSpeed = "3.6";
    line.tail = ",23\n";
    load(weather, line);
    const EHourlyData& record = *weather.getHourlyDataAsPointer(0, 0);
    EXPECT_EQ(record.temp, -35);
    EXPECT_EQ(record.humidity, 8);
    EXPECT_EQ(record.directRad, 14);
    EXPECT_EQ(record.diffuseRad, 15);
    EXPECT_EQ(record.windDirection, 20);
    EXPECT_EQ(record.windSpeed, 3);
    EXPECT_FLOAT_EQ(weather.getHourlyWindSpeed(0, 0), 0.3f);
    EXPECT_EQ(record.cloud, 22);
    EXPECT_EQ(record.rain, 0);
    // A line that reaches field 28, and that only, clears the cover.
    line.tail = ",23,24,25,26,27\n";
    load(weather, line);
    EXPECT_EQ(record.cloud, 22);
    line.tail = ",23,24,25,26,27,\n";
    load(weather, line);
    EXPECT_EQ(record.cloud, 0);
}

TEST(EpwReader, DatesAreHeldWithinTheCalendarAndHoursAreNot) {
    struct Case {
        const char* date;
        int day; // -1: the line is skipped
        int hour;
    };
    for (const Case& one :
         {Case{"1999,1,1,24,60", 0, 23}, Case{"1999,1,1,0,60", -1, 0},
          Case{"1999,1,1,25,60", -1, 0}, Case{"1999,2,29,3,60", 58, 2},
          Case{"1999,2,30,3,60", 58, 2}, Case{"1999,12,30,1,60", 363, 0},
          // The calendar ends at day 364: the last day of the store stays as it is.
          Case{"1999,12,31,1,60", 363, 0}, Case{"1999,13,5,1,60", 338, 0},
          Case{"1999,0,0,1,60", 0, 0}, Case{"1999,,,1,60", 0, 0}, Case{"1999,x,y,1,60", 0, 0},
          Case{"1999,1,1,4294967297,60", 0, 0}, Case{"1999,-2147483648,1,1,60", 334, 0},
          Case{"1999,1,1,\"1\",60", -1, 0}}) {
        EWeatherData weather;
        load(weather, on(one.date));
        for (int day = 0; day < 365; ++day) {
            for (int hour = 0; hour < 24; ++hour) {
                ASSERT_EQ(weather.getHourlyDataAsPointer(day, hour)->temp,
                          day == one.day && hour == one.hour ? 60 : 0)
                    << one.date;
            }
        }
    }
}

TEST(EpwReader, NumbersAreReadAsFarAsTheyGo) {
    struct Case {
        const char* text;
        int temperature; // tenths
        int direct;
    };
    for (const Case& one :
         {Case{"", 0, 0}, Case{" 12.34abc", 123, 12}, Case{"abc", 0, 0}, Case{"-7", -70, -7},
          Case{"9999", 99990, 9999}, Case{"99999", 999990, 99999}, Case{"1e30", 0, 1},
          Case{"nan", 0, 0}, Case{"\"5\"", 0, 0}}) {
        EWeatherData weather;
        Line line;
        line.dryBulb = one.text;
        line.direct = one.text;
        load(weather, line);
        EXPECT_EQ(weather.getHourlyDataAsPointer(0, 0)->temp,
                  static_cast<std::int16_t>(one.temperature))
            << one.text;
        EXPECT_EQ(weather.getHourlyDataAsPointer(0, 0)->directRad,
                  static_cast<std::int16_t>(one.direct))
            << one.text;
        // What follows is in its column still.
        EXPECT_EQ(weather.getHourlyDataAsPointer(0, 0)->diffuseRad, 15);
    }
    // Commas in quotes do not separate, and only 255 characters of a field count.
    EXPECT_EQ(temperatureAfter("\"1999,9,9\",1,1,1,0,\"a,b\",4.5\n"), 45);
    EXPECT_EQ(temperatureAfter("1999,1,1,1,0,x," + std::string(254, ' ') + "75\n"), 70);
    EXPECT_EQ(temperatureAfter("1999,1,1,1,0,x," + std::string(255, ' ') + "75\n"), 0);
}

TEST(EpwReader, HeaderLinesAreSkippedAndOthersAreData) {
    const std::string data = Line();
    for (const char* header :
         {"DESIGN CONDITIONS,1,1,1,0,x,9\n", "TYPICAL/EXTREME PERIODS,1,1,1,0,x,9\n",
          "GROUND TEMPERATURES,1,1,1,0,x,9\n", "HOLIDAYS/DAYLIGHT SAVINGS,1,1,1,0,x,9\n",
          "COMMENTS 1,1,1,1,0,x,9\n"}) {
        EXPECT_EQ(temperatureAfter(header), untouched);
    }
    EXPECT_EQ(temperatureAfter("location,1,1,1,0,x,9\n"), 90);
    EXPECT_EQ(temperatureAfter("\n\n" + data), 60);
    EXPECT_EQ(temperatureAfter("1999,1,1\n"), untouched);
    // A line keeps nothing of the one before.
    EXPECT_EQ(temperatureAfter(data + "x\n" + "1999,1,1\n"), 60);
}

TEST(EpwReader, LinesEndAtLineFeedsOnly) {
    const std::string data = Line();
    EXPECT_EQ(temperatureAfter(data.substr(0, data.size() - 1)), untouched);
    EXPECT_EQ(temperatureAfter(""), untouched);
    EXPECT_EQ(temperatureAfter("\xEF\xBB\xBF" + data), 60);
    EXPECT_EQ(temperatureAfter("\xEF\xBB"), untouched);
    EXPECT_EQ(temperatureAfter("1999,1,1,1,0,x,6\r\n"), 60);
    EXPECT_EQ(temperatureAfter("1999,1,1,1,0,x,6\r1999,1,1,1,0,x,7\n"), 60);
    // A byte 0xFF ends the file, in the middle of a line or between lines.
    EXPECT_EQ(temperatureAfter(data + "1999,1,1,1,0,x,7\xFF,\n"), 60);
    EXPECT_EQ(temperatureAfter(data + "\xFF" + "1999,1,1,1,0,x,7\n"), 60);
    EXPECT_EQ(temperatureAfter("\xFF" + data), untouched);
    // A zero byte is a character like any other that is no digit.
    EXPECT_EQ(temperatureAfter(std::string("1999,1,1,1,0,x,8\0", 17) + "9,7\n"), 80);
}

// A line is cut at 1,024 characters, CR LF counting as one; what follows is the next line.
TEST(EpwReader, LongLinesAreCut) {
    const std::string tail = "1999,1,1,1,0,x,7";
    for (const int length : {1019, 1020, 1024, 1025}) {
        // A comment swallows what follows it, unless the cut frees it: all of it or, at 1,020, all
        // but the year, which is not read.
        const int expected = length == 1020 || length == 1024 ? 70 : untouched;
        std::string line(static_cast<std::size_t>(length), 'C');
        for (const char* end : {"\n", "\r\n"}) {
            EXPECT_EQ(temperatureAfter(line + tail + end), expected) << length;
            EXPECT_EQ(temperatureAfter(line + end + tail + end), 70) << length;
        }
        // A lone carriage return counts; at 1,025 it begins the next line, which is data then.
        line[static_cast<std::size_t>(length) - 1] = '\r';
        EXPECT_EQ(temperatureAfter(line + tail + "\n"), length == 1019 ? untouched : 70);
    }
    // 1,023 characters and CR LF fill the line to the last place.
    EXPECT_EQ(temperatureAfter(std::string(1023, 'C') + "\r\n" + tail + "\n"), 70);
    // A cut line at the end of the file counts, the rest without a line feed does not.
    std::string cut = tail + std::string(1024 - tail.size(), ' ');
    EXPECT_EQ(temperatureAfter(cut), 70);
    EXPECT_EQ(temperatureAfter(cut.substr(0, 1023)), untouched);
    EXPECT_EQ(temperatureAfter(cut + "1999,1,1,1,0,x,8"), 70);
}

// Every offset of a line against the reader's blocks, with both line ends.
TEST(EpwReader, LinesAcrossBlocksAreWhole) {
    for (const bool carriageReturn : {false, true}) {
        const std::string end = carriageReturn ? "\r\n" : "\n";
        std::string text;
        for (int line = 0; line < 8760; ++line) {
            const int day = line / 24;
            ESolarPosition::ESolarDayAndTime date;
            ESolarPosition::Global.calculateMonthAndDay(day + 1, date);
            text += "1999," + std::to_string(date.month + 1) + "," + std::to_string(date.day) +
                    "," + std::to_string(line % 24 + 1) + ",0,x," + std::to_string(line % 3000) +
                    std::string(static_cast<std::size_t>(line % 61), ' ') + end;
            if (line % 97 == 0) {
                text += std::string(static_cast<std::size_t>(line % 1500), 'C') + end;
            }
        }
        EWeatherData weather;
        load(weather, text);
        for (int line = 0; line < 363 * 24; ++line) {
            ASSERT_EQ(weather.getHourlyDataAsPointer(line / 24, line % 24)->temp,
                      static_cast<std::int16_t>(line % 3000 * 10));
        }
        // 31 December over 30 December; the store's last day is never written.
        EXPECT_EQ(weather.getHourlyDataAsPointer(363, 0)->temp,
                  static_cast<std::int16_t>(364 * 24 % 3000 * 10));
        EXPECT_EQ(weather.getHourlyDataAsPointer(364, 0)->temp, 0);
    }
}

TEST(EpwReader, WhatCannotBeOpenedChangesNothing) {
    const insolate::test::KeepGlobalSite keep;
    const EWeatherData fresh;
    for (const std::wstring& name : {std::wstring(L"/no/such/file.epw"), std::wstring(),
                                     std::filesystem::temp_directory_path().wstring()}) {
        EWeatherData weather;
        auto result = ResultLoadWeatherData{};
        EXPECT_FALSE(weather.loadFile_EPW(name, 1, result));
        EXPECT_EQ(result, ResultLoadWeatherData_CannotOpen);
        EXPECT_EQ(std::memcmp(&weather, &fresh, sizeof(fresh)), 0);
    }
}

TEST(EpwReader, RealFilesAreReadAsThePlainReaderReadsThem) {
    for (const char* name : {"amsterdam", "chicago", "mannheim", "tokyo"}) {
        INSOLATE_REQUIRE_TEST_DATA(file, std::string("weather/") + name + ".epw");
        std::ifstream in(file, std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(in)), {});
        EWeatherData expected;
        const insolate::test::PlainEpwReader plain(bytes, expected);
        EWeatherData weather;
        auto result = ResultLoadWeatherData{};
        ASSERT_TRUE(weather.loadFile_EPW(file.wstring(), 0, result));
        EXPECT_EQ(std::memcmp(&weather, &expected, sizeof(weather)), 0) << name;
    }
}

// The annual sums of the file's own radiation columns, less what falls on 31 December: its lines
// replace those of the 30th. From the file with awk:
//   awk -F, '/^[0-9]/ && !($2==12 && $3==30) {b+=$15; d+=$16} END {print b, d}' chicago.epw
TEST(EpwReader, RealFileGivesItsOwnSums) {
    INSOLATE_REQUIRE_TEST_DATA(file, "weather/chicago.epw");
    EWeatherData weather;
    auto result = ResultLoadWeatherData{};
    ASSERT_TRUE(weather.loadFile_EPW(file.wstring(), 0, result));
    EXPECT_STREQ(weather.getName(), "Chicago Ohare Intl Ap");
    EXPECT_EQ(weather.getTimeZone(), -6.0f);
    long direct = 0;
    long diffuse = 0;
    for (int day = 0; day < 365; ++day) {
        for (int hour = 0; hour < 24; ++hour) {
            direct += weather.getHourlyDataAsPointer(day, hour)->directRad;
            diffuse += weather.getHourlyDataAsPointer(day, hour)->diffuseRad;
        }
    }
    EXPECT_EQ(direct, 1293487);
    EXPECT_EQ(diffuse, 659316);
}

} // namespace
