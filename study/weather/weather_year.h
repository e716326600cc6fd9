/// A year of weather for what works hour by hour: any weather file as plain series, with what the
/// user should know about it.
#pragma once

#include "study/export.h"
#include "study/weather/weather_check.h"

#include <insolate/insolate.h>

#include <filesystem>
#include <stop_token>
#include <string>

namespace insolate::study {

struct WeatherYear {
    WeatherSeries series;
    WeatherReport report; ///< site, hours without radiation, findings
};

/// The year as the hourly method takes it: of .epw files as they stand, of .wea and .mra files
/// through the library's store, which holds no global radiation; of other texts with each value
/// where its label says.
/// @throws DataError when the file gives no year; one with gaps is for requireCompleteYear() to
///         judge; Stopped
INSOLATE_STUDY_EXPORT WeatherYear readWeatherYear(const std::filesystem::path& file,
                                                  const std::stop_token& stop = {});
INSOLATE_STUDY_EXPORT WeatherYear readWeatherYear(const WeatherInput& input);

/// The year as the store of the methods other than hourly takes it.
/// @throws DataError when it cannot be a usable weather file for them whatever the user allows
INSOLATE_STUDY_EXPORT WeatherReport inspectWeatherFile(const std::filesystem::path& file);

/// What becomes of the year's last days when the report says that the last one is empty, and the
/// fix.
/// @param storeMethod the method, where it reads the year from the store; else empty
INSOLATE_STUDY_EXPORT std::string lastDayText(const std::filesystem::path& file,
                                              const WeatherFormat& format,
                                              const std::string& storeMethod);

/// Adds that to the report's notes where the period touches these days.
INSOLATE_STUDY_EXPORT void noteLastDay(WeatherReport& report, const std::filesystem::path& file,
                                       const std::string& storeMethod, bool touchesLastDays);

/// That a period without any radiation was asked for, and the fix.
INSOLATE_STUDY_EXPORT std::string noLightText(const std::filesystem::path& file);

/// Energy recorded while the sun is down, where it is worth a note, and what it points to; else
/// empty.
/// @param stray what the report has noted already
INSOLATE_STUDY_EXPORT std::string sunDownText(const std::filesystem::path& file,
                                              const HourlySky& sky, const StrayDirect& stray);

} // namespace insolate::study
