/// A weather file's bytes, read once, and what kind of file they are.
#pragma once

#include "study/export.h"
#include "study/weather/weather_format.h"

#include <filesystem>
#include <stop_token>
#include <string>

namespace insolate::study {

struct WeatherInput {
    std::filesystem::path file;
    std::string content; ///< without a byte order mark
    const WeatherFormat* format = &epwFormat;
};

/// Reads the file and recognises its format by what it holds, whatever its name.
/// @throws DataError when it cannot be read, is too large for a year of minutes, or is no weather;
///         Stopped
INSOLATE_STUDY_EXPORT WeatherInput openWeather(const std::filesystem::path& file,
                                               const std::stop_token& stop = {});

} // namespace insolate::study
