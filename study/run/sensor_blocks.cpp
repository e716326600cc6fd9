#include "study/run/sensor_blocks.h"

#include "study/run/run_options.h"

#include <algorithm>

#include <oneapi/tbb/blocked_range.h>
#include <oneapi/tbb/parallel_for.h>
#include <oneapi/tbb/partitioner.h>
#include <oneapi/tbb/task_arena.h>

namespace insolate::study {

void forEachBlock(const SensorBlocks& blocks, int threads,
                  const std::function<void(SensorRange range, int slot)>& work,
                  const std::stop_token& stop) {
    // A slot of the arena is a slot in every triangle's memory of rays: no more than processors.
    tbb::task_arena arena(usedThreads(threads));
    arena.execute([&] {
        tbb::parallel_for(
            tbb::blocked_range<std::size_t>(0, blocks.number(), 1),
            [&](const tbb::blocked_range<std::size_t>& range) {
                for (std::size_t block = range.begin(); block < range.end(); ++block) {
                    if (stop.stop_requested()) {
                        return;
                    }
                    const std::size_t first = block * blocks.size;
                    work({first, std::min(first + blocks.size, blocks.count)},
                         tbb::this_task_arena::current_thread_index());
                }
            },
            tbb::simple_partitioner());
    });
}

} // namespace insolate::study
