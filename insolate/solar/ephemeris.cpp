// The sun's place: Meeus, Astronomical Algorithms (2nd ed., 1998), chapter 25 (low accuracy) and
// equation 28.3, in the form of the NOAA Solar Calculator (Global Monitoring Laboratory).
#include <insolate/solar/calendar.h>
#include <insolate/solar/solar_position.h>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

using std::numbers::pi;

// Radians the sun's hour angle turns in an hour, 15 degrees.
constexpr double radiansPerHour = 0.2617993877991494;

// At +-90 degrees every direction would be south or north.
constexpr double maxLatitude = 1.5550883635269477;

double radians(double degrees) {
    return ESolarPosition::convertDegreesToRadians(degrees);
}

double degrees(double angle) {
    return ESolarPosition::convertRadiansToDegrees(angle);
}

double sinOfDegrees(double angle) {
    return std::sin(radians(angle));
}

// One correction by a turn into (-pi, pi].
double wrapOnce(double angle) {
    if (angle < -pi) {
        return angle + 2.0 * pi;
    }
    return angle > pi ? angle - 2.0 * pi : angle;
}

// What repeated subtraction of the period leaves, in (0, period] for values above it, without
// walking there from an absurd value. fmod is exact, as each of the subtractions is.
double foldDown(double value, double period) {
    if (value > period) {
        value = std::fmod(value, period);
        if (value == 0.0) {
            value = period;
        }
    }
    return value;
}

double moonsNode(double centuries) {
    return 125.04 - 1934.136 * centuries;
}

// Atmospheric refraction [degrees] at a true elevation [degrees], from the NOAA Solar Calculator.
double refraction(double elevation) {
    if (elevation > 85.0) {
        return 0.0;
    }
    const double tangent = std::tan(radians(elevation));
    double arcSeconds;
    if (elevation > 5.0) {
        const double cubed = tangent * tangent * tangent;
        arcSeconds = 58.1 / tangent - 0.07 / cubed + 0.000086 / (cubed * tangent * tangent);
    } else if (elevation > -0.575) {
        arcSeconds =
            1735.0 +
            elevation * (-518.2 + elevation * (103.4 + elevation * (-12.79 + elevation * 0.711)));
    } else {
        arcSeconds = -20.774 / tangent;
    }
    return arcSeconds / 3600.0;
}

} // namespace

double ESolarPosition::getDeclination() const {
    return declination;
}
double ESolarPosition::getEquationOfTime() const {
    return equationOfTime;
}
double ESolarPosition::getTimeZoneDifference() const {
    return timeZoneDifference;
}
double ESolarPosition::getSunriseTime() const {
    return sunriseTime;
}
double ESolarPosition::getSunsetTime() const {
    return sunsetTime;
}
double ESolarPosition::getDaylightHours() const {
    return sunsetTime - sunriseTime;
}
double ESolarPosition::getLocalTime() const {
    return localTime;
}
double ESolarPosition::getSolarTime() const {
    return convertLocalToSolarTime(localTime);
}
double ESolarPosition::getSolarAltitudeInRadians() const {
    return altitude;
}
double ESolarPosition::getSolarAltitudeInDegrees() const {
    return degrees(altitude);
}
double ESolarPosition::getSolarAzimuthInRadians() const {
    return azimuth;
}
double ESolarPosition::getSolarAzimuthInDegrees() const {
    return degrees(azimuth);
}
double ESolarPosition::getTrigAngleInRadians() const {
    return trigAngle;
}
double ESolarPosition::getTrigAngleInDegrees() const {
    return degrees(trigAngle);
}
double ESolarPosition::getNorthOffset() const {
    return northOffset;
}
bool ESolarPosition::getLimitToDayTimeOnly() const {
    return limitToDayTimeOnly;
}

void ESolarPosition::setLocalTime(double hours) {
    localTime = hours;
    setDayOfTheYear(dayOfTheYear);
}

void ESolarPosition::setNorthOffset(double angle) {
    northOffset = angle;
    setDayOfTheYear(dayOfTheYear);
}

void ESolarPosition::setLimitToDayTimeOnly(bool limit) {
    limitToDayTimeOnly = limit;
    setDayOfTheYear(dayOfTheYear);
}

void ESolarPosition::setDaylightSaving(int hours) {
    daylightSaving = hours;
    setDayOfTheYear(dayOfTheYear);
}

void ESolarPosition::setYear(int calendarYear) {
    year = calendarYear;
    setDayOfTheYear(dayOfTheYear);
}

void ESolarPosition::setDayOfTheYear(int day, double hours) {
    localTime = hours;
    setDayOfTheYear(day);
}

void ESolarPosition::setDayOfTheYear(int day) {
    if (day == 0) {
        day = 1;
    } else if (day < 0) {
        day += DAYS_PER_YEAR;
    } else if (day > DAYS_PER_YEAR) {
        day -= DAYS_PER_YEAR;
    }
    dayOfTheYear = day;

    latitude = std::clamp(latitude, -maxLatitude, maxLatitude);
    longitude = std::clamp(longitude, -pi, pi);
    timeZoneDifference = (longitude - referenceLongitude) / pi * 180.0 * 4.0 / 60.0;

    const double centuries = getJulianCenturies(dayOfTheYear, year);
    declination = radians(calcSunDeclination(centuries));
    equationOfTime = calcEquationOfTime(centuries) / 60.0;

    const double solarNoon = 12.0 - equationOfTime - timeZoneDifference + daylightSaving;
    const double halfDay =
        std::acos(std::clamp(-std::tan(latitude) * std::tan(declination), -1.0, 1.0)) /
        radiansPerHour;
    sunriseTime = std::clamp(solarNoon - halfDay, 0.0, 24.0);
    sunsetTime = std::clamp(solarNoon + halfDay, 0.0, 24.0);

    setTime(localTime);
}

void ESolarPosition::setTime(double hours) {
    if (limitToDayTimeOnly) {
        if (sunriseTime > 0.0 && hours < sunriseTime) {
            hours = sunriseTime;
        }
        if (sunsetTime > 0.0 && hours > sunsetTime) {
            hours = sunsetTime;
        }
    }
    localTime = std::clamp(hours, 0.0, 24.0);

    // The clock time is standard time here whatever daylight saving says; daylight saving moves
    // sunrise, sunset and the conversions between clock and solar time only.
    const double trueSolarMinutes =
        foldDown(localTime * 60.0 + 4.0 * degrees(longitude) + 60.0 * equationOfTime -
                     4.0 * degrees(referenceLongitude),
                 1440.0);
    double hourAngle = trueSolarMinutes / 4.0 - 180.0;
    if (hourAngle < -180.0) {
        hourAngle += 360.0;
    }

    const double sinLatitude = std::sin(latitude);
    const double cosLatitude = std::cos(latitude);
    const double sinDeclination = std::sin(declination);
    const double cosZenith =
        std::clamp(std::cos(radians(hourAngle)) * std::cos(declination) * cosLatitude +
                       sinLatitude * sinDeclination,
                   -1.0, 1.0);
    const double zenith = degrees(std::acos(cosZenith));

    const double divisor = sinOfDegrees(zenith) * cosLatitude;
    double direction;
    if (std::abs(divisor) > 0.001) {
        direction = pi - std::acos(std::clamp((cosZenith * sinLatitude - sinDeclination) / divisor,
                                              -1.0, 1.0));
        if (hourAngle > 0.0) {
            direction = -direction;
        }
    } else {
        direction = latitude > 0.0 ? pi : 0.0;
    }
    if (direction < 0.0) {
        direction += 2.0 * pi;
    }

    altitude = radians(90.0 - (zenith - refraction(90.0 - zenith)));
    azimuth = wrapOnce(direction);
    trigAngle = wrapOnce(pi / 2.0 - azimuth - northOffset);
}

double ESolarPosition::convertLocalToSolarTime(double hours) const {
    return hours + equationOfTime + timeZoneDifference - daylightSaving;
}

double ESolarPosition::convertSolarToLocalTime(double hours) const {
    return hours - equationOfTime - timeZoneDifference + daylightSaving;
}

double ESolarPosition::convertAzimuthToTrigAngle(double azimuthAngle) const {
    return wrapOnce(pi / 2.0 - azimuthAngle - northOffset);
}

double ESolarPosition::convertTrigAngleToAzimuth(double planAngle) const {
    return wrapOnce(pi / 2.0 - planAngle - northOffset);
}

double ESolarPosition::convertDegreesToRadians(double angle) {
    return angle / 180.0 * pi;
}

double ESolarPosition::convertRadiansToDegrees(double angle) {
    return angle / pi * 180.0;
}

bool ESolarPosition::calculateRelativeSunPos(XYZf origin, float distance, XYZf* result) const {
    if (result != nullptr) {
        const auto plan = static_cast<float>(pi / 2.0 - azimuth - northOffset);
        const auto height = static_cast<float>(altitude);
        const float level = std::cos(height);
        result->x = origin.x + distance * (level * std::cos(plan));
        result->y = origin.y + distance * (level * std::sin(plan));
        result->z = origin.z + distance * std::sin(height);
    }
    return true;
}

bool ESolarPosition::getRelativeSunPos(XYZf origin, float distance, XYZf* result) const {
    return calculateRelativeSunPos(origin, distance, result);
}

double ESolarPosition::calculateHorizontalShadowAngle(double surfaceAzimuth) const {
    constexpr double turn = 2.0 * pi;
    double difference = azimuth - surfaceAzimuth;
    // A thousand turns and more: the loops below would take long, or never end.
    if (std::abs(difference) > 1000.0 * turn) {
        difference = std::fmod(difference, turn);
    }
    while (difference > turn) {
        difference -= turn;
    }
    while (difference < -turn) {
        difference += turn;
    }
    return wrapOnce(difference);
}

double ESolarPosition::calculateVerticalShadowAngle(double altitudeOffset,
                                                    double horizontalShadowAngle) const {
    const double height = altitude - altitudeOffset;
    return std::atan2(std::sin(height), std::cos(height) * std::cos(horizontalShadowAngle));
}

double ESolarPosition::getJulianCenturies(int dayOfYear, double calendarYear) {
    const insolate::CalendarDate date = insolate::calendarDateOf(dayOfYear);
    int month = date.month + 1;
    if (month <= 2) {
        month += 12;
        calendarYear -= 1.0;
    }
    // The almanac of the year before: a sun of 2007 is computed for 2006.
    calendarYear -= 1.0;

    // Meeus, equation 7.1, Gregorian calendar.
    const double century = std::trunc(std::floor(calendarYear / 100.0));
    const double leapCorrection = std::trunc(std::floor(century * 0.25) + (2.0 - century));
    const double julianDay = std::floor(365.25 * (calendarYear + 4716.0)) +
                             std::floor(30.6001 * (month + 1)) + date.day + leapCorrection - 1524.5;
    return (julianDay - 2451545.0) / 36525.0;
}

// Meeus, equation 25.2.
double ESolarPosition::calcGeomMeanLongSun(double centuries) {
    const double longitudeOfSun =
        foldDown(280.46646 + centuries * (36000.76983 + 0.0003032 * centuries), 360.0);
    if (longitudeOfSun < 0.0) {
        const double remainder = std::fmod(longitudeOfSun, 360.0);
        return remainder < 0.0 ? remainder + 360.0 : 0.0;
    }
    return longitudeOfSun;
}

// Meeus, equation 25.3.
double ESolarPosition::calcGeomMeanAnomalySun(double centuries) {
    return 357.52911 + centuries * (35999.05029 - 0.0001537 * centuries);
}

// Meeus, equation 25.4.
double ESolarPosition::calcEccentricityEarthOrbit(double centuries) {
    return 0.016708634 - centuries * (4.2037e-5 + 1.267e-7 * centuries);
}

// Meeus, chapter 25, the equation of the centre C.
double ESolarPosition::calcSunEqOfCenter(double centuries) {
    const double anomaly = calcGeomMeanAnomalySun(centuries);
    return sinOfDegrees(anomaly) * (1.914602 - centuries * (0.004817 + 1.4e-5 * centuries)) +
           sinOfDegrees(2.0 * anomaly) * (0.019993 - 0.000101 * centuries) +
           sinOfDegrees(3.0 * anomaly) * 0.000289;
}

double ESolarPosition::calcSunTrueLong(double centuries) {
    return calcGeomMeanLongSun(centuries) + calcSunEqOfCenter(centuries);
}

double ESolarPosition::calcSunTrueAnomaly(double centuries) {
    return calcGeomMeanAnomalySun(centuries) + calcSunEqOfCenter(centuries);
}

// Meeus, equation 25.5.
double ESolarPosition::calcSunRadVector(double centuries) {
    const double eccentricity = calcEccentricityEarthOrbit(centuries);
    return 1.000001018 * (1.0 - eccentricity * eccentricity) /
           (1.0 + eccentricity * std::cos(radians(calcSunTrueAnomaly(centuries))));
}

// Meeus, chapter 25: corrected for aberration and nutation.
double ESolarPosition::calcSunApparentLong(double centuries) {
    return calcSunTrueLong(centuries) - 0.00569 - 0.00478 * sinOfDegrees(moonsNode(centuries));
}

// Meeus, equation 22.2: 23 degrees 26 minutes 21.448 seconds at J2000.0.
double ESolarPosition::calcMeanObliquityOfEcliptic(double centuries) {
    const double seconds =
        21.448 - centuries * (46.815 + centuries * (0.00059 - 0.001813 * centuries));
    return 23.0 + (26.0 + seconds / 60.0) / 60.0;
}

// Meeus, equation 25.8.
double ESolarPosition::calcObliquityCorrection(double centuries) {
    return calcMeanObliquityOfEcliptic(centuries) +
           0.00256 * std::cos(radians(moonsNode(centuries)));
}

// Meeus, equation 25.6.
double ESolarPosition::calcSunRtAscension(double centuries) {
    const double obliquity = radians(calcObliquityCorrection(centuries));
    const double longitudeOfSun = radians(calcSunApparentLong(centuries));
    return degrees(
        std::atan2(std::cos(obliquity) * std::sin(longitudeOfSun), std::cos(longitudeOfSun)));
}

// Meeus, equation 25.7.
double ESolarPosition::calcSunDeclination(double centuries) {
    return degrees(std::asin(sinOfDegrees(calcObliquityCorrection(centuries)) *
                             sinOfDegrees(calcSunApparentLong(centuries))));
}

// Meeus, equation 28.3 (Smart, Textbook on Spherical Astronomy).
double ESolarPosition::calcEquationOfTime(double centuries) {
    const double halfObliquity = radians(calcObliquityCorrection(centuries)) / 2.0;
    const double y = std::tan(halfObliquity) * std::tan(halfObliquity);
    const double e = calcEccentricityEarthOrbit(centuries);
    const double l0 = radians(calcGeomMeanLongSun(centuries));
    const double m = radians(calcGeomMeanAnomalySun(centuries));
    const double sinM = std::sin(m);
    return 4.0 * degrees(y * std::sin(2.0 * l0) - 2.0 * e * sinM +
                         4.0 * e * y * sinM * std::cos(2.0 * l0) -
                         0.5 * y * y * std::sin(4.0 * l0) - 1.25 * e * e * std::sin(2.0 * m));
}
