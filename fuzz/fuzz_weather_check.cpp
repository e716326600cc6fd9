// Any bytes as a weather file: recognised by what they hold, judged for the library's store and
// read as a year. The first byte is left out: seeds of before begin with one that meant the file's
// suffix.
#include "memory_file.h"

#include "study/support/errors.h"
#include "study/weather/weather_year.h"

#include <cmath>
#include <filesystem>
#include <fstream>

namespace {

void requireSoundReport(const insolate::study::WeatherReport& report) {
    using insolate::fuzz::require;
    require(report.hoursPresent + report.hoursMissing.size() == 8760, "hours add up");
    require(report.radiationMissing.size() <= report.hoursPresent, "marks stand in hours");
    require(report.site.latitude >= -90.0 && report.site.latitude <= 90.0 &&
                report.site.longitude >= -180.0 && report.site.longitude <= 180.0,
            "the site is on earth");
    for (const char c : report.site.text()) {
        require(static_cast<unsigned char>(c) >= 0x20U && c != 0x7F, "names are printable");
    }
}

} // namespace

INSOLATE_FUZZ_TARGET(weather_check)(const std::uint8_t* bytes, std::size_t size) {
    using namespace insolate::study;
    using insolate::fuzz::require;
    if (size == 0) {
        return 0;
    }
    static const std::string name =
        (std::filesystem::temp_directory_path() / "insolate_fuzz_").string() +
        std::to_string(getpid()) + ".epw";
    std::ofstream(name, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes) + 1, static_cast<std::streamsize>(size - 1));
    try {
        requireSoundReport(inspectWeatherFile(name));
    } catch (const DataError& error) {
        insolate::fuzz::requireFix(error);
    }
    try {
        const WeatherYear year = readWeatherYear(name);
        requireSoundReport(year.report);
        const insolate::WeatherSeries& series = year.series;
        require(std::abs(series.sampleOffset) <= 0.5, "samples stand in their hours");
        for (const auto* values :
             {&series.directNormal, &series.diffuseHorizontal, &series.globalHorizontal}) {
            require(values->size() == 8760, "a year has 8,760 hours");
            for (const float value : *values) {
                require(std::isnan(value) || (value >= 0.0f && value < 20000.0f),
                        "radiation is missing or of this world");
            }
        }
    } catch (const DataError& error) {
        insolate::fuzz::requireFix(error);
    }
    std::filesystem::remove(name);
    return 0;
}
