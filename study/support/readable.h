/// Numbers, counts and durations as people read them.
#pragma once

#include "study/export.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace insolate::study {

/// "hour has" for one, "hours have" for any other count.
constexpr std::string_view counted(std::size_t count, std::string_view one, std::string_view many) {
    return count == 1 ? one : many;
}

/// "1,234,567".
INSOLATE_STUDY_EXPORT std::string groupedDigits(std::size_t number);

/// "850 ms", "12.3 s", "4 min 05 s", "2 h 10 min".
INSOLATE_STUDY_EXPORT std::string durationText(double seconds);

} // namespace insolate::study
