/// The all-weather sky over the sky cells: how the diffuse light of one time step is distributed.
/// The model's formulas are in all_weather_luminance.h.
#pragma once

#include <insolate/geometry/sky_grid.h>
#include <insolate/weather/all_weather_luminance.h>

namespace insolate {

/// The sky of one time step.
struct AllWeatherStep {
    AllWeatherSky luminance; ///< as the model gives it, held to no range but the floor of 0.2
    double altitude = 0.0;   ///< of the sun [radians], at most 87 degrees
    double trigAngle = 0.0;  ///< of the sun, counter-clockwise from +X [radians]
    double diffuse = 0.0;    ///< diffuse horizontal irradiance [W/m2], 0 or more
};

/// The sky of a step from the day of the year, the sun's place [radians] and the irradiances
/// [W/m2]. diffuse must be above 0. Brightness is raised to 0.2 for clearness 1.065 to 2.8, as the
/// paper asks, and not limited otherwise. With the sun at or below the horizon there is no air
/// mass: the brightness is then 0, and the distribution does not read the coefficients.
AllWeatherStep allWeatherStep(int day, double sunAltitude, double sunTrigAngle, double diffuse,
                              double direct);

/// The sun's altitude [radians] at or below which the sky gets no distribution.
inline constexpr double lowestDistributedAltitude = 0.001;

/// Irradiances that no sky has can overflow the exponentials; luminances stop here [relative].
inline constexpr float highestLuminance = 1.0e30f;

/// Brightening of a band towards the horizon (eq. 1, first factor), not held above 0; 1 near
/// sunrise and sunset, where it would run away. sineMiddle: sine of the band's mid-altitude, above
/// 0.
double allWeatherGradation(const AllWeatherStep& step, double sineMiddle);

/// Writes every cell's solid angle (over 2 pi) times its relative luminance into cells
/// (altitude-major) and returns the factor that makes them, weighted by the sine of altitude, add
/// up to the diffuse horizontal irradiance. All 0 with the sun at or below
/// `lowestDistributedAltitude`. northOffset: of the model [radians].
float distributeAllWeather(const AllWeatherStep& step, double northOffset,
                           float (&cells)[skyGrid::cellCount]);

} // namespace insolate
