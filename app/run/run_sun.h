/// `insolate sun`: where the sun stands through a day.
#pragma once

#include "app/run/run_options.h"

#include <string>

namespace insolate::app {

/// The table: site, sunrise and sunset (upper edge on the horizon, refraction included), then a
/// line per step while the sun is up: clock time, altitude of the centre with refraction, azimuth
/// (clockwise from north) and altitude without refraction, in degrees.
/// @throws CommandError
std::string sunTable(const SunOptions& options);

} // namespace insolate::app
