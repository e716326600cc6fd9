/// A weather file's bytes, read once, and what kind of file they are.
#pragma once

#include "study/export.h"

#include <filesystem>
#include <string>
#include <string_view>

namespace insolate::study {

enum class WeatherFormat {
    Epw,     ///< EnergyPlus weather, comma-separated text
    Store,   ///< the library's own binary record, .wea or .mra
    WeaText, ///< the text of Radiance's tools: six header lines, then direct and diffuse
    Tmy3,    ///< NSRDB typical year of 2008, comma-separated text
    Nsrdb,   ///< NSRDB physical solar model 3 and 4 (PSM3, PSM4), comma-separated text
    Pvgis    ///< typical year of PVGIS, comma-separated text
};

/// Whether the library's store reads the format itself.
constexpr bool isStoreFormat(WeatherFormat format) {
    return format == WeatherFormat::Epw || format == WeatherFormat::Store;
}

struct WeatherInput {
    std::filesystem::path file;
    std::string content; ///< without a byte order mark
    WeatherFormat format = WeatherFormat::Epw;
};

/// Reads the file and recognises its format by what it holds, whatever its name.
/// @throws DataError when it cannot be read, is too large for a year of minutes, or is no weather
INSOLATE_STUDY_EXPORT WeatherInput openWeather(const std::filesystem::path& file);

/// What is said of a file that is no weather file, with the formats that are read.
inline constexpr std::string_view notWeatherText =
    "not a weather file; give an .epw file, a text .wea, TMY3, PSM3, PSM4 or PVGIS file, or a .wea "
    "or .mra file of this program";

/// The formats alone, after "give".
inline constexpr std::string_view weatherFormatsText =
    notWeatherText.substr(notWeatherText.find("an .epw"));

} // namespace insolate::study
