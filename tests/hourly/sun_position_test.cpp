#include "made_weather.h"

#include <insolate/solar/sun_position.h>

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

namespace insolate {
namespace {

using test::degree;

// Reda and Andreas (2004), Solar Energy 76(5), section 4 and appendix: the worked example.
const Site golden{39.742476, -105.1786, -7.0, 1830.14};

TEST(SunPosition, MatchesTheWorkedExampleOfRedaAndAndreas) {
    const SunPosition sun =
        sunPosition(julianDay(2003, 10, 17, 12.0 + 30.5 / 60.0 + 7.0), golden, {82000.0, 11.0});
    EXPECT_NEAR(90.0 - sun.altitude / degree, 50.11162, 0.005);
    EXPECT_NEAR(sun.azimuth / degree, 194.34024, 0.01);
    EXPECT_NEAR(sun.declination / degree, -9.31434, 0.005);
    EXPECT_NEAR(sun.equationOfTime, 14.641503, 0.02);
    EXPECT_NEAR(sun.distance, 0.9965422974, 1e-4);
    // Their eq. 42: refraction is in proportion to pressure over absolute temperature.
    const auto refraction = [&](const Air& air) {
        const SunPosition low = sunPosition(julianDay(2003, 10, 17, 23.5), golden, air);
        return low.altitude - low.geometricAltitude;
    };
    EXPECT_NEAR(refraction({50000.0, -30.0}) / refraction({100000.0, 30.0}), 0.5 * 303.0 / 243.0,
                1e-3);

    // Their rise and set are those of the UTC day: the set is the local evening of the 16th.
    EXPECT_NEAR(sunTimes(2003, 10, 17, golden).rise * 60.0, 6 * 60 + 12 + 43.0 / 60.0, 0.5);
    EXPECT_NEAR(sunTimes(2003, 10, 16, golden).set * 60.0, 17 * 60 + 20 + 19.0 / 60.0, 0.5);
}

TEST(SunPosition, MatchesTheWorkedExamplesOfMeeus) {
    // Meeus (1998), Astronomical Algorithms, examples 7.a, 25.b and 28.b.
    EXPECT_DOUBLE_EQ(julianDay(1957, 10, 4, 0.81 * 24.0), 2436116.31);
    EXPECT_DOUBLE_EQ(julianDay(2000, 1, 1, 12.0), 2451545.0);
    EXPECT_DOUBLE_EQ(julianDay(2004, 2, 29, 0.0), 2451544.5 + 4 * 365 + 1 + 31 + 28);
    const double instant = julianDay(1992, 10, 13, -deltaT(1992.78) / 3600.0); // 0 h dynamical time
    const SunPosition sun = sunPosition(instant, Site{}, {0.0, 0.0});
    EXPECT_NEAR(sun.declination / degree, -(7.0 + 47.0 / 60.0 + 1.74 / 3600.0), 0.003);
    EXPECT_NEAR(sun.distance, 0.99760775, 1e-4);
    EXPECT_NEAR(sun.equationOfTime, 13.0 + 42.6 / 60.0, 0.01);
}

TEST(SunPosition, IsTheSameForManyInstantsAtOnce) {
    std::vector<double> days;
    for (int i = 0; i < 2000; ++i) {
        days.push_back(2433282.5 + 18.2627 * i); // 1950 to 2050
    }
    std::vector<SunPosition> suns(days.size());
    sunPositions(days, golden, {82000.0, 11.0}, suns);
    for (std::size_t i = 0; i < days.size(); ++i) {
        const SunPosition sun = sunPosition(days[i], golden, {82000.0, 11.0});
        ASSERT_EQ(sun.azimuth, suns[i].azimuth);
        ASSERT_EQ(sun.altitude, suns[i].altitude);
        ASSERT_EQ(sun.equationOfTime, suns[i].equationOfTime);
    }
}

// Horizontal coordinates against the geometry itself: at transit the sun stands in the meridian at
// 90 - |latitude - declination|, and the pole sees it at its declination all day.
TEST(SunPosition, AgreesWithTheGeometryOfTheMeridianAndThePole) {
    for (const Site& site : {Site{52.3, 4.77, 1.0, 0.0}, Site{-33.9, 18.4, 2.0, 0.0},
                             Site{28.6, 77.2, 5.5, 0.0}, Site{-16.5, 179.9, 12.0, 0.0},
                             Site{-13.8, -171.8, 13.0, 0.0}, Site{5.0, 100.0, 8.0, 0.0}}) {
        for (const int month : {1, 3, 6, 9, 11}) {
            const SunTimes times = sunTimes(2024, month, 21, site);
            const SunPosition sun = sunPosition(
                julianDay(2024, month, 21, times.transit - site.timeZone), site, {0.0, 0.0});
            const double expected = 90.0 - std::abs(site.latitude - sun.declination / degree);
            EXPECT_NEAR(sun.altitude / degree, expected, 0.01);
            const bool south = site.latitude > sun.declination / degree;
            EXPECT_NEAR(std::cos(sun.azimuth), south ? -1.0 : 1.0, 1e-6);
            // An hour later the sun has moved west.
            const SunPosition later = sunPosition(
                julianDay(2024, month, 21, times.transit - site.timeZone + 1.0), site, {0.0, 0.0});
            EXPECT_LT(std::sin(later.azimuth), -0.05);
        }
    }
    const SunPosition atPole =
        sunPosition(julianDay(2024, 6, 21, 3.0), {90.0, 0.0, 0.0, 0.0}, {0.0, 0.0});
    EXPECT_NEAR(atPole.altitude, atPole.declination, 0.01 * degree);
}

TEST(SunTimes, KnowPolarDayPolarNightAndTheHorizon) {
    const Site tromso{69.65, 18.96, 1.0, 0.0};
    EXPECT_EQ(sunTimes(2024, 6, 21, tromso).kind, DayKind::PolarDay);
    EXPECT_EQ(sunTimes(2024, 12, 21, tromso).kind, DayKind::PolarNight);
    // The last sunrise before the midnight sun has no sunset on its day.
    const SunTimes last = sunTimes(2024, 5, 17, tromso);
    EXPECT_EQ(last.kind, DayKind::RisesAndSets);
    EXPECT_EQ(last.set, last.transit + 12.0);
    EXPECT_EQ(sunTimes(2024, 5, 18, tromso).kind, DayKind::PolarDay);
    for (const Site& site : {tromso, golden, Site{-54.8, -68.3, -3.0, 0.0}}) {
        const SunTimes times = sunTimes(2024, 3, 5, site);
        ASSERT_EQ(times.kind, DayKind::RisesAndSets);
        for (const double hour : {times.rise, times.set}) {
            const SunPosition sun =
                sunPosition(julianDay(2024, 3, 5, hour - site.timeZone), site, {0.0, 0.0});
            EXPECT_NEAR(sun.altitude / degree, -0.8333, 0.001);
        }
        EXPECT_LT(times.rise, times.transit);
        EXPECT_LT(times.transit, times.set);
    }
}

} // namespace
} // namespace insolate
