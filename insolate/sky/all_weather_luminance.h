/// The all-weather sky of Perez, Seals and Michalsky (1993), Solar Energy 50(3), 235-245: the
/// luminance of a sky element relative to the others, from an hour's two radiation values.
#pragma once

#include <array>

namespace insolate {

/// Table 1: a1..a4, b1..b4, c1..c4, d1..d4, e1..e4, from the overcast bin to the clearest.
using LuminanceCoefficients = std::array<double, 20>;
extern const std::array<LuminanceCoefficients, 8> luminanceCoefficients;

/// The coefficients of equation 1 for one sky.
struct AllWeatherSky {
    double a = 0.0, b = -1.0; ///< darkening or brightening towards the horizon
    double c = 0.0, d = -1.0; ///< circumsolar region
    double e = 0.0;           ///< backscattered light
    double clearness = 1.0;   ///< epsilon
    double brightness = 0.0;  ///< Delta, before it was held to the range of the measurements
    bool limited = false;     ///< brightness or a coefficient was held to its range
};

/// The sky of an hour.
///
/// diffuseHorizontal > 0 and directNormal >= 0 [W/m2]; zenith: of the sun [radians], held to
/// 0..pi/2; distance: to the sun [astronomical units].
///
/// Brightness is held to 0.01..0.6, the range of the measurements behind the coefficients (from 0.2
/// up for clearness 1.065 to 2.8, as the paper asks), and b to at most 0, beyond which the
/// horizon's luminance would grow without bound. Both limits are continuous.
AllWeatherSky allWeatherSky(double directNormal, double diffuseHorizontal, double zenith,
                            double distance);

/// The first factor of equation 1, for a sky element's altitude by its sine (> 0); at least 0.
double horizonFactor(const AllWeatherSky& sky, double sineOfAltitude);

/// The second factor of equation 1, for the angle to the sun [radians, 0..pi]; at least 0.
double sunFactor(const AllWeatherSky& sky, double angleToSun);

} // namespace insolate
