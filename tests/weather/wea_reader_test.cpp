#include "../support/keep_global_site.h"
#include "load.h"

#include <cstring>

namespace {

using insolate::test::loadWea;

std::string imageOf(const EWeaFileFormatData& data) {
    return std::string("xqt_WEA_ver1.10\0", 16) +
           std::string(reinterpret_cast<const char*>(&data), sizeof(data));
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
    EXPECT_EQ(imageOf(written.getDataForWrite()).size(), 141608U);
    for (const int update : {0, 1}) {
        EWeatherData weather;
        loadWea(weather, imageOf(written.getDataForWrite()), update);
        const EWeaFileFormatData& data = weather.getDataForWrite();
        EXPECT_EQ(
            std::memcmp(&data, &written.getDataForWrite(), offsetof(EWeaFileFormatData, longitude)),
            0);
        EXPECT_EQ(data.spare, 0xCAFEF00DU);
        EXPECT_EQ(data.loaded, 1);
        EXPECT_EQ(weather.getLatitudeInRadians(), 0.7853982f);
        EXPECT_EQ(weather.getLongitudeInDegrees(), -90.0f);
        EXPECT_FLOAT_EQ(weather.getTimeZone(), -1.8325957f / 15.0f);
        EXPECT_EQ(weather.getAltitude(), 353.0f);
        EXPECT_EQ(std::string(ESolarPosition::Global.name) == "Graz", update == 1);
        EXPECT_EQ(ESolarPosition::Global.getLatitudeInRadians() == static_cast<double>(0.7853982f),
                  update == 1);
    }
    EXPECT_NEAR(ESolarPosition::Global.getReferenceLongitudeInDegrees(), -105.0, 1e-5);
}

TEST(WeaReader, OtherFilesAreRefusedUntouched) {
    const EWeatherData before = sample();
    const auto expectRefusal = [&](auto read, const std::wstring& name,
                                   ResultLoadWeatherData expected) {
        EWeatherData weather = before;
        auto result = ResultLoadWeatherData{};
        EXPECT_FALSE((weather.*read)(name, 1, result));
        EXPECT_EQ(result, expected);
        EXPECT_EQ(std::memcmp(&weather, &before, sizeof(before)), 0);
    };
    const insolate::test::TemporaryFolder folder;
    const std::string image = imageOf(EWeaFileFormatData{});
    for (const std::string& bytes : {"X" + image.substr(1), std::string(image).replace(15, 1, "0"),
                                     std::string(), image.substr(0, 15)}) {
        expectRefusal(&EWeatherData::loadFile_WEA, folder.write("a.wea", bytes).wstring(),
                      ResultLoadWeatherData_WrongFormat);
    }
    for (const std::wstring& name :
         {std::wstring(L"/no/such/file"), std::wstring(), folder.path().wstring()}) {
        expectRefusal(&EWeatherData::loadFile_WEA, name, ResultLoadWeatherData_CannotOpen);
        expectRefusal(&EWeatherData::loadFile_EPW, name, ResultLoadWeatherData_CannotOpen);
    }
}

TEST(WeaReader, AShortFileKeepsTheRestOfTheStore) {
    EWeaFileFormatData other;
    std::memset(other.name, 'n', sizeof(other.name)); // without an end
    other.hourly[0][0].temp = 123;
    other.spare = 0x01020304;
    EWeatherData weather = sample();
    const EHourlyData second = *weather.getHourlyDataAsPointer(0, 1);
    loadWea(weather, imageOf(other).substr(0, 16 + 64 + 16), 0);
    EXPECT_EQ(std::string(weather.getName()), std::string(31, 'n'));
    EXPECT_EQ(weather.getHourlyDataAsPointer(0, 0)->temp, 123);
    EXPECT_EQ(std::memcmp(weather.getHourlyDataAsPointer(0, 1), &second, sizeof(second)), 0);
    // The conversion does not ask where the position came from.
    EXPECT_EQ(weather.getLatitudeInRadians(), 0.7853982f);
    EXPECT_EQ(weather.getDataForWrite().loaded, 1);
    // One byte short
    loadWea(weather, imageOf(other).substr(0, 141607), 0);
    EXPECT_EQ(weather.getDataForWrite().spare, 0xCA020304U);
}

} // namespace
