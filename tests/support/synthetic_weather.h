/// Weather whose radiation is a plain formula, for tests that need to know the answer.
#pragma once

#include <insolate/sky/cumulative_sky.h>
#include <insolate/weather/weather_data.h>

#include <algorithm>
#include <cmath>

namespace insolate::test {

/// A year of identical days: each hour has its share of the direct normal and diffuse horizontal
/// radiation [W/m2].
template <typename ShareOf>
EWeatherData weatherOfShares(float direct, float diffuse, const ShareOf& shareOf) {
    EWeatherData weather;
    for (int day = 0; day < 365; ++day) {
        for (int hour = 0; hour < 24; ++hour) {
            weather.setHourlyDirectRad(day, hour, direct * shareOf(hour));
            weather.setHourlyDiffuseRad(day, hour, diffuse * shareOf(hour));
        }
    }
    return weather;
}

inline EWeatherData constantWeather(float direct, float diffuse) {
    return weatherOfShares(direct, diffuse, [](int) { return 1.0f; });
}

/// A sine of radiation from 6 h to 18 h.
inline EWeatherData sineDayWeather(float directPeak, float diffusePeak) {
    return weatherOfShares(directPeak, diffusePeak, [](int hour) {
        return std::max(0.0f, std::sin((static_cast<float>(hour) - 5.5f) / 12.0f * 3.1415927f));
    });
}

/// A sky in Denver (39.74 N, 105.18 W, meridian of UTC-7) over a period.
inline ECumulativeSky denverSky(int startDay = 1, int endDay = 365, float startHour = 0.0f,
                                float endHour = 24.0f, float step = 0.1f) {
    ECumulativeSky sky;
    sky.setLocation(39.74f, -105.18f, -105.0f);
    sky.setDateRange(startDay, endDay);
    sky.setTimeRange(startHour, endHour, step);
    return sky;
}

} // namespace insolate::test
