// What the library makes of damaged weather files. It never refuses an EPW file that opens; telling
// the user what is wrong with it is the command's part.
#include "../support/temporary_file.h"

#include <insolate/solar/solar_position.h>
#include <insolate/weather/weather_data.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

using insolate::test::TemporaryFile;

constexpr std::int16_t untouched = -999;

// Loads over a store whose first hours of 1 January are marked.
void load(EWeatherData& weather, const std::wstring& name) {
    for (int hour = 0; hour < 24; ++hour) {
        weather.getHourlyDataAsPointer(0, hour)->temp = untouched;
        weather.getHourlyDataAsPointer(0, hour)->directRad = untouched;
    }
    auto result = ResultLoadWeatherData{};
    EXPECT_TRUE(weather.loadFile_EPW(name, 0, result));
    EXPECT_EQ(result, ResultLoadWeatherData{});
}

void load(EWeatherData& weather, const std::string& text) {
    const TemporaryFile file(text, ".epw");
    load(weather, file.wideName());
}

// Each file holds a site and the hours 1 to 3 of 1 January, 1.5 to 3.5 degrees and 100 to 300
// Wh/m2, with one thing broken.
TEST(BrokenWeatherFiles, GiveWhatCanBeReadOfThem) {
    const char* source = std::getenv("INSOLATE_SOURCE_DIR");
    const auto folder =
        std::filesystem::path(source != nullptr ? source : ".") / "tests" / "weather" / "broken";
    struct Case {
        const char* file;
        const char* city;
        int temperature[3];
        int direct[3];
    };
    constexpr int none = untouched;
    const Case cases[] = {
        {"byte_order_mark", "Demoville", {15, 25, 35}, {100, 200, 300}},
        {"carriage_returns", "Demoville", {15, 25, 35}, {100, 200, 300}},
        {"no_final_newline", "Demoville", {15, 25, none}, {100, 200, none}},
        {"blank_lines", "Demoville", {15, 25, 35}, {100, 200, 300}},
        // What the cut line still has is taken.
        {"cut_line", "Demoville", {15, 25, 35}, {100, none, 300}},
        // The last line of an hour stays.
        {"sub_hourly", "Demoville", {14, 24, 34}, {104, 204, 304}},
        // Marks of missing values are numbers here; 99999 does not fit and leaves its low 16 bits.
        {"missing_marks", "Demoville", {999, 999, 35}, {9999, 99999 - 2 * 65536, 300}},
        // Text is 0, or the number it begins with; an hour in words is no hour.
        {"text_in_numbers", "Demoville", {0, 25, 35}, {0, 200, 3}},
        // A negative hour is none; month and day are held within the calendar.
        {"negative", "Demoville", {-15, none, -35}, {-100, none, 300}},
        {"huge", "Demoville", {40000 - 65536, 0, 0}, {70000 - 65536, -1, 100}},
        {"byte_ff", "Demoville", {15, none, none}, {100, none, none}},
        {"two_locations", "Otherville", {15, 25, 35}, {100, 200, 300}},
        {"out_of_order", "Demoville", {15, 25, 35}, {100, 200, 300}},
        {"no_location", "[NoName]", {15, 25, 35}, {100, 200, 300}},
        {"empty", "[NoName]", {none, none, none}, {none, none, none}},
    };
    std::size_t files = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder)) {
        ++files;
    }
    EXPECT_EQ(files, std::size(cases));
    for (const Case& one : cases) {
        const std::filesystem::path file = folder / (std::string(one.file) + ".epw");
        ASSERT_TRUE(std::filesystem::exists(file)) << file;
        EWeatherData weather;
        load(weather, file.wstring());
        EXPECT_STREQ(weather.getName(), one.city) << one.file;
        for (int hour = 0; hour < 24; ++hour) {
            const EHourlyData& record = *weather.getHourlyDataAsPointer(0, hour);
            EXPECT_EQ(record.temp, hour < 3 ? one.temperature[hour] : none)
                << one.file << " hour " << hour + 1;
            EXPECT_EQ(record.directRad, hour < 3 ? one.direct[hour] : none)
                << one.file << " hour " << hour + 1;
        }
    }
}

// 8,784 rows: 29 February replaces the 28th, 31 December the 30th, every other day is in its place.
TEST(BrokenWeatherFiles, LeapYear) {
    const int days[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    std::string text;
    for (int month = 1; month <= 12; ++month) {
        for (int day = 1; day <= days[month - 1]; ++day) {
            for (int hour = 1; hour <= 24; ++hour) {
                text += "2008," + std::to_string(month) + "," + std::to_string(day) + "," +
                        std::to_string(hour) + ",60,x,0,0," + std::to_string(100 * month + day) +
                        "\n";
            }
        }
    }
    EWeatherData weather;
    load(weather, text);
    for (int day = 0; day < 364; ++day) {
        ESolarPosition::ESolarDayAndTime date;
        ESolarPosition().calculateMonthAndDay(day + 1, date);
        int expected = 100 * (date.month + 1) + date.day;
        expected = expected == 228 ? 229 : expected == 1230 ? 1231 : expected;
        EXPECT_EQ(weather.getHourlyDataAsPointer(day, 23)->humidity, expected) << day;
    }
    EXPECT_EQ(weather.getHourlyDataAsPointer(364, 23)->humidity, 0);
}

// 20 MB without a line feed are lines of 1,024 characters; what comes after is found.
TEST(BrokenWeatherFiles, OneEndlessLine) {
    std::string text(20'000'000, 'x');
    text += "\n1999,1,1,1,60,x,1.5,0,50\n";
    EWeatherData weather;
    load(weather, text);
    EXPECT_EQ(weather.getHourlyDataAsPointer(0, 0)->temp, 15);
    EXPECT_EQ(weather.getHourlyDataAsPointer(0, 1)->temp, untouched);
}

TEST(BrokenWeatherFiles, BinaryFileOneByteShort) {
    EWeaFileFormatData record;
    record.latitude = 45.0f;
    record.spare = 0x01020304;
    std::string image("xqt_WEA_ver1.10\0", 16);
    image.append(reinterpret_cast<const char*>(&record), sizeof(record) - 1);
    const TemporaryFile file(image, ".wea");
    EWeatherData weather;
    weather.getDataForWrite().spare = 0xAABBCCDD;
    auto result = ResultLoadWeatherData{};
    EXPECT_TRUE(weather.loadFile_WEA(file.wideName(), 0, result));
    EXPECT_EQ(weather.getLatitudeInDegrees(), 45.0f);
    EXPECT_EQ(weather.getDataForWrite().spare, 0xAA020304U);
}

} // namespace
