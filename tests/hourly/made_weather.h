/// Weather made for tests, and the plain evaluations that the cells are compared with.
#pragma once

#include <insolate/hourly/hourly_sky.h>
#include <insolate/solar/sun_position.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <numbers>
#include <vector>

namespace insolate::test {

inline constexpr double degree = std::numbers::pi / 180.0;

using Vector = std::array<double, 3>;

inline double product(const Vector& a, const Vector& b) {
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

/// Direction of a compass azimuth and an altitude [degrees] at north offset 0.
inline Vector direction(double azimuth, double altitude) {
    return {std::cos(altitude * degree) * std::sin(azimuth * degree),
            std::cos(altitude * degree) * std::cos(azimuth * degree), std::sin(altitude * degree)};
}

inline Vector vectorOf(const SunPosition& sun) {
    return direction(sun.azimuth / degree, sun.altitude / degree);
}

inline XYZf narrowed(const Vector& v) {
    return {static_cast<float>(v[0]), static_cast<float>(v[1]), static_cast<float>(v[2])};
}

/// A sun-up instant of an hour, as the sky shares it.
inline std::vector<SunPosition> sunsOfHour(const Site& site, int hourOfYear, int steps,
                                           int year = 2001) {
    std::vector<SunPosition> suns;
    const MonthAndDay date = monthAndDay(hourOfYear / 24);
    for (int s = 0; s < steps; ++s) {
        const double hour = hourOfYear % 24 + (s + 0.5) / steps;
        const SunPosition sun =
            sunPosition(julianDay(year, date.month, date.day, hour - site.timeZone), site,
                        {standardPressure(site.elevation), 10.0});
        if (sun.altitude > 0.0) {
            suns.push_back(sun);
        }
    }
    return suns;
}

/// A clear year: direct and diffuse follow the sun's altitude, sampled every minute.
inline WeatherSeries clearYear(const Site& site) {
    std::vector<float> direct(hoursPerYear, 0.0f);
    std::vector<float> diffuse(hoursPerYear, 0.0f);
    for (int k = 0; k < hoursPerYear; ++k) {
        const MonthAndDay date = monthAndDay(k / 24);
        for (int minute = 0; minute < 60; minute += 2) {
            const SunPosition sun = sunPosition(
                julianDay(2001, date.month, date.day, k % 24 + (minute + 1) / 60.0 - site.timeZone),
                site);
            if (sun.altitude > 0.0) {
                const double sine = std::sin(sun.altitude);
                direct[static_cast<std::size_t>(k)] +=
                    static_cast<float>(900.0 * std::exp(-0.12 / (sine + 0.02)) / 30.0);
                diffuse[static_cast<std::size_t>(k)] +=
                    static_cast<float>(110.0 * std::pow(sine, 0.7) / 30.0);
            }
        }
    }
    return makeWeatherSeries(site, direct, diffuse).series;
}

/// Keeps every n-th day, darkens the others.
inline void keepDays(WeatherSeries& weather, int n) {
    for (std::size_t k = 0; k < hoursPerYear; ++k) {
        if ((k / 24) % static_cast<std::size_t>(n) != 3 % static_cast<std::size_t>(n)) {
            weather.directNormal[k] = weather.diffuseHorizontal[k] = weather.globalHorizontal[k] =
                0.0f;
        }
    }
    weather.year.clear();
}

} // namespace insolate::test
