/// `insolate sun`: where the sun stands through a day.
#pragma once

#include "study/export.h"

#include <filesystem>
#include <optional>
#include <string>

namespace insolate::study {

struct SunOptions {
    std::optional<std::filesystem::path> weather; ///< names the site; else latitude and longitude
    std::optional<double> latitude;               ///< degrees, north positive
    std::optional<double> longitude;              ///< degrees, east positive
    std::optional<double> timeZone; ///< hours from UTC; absent: from the map of time zones
    int day = 172;                  ///< of the year
    double step = 1.0;              ///< hours
};

/// The table: site, sunrise and sunset (upper edge on the horizon, refraction included), then a
/// line per step while the sun is up: clock time, altitude of the centre with refraction, azimuth
/// (clockwise from north) and altitude without refraction, in degrees.
/// @throws Error
INSOLATE_STUDY_EXPORT std::string sunTable(const SunOptions& options);

} // namespace insolate::study
