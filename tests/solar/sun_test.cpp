#include <insolate/solar/solar_position.h>

#include <gtest/gtest.h>

#include <climits>
#include <cmath>

namespace insolate {

struct EphemerisAccess : ESolarPosition {
    using Sun = ESolarPosition;
    using Sun::calcGeomMeanLongSun, Sun::calcGeomMeanAnomalySun, Sun::calcEccentricityEarthOrbit,
        Sun::calcSunEqOfCenter, Sun::calcSunTrueLong, Sun::calcSunRadVector,
        Sun::calcSunApparentLong, Sun::calcMeanObliquityOfEcliptic, Sun::calcObliquityCorrection,
        Sun::calcSunRtAscension, Sun::calcSunDeclination, Sun::calcEquationOfTime;
    static double julianDay(int day, int year) {
        return Sun::getJulianCenturies(day, year) * 36525.0 + 2451545.0;
    }
};

} // namespace insolate

namespace {

using Ephemeris = insolate::EphemerisAccess;

constexpr double pi = 3.141592653589793;

double radians(double degrees) {
    return degrees / 180.0 * pi;
}

double degrees(double angle) {
    return angle / pi * 180.0;
}

ESolarPosition sunAt(double latitude, double longitude, double zone, int day, double time) {
    ESolarPosition sun;
    sun.setLocation(radians(latitude), radians(longitude), radians(zone * 15.0));
    sun.setDayOfTheYear(day, time);
    return sun;
}

// Meeus, Astronomical Algorithms (2nd ed., 1998), examples 25.a and 28.b: 13 October 1992, 0 h. The
// tolerance is the last printed digit.
TEST(Ephemeris, MatchesTheWorkedExampleOfItsSource) {
    // A year is computed as the one before; beyond its ends stand December's last day and days
    // before January. 1 January 1900 is Meeus's example as well.
    const double days[][3] = {{286, 1993, 2448908.5},
                              {91, 2007, 2453826.5},
                              {1, 1901, 2415020.5},
                              {900, 2007, 2454100.5},
                              {-3, 2007, 2453732.5}};
    for (const auto& [day, year, expected] : days) {
        EXPECT_EQ(Ephemeris::julianDay(static_cast<int>(day), static_cast<int>(year)), expected);
    }
    const double t = -0.072183436;
    const std::pair<double (*)(double), double> terms[] = {
        {Ephemeris::calcGeomMeanLongSun, 201.80720},
        {Ephemeris::calcSunEqOfCenter, -1.89732},
        {Ephemeris::calcSunTrueLong, 199.90988},
        {Ephemeris::calcSunRadVector, 0.99766},
        {Ephemeris::calcSunApparentLong, 199.90895},
        {Ephemeris::calcMeanObliquityOfEcliptic, 23.44023},
        {Ephemeris::calcObliquityCorrection, 23.43999},
        {Ephemeris::calcSunRtAscension, -161.61917},
        {Ephemeris::calcSunDeclination, -7.78507}};
    for (const auto& [term, expected] : terms) {
        EXPECT_NEAR(term(t), expected, 1e-5);
    }
    EXPECT_NEAR(std::fmod(Ephemeris::calcGeomMeanAnomalySun(t), 360.0) + 360.0, 278.99397, 1e-5);
    EXPECT_NEAR(Ephemeris::calcEccentricityEarthOrbit(t), 0.016711668, 1e-9);
    EXPECT_NEAR(Ephemeris::calcEquationOfTime(t), 13.0 + 42.7 / 60.0, 0.1 / 60.0);
}

// Reda and Andreas (2008), NREL/TP-560-34302, table A5.1: Golden, Colorado, 17 October 2003
// 12:30:30 MST, declination -9.31434 degrees, zenith 50.11162 degrees, azimuth 194.34024 degrees
// from north.
TEST(Sun, AgreesWithThePublishedExampleOfTheNrelAlgorithm) {
    const double time = 12.0 + 30.5 / 60.0;
    ESolarPosition before = sunAt(39.742476, -105.1786, -7.0, 290, time);
    before.setYear(2004);
    ESolarPosition after = before;
    after.setDayOfTheYear(291);

    // The ephemeris is that of 0 h UT, the example of 19:30:30 UT: the time between two days.
    const double share = (19.0 + 30.5 / 60.0) / 24.0;
    const auto between = [share](double first, double second) {
        return first + share * (second - first);
    };
    // 0.01 degrees is the stated accuracy of the series.
    EXPECT_NEAR(degrees(between(before.getDeclination(), after.getDeclination())), -9.31434, 0.01);
    // The example's air is thinner (820 mbar, 11 degrees C): its refraction is 0.004 degrees less.
    EXPECT_NEAR(between(before.getSolarAltitudeInDegrees(), after.getSolarAltitudeInDegrees()),
                90.0 - 50.11162, 0.02);
    EXPECT_NEAR(between(before.getSolarAzimuthInDegrees(), after.getSolarAzimuthInDegrees()),
                194.34024 - 360.0, 0.02);
    // Of one day alone the sun is off by what the declination moves in the meantime.
    EXPECT_NEAR(before.getSolarAltitudeInDegrees(), 90.0 - 50.11162, 0.37 * share + 0.02);
    // Sunrise 06:12:43 and sunset 17:20:19 there are those of the upper limb with refraction, here
    // of the centre without: 0.83 degrees, which the sun at 40 degrees north takes 4.6 min to
    // climb.
    EXPECT_NEAR(before.getSunriseTime(), 6.0 + 12.7 / 60.0 + 4.6 / 60.0, 1.0 / 60.0);
    EXPECT_NEAR(before.getSunsetTime(), 17.0 + 20.3 / 60.0 - 4.6 / 60.0, 1.0 / 60.0);
}

// The tilt of the axis and the published extremes of the equation of time (Meeus, chapter 28).
TEST(Sun, TurnsAtTheSolsticesAndLagsByTheEquationOfTime) {
    ESolarPosition sun;
    for (const auto& [day, declination] : {std::pair{172, 23.44}, {356, -23.44}}) {
        sun.setDayOfTheYear(day);
        EXPECT_NEAR(degrees(sun.getDeclination()), declination, 0.01);
    }
    for (const auto& [day, minutes] : {std::pair{42, -14.2}, {307, 16.4}}) {
        sun.setDayOfTheYear(day);
        EXPECT_NEAR(sun.getEquationOfTime() * 60.0, minutes, 0.1);
    }
}

// Spherical astronomy by vectors, away from the wrap rules of the class: the sun's direction from
// hour angle and declination in equatorial axes, turned by the latitude into east, north and up.
TEST(Sun, DirectionAgreesWithVectorsAllOverTheWorld) {
    for (double latitude = -80.0; latitude <= 80.0; latitude += 20.0) {
        for (int day = 15; day <= 365; day += 50) {
            for (double time = 0.5; time < 24.0; time += 1.5) {
                const ESolarPosition sun = sunAt(latitude, 24.0, 2.0, day, time);
                const double hourAngle = radians((sun.getSolarTime() - 12.0) * 15.0);
                const double declination = sun.getDeclination();
                const double south = std::cos(declination) * std::cos(hourAngle);
                const double pole = std::sin(declination);
                const double phi = radians(latitude);
                const double east = -std::cos(declination) * std::sin(hourAngle);
                const double north = std::cos(phi) * pole - std::sin(phi) * south;
                const double up = std::sin(phi) * pole + std::cos(phi) * south;
                const double elevation = degrees(std::asin(up));
                const double turn = sun.getSolarAzimuthInRadians() - std::atan2(east, north);
                ASSERT_NEAR(degrees(std::remainder(turn, 2.0 * pi)), 0.0, 1e-5)
                    << latitude << ' ' << day << ' ' << time;
                ASSERT_LE(std::abs(sun.getSolarAzimuthInRadians()), pi);

                // Refraction against Saemundsson (1986), Sky and Telescope 72: within a minute of
                // arc of each other above -0.5 degrees. Below, it only fades away.
                const double lift = sun.getSolarAltitudeInDegrees() - elevation;
                if (elevation > -0.5 && elevation < 85.0) {
                    const double minutes =
                        1.02 / std::tan(radians(elevation + 10.3 / (elevation + 5.11)));
                    ASSERT_NEAR(lift, minutes / 60.0, 1.0 / 60.0) << elevation;
                } else {
                    ASSERT_GE(lift, -1e-9);
                    ASSERT_LT(lift, 0.6);
                }
            }
        }
    }
}

TEST(Sun, CulminatesAtSolarNoonInTheMiddleOfTheDay) {
    for (const int daylightSaving : {0, 1}) {
        ESolarPosition sun = sunAt(60.0, 11.0, 1.0, 120, 12.0);
        sun.setDaylightSaving(daylightSaving);
        const double noon = sun.convertSolarToLocalTime(12.0);
        EXPECT_NEAR(sun.convertLocalToSolarTime(noon), 12.0, 1e-12);
        EXPECT_NEAR(sun.convertLocalToSolarTime(12.0), sun.getSolarTime(), 1e-12);
        EXPECT_NEAR((sun.getSunriseTime() + sun.getSunsetTime()) / 2.0, noon, 1e-9);
        // The clock of the hourly position is standard time.
        sun.setTime(noon - daylightSaving);
        EXPECT_NEAR(std::abs(sun.getSolarAzimuthInDegrees()), 180.0, 1e-4);
    }
    // Exactly overhead there is no direction: south of the sun's parallel or north of it decides.
    for (const auto& [day, azimuth] : {std::pair{172, pi}, {356, 0.0}}) {
        ESolarPosition sun = sunAt(0.0, 0.0, 0.0, day, 12.0);
        sun.setLatitudeInRadians(sun.getDeclination());
        sun.setTime(sun.convertSolarToLocalTime(12.0));
        EXPECT_NEAR(sun.getSolarAltitudeInDegrees(), 90.0, 1e-3);
        EXPECT_NEAR(std::abs(sun.getSolarAzimuthInRadians()), azimuth, 1e-12);
    }
}

TEST(Sun, DayLengths) {
    // At the equator always half a day; at 45 degrees on the longest day acos(-tan 23.44) of a
    // turn.
    EXPECT_NEAR(sunAt(0.0, 0.0, 0.0, 172, 12.0).getDaylightHours(), 12.0, 1e-9);
    EXPECT_NEAR(sunAt(45.0, 0.0, 0.0, 172, 12.0).getDaylightHours(),
                degrees(std::acos(-std::tan(radians(23.44)))) / 7.5, 0.002);
    // Midnight sun and polar night; half a day around solar noon (12:01:38) is cut at midnight.
    const ESolarPosition summer = sunAt(80.0, 0.0, 0.0, 172, 12.0);
    EXPECT_NEAR(summer.getSunriseTime(), 1.63 / 60.0, 0.01 / 60.0);
    EXPECT_EQ(summer.getSunsetTime(), 24.0);
    const ESolarPosition winter = sunAt(80.0, 0.0, 0.0, 356, 12.0);
    EXPECT_EQ(winter.getDaylightHours(), 0.0);
}

TEST(Sun, DaysAndTimesAreHeldWithinTheirRange) {
    const int expected[][2] = {{0, 1},     {-10, 355}, {366, 1},     {400, 35},
                               {365, 365}, {-365, 0},  {-800, -435}, {731, 366}};
    ESolarPosition sun;
    for (const auto& [asked, stored] : expected) {
        sun.setDayOfTheYear(asked);
        EXPECT_EQ(sun.getDayOfTheYear(), stored);
    }
    sun.setLocalTime(25.0);
    EXPECT_EQ(sun.getLocalTime(), 24.0);
    sun.setTime(-1.0);
    EXPECT_EQ(sun.getLocalTime(), 0.0);
    sun.setDayOfTheYear(172, 3.0);
    sun.setLimitToDayTimeOnly(true);
    EXPECT_EQ(sun.getLocalTime(), sun.getSunriseTime());
    sun.setTime(23.0);
    EXPECT_EQ(sun.getLocalTime(), sun.getSunsetTime());
    // Under the midnight sun there is nothing to hold the early hours to.
    sun = sunAt(80.0, 0.0, 0.0, 172, 1.0);
    sun.setLimitToDayTimeOnly(true);
    EXPECT_EQ(sun.getLocalTime(), 1.0);
}

TEST(Sun, PlanAngleRunsCounterClockwiseFromTheModelsEast) {
    ESolarPosition sun = sunAt(50.0, 0.0, 0.0, 100, 9.0);
    for (const double north : {0.0, 0.7, -2.5}) {
        sun.setNorthOffset(north);
        const double expected = pi / 2.0 - sun.getSolarAzimuthInRadians() - north;
        EXPECT_EQ(sun.getTrigAngleInDegrees(), degrees(sun.getTrigAngleInRadians()));
        EXPECT_NEAR(std::remainder(sun.getTrigAngleInRadians() - expected, 2.0 * pi), 0.0, 1e-12);
        for (double angle = -3.1; angle <= 3.14; angle += 0.31) {
            const double plan = sun.convertAzimuthToTrigAngle(angle);
            EXPECT_LE(std::abs(plan), pi);
            EXPECT_NEAR(sun.convertTrigAngleToAzimuth(plan), angle, 1e-12);
        }
        // The sun point lies that way: x east, y north, z up in the model.
        XYZf point{};
        EXPECT_TRUE(sun.getRelativeSunPos({1.0f, 2.0f, 3.0f}, 10.0f, &point));
        const double level = 10.0 * std::cos(sun.getSolarAltitudeInRadians());
        EXPECT_NEAR(point.x, 1.0 + level * std::cos(expected), 1e-5);
        EXPECT_NEAR(point.y, 2.0 + level * std::sin(expected), 1e-5);
        EXPECT_NEAR(point.z, 3.0 + 10.0 * std::sin(sun.getSolarAltitudeInRadians()), 1e-5);
    }
    EXPECT_TRUE(sun.calculateRelativeSunPos({0.0f, 0.0f, 0.0f}, 1.0f, nullptr));
}

TEST(Sun, ShadowAngles) {
    ESolarPosition sun;
    sun.azimuth = radians(100.0);
    sun.altitude = radians(30.0);
    const double horizontal[][2] = {{90.0, 10.0}, {-100.0, -160.0}, {-80.0, 180.0},
                                    {820.0, 0.0}, {-900.0, -80.0},  {360.0e9, 100.0}};
    for (const auto& [surface, expected] : horizontal) {
        // 1e9 turns leave 1e-7 of a turn.
        EXPECT_NEAR(
            std::remainder(degrees(sun.calculateHorizontalShadowAngle(radians(surface))) - expected,
                           360.0),
            0.0, 1e-4)
            << surface;
        EXPECT_LE(std::abs(sun.calculateHorizontalShadowAngle(radians(surface))), pi);
    }
    EXPECT_NEAR(degrees(sun.calculateVerticalShadowAngle(0.0, 0.0)), 30.0, 1e-12);
    // tan(vertical) = tan(altitude) / cos(horizontal); behind the surface it passes the zenith.
    EXPECT_NEAR(std::tan(sun.calculateVerticalShadowAngle(0.0, radians(60.0))),
                2.0 * std::tan(radians(30.0)), 1e-12);
    EXPECT_NEAR(degrees(sun.calculateVerticalShadowAngle(radians(10.0), pi)), 160.0, 1e-12);
}

// Absurd input must neither hang nor leave the horizon undefined.
TEST(Sun, AbsurdInputGivesFiniteAnswers) {
    ESolarPosition sun;
    for (const double huge : {1e300, -1e300, 1e18, 12345.678}) {
        sun.setReferenceLongitudeInRadians(huge);
        EXPECT_TRUE(std::isfinite(sun.getSolarAltitudeInRadians() + sun.getSolarAzimuthInRadians() +
                                  sun.calculateHorizontalShadowAngle(huge)));
        EXPECT_TRUE(sun.getSunriseTime() >= 0.0 && sun.getSunsetTime() <= 24.0);
    }
    for (const int absurd : {INT_MIN, 0, INT_MAX}) {
        sun.setYear(absurd);
        sun.setDayOfTheYear(absurd);
        EXPECT_TRUE(std::isfinite(sun.getDeclination() + sun.getEquationOfTime())) << absurd;
    }
    // Far centuries fold exactly as step by step.
    for (const double centuries : {-9.9, -0.3, 0.07, 40.0}) {
        double longitude = 280.46646 + centuries * (36000.76983 + 0.0003032 * centuries);
        for (; longitude > 360.0; longitude -= 360.0) {
        }
        for (; longitude < 0.0; longitude += 360.0) {
        }
        EXPECT_EQ(Ephemeris::calcGeomMeanLongSun(centuries), longitude);
    }
}

} // namespace
