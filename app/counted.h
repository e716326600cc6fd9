/// Words that go with a count.
#pragma once

#include <cstddef>
#include <string_view>

namespace insolate::app {

/// "hour has" for one, "hours have" for any other count.
constexpr std::string_view counted(std::size_t count, std::string_view one, std::string_view many) {
    return count == 1 ? one : many;
}

} // namespace insolate::app
