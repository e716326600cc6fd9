#include "../support/keep_global_site.h"
#include "../support/temporary_file.h"

#include <insolate/weather/weather_data.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

using insolate::test::TemporaryFile;

const std::string signature("xqt_WEA_ver1.10\0", 16);

std::string imageOf(const EWeaFileFormatData& data) {
    return signature +
           std::string(reinterpret_cast<const char*>(&data), sizeof(EWeaFileFormatData));
}

// A record with every byte of the tables set, and a site in degrees.
EWeatherData sample() {
    EWeatherData weather;
    EWeaFileFormatData& data = weather.getDataForWrite();
    unsigned char* bytes = reinterpret_cast<unsigned char*>(data.hourly);
    for (std::size_t at = 0; at < sizeof(data.hourly) + sizeof(data.reserved); ++at) {
        bytes[at] = static_cast<unsigned char>(at * 7 + at / 251);
    }
    std::strcpy(data.name, "Graz");
    std::strcpy(data.state, "Styria");
    data.latitude = 45.0f;
    data.longitude = -90.0f;
    data.timeZone = -105.0f;
    data.altitude = 353.0f;
    data.spare = 0xCAFEF00D;
    return weather;
}

TEST(WeaReader, TakesTheRecordAndTurnsThePositionToRadians) {
    const insolate::test::KeepGlobalSite keep;
    EWeatherData written = sample();
    const TemporaryFile file(imageOf(written.getDataForWrite()), ".wea");
    for (const int update : {0, 1}) {
        EWeatherData weather;
        auto result = ResultLoadWeatherData{};
        ASSERT_TRUE(weather.loadFile_WEA(file.wideName(), update, result));
        EXPECT_EQ(result, ResultLoadWeatherData{});
        const EWeaFileFormatData& data = weather.getDataForWrite();
        EXPECT_EQ(
            std::memcmp(&data, &written.getDataForWrite(), offsetof(EWeaFileFormatData, longitude)),
            0);
        EXPECT_EQ(data.spare, 0xCAFEF00DU);
        EXPECT_EQ(data.loaded, 1);
        EXPECT_EQ(weather.getLatitudeInRadians(), 0.7853982f);
        EXPECT_EQ(weather.getLatitudeInDegrees(), 45.0f);
        EXPECT_EQ(weather.getLongitudeInDegrees(), -90.0f);
        EXPECT_FLOAT_EQ(weather.getTimeZone(), -1.8325957f / 15.0f);
        EXPECT_EQ(weather.getAltitude(), 353.0f);
        EXPECT_EQ(std::string(ESolarPosition::Global.name) == "Graz", update == 1);
        EXPECT_EQ(ESolarPosition::Global.getLatitudeInRadians() == static_cast<double>(0.7853982f),
                  update == 1);
    }
    EXPECT_NEAR(ESolarPosition::Global.getReferenceLongitudeInDegrees(), -105.0, 1e-5);
}

// The first hour of the second day lies 24 records behind the signature and the names.
TEST(WeaReader, RecordsLieWhereTheFormatSays) {
    std::string image = imageOf(EWeaFileFormatData{});
    ASSERT_EQ(image.size(), 141608U);
    image[80 + 24 * 16 + 10] = '\x2C';
    image[80 + 24 * 16 + 11] = '\x01';
    image[141600] = '\x01';
    const TemporaryFile file(image, ".wea");
    EWeatherData weather;
    auto result = ResultLoadWeatherData{};
    ASSERT_TRUE(weather.loadFile_WEA(file.wideName(), 0, result));
    EXPECT_EQ(weather.getHourlyDirectRad(1, 0), 300.0f);
    EXPECT_EQ(weather.getDataForWrite().loaded, 1);
}

TEST(WeaReader, OtherFilesAreRefusedUntouched) {
    const std::string image = imageOf(EWeaFileFormatData{});
    std::string changed[3] = {image, image, image};
    changed[0][0] = 'X';
    changed[1][14] = '1';
    changed[2][15] = '0';
    const EWeatherData before = sample();
    for (const std::string& bytes :
         {changed[0], changed[1], changed[2], std::string(), image.substr(0, 15)}) {
        const TemporaryFile file(bytes, ".wea");
        EWeatherData weather = before;
        auto result = ResultLoadWeatherData{};
        EXPECT_FALSE(weather.loadFile_WEA(file.wideName(), 1, result));
        EXPECT_EQ(result, ResultLoadWeatherData_WrongFormat);
        EXPECT_EQ(std::memcmp(&weather, &before, sizeof(before)), 0);
    }
    for (const std::wstring& name :
         {std::wstring(L"/no/such/file.wea"), std::filesystem::temp_directory_path().wstring()}) {
        EWeatherData weather = before;
        auto result = ResultLoadWeatherData{};
        EXPECT_FALSE(weather.loadFile_WEA(name, 1, result));
        EXPECT_EQ(result, ResultLoadWeatherData_CannotOpen);
        EXPECT_EQ(std::memcmp(&weather, &before, sizeof(before)), 0);
    }
}

TEST(WeaReader, AShortFileKeepsTheRestOfTheStore) {
    EWeaFileFormatData other;
    std::strcpy(other.name, "Cut");
    other.hourly[0][0].temp = 123;
    const TemporaryFile file(imageOf(other).substr(0, 16 + 64 + 16), ".wea");
    EWeatherData weather = sample();
    const EHourlyData second = *weather.getHourlyDataAsPointer(0, 1);
    auto result = ResultLoadWeatherData{};
    ASSERT_TRUE(weather.loadFile_WEA(file.wideName(), 0, result));
    EXPECT_STREQ(weather.getName(), "Cut");
    EXPECT_EQ(weather.getHourlyDataAsPointer(0, 0)->temp, 123);
    EXPECT_EQ(std::memcmp(weather.getHourlyDataAsPointer(0, 1), &second, sizeof(second)), 0);
    // The conversion does not ask where the position came from.
    EXPECT_EQ(weather.getLatitudeInRadians(), 0.7853982f);
    EXPECT_EQ(weather.getDataForWrite().loaded, 1);
}

TEST(WeaReader, NamesAlwaysEnd) {
    const insolate::test::KeepGlobalSite keep;
    EWeaFileFormatData endless;
    std::memset(endless.name, 'n', sizeof(endless.name));
    std::memset(endless.state, 's', sizeof(endless.state));
    const TemporaryFile file(imageOf(endless), ".wea");
    EWeatherData weather;
    auto result = ResultLoadWeatherData{};
    ASSERT_TRUE(weather.loadFile_WEA(file.wideName(), 1, result));
    EXPECT_EQ(std::string(weather.getName()), std::string(31, 'n'));
    EXPECT_EQ(std::string(weather.getState()), std::string(31, 's'));
    EXPECT_EQ(std::string(ESolarPosition::Global.name), std::string(31, 'n'));
}

} // namespace
