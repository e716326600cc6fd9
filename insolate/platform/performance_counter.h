/// A monotonic high-resolution clock, read as ticks.
#pragma once

#include <cstdint>

namespace insolate {

/// Ticks since an arbitrary start; never decreases.
std::uint64_t performanceCounter();

/// Ticks per second, constant for the life of the process, never 0.
std::uint64_t performanceFrequency();

} // namespace insolate
