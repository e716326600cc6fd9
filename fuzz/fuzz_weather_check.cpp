// Any bytes as a weather file that the command inspects before the library reads it. An even first
// byte makes it a WEA file.
#include "memory_file.h"

#include "study/support/errors.h"
#include "study/weather/weather_year.h"

#include <filesystem>
#include <fstream>

INSOLATE_FUZZ_TARGET(weather_check)(const std::uint8_t* bytes, std::size_t size) {
    using namespace insolate::study;
    using insolate::fuzz::require;
    if (size == 0) {
        return 0;
    }
    static const std::string stem =
        (std::filesystem::temp_directory_path() / "insolate_fuzz_").string() +
        std::to_string(getpid());
    const std::string name = stem + (bytes[0] % 2 == 0 ? ".wea" : ".epw");
    std::ofstream(name, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes) + 1, static_cast<std::streamsize>(size - 1));
    try {
        const WeatherReport report = inspectWeatherFile(name);
        require(report.hoursPresent + report.hoursMissing.size() == 8760, "hours add up");
        require(report.radiationMissing.size() <= report.hoursPresent, "marks stand in hours");
        require(report.site.latitude >= -90.0 && report.site.latitude <= 90.0 &&
                    report.site.longitude >= -180.0 && report.site.longitude <= 180.0,
                "the site is on earth");
        for (const char c : report.site.text()) {
            require(static_cast<unsigned char>(c) >= 0x20U && c != 0x7F, "names are printable");
        }
    } catch (const DataError& error) {
        insolate::fuzz::requireMend(error);
    }
    std::filesystem::remove(name);
    return 0;
}
