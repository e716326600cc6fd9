/// Weather whose records say when they were taken, of files or of a host: brought into the hours of
/// a year.
#pragma once

#include "study/export.h"
#include "study/weather/weather_year.h"

#include <limits>
#include <string>
#include <string_view>
#include <vector>

namespace insolate::study {

inline constexpr float unknownValue = std::numeric_limits<float>::quiet_NaN();

/// A record of the file. It stands for the time around an instant, half a step to either side: for
/// a mean the middle of what it covers, else the moment it was taken.
struct WeatherSample {
    std::size_t line = 0;
    int year = 0; ///< 0 where the file does not say
    int month = 1;
    int day = 1;       ///< of the calendar; 29 February is left out
    double hour = 0.0; ///< the instant's clock time in the site's zone; may lie outside 0..24
    float direct = unknownValue;  ///< normal to the sun [W/m2], NaN where missing, as all here
    float diffuse = unknownValue; ///< on the level [W/m2]
    float global = unknownValue;
    float dryBulb = unknownValue;  ///< [degrees C]
    float dewPoint = unknownValue; ///< [degrees C]
    float pressure = unknownValue; ///< [Pa]
    float albedo = unknownValue;
};

struct SampledWeather {
    WeatherReport report; ///< site, notes and facts so far
    std::vector<WeatherSample> samples;
    /// Rows of times with the sun down may be left out of such files: they are dark, not missing.
    bool nightsMayBeLeftOut = false;
};

/// @throws DataError when there are more samples than two years have minutes
void addSample(SampledWeather& weather, const WeatherSample& sample,
               const std::filesystem::path& file);

/// The samples' own steps are found, equal parts of an hour or hours; several of an hour are
/// averaged, of several for the same time the last one holds. WeatherSeries::sampleOffset says
/// where in its hour a value stands.
/// @throws DataError when there are no samples, or their times do not go on in equal steps
WeatherYear assembleYear(const SampledWeather& weather, const std::filesystem::path& file);

/// The year of a host's own samples, with what is odd about them, as readWeatherYear() gives that
/// of a file.
/// @param name stands for the file in messages
/// @throws DataError as assembleYear(), and for a site that is not on earth
INSOLATE_STUDY_EXPORT WeatherYear weatherOfSamples(const SampledWeather& weather,
                                                   const std::string& name);

/// @throws DataError naming the line when the site is not on earth
void checkSite(const WeatherSite& site, const std::filesystem::path& file, std::size_t line);

} // namespace insolate::study
