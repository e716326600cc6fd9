/// A year of weather for what works hour by hour: any weather file as plain series, with what the
/// user should know about it.
#pragma once

#include "study/export.h"

#include "study/weather/weather_check.h"

#include <insolate/insolate.h>

#include <filesystem>
#include <string>

namespace insolate::study {

struct WeatherYear {
    WeatherSeries series;
    WeatherReport report; ///< site, hours without radiation, findings
};

/// Reads .epw files as they stand; .wea and .mra files through the library's store, which holds no
/// global radiation.
/// @throws DataError when the file gives no year; one with gaps is for requireCompleteYear() to
///         judge
INSOLATE_STUDY_EXPORT WeatherYear readWeatherYear(const std::filesystem::path& file);

/// What becomes of the year's last days by the method when the report says that the last one is
/// empty, and the mend.
INSOLATE_STUDY_EXPORT std::string lastDayText(const std::filesystem::path& file,
                                              const std::string& method);

/// Adds that to the report's notes where the period touches these days.
INSOLATE_STUDY_EXPORT void noteLastDay(WeatherReport& report, const std::filesystem::path& file,
                                       const std::string& method, bool touchesLastDays);

/// That a period without any radiation was asked for, and the mend.
INSOLATE_STUDY_EXPORT std::string noLightText(const std::filesystem::path& file);

/// Energy recorded while the sun is down, where it is worth telling, and what it points to; else
/// empty.
/// @param stray what the report has told already
INSOLATE_STUDY_EXPORT std::string sunDownText(const std::filesystem::path& file,
                                              const HourlySky& sky, const StrayDirect& stray);

} // namespace insolate::study
