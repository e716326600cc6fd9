/// What the library's store makes of the weather files that it reads itself, .epw and binary: its
/// readers take whatever opens, so faults are found before.
#pragma once

#include "study/weather/weather_check.h"
#include "study/weather/weather_input.h"

#include <vector>

namespace insolate::study {

struct StoredWeather {
    WeatherReport report; ///< without what is odd about clock and direct radiation
    std::vector<float> direct, diffuse, global;

    [[nodiscard]] HourlyRadiation hours() const { return {direct, diffuse, global, 0.0}; }
};

/// @throws DataError when it cannot be a usable weather file for the store whatever the user allows
StoredWeather inspectStoredWeather(const WeatherInput& input);

} // namespace insolate::study
