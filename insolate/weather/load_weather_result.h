/// How loading a weather file failed.
#pragma once

#include <cstdint>

/// Written by the readers on failure only: initialise your variable with a value of your own.
enum ResultLoadWeatherData : std::int32_t {
    ResultLoadWeatherData_CannotOpen = 2,  ///< no such file, no permission, or a folder
    ResultLoadWeatherData_WrongFormat = 3, ///< a WEA file without its signature
};
