/// Weather files out of the bytes a test gives.
#pragma once

#include "../support/temporary_folder.h"

#include <insolate/weather/weather_data.h>

#include <gtest/gtest.h>

#include <string>

namespace insolate::test {

/// Loads the bytes over what the store holds, which must succeed.
template <auto read = &EWeatherData::loadFile_EPW>
void load(EWeatherData& weather, const std::string& bytes, int updateSite = 0) {
    const TemporaryFolder folder;
    auto result = ResultLoadWeatherData{};
    EXPECT_TRUE((weather.*read)(folder.write("weather", bytes).wstring(), updateSite, result));
    EXPECT_EQ(result, ResultLoadWeatherData{});
}

inline constexpr auto loadEpw = load<&EWeatherData::loadFile_EPW>;
inline constexpr auto loadWea = load<&EWeatherData::loadFile_WEA>;

} // namespace insolate::test
