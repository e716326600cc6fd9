/// `insolate sun`: where the sun stands through a day.
#pragma once

#include "study/export.h"
#include "study/run/site_options.h"

#include <string>

namespace insolate::study {

struct SunOptions : SiteOptions {
    int day = 172;        ///< of the year
    int year = usualYear; ///< 1950..2050
    double step = 1.0;    ///< hours

    static constexpr int usualYear = 2001; ///< a year without a leap day, as that of the weather
};

/// The table: site, date, sunrise and sunset (upper edge on the horizon, refraction included), then
/// a line per step while the sun is up: clock time, altitude of the centre with refraction, azimuth
/// (clockwise from north) and altitude without refraction, in degrees.
/// @throws Error
INSOLATE_STUDY_EXPORT std::string sunTable(const SunOptions& options);

} // namespace insolate::study
