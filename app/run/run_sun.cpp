#include "app/run/run_sun.h"

#include "app/errors.h"
#include "app/input/weather_check.h"
#include "app/run/solar_analysis.h"

#include <cmath>

#include <fmt/format.h>
#include <insolate/insolate.h>

namespace insolate::app {

namespace {

/// Sets the site and gives it a name.
std::string placeSun(const SunOptions& options, ESolarPosition& sun) {
    const auto radians = ESolarPosition::convertDegreesToRadians;
    double latitude = 0.0;
    double longitude = 0.0;
    std::optional<double> zone = options.timeZone;
    std::string name;
    if (options.weather) {
        const WeatherSite site = inspectWeatherFile(*options.weather).site;
        latitude = site.latitude;
        longitude = site.longitude;
        zone = zone ? zone : site.timeZone;
        name = site.text() + ", ";
    } else {
        if (!options.latitude || !options.longitude) {
            throw UsageError("the site is missing; give --lat and --lon in degrees, or --weather "
                             "with a file of the site");
        }
        latitude = *options.latitude;
        longitude = *options.longitude;
    }
    if (!(std::abs(latitude) <= 90.0) || !(std::abs(longitude) <= 180.0)) {
        throw UsageError(fmt::format("{}, {} is not on earth; --lat runs from -90 to 90, --lon "
                                     "from -180 to 180 degrees, east positive",
                                     latitude, longitude));
    }
    if (zone) {
        if (!(*zone >= -12.0 && *zone <= 14.0)) {
            throw UsageError(fmt::format("--tz {}: time zones run from -12 to 14 hours", *zone));
        }
        sun.setLocation(radians(latitude), radians(longitude), radians(*zone * 15.0));
    } else {
        sun.setLocation(radians(latitude), radians(longitude));
    }
    return name + siteText({latitude, longitude, sun.getTimeZone(), 0.0});
}

} // namespace

std::string sunTable(const SunOptions& options) {
    checkStep(options.step);
    ESolarPosition sun;
    std::string table = fmt::format("# {}, {}\n", placeSun(options, sun), dayText(options.day));
    sun.setDayOfTheYear(options.day);
    // Cosine of the half day's hour angle; beyond +-1 the sun does not cross the horizon.
    const double halfDay = -std::tan(sun.getLatitudeInRadians()) * std::tan(sun.getDeclination());
    if (halfDay >= 1.0) {
        return table + "# the sun does not rise\n";
    }
    table += halfDay <= -1.0
                 ? std::string("# the sun does not set\n")
                 : fmt::format("# sunrise {}, sunset {}, daylight {} h\n",
                               clockText(sun.getSunriseTime()), clockText(sun.getSunsetTime()),
                               clockText(sun.getDaylightHours()));
    table += "# time  altitude[deg]  azimuth[deg]\n";
    const int steps = static_cast<int>(std::floor(24.0 / options.step + 1.0e-9));
    for (int i = 0; i <= steps; ++i) {
        const double time = i * options.step;
        sun.setTime(time);
        if (sun.getSolarAltitudeInDegrees() < 0.0) {
            continue;
        }
        const double azimuth = sun.getSolarAzimuthInDegrees();
        table +=
            fmt::format("{:>6}  {:13.2f}  {:12.2f}\n", clockText(time),
                        sun.getSolarAltitudeInDegrees(), azimuth < 0.0 ? azimuth + 360.0 : azimuth);
    }
    return table;
}

} // namespace insolate::app
