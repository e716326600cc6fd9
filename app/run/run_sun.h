/// `insolate sun`: where the sun stands through a day.
#pragma once

#include "app/run/run_options.h"

#include <string>

namespace insolate::app {

/// The table: site, sunrise and sunset, then a line per step while the sun is up: clock time,
/// altitude and azimuth (clockwise from north) in degrees.
/// @throws CommandError
std::string sunTable(const SunOptions& options);

} // namespace insolate::app
