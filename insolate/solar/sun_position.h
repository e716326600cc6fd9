/// Where the sun stands at an instant, from date, time and place alone.
///
/// Free functions on plain values: no shared site, no state. Good to 0.01 degrees from 1950 to 2050
/// (apparent position, with parallax, aberration, nutation and refraction), which is what a shadow
/// edge or an hour's energy can resolve. Angles are radians unless a name says degrees, azimuths
/// clockwise from north in [0, 2 pi), altitudes above the horizon.
#pragma once

#include <insolate/export.h>

#include <span>

namespace insolate {

/// A place on the ground.
struct Site {
    double latitude = 0.0;  ///< degrees, north positive, -90..90
    double longitude = 0.0; ///< degrees, east positive, -180..180
    double timeZone = 0.0;  ///< clock time minus UTC [hours], -12..14, halves and quarters allowed
    double elevation = 0.0; ///< above sea level [m]
};

/// The air that bends the sun's rays near the horizon.
struct Air {
    double pressure = 101325.0; ///< at the station [Pa]; 0 switches refraction off
    double temperature = 10.0;  ///< dry bulb [degrees C]
};

struct SunPosition {
    double azimuth = 0.0;           ///< clockwise from north [0, 2 pi)
    double altitude = 0.0;          ///< of the sun's centre, refraction included
    double geometricAltitude = 0.0; ///< of the sun's centre, without refraction
    double declination = 0.0;       ///< apparent, geocentric
    double equationOfTime = 0.0;    ///< apparent minus mean solar time [minutes]
    double distance = 1.0;          ///< earth to sun [astronomical units]
};

/// How a day runs at a site.
enum class DayKind {
    RisesAndSets,
    PolarDay,  ///< the sun's upper edge stays above the horizon
    PolarNight ///< the sun's upper edge stays below it
};

/// Clock hours counted from midnight of the date asked for; they may lie outside 0..24 where the
/// zone's clock is far from the sun. rise and set are meaningful for DayKind::RisesAndSets only.
struct SunTimes {
    DayKind kind = DayKind::RisesAndSets;
    double rise = 0.0;    ///< upper edge on the horizon
    double transit = 0.0; ///< sun in the meridian
    double set = 0.0;     ///< upper edge on the horizon
};

/// Julian day of a UTC instant in the Gregorian calendar; hour may lie outside 0..24 and month and
/// day must be those of a calendar. Source: Meeus (1998), Astronomical Algorithms, eq. 7.1.
INSOLATE_EXPORT double julianDay(int year, int month, int day, double hour);

/// Pressure of the standard atmosphere at an elevation [m] -> [Pa].
/// Source: ICAO Doc 7488 (1993), eq. for the troposphere; elevations are held to -500..10,000 m.
INSOLATE_EXPORT double standardPressure(double elevation);

/// Terrestrial time minus universal time [s]; outside 1950..2050 the nearer end's value.
/// Source: Espenak and Meeus (2006), Five Millennium Canon of Solar Eclipses, section 2.6.
INSOLATE_EXPORT double deltaT(double decimalYear);

/// The sun at a UTC instant given as a Julian day. The site's time zone is not used.
INSOLATE_EXPORT SunPosition sunPosition(double julianDayUtc, const Site& site, const Air& air = {});

/// The same at many instants; the shorter span counts.
INSOLATE_EXPORT void sunPositions(std::span<const double> julianDaysUtc, const Site& site,
                                  const Air& air, std::span<SunPosition> positions);

/// Sunrise, transit and sunset of a calendar date, good to half a minute away from the polar
/// circles: the sun's centre 50 arc minutes below the horizon (34 of refraction, 16 of radius).
INSOLATE_EXPORT SunTimes sunTimes(int year, int month, int day, const Site& site);

} // namespace insolate
