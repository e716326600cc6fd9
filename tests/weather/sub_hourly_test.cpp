#include <insolate/weather/weather_data.h>

#include <gtest/gtest.h>

#include <cmath>

namespace {

/// Hours 9 to 12 of day 100, and the radiation of some.
EWeatherData forenoon() {
    EWeatherData weather;
    weather.setHourlyTemp(100, 10, 10.0f);
    weather.setHourlyTemp(100, 11, 20.0f);
    weather.setHourlyWindSpeed(100, 10, 4.0f);
    weather.setHourlyWindDirection(100, 10, 91);
    weather.setHourlyWindDirection(100, 11, 94);
    weather.setHourlyCloud(100, 10, 8.0f);
    weather.setHourlyRain(100, 11, 6.0f);
    weather.setHourlyHumidity(100, 10, 130.0f);
    weather.setHourlyHumidity(100, 11, -20.0f);
    weather.setHourlyDirectRad(100, 9, 50.0f);
    weather.setHourlyDirectRad(100, 10, 100.0f);
    weather.setHourlyDirectRad(100, 11, 200.0f);
    weather.setHourlyDiffuseRad(100, 9, 8.0f);
    weather.setHourlyDiffuseRad(100, 10, 60.0f);
    weather.setHourlyDiffuseRad(100, 11, 20.0f);
    return weather;
}

TEST(SubHourly, TowardTheNextHour) {
    const EWeatherData weather = forenoon();
    EXPECT_EQ(weather.getSubHourlyTemperature(100, 10.0f), 10.0f);
    EXPECT_EQ(weather.getSubHourlyTemperature(100, 10.5f), 15.0f);
    EXPECT_EQ(weather.getSubHourlyWindSpeed(100, 10.5f), 2.0f);
    EXPECT_EQ(weather.getSubHourlyWindDirection(100, 10.5f), 92);
    EXPECT_EQ(weather.getSubHourlyCloudiness(100, 10.25f), 6.0f);
    EXPECT_EQ(weather.getSubHourlyRainfall(100, 10.25f), 1.5f);
    EXPECT_EQ(weather.getSubHourlyHumidity(100, 10.0f), 100.0f); // capped above only
    EXPECT_EQ(weather.getSubHourlyHumidity(100, 11.0f), -20.0f);
    // Radiation runs half an hour ahead, beyond the next hour's value after the half hour.
    const float expected[][3] = {{10.0f, 100.0f, 60.0f},
                                 {10.25f, 175.0f, 30.0f},
                                 {10.5f, 200.0f, 20.0f},
                                 {10.75f, 225.0f, 10.0f}};
    for (const auto& [time, direct, diffuse] : expected) {
        EXPECT_EQ(weather.getSubHourlyDirectRadiation(100, time), direct);
        EXPECT_EQ(weather.getSubHourlyDiffuseRadiation(100, time), diffuse);
        EXPECT_EQ(weather.getSubHourlyTotalRadiation(100, time), direct + diffuse);
    }
    EXPECT_EQ(weather.interpolate(5.0f, 1.0f, 3.0f, 10.0f, 20.0f), 30.0f);
    EXPECT_EQ(weather.interpolate(5.0f, 1.0f, 1.0f, 10.0f, 20.0f), 15.0f);
}

TEST(SubHourly, LastHourLooksAtMidnightOfThisDayAndTheNext) {
    EWeatherData weather;
    weather.setHourlyTemp(364, 0, 1.0f);
    weather.setHourlyTemp(0, 0, 3.0f);
    weather.setHourlyTemp(364, 23, 50.0f);
    weather.setHourlyDirectRad(364, 0, 10.0f);
    weather.setHourlyDirectRad(0, 0, 30.0f);
    EXPECT_EQ(weather.getSubHourlyTemperature(364, 23.0f), 50.0f);
    EXPECT_EQ(weather.getSubHourlyTemperature(364, 23.5f), 1.0f);
    EXPECT_EQ(weather.getSubHourlyDirectRadiation(364, 23.5f), 20.0f);
}

TEST(SubHourly, TowardThePreviousHour) {
    EWeatherData weather = forenoon();
    EXPECT_EQ(weather.getPreSubHourlyDirectRadiation(100, 10.0f), 100.0f);
    EXPECT_EQ(weather.getPreSubHourlyDirectRadiation(100, 10.5f), 75.0f);
    EXPECT_EQ(weather.getPreSubHourlyDiffuseRadiation(100, 10.5f), 34.0f);
    EXPECT_EQ(weather.getPreSubHourlyTotalRadiation(100, 10.5f), 109.0f);
    // Within the first hour the previous one is hour 23 of the same day; at midnight itself the
    // time counts as 23:00.
    weather.setHourlyTemp(0, 23, 30.0f);
    weather.setHourlyTemp(0, 0, 10.0f);
    EXPECT_EQ(weather.interpolatePreSubHourlyValues(0, 0.5f, 0), 200.0f);
    EXPECT_EQ(weather.interpolatePreSubHourlyValues(0, 0.0f, 0), 300.0f);
    EXPECT_EQ(weather.interpolatePreSubHourlyValues(0, -0.5f, 0), 300.0f);
}

TEST(SubHourly, OutsideTheYearOrTheDayIsNothing) {
    EWeatherData weather;
    for (int hour = 0; hour < 24; ++hour) {
        weather.setHourlyTemp(0, hour, 7.0f);
        weather.setHourlyTemp(364, hour, 7.0f);
    }
    for (const float time : {24.0f, -1.5f, -1.0f, 1e30f, -1e30f, std::nanf("")}) {
        EXPECT_EQ(weather.interpolateSubHourlyValues(0, time, 0), 0.0f) << time;
        EXPECT_EQ(weather.interpolatePreSubHourlyValues(0, time, 0), 0.0f) << time;
    }
    for (const int day : {-1, 365}) {
        EXPECT_EQ(weather.interpolateSubHourlyValues(day, 5.0f, 0), 0.0f);
        EXPECT_EQ(weather.interpolatePreSubHourlyValues(day, 5.0f, 0), 0.0f);
    }
    EXPECT_EQ(weather.interpolateSubHourlyValues(0, -0.5f, 0), 70.0f);
    EXPECT_EQ(weather.interpolateSubHourlyValues(0, 5.0f, 8), 0.0f);
}

// Each day's radiation is a power of two apart from its neighbours', so that the mean names them.
TEST(SubHourly, AveragedRadiationTakesTheDaysBefore) {
    EWeatherData weather;
    const auto set = [&weather](int day, int hour, float direct, float diffuse) {
        weather.setHourlyDirectRad(day, hour, direct);
        weather.setHourlyDiffuseRad(day, hour, diffuse);
    };
    set(362, 12, 1000.0f, 0.0f);
    set(363, 12, 1.0f, 0.0f);
    set(364, 12, 2.0f, 4.0f);
    set(0, 12, 0.0f, 8.0f);
    set(1, 12, 16.0f, 0.0f);
    set(2, 12, 2000.0f, 0.0f);
    EXPECT_EQ(weather.getAveragedRadiation(0, 12, 4), 31.0f / 4.0f);
    EXPECT_EQ(weather.getAveragedRadiation(0, 12, 1), 14.0f / 2.0f);
    EXPECT_EQ(weather.getAveragedRadiation(365, 12, -9), 14.0f / 2.0f);
    EXPECT_EQ(weather.getAveragedRadiation(-364, 12, 3), 24.0f / 2.0f);
    set(34, 23, 3.0f, 0.0f);
    set(35, 23, 5.0f, 0.0f);
    EXPECT_EQ(weather.getAveragedRadiation(400, 30, 1), 4.0f);
    EXPECT_EQ(weather.getAveragedRadiation(400, -5, 1), 0.0f);
    // A window wider than three years counts days that add nothing.
    EXPECT_GT(weather.getAveragedRadiation(0, 12, 2000), 0.0f);
}

} // namespace
