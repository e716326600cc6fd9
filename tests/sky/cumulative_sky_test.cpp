#include "tests/support/synthetic_weather.h"

#include <insolate/sky/period_walk.h>
#include <insolate/sky/tilted_surface_period.h>
#include <insolate/solar/solar_position.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numeric>
#include <tuple>

namespace {

using insolate::test::constantWeather;
using insolate::test::denverSky;
namespace skyGrid = insolate::skyGrid;

constexpr double radiansPerDegree = M_PI / 180.0;

double sumOf(const float (&plane)[skyGrid::cellCount]) {
    return std::accumulate(std::begin(plane), std::end(plane), 0.0);
}

TEST(CumulativeSky, CellsAreSetWithinTheGridAndWidenTheRangeFromTheFirstValueOn) {
    ECumulativeSky sky;
    for (const auto& [azimuth, altitude] : {std::pair{72, 0}, {0, 18}, {-1, 0}, {0, -1}}) {
        EXPECT_FALSE(sky.setDirectValue(azimuth, altitude, 1.0f));
        EXPECT_FALSE(sky.setDiffuseValue(azimuth, altitude, 1.0f));
        EXPECT_FALSE(sky.setPeakValue(azimuth, altitude, 1.0f));
        EXPECT_EQ(sky.getDirect(azimuth, altitude), 0.0f);
    }
    EXPECT_EQ(sumOf(sky.direct) + sumOf(sky.diffuse) + sumOf(sky.peak), 0.0);
    EXPECT_EQ(sky.getDayCount(), 364);

    sky.setPeakValue(3, 2, 7.0f);
    EXPECT_EQ(sky.minPeak, 7.0f);
    sky.clear();
    sky.setPeakValue(3, 2, 5.0f); // clearing does not make the next value the first again
    EXPECT_EQ(sky.minPeak, 0.0f);
    sky.setPeakValue(71, 17, -2.0f);
    EXPECT_EQ(sky.minPeak, -2.0f);
    EXPECT_EQ(sky.maxPeak, 5.0f);
}

TEST(CumulativeSky, LookupByAngleFindsTheCellThatHoldsTheDirection) {
    ECumulativeSky sky;
    sky.setDirectValue(18, 0, 1.0f);  // east, horizon
    sky.setDiffuseValue(0, 17, 2.0f); // north, zenith
    sky.setPeakValue(71, 9, 3.0f);    // just west of north
    const double cases[][5] = {
        {-0.6, 0.6, 1, 0, 0}, {-0.6, -5.7, 0, 0, 0}, {89.9, 86, 0, 2, 0}, {92, 46, 0, 0, 3}};
    for (const auto& [plan, up, direct, diffuse, peak] : cases) {
        const auto angle = static_cast<float>(plan * radiansPerDegree);
        const auto altitude = static_cast<float>(up * radiansPerDegree);
        EXPECT_EQ(sky.getDirectByAngle(angle, altitude), direct) << plan << ' ' << up;
        EXPECT_EQ(sky.getDiffuseByAngle(angle, altitude), diffuse) << plan << ' ' << up;
        EXPECT_EQ(sky.getPeakByAngle(angle, altitude), peak) << plan << ' ' << up;
    }
}

TEST(CumulativeSky, AYearOfConstantWeatherBooksEveryHourOfSun) {
    EWeatherData weather = constantWeather(500.0f, 100.0f);
    ECumulativeSky sky = denverSky();
    ASSERT_TRUE(sky.calculate(&weather));
    // Daylight from 5 degrees below the horizon: the year's mean is about 12.9 h a day at 40 N.
    EXPECT_NEAR(sky.getHourCount() / 365.0f, 12.95f, 0.15f);
    EXPECT_NEAR(sumOf(sky.direct) / sumOf(sky.diffuse), 5.0, 1e-3);
    // The beam stays within the sun's paths: none in the north at noon heights, none at the zenith.
    EXPECT_EQ(sky.getDirect(0, 8), 0.0f);
    EXPECT_EQ(sky.getDirect(36, 16), 0.0f);
    EXPECT_GT(sky.getDirect(36, 14), 0.0f); // due south at the solstice, 73.7 degrees
    // Diffuse light depends on the altitude alone, as the overcast sky: 7/9 of the zenith's
    // at 42.5.
    EXPECT_EQ(sky.getDiffuse(0, 5), sky.getDiffuse(50, 5));
    EXPECT_NEAR(sky.getDiffuse(0, 8) / sky.getDiffuse(0, 17),
                (1.0 + 2.0 * std::sin(42.5 * radiansPerDegree)) /
                    (1.0 + 2.0 * std::sin(87.5 * radiansPerDegree)),
                1e-5);
    EXPECT_EQ(sky.minPeak, 0.0f);
    EXPECT_GT(sky.maxPeak, 600.0f - 0.1f);

    // Away from sunrise and sunset every counted hour books exactly its light.
    sky.setTimeRange(9.0f, 15.0f, 0.1f);
    sky.calculate(&weather);
    EXPECT_NEAR(sky.getHourCount(), 365.0f * 6.0f, 1.0f); // single-precision sum of 21,900 steps
    EXPECT_NEAR(sumOf(sky.diffuse) / (100.0 * sky.getHourCount()), 1.0, 1e-3);
}

TEST(CumulativeSky, TheSunStandsInTheMiddleOfEachStep) {
    EWeatherData weather = constantWeather(500.0f, 0.0f);
    ECumulativeSky sky = denverSky(172, 172, 9.0f, 15.0f);
    sky.calculate(&weather);
    double east = 0.0;
    for (int cell = 0; cell < skyGrid::cellCount; ++cell) {
        east += cell % 72 < 36 ? sky.direct[cell] : 0.0f;
    }
    // The steps end at 9.0 h, 9.1 h, ..., 14.9 h; the sun crosses the south at 12.04 h, after 31 of
    // the 60 steps.
    EXPECT_NEAR(east / sumOf(sky.direct), 31.0 / 60.0, 1e-3);

    // Ranges below an hour are walked by the minute, a whole hour is not.
    EXPECT_EQ(insolate::dayStepsOf(denverSky(172, 174, 12.0f, 13.0f)).increment, 0.1f);
    sky = denverSky(172, 174, 12.0f, 12.5f);
    EXPECT_FLOAT_EQ(insolate::dayStepsOf(sky).increment, 1.0f / 60.0f);
    sky.calculate(&weather);
    EXPECT_NEAR(sky.getHourCount(), 1.5f, 0.06f);
}

TEST(CumulativeSky, ASingleInstantIsOneHourWithTheSunHalfAnHourBefore) {
    EWeatherData weather;
    weather.setHourlyDirectRad(171, 13, 640.0f); // the record read at 12 h is the one that follows
    weather.setHourlyDiffuseRad(171, 13, 90.0f);
    ECumulativeSky sky = denverSky(172, 172, 12.0f, 12.0f);
    sky.calculate(&weather);
    EXPECT_EQ(sky.getHourCount(), 1.0f);
    EXPECT_EQ(sumOf(sky.direct), 640.0);
    EXPECT_NEAR(sumOf(sky.diffuse), 90.0, 1e-4);
    EXPECT_EQ(sky.getPeakDiffuse(), 90.0f);
    // At 11:30 the midsummer sun of Denver stands at 72.3 degrees and 154 degrees from north.
    EXPECT_EQ(sky.getDirect(30, 14), 640.0f);
    EXPECT_EQ(sky.getPeak(30, 14), 730.0f);
}

TEST(CumulativeSky, APeriodOverTheNewYearReadsTheOldAndTheNewYear) {
    EWeatherData weather;
    for (int hour = 0; hour < 24; ++hour) {
        weather.setHourlyDiffuseRad(363, hour, 10.0f);
        weather.setHourlyDiffuseRad(0, hour, 1.0f);
        weather.setHourlyDiffuseRad(200, hour, 1000.0f);
    }
    ECumulativeSky sky = denverSky(364, 2, 10.0f, 14.0f, 0.5f);
    sky.calculate(&weather);
    EXPECT_EQ(sky.maxDirect, 1.0f) << "a range without a width is widened";
    EXPECT_EQ(sky.getEndDate(), 367);
    EXPECT_NEAR(sumOf(sky.diffuse), 4.0 * 10.0 + 4.0 * 1.0, 1e-3);
    EXPECT_NEAR(sky.getHourCount(), 16.0f, 1e-4f);
}

TEST(CumulativeSky, AccumulationAddsPlanesButCountsTheHoursOfTheLastCall) {
    EWeatherData weather = constantWeather(300.0f, 80.0f);
    ECumulativeSky once = denverSky(100, 110);
    ECumulativeSky twice = once;
    twice.setAccumulationMultipleDistributions(true);
    once.calculate(&weather);
    twice.calculate(&weather);
    twice.calculate(&weather);
    EXPECT_EQ(twice.getHourCount(), once.getHourCount());
    EXPECT_NEAR(sumOf(twice.direct), 2.0 * sumOf(once.direct), 0.5);
    EXPECT_NEAR(sumOf(twice.diffuse), 2.0 * sumOf(once.diffuse), 0.5);
    EXPECT_EQ(twice.maxPeak, once.maxPeak);
}

TEST(CumulativeSky, RadiationIsInProportionBesideSunriseAndSunset) {
    EWeatherData weather = constantWeather(100.0f, 50.0f);
    // At sunset on the hour a divisor of 0 leaves the values; the hour before midnight reads none.
    const float cases[][4] = {{6, 6.25f, 18.5f, 100},  {7, 6.25f, 18.5f, 100 / 1.75f},
                              {12, 6.25f, 18.5f, 100}, {18, 6.25f, 18.5f, 200},
                              {18, 6.25f, 18, 100},    {23, 6, 18, 0}};
    EXPECT_FLOAT_EQ(insolate::roundToTenth(6.25f), 6.3f);
    for (const auto& [hour, sunrise, sunset, direct] : cases) {
        const auto value =
            insolate::hourlyRadiation(weather, 10, static_cast<int>(hour), sunrise, sunset);
        EXPECT_FLOAT_EQ(value.direct, direct) << hour << " h, sunset " << sunset;
        EXPECT_FLOAT_EQ(value.diffuse, direct / 2.0f);
    }
}

TEST(CumulativeSky, AStepThatCannotAdvanceTheClockIsTakenOnceADay) {
    EWeatherData weather = constantWeather(200.0f, 60.0f);
    // From 16 h on, times are 2^-19 h apart and half of that rounds to the even neighbour: 2^-20
    // ends at 16 h, 1e-30 would take 2^24 steps to end near midnight.
    const float infinite = std::numeric_limits<float>::infinity();
    for (const auto& [start, end, step] : {std::tuple{12.0f, 24.0f, 0.0f},
                                           {12.0f, 24.0f, -1.0f},
                                           {12.0f, 24.0f, 1.0e-9f},
                                           {12.0f, 24.0f, 0x1p-20f},
                                           {12.0f, infinite, 0.1f},
                                           {0.0f, 24.0f, 1.0e-30f}}) {
        ECumulativeSky sky = denverSky(1, 365, start, end, step);
        const float expected = start == 0.0f ? 0.0f : 365.0f * step; // midnight is dark
        EXPECT_TRUE(sky.calculate(&weather));
        EXPECT_NEAR(sky.getHourCount(), expected, 1e-5f * std::abs(expected)) << step;
        EXPECT_TRUE(sky.calculateUsingPerez(&weather));
        EXPECT_NEAR(sky.getHourCount(), expected, 1e-5f * std::abs(expected)) << step;
        EXPECT_LE(insolate::makePointSteps(weather, sky).sky.size(), 365u);
    }
    // The smallest step that advances everywhere is walked to the end.
    ECumulativeSky sky = denverSky(172, 172, 12.0f, 16.0f, 0x1p-20f);
    EXPECT_EQ(insolate::dayStepsOf(sky).end, 16.0f);
}

} // namespace
