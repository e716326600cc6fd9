#include <insolate/weather/weather_data.h>

#include <gtest/gtest.h>

#include <climits>
#include <cmath>

namespace {

TEST(WeatherStore, StartsWithoutASite) {
    EWeatherData weather;
    EXPECT_STREQ(weather.getName(), "[NoName]");
    EXPECT_STREQ(weather.getState(), "[NoWhere]");
    EXPECT_EQ(weather.getLatitudeInRadians(), 0.0f);
    EXPECT_EQ(weather.getDataForWrite().loaded, 0);
    EXPECT_EQ(weather.getDataForWrite().hourly[364][23].rain, 0);
}

TEST(WeatherStore, EachFieldHasItsPlaceAndScale) {
    using Store = EWeatherData;
    using Record = EHourlyData;
    const struct {
        bool (Store::*set)(int, int, float);
        float (Store::*get)(int, int) const;
        std::int16_t Record::*field;
        int index;
        float scale;
    } cases[] = {
        {&Store::setHourlyTemp, &Store::getHourlyTemp, &Record::temp, 0, 10.0f},
        {&Store::setHourlyHumidity, &Store::getHourlyHumidity, &Record::humidity, 1, 1.0f},
        {&Store::setHourlyWindSpeed, &Store::getHourlyWindSpeed, &Record::windSpeed, 2, 10.0f},
        {&Store::setHourlyDiffuseRad, &Store::getHourlyDiffuseRad, &Record::diffuseRad, 4, 1.0f},
        {&Store::setHourlyDirectRad, &Store::getHourlyDirectRad, &Record::directRad, 5, 1.0f},
        {&Store::setHourlyCloud, &Store::getHourlyCloud, &Record::cloud, 6, 1.0f},
        {&Store::setHourlyRain, &Store::getHourlyRain, &Record::rain, 7, 1.0f},
    };
    EWeatherData weather;
    for (const auto& one : cases) {
        const EHourlyData& record = *weather.getHourlyDataAsPointer(17, 5);
        EXPECT_TRUE((weather.*one.set)(17, 5, -21.37f));
        const int stored = one.scale > 1.0f ? -213 : -21;
        EXPECT_EQ(record.*one.field, stored);
        EXPECT_EQ((weather.*one.get)(17, 5), static_cast<float>(stored) / one.scale);
        EXPECT_EQ(weather.getHourlyDataByIndex(&record, one.index), static_cast<float>(stored));
        for (const int day : {-1, 365, INT_MIN, INT_MAX}) {
            EXPECT_FALSE((weather.*one.set)(day, 0, 1.0f));
            EXPECT_EQ((weather.*one.get)(day, 0), 0.0f);
        }
        for (const int hour : {-1, 24, INT_MIN, INT_MAX}) {
            EXPECT_FALSE((weather.*one.set)(0, hour, 1.0f));
            EXPECT_EQ((weather.*one.get)(0, hour), 0.0f);
        }
        for (const float odd : {std::nanf(""), INFINITY, -1e30f}) {
            EXPECT_TRUE((weather.*one.set)(364, 23, odd));
            EXPECT_EQ((weather.*one.get)(364, 23), 0.0f);
        }
    }
    EXPECT_TRUE(weather.setHourlyWindDirection(17, 5, 65536 + 270));
    EXPECT_EQ(weather.getHourlyWindDirection(17, 5), 270);
    EXPECT_EQ(weather.getHourlyDataByIndex(weather.getHourlyDataAsPointer(17, 5), 3), 270.0f);
    EXPECT_FALSE(weather.setHourlyWindDirection(17, 24, 1));
    EXPECT_EQ(weather.getHourlyWindDirection(-1, 5), 0);

    EXPECT_TRUE(weather.setHourlyTemp(0, 0, -0.05f));
    EXPECT_EQ(weather.getHourlyTemp(0, 0), 0.0f);
    EXPECT_EQ(weather.getHourlyDataAsPointer(0, 24), nullptr);
    EXPECT_EQ(weather.getHourlyDataByIndex(nullptr, 0), 0.0f);
    EXPECT_EQ(weather.getHourlyDataByIndex(weather.getHourlyDataAsPointer(17, 5), 8), 0.0f);
    EXPECT_EQ(weather.getHourlyDataByIndex(weather.getHourlyDataAsPointer(17, 5), -1), 0.0f);
}

TEST(WeatherStore, HoursAreAddressedDayByDay) {
    EWeatherData weather;
    const EHourlyData* first = weather.getHourlyDataAsPointer(0, 0);
    EXPECT_EQ(weather.getHourlyDataAsPointer(1, 2) - first, 26);
    EXPECT_EQ(weather.getHourlyDataAsPointer(364, 23) - first, 8759);
}

TEST(WeatherStore, DegreesAreTakenFromRadians) {
    EWeatherData weather;
    weather.getDataForWrite().latitude = 0.7853982f;
    weather.getDataForWrite().longitude = -1.5707964f;
    EXPECT_EQ(weather.getLatitudeInDegrees(), 45.0f);
    EXPECT_EQ(weather.getLongitudeInDegrees(), -90.0f);
    EXPECT_EQ(weather.getLongitudeInRadians(), -1.5707964f);
}

} // namespace
