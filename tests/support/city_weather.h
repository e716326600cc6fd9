/// The real weather of a city.
#pragma once

#include "test_data.h"

#include <insolate/weather/weather_data.h>

#include <gtest/gtest.h>

namespace insolate::test {

/// Whether the year was loaded; false when the real data is missing.
inline bool loadCity(EWeatherData& weather, const std::string& city) {
    const std::filesystem::path file = testDataFile("weather/" + city + ".epw");
    auto result = ResultLoadWeatherData{};
    EXPECT_TRUE(file.empty() || weather.loadFile_EPW(file.wstring(), 0, result)) << city;
    return !file.empty();
}

} // namespace insolate::test
