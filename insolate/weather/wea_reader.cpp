#include <insolate/solar/solar_position.h>
#include <insolate/weather/weather_data.h>
#include <insolate/weather/weather_file.h>

#include <bit>
#include <cstring>

// The record is read as it lies in the file.
static_assert(std::endian::native == std::endian::little);

bool EWeatherData::loadFile_WEA(const std::wstring& fileName, int updateGlobalLocation,
                                ResultLoadWeatherData& result) {
    const insolate::FileHandle file = insolate::openWeatherFile(fileName);
    if (file == nullptr) {
        result = ResultLoadWeatherData_CannotOpen;
        return false;
    }
    constexpr char expected[16] = "xqt_WEA_ver1.10";
    char signature[sizeof(expected)];
    if (std::fread(signature, 1, sizeof(signature), file.get()) != sizeof(signature) ||
        std::memcmp(signature, expected, sizeof(expected)) != 0) {
        result = ResultLoadWeatherData_WrongFormat;
        return false;
    }
    // A short file leaves the rest of the record as it was.
    [[maybe_unused]] const std::size_t ignored = std::fread(&data, 1, sizeof(data), file.get());
    // Names are C strings to everyone who reads them, whatever the file holds.
    data.name[sizeof(data.name) - 1] = '\0';
    data.state[sizeof(data.state) - 1] = '\0';

    constexpr float pi = 3.1415927f;
    data.latitude = data.latitude / 180.0f * pi;
    data.longitude = data.longitude / 180.0f * pi;
    data.timeZone = data.timeZone / 180.0f * pi;
    if (updateGlobalLocation > 0) {
        ESolarPosition::Global.setLocation(static_cast<double>(data.latitude),
                                           static_cast<double>(data.longitude),
                                           static_cast<double>(data.timeZone));
        ESolarPosition::Global.setName(data.name);
    }
    if (data.loaded == 0) {
        data.loaded = 1;
    }
    return true;
}
