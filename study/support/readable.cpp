#include "study/support/readable.h"

#include <algorithm>

#include <fmt/format.h>

namespace insolate::study {

std::string groupedDigits(std::size_t number) {
    std::string text = std::to_string(number);
    for (std::size_t place = text.size(); place > 3; place -= 3) {
        text.insert(place - 3, 1, ',');
    }
    return text;
}

std::string durationText(double seconds) {
    if (seconds < 0.9995) {
        return fmt::format("{:.0f} ms", std::max(seconds, 0.0) * 1000.0);
    }
    if (seconds < 59.95) {
        return fmt::format("{:.1f} s", seconds);
    }
    const auto whole = static_cast<long>(std::min(seconds + 0.5, 1.0e9));
    if (whole < 3600) {
        return fmt::format("{} min {:02} s", whole / 60, whole % 60);
    }
    return fmt::format("{} h {:02} min", whole / 3600, whole % 3600 / 60);
}

} // namespace insolate::study
