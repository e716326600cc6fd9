/// The records of an EPW file as such.
#pragma once

#include "study/weather/weather_input.h"

#include <optional>
#include <string>

namespace insolate::study {

/// A comma too many or too few moves all values behind it into other columns; but records may also
/// end early or late, as the last columns are optional. So this is said, and not refused.
/// @return what to say of records that have not as many fields as the first
std::optional<std::string> unevenRecordsNote(const WeatherInput& input);

} // namespace insolate::study
