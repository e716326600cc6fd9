/// Weather made for tests, and the plain evaluations that the cells are compared with.
#pragma once

#include <insolate/hourly/hourly_sky.h>
#include <insolate/sky/all_weather_luminance.h>
#include <insolate/sky/solar_radiation.h>
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

/// Radiation on open surfaces without cells, hour by hour: the beam at each sub-step's own sun.
struct OpenSurfaces {
    std::vector<double> beam;
    std::vector<double> sky1993; ///< Perez et al. (1993), the dome integrated degree by degree
    std::vector<double> sky1990; ///< Perez et al. (1990), tilted-surface model
};

inline OpenSurfaces openSurfaces(const WeatherSeries& weather, const std::vector<Vector>& normals,
                                 int steps) {
    OpenSurfaces result;
    result.beam.assign(normals.size(), 0.0);
    result.sky1993 = result.sky1990 = result.beam;
    struct Element {
        Vector direction;
        double solidAngle;
    };
    std::vector<Element> dome;
    for (int h = 0; h < 90; ++h) {
        for (int a = 0; a < 360; ++a) {
            dome.push_back({direction(a + 0.5, h + 0.5),
                            (std::sin((h + 1) * degree) - std::sin(h * degree)) * degree});
        }
    }
    for (int k = 0; k < hoursPerYear; ++k) {
        const double direct = weather.directNormal[static_cast<std::size_t>(k)];
        const double diffuse = weather.diffuseHorizontal[static_cast<std::size_t>(k)];
        if (!(direct > 0.0) && !(diffuse > 0.0)) {
            continue;
        }
        const std::vector<SunPosition> suns = sunsOfHour(weather.site, k, steps);
        const double share = 1.0 / static_cast<double>(suns.size());
        const double rate = steps * share; // of the sun's time
        for (const SunPosition& sun : suns) {
            const Vector s = vectorOf(sun);
            for (std::size_t i = 0; i < normals.size(); ++i) {
                result.beam[i] += direct * share * std::max(product(normals[i], s), 0.0);
            }
            if (!(diffuse > 0.0)) {
                continue;
            }
            const double zenith = 90.0 * degree - sun.altitude;
            const AllWeatherSky sky =
                allWeatherSky(direct * rate, diffuse * rate, zenith, sun.distance);
            std::vector<double> onSurface(normals.size(), 0.0);
            double horizontal = 0.0;
            for (const Element& e : dome) {
                const double fromSun = std::acos(std::clamp(product(e.direction, s), -1.0, 1.0));
                const double L =
                    horizonFactor(sky, e.direction[2]) * sunFactor(sky, fromSun) * e.solidAngle;
                horizontal += L * e.direction[2];
                for (std::size_t i = 0; i < normals.size(); ++i) {
                    onSurface[i] += L * std::max(product(normals[i], e.direction), 0.0);
                }
            }
            for (std::size_t i = 0; i < normals.size(); ++i) {
                result.sky1993[i] += onSurface[i] / horizontal * diffuse * share;
                EPerezInput input;
                input.direct = direct * rate;
                input.diffuse = diffuse * rate;
                input.groundReflectance = 0.0;
                input.incidenceAngle = std::acos(std::clamp(product(normals[i], s), -1.0, 1.0));
                input.tilt = std::acos(normals[i][2]);
                input.zenithAngle = zenith;
                EPerezResults parts;
                ESolarRadiation().getPerezAllWeatherSkyData(&input, &parts);
                result.sky1990[i] +=
                    (parts.isotropic + parts.circumsolar + parts.horizonBrightening) * share / rate;
            }
        }
    }
    return result;
}

} // namespace insolate::test
