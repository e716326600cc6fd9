// The reader never refuses a file that opens; telling the user what is wrong with it is the
// command's part.
#include "../support/keep_global_site.h"
#include "../support/plain_epw_reader.h"
#include "../support/test_data.h"
#include "load.h"

#include <cstring>

namespace {

using insolate::test::loadEpw;
using insolate::test::readFile;

constexpr std::int16_t untouched = -999;

/// A store whose first day is marked.
EWeatherData markedStore() {
    EWeatherData weather;
    for (int hour = 0; hour < 24; ++hour) {
        weather.getHourlyDataAsPointer(0, hour)->temp = untouched;
        weather.getHourlyDataAsPointer(0, hour)->directRad = untouched;
    }
    return weather;
}

/// The same bytes from both readers; returns what the library's made of the text.
EWeatherData readBothWays(const std::string& text) {
    EWeatherData plain = markedStore();
    const insolate::test::PlainEpwReader reader(text, plain);
    EWeatherData weather = markedStore();
    loadEpw(weather, text, 0);
    EXPECT_EQ(std::memcmp(&weather, &plain, sizeof(plain)), 0);
    return weather;
}

int temperatureAfter(const std::string& text) {
    return readBothWays(text).getHourlyDataAsPointer(0, 0)->temp;
}

/// A data line of 1 January, 1 h.
std::string reading(const std::string& temperature) {
    return "1999,1,1,1,0,x," + temperature;
}

TEST(EpwReader, SiteComesFromTheLocationLine) {
    const insolate::test::KeepGlobalSite keep;
    const std::string denver = "LOCATION,Denver,CO,USA,TMY3,724666,39.74,-105.18,-7.0,1829\n";
    const double before = ESolarPosition::Global.getLatitudeInRadians();
    EWeatherData weather = readBothWays(denver);
    EXPECT_EQ(ESolarPosition::Global.getLatitudeInRadians(), before);
    EXPECT_STREQ(weather.getState(), "CO");
    // Degrees in the store, whatever the getters are called.
    EXPECT_EQ(weather.getLatitudeInRadians(), 39.74f);
    EXPECT_EQ(weather.getTimeZone(), -7.0f);
    EXPECT_EQ(weather.getAltitude(), 1829.0f);

    loadEpw(weather, denver, 1);
    EXPECT_STREQ(ESolarPosition::Global.name, "Denver");
    EXPECT_NEAR(ESolarPosition::Global.getLatitudeInRadians(), 0.6936, 5e-5);
    EXPECT_NEAR(ESolarPosition::Global.getLongitudeInRadians(), -1.8357, 5e-5);
    EXPECT_NEAR(ESolarPosition::Global.getReferenceLongitudeInRadians(), -1.8326, 5e-5);
}

TEST(EpwReader, LocationTextIsUnquotedTrimmedAndCut) {
    EWeatherData weather;
    loadEpw(weather, "LOCATION, \t\"Fort Collins, CO\" ,\"\",x,x,x,4\"0.\"5,-105,abc\n", 0);
    EXPECT_STREQ(weather.getName(), "Fort Collins, CO ");
    EXPECT_STREQ(weather.getState(), "");
    EXPECT_EQ(weather.getLatitudeInRadians(), 40.5f);
    EXPECT_EQ(weather.getTimeZone(), 0.0f);
    loadEpw(weather, "LOCATION," + std::string(40, 'n') + "," + std::string(300, 's') + "\n", 0);
    loadEpw(weather, reading("6\n"), 0); // a file without a site leaves it
    EXPECT_EQ(weather.getName() + std::string(weather.getState()),
              std::string(31, 'n') + std::string(31, 's'));
}

TEST(EpwReader, EachColumnGoesToItsField) {
    // A line that reaches field 28, and that only, clears the cover.
    const std::string line = "1999,1,1,1,60,?9,-3.5,7,8,9,10,11,12,13,14,15,16,17,18,19,20,3.6,22";
    for (const auto& [tail, cloud] :
         {std::pair{",23", 22}, {",23,24,25,26,27", 22}, {",23,24,25,26,27,", 0}}) {
        const EWeatherData weather = readBothWays(line + tail + "\n");
        const EHourlyData& record = *weather.getHourlyDataAsPointer(0, 0);
        EXPECT_EQ(record.temp, -35);
        EXPECT_EQ(record.humidity, 8);
        EXPECT_EQ(record.directRad, 14);
        EXPECT_EQ(record.diffuseRad, 15);
        EXPECT_EQ(record.windDirection, 20);
        EXPECT_EQ(record.windSpeed, 3);
        EXPECT_EQ(record.cloud, cloud);
        EXPECT_EQ(record.rain, 0);
    }
}

TEST(EpwReader, DatesAreHeldWithinTheCalendarAndHoursAreNot) {
    struct Case {
        const char* date;
        int day, hour; // from 0; day -1: the line is skipped
    };
    for (const auto& [date, expectedDay, expectedHour] :
         {Case{"1,1,24", 0, 23}, Case{"1,1,0", -1, 0}, Case{"1,1,25", -1, 0}, Case{"2,30,3", 58, 2},
          // The calendar ends at day 364: the last day of the store stays as it is.
          Case{"12,31,1", 363, 0}, Case{"13,5,1", 338, 0}, Case{",,1", 0, 0}, Case{"x,y,1", 0, 0},
          Case{"1,1,4294967297", 0, 0}, Case{"-2147483648,1,1", 334, 0},
          Case{"1,1,\"1\"", -1, 0}}) {
        const EWeatherData weather = readBothWays(std::string("1999,") + date + ",60,x,6,7,88\n");
        for (int at = 0; at < 8760; ++at) {
            ASSERT_EQ(weather.getHourlyDataAsPointer(0, 0)[at].humidity,
                      expectedDay >= 0 && at == expectedDay * 24 + expectedHour ? 88 : 0)
                << date;
        }
    }
}

TEST(EpwReader, LinesAreToldApartByTheirFirstLetterAndEnd) {
    const std::pair<std::string, int> cases[] = {
        {"DESIGN CONDITIONS,1,1,1,0,x,9\n", untouched},
        {"TGHC,1,1,1,0,x,9\nG,1,1,1,0,x,9\nH,1,1,1,0,x,9\nC,1,1,1,0,x,9\n", untouched},
        {"location,1,1,1,0,x,9\n", 90},
        {reading("6\n") + "x\n1999,1,1\n", 60}, // a line keeps nothing of the one before
        // Line feeds end a line, nothing else.
        {reading("6"), untouched},
        {reading("6\r") + reading("7\n"), 60},
        // A byte 0xFF ends the file, in the middle of a line or between lines.
        {reading("6\n") + reading("7\xFF,\n"), 60},
        {reading("6\n\xFF") + reading("7\n"), 60},
        // A zero byte is a character like any other that is no digit.
        {reading(std::string("8\0", 2) + "9,7\n"), 80},
        // Commas in quotes do not separate, and only 255 characters of a field count.
        {"\"1999,9,9\",1,1,1,0,\"a,b\",4.5\n", 45},
        {reading(std::string(255, ' ') + "75\n"), 0},
    };
    for (const auto& [text, temperature] : cases) {
        EXPECT_EQ(temperatureAfter(text), temperature) << text;
    }
}

// A line is cut at 1,024 characters, CR LF counting as one; what follows is the next line.
TEST(EpwReader, LongLinesAreCut) {
    for (const int length : {1018, 1019, 1020, 1021, 1023, 1024, 1025}) {
        // A comment swallows what follows it, unless the cut frees it, with or without the digits
        // of the year, which is not read.
        const int expected = length >= 1020 && length <= 1024 ? 70 : untouched;
        std::string line(static_cast<std::size_t>(length), 'C');
        for (const char* end : {"\n", "\r\n"}) {
            EXPECT_EQ(temperatureAfter(line + reading("7") + end), expected) << length;
            EXPECT_EQ(temperatureAfter(line + end + reading("7") + end), 70) << length;
        }
        // A lone carriage return counts; at 1,025 it begins the next line, which is data then.
        line.back() = '\r';
        EXPECT_EQ(temperatureAfter(line + reading("7\n")), length == 1025 ? 70 : expected);
    }
    // A cut line at the end of the file counts, the rest without a line feed does not.
    std::string cut = reading("7");
    cut.resize(1024, ' ');
    EXPECT_EQ(temperatureAfter(cut + reading("8")), 70);
    EXPECT_EQ(temperatureAfter(cut), 70);
    EXPECT_EQ(temperatureAfter(cut.substr(0, 1023)), untouched);
    // 20 MB without a line feed
    EXPECT_EQ(temperatureAfter(std::string(20'000'000, 'x') + "\n" + reading("7\n")), 70);
}

// Every offset of a line against the reader's blocks, with both line ends, in a leap year: 29
// February replaces the 28th, 31 December the 30th, every other day is in its place.
TEST(EpwReader, LinesAcrossBlocksAreWhole) {
    const int days[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    for (const char* end : {"\n", "\r\n"}) {
        std::string text;
        for (int month = 1; month <= 12; ++month) {
            for (int line = 0; line < 24 * days[month - 1]; ++line) {
                const int day = line / 24 + 1;
                text += "2008," + std::to_string(month) + "," + std::to_string(day) + "," +
                        std::to_string(line % 24 + 1) + ",60,x,0,0," +
                        std::to_string(100 * month + day) +
                        std::string(static_cast<std::size_t>(line % 61), ' ') + end;
                if (line % 97 == 0) {
                    text += std::string(static_cast<std::size_t>(line * month % 1500), 'C') + end;
                }
            }
        }
        const EWeatherData weather = readBothWays(text);
        for (int day = 0; day < 365; ++day) {
            ESolarPosition::ESolarDayAndTime date;
            ESolarPosition().calculateMonthAndDay(day + 1, date);
            int expected = 100 * (date.month + 1) + date.day;
            expected = expected == 228 ? 229 : expected == 1230 ? 1231 : day < 364 ? expected : 0;
            EXPECT_EQ(weather.getHourlyDataAsPointer(day, 23)->humidity, expected) << day;
        }
    }
}

// Each file holds a site and the hours 1 to 3 of 1 January, 1.5 to 3.5 degrees, with one thing
// broken; what the rules for lines and numbers make of it the plain reader says.
TEST(EpwReader, GivesWhatCanBeReadOfBrokenFiles) {
    int sites = 0;
    int hours = 0;
    for (const auto& file : std::filesystem::directory_iterator(insolate::test::sourceFolder() /
                                                                "tests/weather/broken")) {
        SCOPED_TRACE(file.path());
        const EWeatherData weather = readBothWays(readFile(file.path()));
        sites += std::strcmp(weather.getName(), "Demoville") == 0 ? 1 : 0;
        for (int hour = 0; hour < 24; ++hour) {
            hours += weather.getHourlyDataAsPointer(0, hour)->temp != untouched ? 1 : 0;
        }
    }
    EXPECT_EQ(sites, 12); // of 15: one has none, one is empty, and of two the last one stands
    EXPECT_EQ(hours, 45 - 1 - 1 - 2 - 3); // no final newline, a negative hour, byte 0xFF, empty
}

TEST(EpwReader, RealFilesAreReadAsThePlainReaderReadsThem) {
    for (const char* name : {"amsterdam", "chicago", "mannheim", "tokyo"}) {
        INSOLATE_REQUIRE_TEST_DATA(file, std::string("weather/") + name + ".epw");
        const EWeatherData weather = readBothWays(readFile(file));
        if (name != std::string("chicago")) {
            continue;
        }
        // The file's own annual sums, less 30 December, whose lines those of the 31st replace:
        //   awk -F, '/^[0-9]/ && !($2==12 && $3==30) {b+=$15; d+=$16} END {print b, d}'
        long direct = 0;
        long diffuse = 0;
        for (const EHourlyData* at = weather.getHourlyDataAsPointer(0, 0);
             at <= weather.getHourlyDataAsPointer(364, 23); ++at) {
            direct += at->directRad;
            diffuse += at->diffuseRad;
        }
        EXPECT_EQ(direct, 1293487);
        EXPECT_EQ(diffuse, 659316);
    }
}

} // namespace
