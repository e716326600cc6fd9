#include "bindings.h"

#include <algorithm>
#include <array>
#include <numbers>
#include <span>

namespace insolate::python {

namespace {

/// Six angles and times of each instant, one row a quantity; degrees.
nb::ndarray<nb::numpy, double> sunPositionsAt(const InArray<std::int64_t, 1>& nanoseconds,
                                              double latitude, double longitude, double elevation,
                                              double pressure, double temperature) {
    const std::size_t count = nanoseconds.size();
    std::vector<double> values(6 * count);
    {
        const nb::gil_scoped_release unlocked;
        const Site site{latitude, longitude, 0.0, elevation};
        const Air air{pressure, temperature};
        constexpr double degrees = 180.0 / std::numbers::pi;
        constexpr double julianDayOf1970 = 2440587.5;
        constexpr std::int64_t perDay = 24 * 3'600'000'000'000;
        constexpr std::size_t atOnce = 256; // what stays in the nearest cache
        std::array<double, atOnce> days;
        std::array<SunPosition, atOnce> suns;
        for (std::size_t first = 0; first < count; first += atOnce) {
            const std::size_t size = std::min(atOnce, count - first);
            for (std::size_t k = 0; k < size; ++k) {
                const std::int64_t time = nanoseconds.data()[first + k];
                // Whole days apart from the rest: nanoseconds since 1970 have more digits than a
                // double. The day itself is good to 40 microseconds, in which the sun moves by
                // 2e-7 degrees.
                const double day = julianDayOf1970 + static_cast<double>(time / perDay);
                days[k] = day + static_cast<double>(time % perDay) / static_cast<double>(perDay);
            }
            sunPositions(std::span(days).first(size), site, air, suns);
            for (std::size_t k = 0; k < size; ++k) {
                const SunPosition& sun = suns[k];
                const std::size_t i = first + k;
                values[i] = sun.azimuth * degrees;
                values[count + i] = sun.altitude * degrees;
                values[2 * count + i] = sun.geometricAltitude * degrees;
                values[3 * count + i] = sun.declination * degrees;
                values[4 * count + i] = sun.equationOfTime;
                values[5 * count + i] = sun.distance;
            }
        }
    }
    return arrayOf(std::move(values), {6, count});
}

} // namespace

void bindSun(nb::module_& module) {
    module.def("sun_positions", &sunPositionsAt, nb::arg("nanoseconds").noconvert(),
               nb::arg("latitude"), nb::arg("longitude"), nb::arg("elevation"), nb::arg("pressure"),
               nb::arg("temperature"));
    module.def("standard_pressure", &standardPressure, nb::arg("elevation"));
}

} // namespace insolate::python
