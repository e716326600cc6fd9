/// The formats of weather files. A new one is a file like tmy3.cpp, which reads it and has its row,
/// its name below, and that name in the list of weather_format.cpp.
#pragma once

#include "study/export.h"

#include <string>
#include <string_view>

namespace insolate::study {

struct WeatherInput;
struct WeatherYear;

/// What the library's own store, from which the methods other than hourly take the year, makes of
/// files of a format.
enum class StoreReader {
    none,  ///< nothing: it is filled from the series
    epw,   ///< reads the text itself
    record ///< reads its own binary record itself
};

struct WeatherFormat {
    std::string_view name; ///< in lists for people: "TMY3"
    /// Whether a line shows the format, without blanks around it and in lower case; any of the
    /// file's first ten may.
    bool (*isShownBy)(std::string_view line) = nullptr;
    /// The year as readWeatherYear() gives it, without what noteOddities() adds.
    WeatherYear (*read)(const WeatherInput& input) = nullptr;
    std::string_view siteFix; ///< where a file has its site, and how one changes it
    StoreReader store = StoreReader::none;
};

/// EnergyPlus weather, comma-separated text.
INSOLATE_STUDY_EXPORT extern const WeatherFormat epwFormat;
/// The library's own binary record, .wea or .mra.
extern const WeatherFormat recordFormat;
/// Standard text .wea.
extern const WeatherFormat weaTextFormat;
/// NSRDB typical year of 2008.
extern const WeatherFormat tmy3Format;
/// NSRDB physical solar model 3 and 4 (PSM3, PSM4).
extern const WeatherFormat nsrdbFormat;
/// Typical year of PVGIS.
extern const WeatherFormat pvgisFormat;
/// No file: a host's own samples.
INSOLATE_STUDY_EXPORT extern const WeatherFormat hostSamples;

/// The format that the first lines show; null when they show nothing that is known.
const WeatherFormat* weatherFormatOf(std::string_view content);

/// All formats in a list, after "give a weather file:".
INSOLATE_STUDY_EXPORT const std::string& weatherFormatsText();

/// What is said of a file that is no weather file, with the formats that are read.
std::string notWeatherText();

} // namespace insolate::study
