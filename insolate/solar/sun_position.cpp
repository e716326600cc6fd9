#include <insolate/solar/sun_position.h>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace insolate {
namespace {

constexpr double pi = std::numbers::pi;
constexpr double degree = pi / 180.0;
constexpr double epochJ2000 = 2451545.0;

/// Altitude of the sun's centre when its upper edge touches the horizon.
constexpr double riseAltitude = -50.0 / 60.0 * degree;

double wrapTurn(double angle) {
    if (angle >= 0.0 && angle < 2.0 * pi) {
        return angle;
    }
    const double wrapped = std::fmod(angle, 2.0 * pi);
    return wrapped < 0.0 ? wrapped + 2.0 * pi : wrapped;
}

/// std::fmod(degrees, 360.0), to the last bit and several times as fast: for what is below 2^53,
/// whole turns and the rest are exact.
double withoutTurns(double degrees) {
    const double rest = degrees - 360.0 * std::trunc(degrees / 360.0);
    // The quotient may have been rounded to the next whole number, on either side of 0.
    return degrees >= 0.0 ? (rest < 0.0 ? rest + 360.0 : rest) : (rest > 0.0 ? rest - 360.0 : rest);
}

/// What of a site all instants share.
struct Place {
    explicit Place(const Site& site)
        : longitude(site.longitude * degree), sinLatitude(std::sin(site.latitude * degree)),
          cosLatitude(std::cos(site.latitude * degree)) {}
    double longitude; // radians
    double sinLatitude;
    double cosLatitude;
};

/// Refraction of an altitude in degrees [degrees]. Reda and Andreas (2004), Solar Energy 76(5),
/// eq. 42; below the altitude at which the upper edge disappears there is nothing left to bend.
double refraction(double altitude, const Air& air) {
    if (!(altitude >= -(0.26667 + 0.5667)) || !(air.pressure > 0.0)) {
        return 0.0;
    }
    return air.pressure / 101000.0 * 283.0 / (273.0 + air.temperature) * 1.02 /
           (60.0 * std::tan((altitude + 10.3 / (altitude + 5.11)) * degree));
}

} // namespace

double julianDay(int year, int month, int day, double hour) {
    if (month <= 2) {
        year -= 1;
        month += 12;
    }
    const double century = std::floor(year / 100.0);
    const double gregorian = 2.0 - century + std::floor(century / 4.0);
    return std::floor(365.25 * (year + 4716)) + std::floor(30.6001 * (month + 1)) + day +
           gregorian - 1524.5 + hour / 24.0;
}

double standardPressure(double elevation) {
    const double height = std::clamp(elevation, -500.0, 10000.0);
    return 101325.0 * std::pow(1.0 - 2.25577e-5 * height, 5.25588);
}

double deltaT(double decimalYear) {
    const double year = std::clamp(decimalYear, 1950.0, 2050.0);
    if (year < 1961.0) {
        const double t = year - 1950.0;
        return 29.07 + t * (0.407 + t * (-1.0 / 233.0 + t / 2547.0));
    }
    if (year < 1986.0) {
        const double t = year - 1975.0;
        return 45.45 + t * (1.067 + t * (-1.0 / 260.0 - t / 718.0));
    }
    const double t = year - 2000.0;
    if (year < 2005.0) {
        return 63.86 + t * (0.3345 + t * (-0.060374 +
                                          t * (0.0017275 + t * (0.000651814 + t * 0.00002373599))));
    }
    return 62.92 + t * (0.32217 + t * 0.005589);
}

namespace {

SunPosition positionAt(double julianDayUtc, const Place& place, const Air& air) {
    const double days = julianDayUtc - epochJ2000;
    const double T = (days + deltaT(2000.0 + days / 365.25) / 86400.0) / 36525.0;

    // Meeus (1998), chapter 25: longitude, anomaly, equation of the centre, radius vector.
    const double L0 = (280.46646 + T * (36000.76983 + T * 0.0003032)) * degree;
    const double M = (357.52911 + T * (35999.05029 - T * 0.0001537)) * degree;
    const double e = 0.016708634 - T * (0.000042037 + T * 0.0000001267);
    const double sinM = std::sin(M);
    const double cosM = std::cos(M);
    const double sin2M = 2.0 * sinM * cosM;
    const double sin3M = sinM * (3.0 - 4.0 * sinM * sinM);
    const double C = ((1.914602 - T * (0.004817 + T * 0.000014)) * sinM +
                      (0.019993 - T * 0.000101) * sin2M + 0.000289 * sin3M) *
                     degree;
    const double R = 1.000001018 * (1.0 - e * e) / (1.0 + e * std::cos(M + C));

    // Apparent longitude (aberration, nutation) and obliquity, same chapter; nutation in longitude
    // from the node of the moon, chapter 22.
    const double node = (125.04 - 1934.136 * T) * degree;
    const double sinNode = std::sin(node);
    const double lambda = L0 + C - (0.00569 + 0.00478 * sinNode) * degree;
    const double epsilon = (23.439291111 - T * (0.0130041667 + T * (1.639e-7 - T * 5.036e-7)) +
                            0.00256 * std::cos(node)) *
                           degree;
    const double sinLambda = std::sin(lambda);
    const double sinEpsilon = std::sin(epsilon);
    const double cosEpsilon = std::cos(epsilon);
    const double rightAscension = std::atan2(cosEpsilon * sinLambda, std::cos(lambda));
    const double sinDeclination = sinEpsilon * sinLambda;
    const double cosDeclination = std::sqrt(1.0 - sinDeclination * sinDeclination);

    // Apparent sidereal time at Greenwich, eq. 12.4, and the local hour angle.
    const double century = days / 36525.0;
    const double equinoxes = -0.00478 * sinNode * cosEpsilon * degree;
    const double siderealTime =
        (280.46061837 + withoutTurns(360.98564736629 * days) + 0.000387933 * century * century) *
            degree +
        equinoxes;
    const double H = siderealTime + place.longitude - rightAscension;
    const double cosH = std::cos(H);

    SunPosition sun;
    sun.distance = R;
    sun.declination = std::asin(sinDeclination);
    // Eq. 28.1, brought to within half a day.
    const double equation =
        wrapTurn(L0 - 0.0057183 * degree - rightAscension + equinoxes + pi) - pi;
    sun.equationOfTime = equation / degree * 4.0;
    // Eq. 13.5 and 13.6, azimuth from north; the parallax lowers the sun by up to 8.8 arc seconds.
    sun.azimuth =
        wrapTurn(std::atan2(std::sin(H), cosH * place.sinLatitude -
                                             sinDeclination / cosDeclination * place.cosLatitude) +
                 pi);
    const double sine = std::clamp(
        place.sinLatitude * sinDeclination + place.cosLatitude * cosDeclination * cosH, -1.0, 1.0);
    const double parallax = 8.794 / 3600.0 * degree / R * std::sqrt(1.0 - sine * sine);
    sun.geometricAltitude = std::asin(sine) - parallax;
    sun.altitude = sun.geometricAltitude + refraction(sun.geometricAltitude / degree, air) * degree;
    return sun;
}

} // namespace

SunPosition sunPosition(double julianDayUtc, const Site& site, const Air& air) {
    return positionAt(julianDayUtc, Place(site), air);
}

void sunPositions(std::span<const double> julianDaysUtc, const Site& site, const Air& air,
                  std::span<SunPosition> positions) {
    const Place place(site);
    for (std::size_t i = 0; i < std::min(julianDaysUtc.size(), positions.size()); ++i) {
        positions[i] = positionAt(julianDaysUtc[i], place, air);
    }
}

SunTimes sunTimes(int year, int month, int day, const Site& site) {
    const double midnight = julianDay(year, month, day, -site.timeZone);
    const auto at = [&](double hour) {
        return sunPosition(midnight + hour / 24.0, site, {0.0, 0.0});
    };

    SunTimes times;
    times.transit = 12.0;
    for (int i = 0; i < 3; ++i) {
        times.transit =
            12.0 + site.timeZone - site.longitude / 15.0 - at(times.transit).equationOfTime / 60.0;
    }
    // From the lower culmination to the transit the sun climbs, after it it sinks: one crossing
    // each.
    const auto above = [&](double hour) { return at(hour).geometricAltitude > riseAltitude; };
    const bool aboveAtTransit = above(times.transit);
    const auto crossing = [&](double dark, double light) {
        for (int i = 0; i < 24; ++i) {
            const double middle = 0.5 * (dark + light);
            (above(middle) ? light : dark) = middle;
        }
        return 0.5 * (dark + light);
    };
    if (!aboveAtTransit) {
        times.kind = DayKind::PolarNight;
        return times;
    }
    const bool darkBefore = !above(times.transit - 12.0);
    const bool darkAfter = !above(times.transit + 12.0);
    if (!darkBefore && !darkAfter) {
        times.kind = DayKind::PolarDay;
        return times;
    }
    times.rise = darkBefore ? crossing(times.transit - 12.0, times.transit) : times.transit - 12.0;
    times.set = darkAfter ? crossing(times.transit + 12.0, times.transit) : times.transit + 12.0;
    return times;
}

} // namespace insolate
