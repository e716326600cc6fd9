// Any bytes as a WEA file. A first byte that is odd has the last 24 of the others laid over the
// position at the end of a full-size record, which short inputs would never reach.
#include "memory_file.h"

#include <insolate/solar/solar_position.h>
#include <insolate/weather/weather_data.h>

#include <algorithm>
#include <cstring>
#include <string>

INSOLATE_FUZZ_TARGET(wea)(const std::uint8_t* bytes, std::size_t size) {
    using insolate::fuzz::require;
    constexpr std::size_t fileSize = 16 + sizeof(EWeaFileFormatData);
    constexpr std::size_t tail = 24;
    if (size == 0) {
        return 0;
    }
    std::string image(reinterpret_cast<const char*>(bytes) + 1, size - 1);
    if (bytes[0] % 2 == 1 && image.size() >= tail) {
        const std::string position = image.substr(image.size() - tail);
        image.resize(fileSize - tail, '\x07');
        image += position;
    }
    const insolate::fuzz::MemoryFile file(image.data(), image.size());
    static EWeatherData read;
    std::memset(static_cast<void*>(&read.getDataForWrite()), 0x11, sizeof(EWeaFileFormatData));
    static EWeatherData before;
    before = read;

    auto result = ResultLoadWeatherData{};
    const std::string signature("xqt_WEA_ver1.10\0", 16);
    const bool loaded = read.loadFile_WEA(file.wideName(), 1, result);
    require(loaded == (image.compare(0, 16, signature) == 0), "the signature decides");
    if (!loaded) {
        require(result == ResultLoadWeatherData_WrongFormat, "the reason is given");
        require(std::memcmp(&read, &before, sizeof(read)) == 0, "a refused file changes nothing");
        return 0;
    }
    require(result == ResultLoadWeatherData{}, "the result is written on failure only");
    require(std::strlen(read.getName()) < 32 && std::strlen(read.getState()) < 32, "names end");
    require(read.getDataForWrite().loaded != 0, "the store is marked as loaded");
    const std::size_t tables = std::min(image.size(), std::size_t{16 + 64 + 141504});
    if (tables > 80) {
        require(std::memcmp(read.getHourlyDataAsPointer(0, 0), image.data() + 80, tables - 80) == 0,
                "the tables are those of the file");
    }
    // Whatever the site, the sun must come to an answer.
    ESolarPosition sun;
    sun.setLocation(&ESolarPosition::Global);
    for (int day = 1; day <= 365; day += 91) {
        sun.setDayOfTheYear(day, 9.5);
        (void)sun.determineTimeZone(sun.getLatitudeInRadians(), sun.getLongitudeInRadians());
        (void)sun.getTimeZoneListIndex(sun.getReferenceLongitudeInRadians());
        (void)read.getSubHourlyWindDirection(day - 1, 9.5f);
        (void)read.getAveragedRadiation(day, 12, 14);
    }
    return 0;
}
