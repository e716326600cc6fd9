/// Weather in the store of the analysis controllers.
#pragma once

#include "study/weather/weather_year.h"

#include <filesystem>
#include <string>

#include <insolate/insolate.h>

namespace insolate::study {

/// Whether ESolarPosition::Global, which is the process's, moves to the site of the weather. Only
/// who holds the process-wide scene may move it.
enum class GlobalSite { keep, move };

/// Reads a weather file that was inspected into the store. Hours that the file marks as missing
/// become hours without radiation.
/// @throws DataError when the library cannot open it
void loadWeather(EWeatherData& store, const std::filesystem::path& file,
                 const WeatherReport& report, GlobalSite site);

/// Whether the year ends on 30 December: 31 December, with light on the day before, has none. So it
/// is with every EPW file, whose 31 December takes the place of the 30th in the store.
bool lastDayIsEmpty(const EWeatherData& year);

/// "41.98 N, 87.92 W, UTC-6".
std::string siteText(const Site& site);

} // namespace insolate::study
