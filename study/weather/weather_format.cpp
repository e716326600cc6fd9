#include "study/weather/weather_format.h"

#include "study/support/numbers.h"

#include <array>

#include <insolate/weather/text_lines.h>

namespace insolate::study {

namespace {

constexpr std::array listedFormats = {&epwFormat,   &weaTextFormat, &tmy3Format,
                                      &nsrdbFormat, &pvgisFormat,   &recordFormat};

} // namespace

const WeatherFormat* weatherFormatOf(std::string_view content) {
    // EPW files have their LOCATION first; other programs' headers are shorter than this.
    constexpr std::size_t linesLookedAt = 10;
    TextLines lines(content.substr(0, 64U << 10U));
    TextLine line;
    while (line.number < linesLookedAt && lines.next(line)) {
        const std::string text = lowered(trimmed(line.text));
        for (const WeatherFormat* const format : listedFormats) {
            if (format->isShownBy(text)) {
                return format;
            }
        }
    }
    return nullptr;
}

const std::string& weatherFormatsText() {
    static const std::string text = [] {
        std::string list;
        for (const WeatherFormat* const format : listedFormats) {
            list += list.empty() ? "" : format == listedFormats.back() ? " or " : ", ";
            list += format->name;
        }
        return list;
    }();
    return text;
}

std::string notWeatherText() {
    return "not a weather file; give " + weatherFormatsText();
}

} // namespace insolate::study
