#include <insolate/weather/weather_data.h>

#include <gtest/gtest.h>

#include <climits>
#include <cmath>

namespace {

TEST(WeatherStore, StartsWithoutASiteAndTakesDegreesFromRadians) {
    EWeatherData weather;
    EXPECT_STREQ(weather.getName(), "[NoName]");
    EXPECT_STREQ(weather.getState(), "[NoWhere]");
    EXPECT_EQ(weather.getLatitudeInRadians(), 0.0f);
    EXPECT_EQ(weather.getDataForWrite().loaded, 0);
    weather.getDataForWrite().latitude = 0.7853982f;
    weather.getDataForWrite().longitude = -1.5707964f;
    EXPECT_EQ(weather.getLatitudeInDegrees(), 45.0f);
    EXPECT_EQ(weather.getLongitudeInDegrees(), -90.0f);
    EXPECT_EQ(weather.getLongitudeInRadians(), -1.5707964f);
}

TEST(WeatherStore, EachFieldHasItsPlaceAndScale) {
    using Store = EWeatherData;
    const struct {
        bool (Store::*set)(int, int, float);
        float (Store::*get)(int, int) const;
        std::int16_t EHourlyData::*field;
        int index;
        float scale;
    } cases[] = {
        {&Store::setHourlyTemp, &Store::getHourlyTemp, &EHourlyData::temp, 0, 10},
        {&Store::setHourlyHumidity, &Store::getHourlyHumidity, &EHourlyData::humidity, 1, 1},
        {&Store::setHourlyWindSpeed, &Store::getHourlyWindSpeed, &EHourlyData::windSpeed, 2, 10},
        {&Store::setHourlyDiffuseRad, &Store::getHourlyDiffuseRad, &EHourlyData::diffuseRad, 4, 1},
        {&Store::setHourlyDirectRad, &Store::getHourlyDirectRad, &EHourlyData::directRad, 5, 1},
        {&Store::setHourlyCloud, &Store::getHourlyCloud, &EHourlyData::cloud, 6, 1},
        {&Store::setHourlyRain, &Store::getHourlyRain, &EHourlyData::rain, 7, 1},
    };
    const int outside[][2] = {{-1, 0}, {365, 0}, {INT_MIN, 0}, {INT_MAX, 0},
                              {0, -1}, {0, 24},  {0, INT_MIN}, {0, INT_MAX}};
    EWeatherData weather;
    const EHourlyData& record = *weather.getHourlyDataAsPointer(17, 5);
    for (const auto& one : cases) {
        EXPECT_TRUE((weather.*one.set)(17, 5, -21.37f));
        const float stored = one.scale > 1.0f ? -213.0f : -21.0f;
        EXPECT_EQ(record.*one.field, stored);
        EXPECT_EQ((weather.*one.get)(17, 5), stored / one.scale);
        EXPECT_EQ(weather.getHourlyDataByIndex(&record, one.index), stored);
        for (const auto& [day, hour] : outside) {
            EXPECT_FALSE((weather.*one.set)(day, hour, 1.0f));
            EXPECT_EQ((weather.*one.get)(day, hour), 0.0f);
        }
        for (const float odd : {std::nanf(""), INFINITY, -1e30f}) {
            EXPECT_TRUE((weather.*one.set)(364, 23, odd));
            EXPECT_EQ((weather.*one.get)(364, 23), 0.0f);
        }
    }
    EXPECT_TRUE(weather.setHourlyWindDirection(17, 5, 65536 + 270));
    EXPECT_EQ(weather.getHourlyWindDirection(17, 5), 270);
    EXPECT_EQ(weather.getHourlyDataByIndex(&record, 3), 270.0f);
    EXPECT_FALSE(weather.setHourlyWindDirection(17, 24, 1));
    EXPECT_EQ(weather.getHourlyWindDirection(-1, 5), 0);

    EXPECT_EQ(&record - weather.getHourlyDataAsPointer(0, 0), 17 * 24 + 5);
    EXPECT_EQ(weather.getHourlyDataAsPointer(0, 24), nullptr);
    EXPECT_EQ(weather.getHourlyDataByIndex(nullptr, 0), 0.0f);
    EXPECT_EQ(weather.getHourlyDataByIndex(&record, 8), 0.0f);
    EXPECT_EQ(weather.getHourlyDataByIndex(&record, -1), 0.0f);
}

struct Radiation {
    int day, hour;
    float direct, diffuse;
};

EWeatherData weatherWith(std::initializer_list<Radiation> hours) {
    EWeatherData weather;
    for (const auto& [day, hour, direct, diffuse] : hours) {
        weather.setHourlyDirectRad(day, hour, direct);
        weather.setHourlyDiffuseRad(day, hour, diffuse);
    }
    return weather;
}

TEST(SubHourly, TowardTheNextHour) {
    EWeatherData weather = weatherWith({{100, 10, 100, 60}, {100, 11, 200, 20}});
    weather.setHourlyTemp(100, 10, 10.0f);
    weather.setHourlyTemp(100, 11, 20.0f);
    weather.setHourlyWindSpeed(100, 10, 4.0f);
    weather.setHourlyWindDirection(100, 10, 91);
    weather.setHourlyWindDirection(100, 11, 94);
    weather.setHourlyCloud(100, 10, 8.0f);
    weather.setHourlyRain(100, 11, 6.0f);
    weather.setHourlyHumidity(100, 10, 130.0f);
    weather.setHourlyHumidity(100, 11, -20.0f);
    EXPECT_EQ(weather.getSubHourlyTemperature(100, 10.0f), 10.0f);
    EXPECT_EQ(weather.getSubHourlyTemperature(100, 10.5f), 15.0f);
    EXPECT_EQ(weather.getSubHourlyWindSpeed(100, 10.5f), 2.0f);
    EXPECT_EQ(weather.getSubHourlyWindDirection(100, 10.5f), 92);
    EXPECT_EQ(weather.getSubHourlyCloudiness(100, 10.25f), 6.0f);
    EXPECT_EQ(weather.getSubHourlyRainfall(100, 10.25f), 1.5f);
    EXPECT_EQ(weather.getSubHourlyHumidity(100, 10.0f), 100.0f); // capped above only
    EXPECT_EQ(weather.getSubHourlyHumidity(100, 11.0f), -20.0f);
    // Radiation runs half an hour ahead, beyond the next hour's value after the half hour.
    const float expected[][3] = {
        {10, 100, 60}, {10.25f, 175, 30}, {10.5f, 200, 20}, {10.75f, 225, 10}};
    for (const auto& [time, direct, diffuse] : expected) {
        EXPECT_EQ(weather.getSubHourlyDirectRadiation(100, time), direct);
        EXPECT_EQ(weather.getSubHourlyDiffuseRadiation(100, time), diffuse);
        EXPECT_EQ(weather.getSubHourlyTotalRadiation(100, time), direct + diffuse);
    }
    EXPECT_EQ(weather.interpolate(5.0f, 1.0f, 3.0f, 10.0f, 20.0f), 30.0f);
    EXPECT_EQ(weather.interpolate(5.0f, 1.0f, 1.0f, 10.0f, 20.0f), 15.0f);
}

TEST(SubHourly, LastHourLooksAtMidnightOfThisDayAndTheNext) {
    EWeatherData weather = weatherWith({{364, 0, 10, 0}, {0, 0, 30, 0}});
    weather.setHourlyTemp(364, 0, 1.0f);
    weather.setHourlyTemp(0, 0, 3.0f);
    weather.setHourlyTemp(364, 23, 50.0f);
    EXPECT_EQ(weather.getSubHourlyTemperature(364, 23.0f), 50.0f);
    EXPECT_EQ(weather.getSubHourlyTemperature(364, 23.5f), 1.0f);
    EXPECT_EQ(weather.getSubHourlyDirectRadiation(364, 23.5f), 20.0f);
}

TEST(SubHourly, TowardThePreviousHour) {
    EWeatherData weather = weatherWith({{100, 9, 50, 8}, {100, 10, 100, 60}});
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
    const float outside[][2] = {{0, 24}, {0, -1}, {0, 1e30f}, {0, -1e30f}, {-1, 5}, {365, 5}};
    for (const auto& [day, time] : outside) {
        EXPECT_EQ(weather.interpolateSubHourlyValues(static_cast<int>(day), time, 0), 0.0f) << time;
        EXPECT_EQ(weather.interpolatePreSubHourlyValues(static_cast<int>(day), time, 0), 0.0f)
            << time;
    }
    EXPECT_EQ(weather.interpolateSubHourlyValues(0, std::nanf(""), 0), 0.0f);
    EXPECT_EQ(weather.interpolateSubHourlyValues(0, -0.5f, 0), 70.0f);
    EXPECT_EQ(weather.interpolateSubHourlyValues(0, 5.0f, 8), 0.0f);
}

// Each day's radiation is a power of two apart from its neighbours', so that the mean names them.
TEST(SubHourly, AveragedRadiationTakesTheDaysBefore) {
    const EWeatherData weather = weatherWith(
        // day, hour, direct, diffuse
        {Radiation{362, 12, 1000, 0}, Radiation{363, 12, 1, 0}, Radiation{364, 12, 2, 4},
         Radiation{0, 12, 0, 8}, Radiation{1, 12, 16, 0}, Radiation{2, 12, 2000, 0},
         Radiation{34, 23, 3, 0}, Radiation{35, 23, 5, 0}});
    EXPECT_EQ(weather.getAveragedRadiation(0, 12, 4), 31.0f / 4.0f);
    EXPECT_EQ(weather.getAveragedRadiation(0, 12, 1), 14.0f / 2.0f);
    EXPECT_EQ(weather.getAveragedRadiation(365, 12, -9), 14.0f / 2.0f);
    EXPECT_EQ(weather.getAveragedRadiation(-364, 12, 3), 24.0f / 2.0f);
    EXPECT_EQ(weather.getAveragedRadiation(400, 30, 1), 4.0f);
    EXPECT_EQ(weather.getAveragedRadiation(400, -5, 1), 0.0f);
    // A window wider than three years counts days that add nothing.
    EXPECT_GT(weather.getAveragedRadiation(0, 12, 2000), 0.0f);
}

} // namespace
