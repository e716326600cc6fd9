#include "tests/support/synthetic_weather.h"
#include "tests/support/test_data.h"

#include <insolate/sky/cumulative_sky.h>
#include <insolate/sky/period_walk.h>
#include <insolate/solar/solar_position.h>

#include <gtest/gtest.h>

#include <cmath>
#include <numeric>

namespace {

using insolate::test::constantWeather;
namespace skyGrid = insolate::skyGrid;

constexpr float radiansPerDegree = 0.017453293f;

/// A sky in Denver (39.74 N, 105.18 W, meridian of UTC-7).
ECumulativeSky denverSky() {
    ECumulativeSky sky;
    sky.setLocation(39.74f, -105.18f, -105.0f);
    return sky;
}

double sumOf(const float (&plane)[skyGrid::cellCount]) {
    return std::accumulate(std::begin(plane), std::end(plane), 0.0);
}

TEST(CumulativeSky, CellsOutsideTheGridReadZeroAndRefuseValues) {
    ECumulativeSky sky;
    for (const auto& [azimuth, altitude] : {std::pair{72, 0}, {0, 18}, {-1, 0}, {0, -1}}) {
        EXPECT_FALSE(sky.setDirectValue(azimuth, altitude, 1.0f));
        EXPECT_FALSE(sky.setDiffuseValue(azimuth, altitude, 1.0f));
        EXPECT_FALSE(sky.setPeakValue(azimuth, altitude, 1.0f));
        EXPECT_EQ(sky.getDirect(azimuth, altitude), 0.0f);
        EXPECT_EQ(sky.getDiffuse(azimuth, altitude), 0.0f);
        EXPECT_EQ(sky.getPeak(azimuth, altitude), 0.0f);
    }
    EXPECT_EQ(sumOf(sky.direct) + sumOf(sky.diffuse) + sumOf(sky.peak), 0.0);
    EXPECT_EQ(sky.getDayCount(), 364);
}

TEST(CumulativeSky, SettersWidenTheRangeFromTheFirstValueOn) {
    ECumulativeSky sky;
    sky.setPeakValue(3, 2, 7.0f);
    EXPECT_EQ(sky.minPeak, 7.0f);
    EXPECT_EQ(sky.maxPeak, 7.0f);
    sky.clear();
    sky.setPeakValue(3, 2, 5.0f); // clearing does not make the next value the first again
    EXPECT_EQ(sky.minPeak, 0.0f);
    EXPECT_EQ(sky.maxPeak, 5.0f);
    sky.setPeakValue(71, 17, -2.0f);
    EXPECT_EQ(sky.minPeak, -2.0f);
    EXPECT_EQ(sky.getPeak(71, 17), -2.0f);
    EXPECT_EQ(sky.getPeak(3, 2), 5.0f);
}

TEST(CumulativeSky, LookupByAngleFindsTheCellThatHoldsTheDirection) {
    ECumulativeSky sky;
    sky.setDirectValue(18, 0, 1.0f);  // east, horizon
    sky.setDiffuseValue(0, 17, 2.0f); // north, zenith
    sky.setPeakValue(71, 9, 3.0f);    // just west of north
    const float east = 0.0f;
    EXPECT_EQ(sky.getDirectByAngle(east - 0.01f, 0.01f), 1.0f);
    EXPECT_EQ(sky.getDirectByAngle(east - 0.01f, -0.05f), 1.0f);
    EXPECT_EQ(sky.getDirectByAngle(east - 0.01f, -0.1f), 0.0f);
    EXPECT_EQ(sky.getDiffuseByAngle(89.9f * radiansPerDegree, 86.0f * radiansPerDegree), 2.0f);
    EXPECT_EQ(sky.getDiffuseByAngle(89.9f * radiansPerDegree, 90.1f * radiansPerDegree), 0.0f);
    EXPECT_EQ(sky.getPeakByAngle(92.0f * radiansPerDegree, 46.0f * radiansPerDegree), 3.0f);
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
                (1.0 + 2.0 * std::sin(42.5 * M_PI / 180.0)) /
                    (1.0 + 2.0 * std::sin(87.5 * M_PI / 180.0)),
                1e-5);
    EXPECT_EQ(sky.minDirect, 0.0f);
    EXPECT_EQ(sky.minPeak, 0.0f);
    EXPECT_GT(sky.maxPeak, 600.0f - 0.1f);

    // Away from sunrise and sunset every counted hour books exactly its light.
    sky.setTimeRange(9.0f, 15.0f, 0.1f);
    sky.calculate(&weather);
    EXPECT_NEAR(sky.getHourCount(), 365.0f * 6.0f, 1.0f); // single-precision sum of 21,900 steps
    EXPECT_NEAR(sumOf(sky.diffuse) / (100.0 * sky.getHourCount()), 1.0, 1e-3);
}

TEST(CumulativeSky, EastAndWestShareTheDayAroundSolarNoon) {
    EWeatherData weather = constantWeather(500.0f, 0.0f);
    ECumulativeSky sky = denverSky();
    sky.setDateRange(172, 172);
    sky.setTimeRange(9.0f, 15.0f, 0.1f);
    sky.calculate(&weather);
    double east = 0.0;
    double west = 0.0;
    for (int band = 0; band < skyGrid::altitudeCount; ++band) {
        for (int sector = 0; sector < 36; ++sector) {
            east += sky.getDirect(sector, band);
            west += sky.getDirect(71 - sector, band);
        }
    }
    // The sun is set to the middle of each step that ends at 9.0 h, 9.1 h, ..., 14.9 h; it crosses
    // the south at 12.04 h, after 31 of the 60 steps.
    EXPECT_NEAR(east / west, 31.0 / 29.0, 1e-3);
}

TEST(CumulativeSky, ASingleInstantIsOneHourWithTheSunHalfAnHourBefore) {
    EWeatherData weather;
    weather.setHourlyDirectRad(171, 13, 640.0f); // the record read at 12 h is the one that follows
    weather.setHourlyDiffuseRad(171, 13, 90.0f);
    ECumulativeSky sky = denverSky();
    sky.setDateRange(172, 172);
    sky.setTimeRange(12.0f, 12.0f, 0.1f);
    sky.calculate(&weather);
    EXPECT_EQ(sky.getHourCount(), 1.0f);
    EXPECT_EQ(sky.getTimeIncrement(), 0.1f);
    EXPECT_EQ(sumOf(sky.direct), 640.0);
    EXPECT_NEAR(sumOf(sky.diffuse), 90.0, 1e-4);
    EXPECT_EQ(sky.getPeakDiffuse(), 90.0f);
    // At 11:30 the midsummer sun of Denver stands at 72.3 degrees and 154 degrees from north.
    EXPECT_EQ(sky.getDirect(30, 14), 640.0f);
    EXPECT_EQ(sky.getPeak(30, 14), 730.0f);
}

TEST(CumulativeSky, ShortRangesAreWalkedByTheMinute) {
    ECumulativeSky sky = denverSky();
    sky.setDateRange(172, 174);
    sky.setTimeRange(12.0f, 12.5f, 0.1f);
    EXPECT_FLOAT_EQ(insolate::dayStepsOf(sky).increment, 1.0f / 60.0f);
    EWeatherData weather = constantWeather(600.0f, 0.0f);
    sky.calculate(&weather);
    EXPECT_NEAR(sky.getHourCount(), 1.5f, 0.06f);
}

TEST(CumulativeSky, APeriodOverTheNewYearReadsTheOldAndTheNewYear) {
    EWeatherData weather;
    for (int hour = 0; hour < 24; ++hour) {
        weather.setHourlyDiffuseRad(363, hour, 10.0f);
        weather.setHourlyDiffuseRad(0, hour, 1.0f);
        weather.setHourlyDiffuseRad(200, hour, 1000.0f);
    }
    ECumulativeSky sky = denverSky();
    sky.setDateRange(364, 2);
    sky.setTimeRange(10.0f, 14.0f, 0.5f);
    sky.calculate(&weather);
    EXPECT_EQ(sky.getEndDate(), 367);
    EXPECT_NEAR(sumOf(sky.diffuse), 4.0 * 10.0 + 4.0 * 1.0, 1e-3);
    EXPECT_NEAR(sky.getHourCount(), 16.0f, 1e-4f);
}

TEST(CumulativeSky, AccumulationAddsPlanesButCountsTheHoursOfTheLastCall) {
    EWeatherData weather = constantWeather(300.0f, 80.0f);
    ECumulativeSky once = denverSky();
    once.setDateRange(100, 110);
    ECumulativeSky twice = once;
    twice.setAccumulationMultipleDistributions(true);
    once.calculate(&weather);
    twice.calculate(&weather);
    twice.calculate(&weather);
    EXPECT_EQ(twice.getHourCount(), once.getHourCount());
    EXPECT_NEAR(sumOf(twice.direct), 2.0 * sumOf(once.direct), 0.5);
    EXPECT_NEAR(sumOf(twice.diffuse), 2.0 * sumOf(once.diffuse), 0.5);
    EXPECT_EQ(twice.maxPeak, once.maxPeak);

    // Two halves, accumulated, make the whole.
    ECumulativeSky halves = denverSky();
    halves.setAccumulationMultipleDistributions(true);
    halves.setDateRange(100, 104);
    halves.calculate(&weather);
    halves.setDateRange(105, 110);
    halves.calculate(&weather);
    for (int cell = 0; cell < skyGrid::cellCount; ++cell) {
        EXPECT_NEAR(halves.direct[cell], once.direct[cell], once.direct[cell] * 1e-5f);
        EXPECT_NEAR(halves.diffuse[cell], once.diffuse[cell], once.diffuse[cell] * 1e-5f);
    }
}

TEST(CumulativeSky, WithoutRadiationEveryRangeStillHasAWidth) {
    EWeatherData weather;
    ECumulativeSky sky = denverSky();
    sky.calculate(&weather);
    EXPECT_EQ(sumOf(sky.direct) + sumOf(sky.diffuse) + sumOf(sky.peak), 0.0);
    for (const auto& [minimum, maximum] : {std::pair{sky.minDirect, sky.maxDirect},
                                           {sky.minDiffuse, sky.maxDiffuse},
                                           {sky.minPeak, sky.maxPeak}}) {
        EXPECT_EQ(minimum, 0.0f);
        EXPECT_EQ(maximum, 1.0f);
    }
}

TEST(CumulativeSky, TheHourBeforeMidnightReadsNothing) {
    EWeatherData weather = constantWeather(100.0f, 50.0f);
    const insolate::HourlyRadiation last = insolate::hourlyRadiation(weather, 10, 23, 6.0f, 18.0f);
    EXPECT_EQ(last.direct, 0.0f);
    EXPECT_EQ(last.diffuse, 0.0f);
}

TEST(CumulativeSky, RadiationIsInProportionBesideSunriseAndSunset) {
    EWeatherData weather = constantWeather(100.0f, 50.0f);
    struct Case {
        int hour;
        float sunrise, sunset, direct;
    };
    for (const Case& c : {Case{6, 6.25f, 18.5f, 100.0f}, Case{7, 6.25f, 18.5f, 100.0f / 1.75f},
                          Case{12, 6.25f, 18.5f, 100.0f}, Case{18, 6.25f, 18.5f, 200.0f},
                          Case{18, 6.25f, 18.0f, 100.0f}, // a divisor of 0 leaves the values
                          Case{0, 0.0f, 24.0f, 100.0f}, Case{12, 12.0f, 12.0f, 100.0f}}) {
        const auto value = insolate::hourlyRadiation(weather, 10, c.hour, c.sunrise, c.sunset);
        EXPECT_FLOAT_EQ(value.direct, c.direct) << c.hour << " h, sunset " << c.sunset;
        EXPECT_FLOAT_EQ(value.diffuse, c.direct / 2.0f);
    }
}

TEST(CumulativeSky, PolarDayAndNightStayFinite) {
    EWeatherData weather = constantWeather(200.0f, 60.0f);
    for (const float latitude : {90.0f, 78.2f, -78.2f, -90.0f}) {
        for (const bool perez : {false, true}) {
            ECumulativeSky sky;
            sky.setLocation(latitude, 15.6f, 15.0f);
            sky.setTimeRange(0.0f, 24.0f, 0.5f);
            ASSERT_TRUE(perez ? sky.calculateUsingPerez(&weather) : sky.calculate(&weather));
            for (int cell = 0; cell < skyGrid::cellCount; ++cell) {
                ASSERT_TRUE(sky.direct[cell] >= 0.0f && std::isfinite(sky.direct[cell]));
                ASSERT_TRUE(sky.diffuse[cell] >= 0.0f && std::isfinite(sky.diffuse[cell]));
                ASSERT_TRUE(sky.peak[cell] >= 0.0f && std::isfinite(sky.peak[cell]));
            }
        }
    }
}

TEST(CumulativeSky, AStepThatDoesNotAdvanceEndsTheDay) {
    EWeatherData weather = constantWeather(200.0f, 60.0f);
    for (const float increment : {0.0f, -1.0f, 1.0e-9f}) {
        ECumulativeSky sky = denverSky();
        sky.setDateRange(10, 12);
        sky.setTimeRange(12.0f, 14.0f, increment);
        EXPECT_TRUE(sky.calculate(&weather));
        EXPECT_TRUE(sky.calculateUsingPerez(&weather));
    }
}

TEST(CumulativeSky, ChicagoOverTheYear) {
    INSOLATE_REQUIRE_TEST_DATA(file, "weather/chicago.epw");
    EWeatherData weather;
    auto result = static_cast<ResultLoadWeatherData>(0);
    ASSERT_TRUE(weather.loadFile_EPW(file.wstring(), 0, result));
    ECumulativeSky sky;
    sky.setLocation(41.98f, -87.92f, -90.0f);
    sky.calculate(&weather);
    // Sums of the file itself, over the hours with the sun up; reading an hour late and the
    // corrections beside sunrise and sunset move a few percent.
    double direct = 0.0;
    double diffuse = 0.0;
    for (int day = 0; day < 364; ++day) {
        for (int hour = 0; hour < 24; ++hour) {
            direct += weather.getHourlyDirectRad(day, hour);
            diffuse += weather.getHourlyDiffuseRad(day, hour);
        }
    }
    EXPECT_NEAR(sumOf(sky.direct) / direct, 1.0, 0.08);
    EXPECT_NEAR(sumOf(sky.diffuse) / diffuse, 1.0, 0.08);
}

} // namespace
