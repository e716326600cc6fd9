/// Weather in the store of the analysis controllers.
#pragma once

#include "study/weather/weather_year.h"

#include <filesystem>
#include <string>

#include <insolate/insolate.h>

namespace insolate::study {

/// Reads a weather file that was inspected into the controller's store and moves the library's site
/// there. Hours that the file marks as missing become hours without radiation.
/// @throws DataError when the library cannot open it
void loadWeather(ESolarAnalysisController& controller, const std::filesystem::path& file,
                 const WeatherReport& report);

/// Puts the year into the library's store as an .epw file would be, in whole W/m2, and moves
/// ESolarPosition::Global to its site. What is missing counts as without radiation.
void fillStore(EWeatherData& store, const WeatherSeries& series);

/// Whether the year ends on 30 December: 31 December, with light on the day before, has none. So it
/// is with every EPW file, whose 31 December takes the place of the 30th in the store.
bool lastDayIsEmpty(const EWeatherData& year);

/// "41.98 N, 87.92 W, UTC-6".
std::string siteText(const Site& site);

} // namespace insolate::study
