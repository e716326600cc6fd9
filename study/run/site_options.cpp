#include "study/run/site_options.h"

#include "study/support/errors.h"
#include "study/support/numbers.h"
#include "study/weather/weather_check.h"
#include "study/weather/weather_store.h"

#include <fmt/format.h>
#include <insolate/solar/site_ranges.h>

namespace insolate::study {

NamedSite namedSite(const SiteOptions& options) {
    double latitude = 0.0;
    double longitude = 0.0;
    std::optional<double> zone = options.timeZone;
    std::string name;
    std::string note;
    if (options.weather) {
        const WeatherReport weather = inspectWeatherFile(*options.weather);
        const WeatherSite& site = weather.site;
        latitude = site.latitude;
        longitude = site.longitude;
        zone = zone ? zone : site.timeZone;
        name = site.text() + ", ";
        note = weather.oddClock;
    } else {
        if (!options.latitude || !options.longitude) {
            throw UsageError("the site is missing; give --lat and --lon in degrees, or --weather "
                             "with a file of the site");
        }
        latitude = *options.latitude;
        longitude = *options.longitude;
        if (!siteRanges::latitude.holds(latitude) || !siteRanges::longitude.holds(longitude)) {
            throw UsageError(fmt::format("{}, {} is not on earth; --lat runs from -90 to 90, --lon "
                                         "from -180 to 180 degrees, east positive",
                                         latitude, longitude));
        }
    }
    if (options.timeZone && !siteRanges::timeZone.holds(*zone)) {
        throw UsageError(fmt::format("--tz {}: time zones run from -12 to 14 hours", *zone));
    }
    if (!zone) {
        zone = ESolarPosition::Global.determineTimeZone(latitude * radiansPerDegree,
                                                        longitude * radiansPerDegree);
        note =
            fmt::format("UTC{:+} is from the built-in map of about 2007, which has no quarters of "
                        "an hour and no daylight saving; set the zone with --tz",
                        *zone);
    }
    const Site site{latitude, longitude, *zone, 0.0};
    return {name + siteText(site), site, note};
}

} // namespace insolate::study
