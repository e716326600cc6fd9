/// `insolate weather`: what is in a weather file, and its conversion.
#pragma once

#include <filesystem>
#include <string>

namespace insolate::app {

/// Site, a table of months with annual sums, and what is odd in the file, a line each.
/// @throws DataError when it is no weather file
std::string weatherInfo(const std::filesystem::path& file);

/// Writes the year as the library reads it into a .wea file.
/// @return what the user should know about it, a line each
/// @throws CommandError or OutputError; no file is left then
std::string convertWeather(const std::filesystem::path& from, const std::filesystem::path& to,
                           bool allowGaps);

} // namespace insolate::app
