#include "study/weather/weather_input.h"

#include "study/files/input_file.h"
#include "study/support/errors.h"
#include "study/support/file_name.h"
#include "study/support/numbers.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <optional>

#include <fmt/format.h>
#include <insolate/weather/epw_text.h>

namespace insolate::study {

namespace {

std::string readWhole(const std::filesystem::path& file) {
    std::string content = InputFile(file, inputKinds::weather).readAll();
    if (content.starts_with("\xEF\xBB\xBF")) {
        content.erase(0, 3);
    }
    return content;
}

std::string lowered(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return result;
}

/// The format that the first lines show; none when they show nothing that is known.
std::optional<WeatherFormat> recognised(std::string_view content) {
    if (content.starts_with("xqt_WEA_")) {
        return WeatherFormat::Store;
    }
    // EPW files have their LOCATION first; other programs' headers are shorter than this.
    constexpr std::size_t linesLookedAt = 10;
    EpwLines lines(content.substr(0, 64U << 10U));
    EpwLine line;
    while (line.number < linesLookedAt && lines.next(line)) {
        const std::string text = lowered(trimmed(line.text));
        const std::string_view word = std::string_view(text).substr(0, text.find_first_of(" \t"));
        if (text.starts_with("location,") || text.starts_with("location;")) {
            return WeatherFormat::Epw;
        }
        if (text.starts_with("latitude (decimal degrees)")) {
            return WeatherFormat::Pvgis;
        }
        if (word == "place" || word == "weather_data_file_units") {
            return WeatherFormat::WeaText;
        }
        if (text.starts_with("date (mm/dd/yyyy)") || text.starts_with("\"date (mm/dd/yyyy)")) {
            return WeatherFormat::Tmy3;
        }
        if (text.starts_with("source,location id,") || text.starts_with("year,month,day,hour")) {
            return WeatherFormat::Nsrdb;
        }
    }
    return std::nullopt;
}

} // namespace

WeatherInput openWeather(const std::filesystem::path& file) {
    WeatherInput input{file, readWhole(file), WeatherFormat::Epw};
    if (const auto format = recognised(input.content)) {
        input.format = *format;
    } else if (!hasExtension(file, {".epw"})) { // a broken .epw file hears what it lacks
        throw DataError(fmt::format("{}: {}", place(file), notWeatherText));
    }
    return input;
}

} // namespace insolate::study
