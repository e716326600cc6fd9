#include "bindings.h"

#include <numbers>

namespace insolate::python {

namespace {

/// Six angles and times of each instant, one row a quantity; degrees.
nb::ndarray<nb::numpy, double> sunPositions(const InArray<std::int64_t, 1>& nanoseconds,
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
        for (std::size_t i = 0; i < count; ++i) {
            const std::int64_t time = nanoseconds.data()[i];
            // Whole days apart from the rest, so that nothing of a microsecond is lost on the way.
            const double day = julianDayOf1970 + static_cast<double>(time / perDay);
            const SunPosition sun = sunPosition(
                day + static_cast<double>(time % perDay) / static_cast<double>(perDay), site, air);
            values[i] = sun.azimuth * degrees;
            values[count + i] = sun.altitude * degrees;
            values[2 * count + i] = sun.geometricAltitude * degrees;
            values[3 * count + i] = sun.declination * degrees;
            values[4 * count + i] = sun.equationOfTime;
            values[5 * count + i] = sun.distance;
        }
    }
    return arrayOf(std::move(values), {6, count});
}

} // namespace

void bindSun(nb::module_& module) {
    module.def("sun_positions", &sunPositions, nb::arg("nanoseconds").noconvert(),
               nb::arg("latitude"), nb::arg("longitude"), nb::arg("elevation"), nb::arg("pressure"),
               nb::arg("temperature"));
    module.def("standard_pressure", &standardPressure, nb::arg("elevation"));
}

} // namespace insolate::python
