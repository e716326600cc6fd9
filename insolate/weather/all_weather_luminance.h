/// The all-weather sky of Perez, Seals and Michalsky (1993), Solar Energy 50(3), 235-245: the
/// luminance of a sky element relative to the others, from an hour's two radiation values.
///
///     l = (1 + a exp(b / sin h)) (1 + c exp(d g) + e cos^2 g)    (eq. 1)
///
/// for an element at altitude h and angle g to the sun; a to e depend on the sky's clearness and
/// brightness and on the sun's zenith angle (eq. 6 to 8, table 1).
#pragma once

#include <algorithm>
#include <cmath>

namespace insolate {

/// The coefficients of equation 1 for one sky.
struct AllWeatherSky {
    double a = 0.0, b = -1.0; ///< darkening or brightening towards the horizon
    double c = 0.0, d = -1.0; ///< circumsolar region
    double e = 0.0;           ///< backscattered light
    double clearness = 1.0;   ///< epsilon
    double brightness = 0.0;  ///< Delta, before it was held to the range of the measurements
    bool limited = false;     ///< brightness or a coefficient was held to its range
};

/// The sky of an hour as the hourly method takes it.
///
/// diffuseHorizontal > 0 and directNormal >= 0 [W/m2]; zenith: of the sun [radians], held to
/// 0..pi/2; distance: to the sun [astronomical units].
///
/// Brightness is held to 0.01..0.6, the range of the measurements behind the coefficients (from 0.2
/// up for clearness 1.065 to 2.8, as the paper asks), and b to at most 0, beyond which the
/// horizon's luminance would grow without bound. Both limits are continuous.
AllWeatherSky allWeatherSky(double directNormal, double diffuseHorizontal, double zenith,
                            double distance);

/// Sets a to e from the sky's clearness: linear in the sun's zenith angle [radians] and in the
/// brightness as the caller limits it, but for c and d of the overcast bin.
void setLuminanceCoefficients(AllWeatherSky& sky, double zenith, double brightness);

/// The first factor of equation 1, for a sky element's altitude by its sine (> 0); at least 0.
double horizonFactor(const AllWeatherSky& sky, double sineOfAltitude);

/// The second factor of equation 1, for the angle to the sun [radians, 0..pi] and its cosine
/// squared, which tables keep beside it; at least 0.
inline double sunFactor(const AllWeatherSky& sky, double angleToSun, double squaredCosine) {
    return std::max(1.0 + sky.c * std::exp(sky.d * angleToSun) + sky.e * squaredCosine, 0.0);
}
inline double sunFactor(const AllWeatherSky& sky, double angleToSun) {
    return sunFactor(sky, angleToSun, std::cos(angleToSun) * std::cos(angleToSun));
}

} // namespace insolate
