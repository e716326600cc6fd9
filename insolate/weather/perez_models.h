/// Two models by R. Perez and others divide skies into the same eight bins of clearness. They
/// answer different questions, and each has one name here:
///
/// - The all-weather sky (Perez, Seals and Michalsky 1993, Solar Energy 50(3), 235-245): how bright
///   each part of the sky is. all_weather_luminance.h holds its formulas and coefficients;
///   all_weather_cells.h distributes a step's diffuse light over the sky cells with it, for
///   ECumulativeSky::calculateUsingPerez (CalculationMethod_PerezSky); the hourly method has it
///   too.
/// - The tilted-surface model (Perez, Ineichen, Seals, Michalsky and Stewart 1990, Solar Energy
///   44(5), 271-289): how much light falls on a plane. tilted_surface.h is the model at one
///   instant, for ESolarRadiation::getPerezAllWeatherSkyData, whose name says otherwise, and
///   getIncidentSolarRadiation; tilted_surface_period.h is its sum over a period, for
///   ESolarRadiation::calculateUsingPerez (CalculationMethod_PerezPoint).
#pragma once

#include <array>

namespace insolate {

/// Upper bounds of the bins 1 to 7; bin 8 lies beyond. Perez et al. (1990), table 1; the paper of
/// 1993 has the same. The bound itself belongs to the lower bin in the tilted-surface model, to the
/// upper one in the all-weather sky.
inline constexpr std::array<double, 7> clearnessBounds{1.065, 1.23, 1.5, 1.95, 2.8, 4.5, 6.2};

/// Extraterrestrial normal irradiance at mean distance that both models were fitted with [W/m2].
inline constexpr double solarConstant = 1367.0;

} // namespace insolate
