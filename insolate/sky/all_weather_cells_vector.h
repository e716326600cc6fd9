/// The all-weather distribution in vector code: the same cells as distributeAllWeather, many at a
/// time.
///
/// Each cell costs one arc cosine and one exponential, both as polynomials good to 1e-11, so that
/// cells differ from the plain version by a single-precision rounding at most. Multiplications and
/// additions are never fused and sums run over eight fixed lanes: every instruction set gives the
/// same bits.
#pragma once

#include <insolate/geometry/sky_grid.h>
#include <insolate/sky/all_weather_cells.h>

namespace insolate {

/// As distributeAllWeather.
float distributeAllWeatherVector(const AllWeatherStep& step, double northOffset,
                                 float (&cells)[skyGrid::cellCount]);

/// Books one step's distribution: diffuse += scale x cell x hours, peak = max(peak, scale x cell).
void bookDistribution(const float (&cells)[skyGrid::cellCount], float scale, float hours,
                      float (&diffuse)[skyGrid::cellCount], float (&peak)[skyGrid::cellCount]);

} // namespace insolate
