/// `insolate weather`: what is in a weather file, and its conversion.
#pragma once

#include "study/export.h"

#include "study/support/progress.h"

#include <filesystem>
#include <stop_token>
#include <string>

namespace insolate::study {

struct WeatherInfo {
    std::string text;    ///< site, a table of months with annual sums, findings; a line each
    std::string refusal; ///< why `insolate run` would not take the file; empty when it would
};

/// @throws DataError when it is no weather file; Stopped
INSOLATE_STUDY_EXPORT WeatherInfo weatherInfo(const std::filesystem::path& file,
                                              const std::stop_token& stop = {});

/// Writes the year as the library reads it into a .wea file.
/// @throws Error, Stopped; no file is left then
INSOLATE_STUDY_EXPORT void convertWeather(const std::filesystem::path& from,
                                          const std::filesystem::path& to, bool allowGaps,
                                          Progress& progress, const std::stop_token& stop = {});

} // namespace insolate::study
