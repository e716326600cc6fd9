/// `insolate sun`: where the sun stands through a day.
#pragma once

#include "study/run/run_options.h"

#include <string>

namespace insolate::study {

/// The table: site, sunrise and sunset (upper edge on the horizon, refraction included), then a
/// line per step while the sun is up: clock time, altitude of the centre with refraction, azimuth
/// (clockwise from north) and altitude without refraction, in degrees.
/// @throws Error
std::string sunTable(const SunOptions& options);

} // namespace insolate::study
