/// The records of an EPW file as such.
#pragma once

#include "study/weather/weather_check.h"
#include "study/weather/weather_input.h"

namespace insolate::study {

/// Notes records that have not as many fields as the first. A comma too many or too few moves all
/// values behind it into other columns; but records may also end early or late, as the last columns
/// are optional. So this is reported, and not refused.
void noteUnevenRecords(const WeatherInput& input, WeatherReport& report);

} // namespace insolate::study
