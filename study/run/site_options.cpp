#include "study/run/site_options.h"

#include "study/support/errors.h"
#include "study/support/numbers.h"
#include "study/weather/weather_check.h"
#include "study/weather/weather_store.h"

#include <fmt/format.h>
#include <insolate/solar/site_ranges.h>

namespace insolate::study {

namespace {

/// Hours from UTC by the built-in map of time zones.
double zoneOfMap(double latitude, double longitude) {
    return ESolarPosition::Global.determineTimeZone(latitude * radiansPerDegree,
                                                    longitude * radiansPerDegree);
}

/// What is odd about coordinates and a time zone that a person typed; empty when nothing is.
///
/// Clocks differ from the map by an hour where they keep summer time or a law has changed since.
/// Universal time may be kept everywhere.
std::string oddSiteText(double latitude, double longitude, double zone) {
    const auto offMap = [&](double north, double east) {
        return std::abs(std::remainder(zone - zoneOfMap(north, east), 24.0));
    };
    constexpr double summerTime = 1.0;
    constexpr double sameZone = 0.5;
    if (std::abs(latitude) > 89.0 || offMap(latitude, longitude) <= summerTime) {
        return {};
    }
    const std::string odd = fmt::format("--tz {:g} does not go with --lat {:g} --lon {:g}, where "
                                        "clocks keep about UTC{:+g}",
                                        zone, latitude, longitude, zoneOfMap(latitude, longitude));
    if (std::abs(longitude) <= 90.0 && offMap(longitude, latitude) <= sameZone) {
        return fmt::format("{}: latitude and longitude look swapped; give --lat {:g} --lon {:g} if "
                           "that is the place",
                           odd, longitude, latitude);
    }
    if (zone == 0.0) {
        return {};
    }
    if (offMap(latitude, -longitude) <= sameZone) {
        return fmt::format("{}: longitudes are east positive; give --lon {:g} if that is the place",
                           odd, -longitude);
    }
    return odd + "; check all three";
}

} // namespace

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
        zone = zoneOfMap(latitude, longitude);
        note =
            fmt::format("UTC{:+} is from the built-in map of about 2007, which has no quarters of "
                        "an hour and no daylight saving; set the zone with --tz",
                        *zone);
    } else if (!options.weather) {
        note = oddSiteText(latitude, longitude, *zone);
    }
    const Site site{latitude, longitude, *zone, 0.0};
    return {name + siteText(site), site, note};
}

} // namespace insolate::study
