/// Work on sensors in blocks, on several threads.
#pragma once

#include <cstddef>
#include <functional>
#include <stop_token>

namespace insolate::study {

/// Sensors first to end - 1.
struct SensorRange {
    std::size_t first = 0;
    std::size_t end = 0;
};

/// Sensors 0 to count - 1 in blocks of equal size, the last one aside.
struct SensorBlocks {
    std::size_t count = 0;
    std::size_t size = 1;

    [[nodiscard]] std::size_t number() const { return (count + size - 1) / size; }
};

/// Works on every block, or on some when the stop is asked for meanwhile; it is for the caller to
/// throw then.
/// @param threads 0: all processors
/// @param work called from several threads at a time, each on a slot of its own below their number
/// @throws what the work throws
void forEachBlock(const SensorBlocks& blocks, int threads,
                  const std::function<void(SensorRange range, int slot)>& work,
                  const std::stop_token& stop);

} // namespace insolate::study
