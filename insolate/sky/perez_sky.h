/// The all-weather sky: how the diffuse light of one instant is distributed over the sky cells.
///
/// Perez, Seals and Michalsky (1993), Solar Energy 50(3), 235-245: relative luminance (eq. 1) with
/// five coefficients a..e (eqs. 6 to 8, table 1) that depend on the sky's clearness and brightness
/// and on the sun's zenith angle.
#pragma once

#include <insolate/geometry/sky_grid.h>

namespace insolate {

/// The model's state at one instant.
struct PerezSky {
    double altitude = 0.0;          ///< of the sun [radians], at most 87 degrees
    double trigAngle = 0.0;         ///< of the sun, counter-clockwise from +X [radians]
    double zenithAngle = 0.0;       ///< of the sun [radians]
    double precipitableWater = 0.0; ///< [cm]
    double dewPoint = 11.0;         ///< [degrees C]
    double diffuse = 0.0;           ///< diffuse horizontal irradiance [W/m2], 0 or more
    double direct = 0.0;            ///< direct normal irradiance [W/m2], 0 or more
    double day = 150.0;             ///< of the year, 1..365
    double a = 0.0;                 ///< darkening or brightening of the horizon
    double b = 0.0;                 ///< gradient near the horizon
    double c = 0.0;                 ///< intensity of the circumsolar region
    double d = 0.0;                 ///< width of the circumsolar region
    double e = 0.0;                 ///< backscattered light
    double brightness = 0.0;        ///< delta
    double clearness = 0.0;         ///< epsilon
};

/// The model's state for a sun position, irradiances and a day. diffuse must be above 0. With the
/// sun at or below the horizon there is no air mass: the brightness is then 0, and the distribution
/// does not read the coefficients.
PerezSky perezSky(int day, double sunAltitude, double sunTrigAngle, double diffuse, double direct);

/// The sun's altitude [radians] at or below which the sky gets no distribution.
inline constexpr double lowestDistributedAltitude = 0.001;

/// Irradiances that no sky has can overflow the exponentials; luminances stop here [relative].
inline constexpr float highestPerezLuminance = 1.0e30f;

/// Brightening of a band towards the horizon (eq. 1, first factor); 1 near sunrise and sunset,
/// where it would run away. sineMiddle: sine of the band's mid-altitude, above 0.
double perezGradation(const PerezSky& sky, double sineMiddle);

/// Writes every cell's solid angle (over 2 pi) times its relative luminance into cells
/// (altitude-major) and returns the factor that makes them, weighted by the sine of altitude, add
/// up to the diffuse horizontal irradiance. All 0 with the sun at or below
/// `lowestDistributedAltitude`.
///
/// \param northOffset of the model [radians]
float distributePerezSky(const PerezSky& sky, double northOffset,
                         float (&cells)[skyGrid::cellCount]);

} // namespace insolate
