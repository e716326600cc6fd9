/// A year of weather for what works hour by hour: any weather file as plain series, with what the
/// user should know about it.
#pragma once

#include "app/input/weather_check.h"

#include <insolate/insolate.h>

#include <filesystem>

namespace insolate::app {

struct WeatherYear {
    WeatherSeries series;
    WeatherReport report; ///< site, hours without radiation, findings
};

/// Reads .epw files as they stand; .wea and .mra files through the library's store, which holds no
/// global radiation.
/// @throws DataError when the file gives no year; one with gaps is for requireCompleteYear() to
///         judge
WeatherYear readWeatherYear(const std::filesystem::path& file);

} // namespace insolate::app
