#pragma once
#include <algorithm>

namespace tbb {

/// On this thread: what is compared has no state, and each caller goes on when all is sorted.
template <typename Iterator, typename... Comparison>
void parallel_sort(Iterator first, Iterator last, const Comparison&... before) {
    std::sort(first, last, before...);
}

} // namespace tbb
