#include <insolate/platform/performance_counter.h>

#include <chrono>

namespace insolate {

std::uint64_t performanceCounter() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
}

std::uint64_t performanceFrequency() {
    return std::nano::den;
}

} // namespace insolate
