/// Where the sun stands for a site, a day of the year and a clock time, with the calendar and the
/// time zones that go with it.
///
/// Angles are radians unless a name says degrees; times are clock hours (0 to 24) of the site's
/// zone. Azimuth runs clockwise from north in (-pi, pi]: morning positive, afternoon negative, due
/// south +-pi. The trigonometric angle ("trig angle") runs counter-clockwise from the model's x
/// axis: pi/2 - azimuth - north offset. Years have 365 days; there is no 29 February.
///
/// The ephemeris is the low-precision solar series of Meeus, Astronomical Algorithms (2nd ed.,
/// 1998), chapters 25 and 28, as used by the NOAA Solar Calculator; it is evaluated once a day, at
/// 0 h.
#pragma once

#include <insolate/export.h>
#include <insolate/geometry/xyzf.h>
#include <insolate/solar/terrestrial_location.h>

#include <cstddef>
#include <cstdint>

namespace insolate {
struct EphemerisAccess;
}

/// A plain copyable value. Every setter recomputes what depends on it, so after any setter call the
/// computed fields agree with the inputs; a fresh object has them at zero until the first call.
/// Writing a field directly recomputes nothing: follow it with a setter.
class INSOLATE_EXPORT ESolarPosition {
public:
    static constexpr int DAYS_PER_YEAR = 365;
    static constexpr int MONTHS_PER_YEAR = 12;
    static constexpr int HOURS_PER_DAY = 24;

    /// A date and clock time without a year.
    class ESolarDayAndTime {
    public:
        double time = 0.0;      ///< clock hours
        std::int32_t day = 1;   ///< day of the month, from 1
        std::int32_t month = 0; ///< month index, 0 to 11
    };

    /// The library's current site, shared by everything in the process. Not locked: it may change
    /// only while no sky is being built and no mask calculated. Ready before any other
    /// initialisation runs.
    static ESolarPosition Global;

    char name[50] = "17 Quarry Ln, WestHollows, ZZ !DEFAULT!"; ///< of the site
    double latitude = 0.6596311337621384;                      ///< [radians], north positive
    double longitude = -2.1361973087747863;                    ///< [radians], east positive
    double referenceLongitude = -2.0943951023931953; ///< meridian of the time zone [radians]
    double northOffset = 0.0;        ///< model north lies at the plan angle pi/2 - this [radians]
    std::int32_t daylightSaving = 0; ///< hours added to standard time
    double declination = 0.0;        ///< computed [radians]
    double equationOfTime = 0.0;     ///< computed, apparent minus mean solar time [hours]
    double timeZoneDifference = -0.1596726666666664; ///< computed, site minus zone meridian [hours]
    double trigAngle = 0.0;                          ///< computed, sun direction in plan [radians]
    double azimuth = 0.0;                            ///< computed [radians]
    double altitude = 0.0;           ///< computed, above the horizon, refraction included [radians]
    double localTime = 12.0;         ///< [clock hours]
    double sunriseTime = 0.0;        ///< computed [clock hours]
    double sunsetTime = 0.0;         ///< computed [clock hours]
    bool limitToDayTimeOnly = false; ///< hold requested times between sunrise and sunset
    std::int32_t dayOfTheYear = 91;  ///< 1 to 365
    std::int32_t year = 2007;        ///< calendar year, see getJulianCenturies

    // --- The sun -------------------------------------------------------------------------------

    double getDeclination() const;        ///< [radians]
    double getEquationOfTime() const;     ///< [hours]
    double getTimeZoneDifference() const; ///< [hours]
    double getSunriseTime() const;        ///< of the sun's centre, without refraction [clock hours]
    double getSunsetTime() const;         ///< like sunrise, and equal to it at polar night
    double getDaylightHours() const;      ///< sunset - sunrise [hours]
    double getLocalTime() const;          ///< [clock hours]
    double getSolarTime() const; ///< of the stored local time [hours], not folded into a day
    double getSolarAltitudeInRadians() const;
    double getSolarAltitudeInDegrees() const;
    double getSolarAzimuthInRadians() const;
    double getSolarAzimuthInDegrees() const;
    double getTrigAngleInRadians() const;
    double getTrigAngleInDegrees() const;
    double getNorthOffset() const; ///< [radians]
    bool getLimitToDayTimeOnly() const;

    /// Stores the clock time and recomputes day and hour.
    void setLocalTime(double hours);
    /// Stores the clock time, held within 0 to 24 (and within daylight when limited), and
    /// recomputes the hourly position alone: the cheap step through a day. On a fresh object the
    /// day's values are still 0: the sun then stands as at an equinox without equation of time, and
    /// nothing limits it to daylight. Call a setter of the day or the site first.
    void setTime(double hours);
    void setNorthOffset(double radians);
    void setLimitToDayTimeOnly(bool limit);
    void setDaylightSaving(int hours);
    void setYear(int calendarYear);
    /// Day 0 counts as day 1; a negative day is raised and one above 365 lowered by 365, once.
    void setDayOfTheYear(int day);
    void setDayOfTheYear(int day, double hours);

    double convertLocalToSolarTime(double hours) const;
    double convertSolarToLocalTime(double hours) const;
    /// Both results are wrapped by one turn toward (-pi, pi].
    double convertAzimuthToTrigAngle(double azimuthAngle) const;
    double convertTrigAngleToAzimuth(double planAngle) const;
    static double convertDegreesToRadians(double degrees);
    static double convertRadiansToDegrees(double radians);

    /// The point at a distance from the origin in the direction of the sun, in the model's frame.
    /// Nothing is written to a null result. Always true.
    bool calculateRelativeSunPos(XYZf origin, float distance, XYZf* result) const;
    bool getRelativeSunPos(XYZf origin, float distance, XYZf* result) const;

    /// Angle in plan between the sun and a surface's normal, in [-pi, pi] [radians].
    double calculateHorizontalShadowAngle(double surfaceAzimuth) const;
    /// Altitude of the sun projected on the plane at right angles to the surface [radians].
    double calculateVerticalShadowAngle(double altitudeOffset, double horizontalShadowAngle) const;

    /// Great-circle distance from the site [metres]; arguments in radians.
    double calculateDistanceFrom(double otherLatitude, double otherLongitude) const;

    // --- The calendar: month indices 0 to 11, days of the year 1 to 365 --------------------------

    /// An empty text when the month is outside 0 to 11. The text belongs to the library.
    char* getMonthName(int month) const;
    /// 0 when the month is outside 0 to 11.
    int getMonthDayCount(int month) const;
    bool isValidMonth(int month) const;
    /// 0 when the month is outside 0 to 11, else held within 0 to 364: 30 and 31 December share
    /// day 364, as the weather store has always been filled.
    int getDayOfTheYear(int month, int day) const;
    /// Holds month and day of the record within the calendar, writes them back, and gives the day.
    int calculateDayOfTheYear(ESolarDayAndTime& date) const;
    /// The same on a day of the month and a month index of the caller.
    int getDayOfTheYear(int* day, int* month) const;
    /// Writes month, day of the month and this object's local time. Days beyond 365 give 31
    /// December, days below 1 stay as they are in January.
    void calculateMonthAndDay(int dayOfYear, ESolarDayAndTime& date) const;
    /// Writes day of the month and month index; returns the day of the year unchanged.
    int getDate(int dayOfYear, int* day, int* month) const;
    int getDayOfTheYear() const;
    int getYear() const;
    /// Day in a week that begins with 1 January as day 0; days below 1 give negative numbers.
    int getGenericDayOfTheWeek(int dayOfYear) const;
    /// Generic days 0 to 4 are working days; so are negative ones.
    bool isGenericWeekDay(int dayOfYear) const;

    // --- The site ------------------------------------------------------------------------------
    // Latitudes are held within +-89.1 degrees and longitudes within +-180 degrees. Meridians of
    // time zones are taken as they are.

    void setLatitudeInRadians(double radians);
    void setLongitudeInRadians(double radians);
    void setReferenceLongitudeInRadians(double radians);
    void setTimeZone(double hours);
    double getTimeZone() const; ///< [hours]
    double getLatitudeInDegrees() const;
    double getLatitudeInRadians() const;
    double getLongitudeInDegrees() const;
    double getLongitudeInRadians() const;
    double getReferenceLongitudeInDegrees() const;
    double getReferenceLongitudeInRadians() const;
    bool isSouthernHemisphere() const;
    /// The zone comes from the map of time zones.
    void setLocation(double newLatitude, double newLongitude);
    /// Write 0.0, not 0: setLocation(0, 0, 0) is the call with a null position, which changes
    /// nothing.
    void setLocation(double newLatitude, double newLongitude, double newReferenceLongitude);
    /// Moves ESolarPosition::Global, whatever object it is called on.
    void setGlobalLocation(float newLatitude, float newLongitude, float newReferenceLongitude);
    /// Takes all six fields of the record; null changes nothing.
    void setLocation(const ETerrestrialLocation* location);
    /// Takes the six site fields of another position (year and day-time limit stay) and its day and
    /// local time where the arguments are outside 1 to 365 and [0, 24). Null changes nothing.
    void setLocation(const ESolarPosition* other, int day, double time);
    void setLocation(const ESolarPosition* other);
    /// Keeps the first 49 characters; null changes nothing.
    void setName(const char* newName);

    // --- Time zones ------------------------------------------------------------------------------

    /// Standard time of about 2007 at a place [hours from Greenwich], from a world map with cells
    /// of half a degree; 12 where the map has no entry. Arguments in radians.
    double determineTimeZone(double placeLatitude, double placeLongitude) const;
    double determineReferenceLongitudeInDegrees(double placeLatitude, double placeLongitude) const;
    double determineReferenceLongitudeInRadians(double placeLatitude, double placeLongitude) const;
    /// Index (0 to 30) of the named zone of a meridian [radians], which is folded into half a turn
    /// first (and taken for Greenwich beyond ten turns): the first zone, from the west, that lies
    /// less than 0.1 hours west of it or further east. -1 when there is none, as for NaN.
    int getTimeZoneListIndex(double meridian) const;

private:
    friend struct insolate::EphemerisAccess;

    // Degrees in, degrees out, from Julian centuries since J2000.0, unless said otherwise.
    static double getJulianCenturies(int dayOfYear, double calendarYear);
    static double calcGeomMeanLongSun(double centuries);
    static double calcGeomMeanAnomalySun(double centuries);
    static double calcEccentricityEarthOrbit(double centuries); ///< no unit
    static double calcSunEqOfCenter(double centuries);
    static double calcSunTrueLong(double centuries);
    static double calcSunTrueAnomaly(double centuries);
    static double calcSunRadVector(double centuries); ///< [astronomical units]
    static double calcSunApparentLong(double centuries);
    static double calcMeanObliquityOfEcliptic(double centuries);
    static double calcObliquityCorrection(double centuries);
    static double calcSunRtAscension(double centuries);
    static double calcSunDeclination(double centuries);
    static double calcEquationOfTime(double centuries); ///< [minutes]
};

static_assert(offsetof(ESolarPosition, latitude) == offsetof(ETerrestrialLocation, latitude));
static_assert(offsetof(ESolarPosition, daylightSaving) ==
              offsetof(ETerrestrialLocation, daylightSaving));
static_assert(offsetof(ESolarPosition, declination) == 96);
static_assert(offsetof(ESolarPosition, limitToDayTimeOnly) == 168);
static_assert(offsetof(ESolarPosition, dayOfTheYear) == 172);
static_assert(sizeof(ESolarPosition) == 184);
