#include "study/weather/weather_input.h"

#include "study/files/input_file.h"
#include "study/support/errors.h"
#include "study/support/file_name.h"

#include <fmt/format.h>

namespace insolate::study {

WeatherInput openWeather(const std::filesystem::path& file, const std::stop_token& stop) {
    WeatherInput input{file, InputFile(file, inputKinds::weather, stop).readAll()};
    if (input.content.starts_with("\xEF\xBB\xBF")) {
        input.content.erase(0, 3);
    }
    if (const WeatherFormat* const format = weatherFormatOf(input.content)) {
        input.format = format;
    } else if (!hasExtension(file, {".epw"})) { // a broken .epw file hears what it lacks
        throw DataError(fmt::format("{}: {}", place(file), notWeatherText()));
    }
    return input;
}

} // namespace insolate::study
