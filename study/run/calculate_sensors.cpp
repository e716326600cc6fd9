#include "study/run/calculate_sensors.h"

#include "study/support/errors.h"
#include "study/support/readable.h"

#include <algorithm>

#include <fmt/format.h>
#include <oneapi/tbb/blocked_range.h>
#include <oneapi/tbb/parallel_for.h>
#include <oneapi/tbb/partitioner.h>
#include <oneapi/tbb/task_arena.h>

namespace insolate::study {

namespace {

/// Sensors of one block: enough to keep the threads from meeting, few enough to stop soon. Where
/// there are few, they make 64 blocks, for any number of threads: a stopped run may go on with
/// another.
std::size_t blockSizeFor(std::size_t sensors) {
    return std::clamp(sensors / 64, std::size_t{1}, std::size_t{256});
}

/// Keeps finished sensors for as long as their columns are sure to be there.
class Keeping {
public:
    Keeping(PartialResults* kept, const SensorWork& work, std::span<ResultColumn> columns,
            std::size_t blockSize)
        : m_kept(kept),
          m_taken(m_kept != nullptr ? m_kept->attach(columns, work.saved, blockSize) : 0) {}
    ~Keeping() {
        if (m_kept != nullptr) {
            m_kept->detach();
        }
    }
    Keeping(const Keeping&) = delete;
    Keeping& operator=(const Keeping&) = delete;

    [[nodiscard]] std::size_t sensorsTaken() const { return m_taken; }
    [[nodiscard]] bool isFinished(std::size_t first) const {
        return m_kept != nullptr && m_kept->isFinished(first);
    }
    void finish(std::size_t first) {
        if (m_kept != nullptr) {
            m_kept->finish(first);
        }
    }

private:
    PartialResults* m_kept;
    std::size_t m_taken;
};

} // namespace

std::vector<ResultColumn> calculateSensors(RadiationMethod& method, const SensorWork& work,
                                           int threads, PartialResults* kept, Progress& progress,
                                           const std::stop_token& stop) {
    const std::size_t count = work.field.size();
    std::vector<ResultColumn> columns = method.columns();
    for (ResultColumn& column : columns) {
        column.values.resize(count);
    }
    // A slot of the arena is a slot in every triangle's memory of rays: no more than processors.
    tbb::task_arena arena(usedThreads(threads));
    const std::size_t blockSize = blockSizeFor(count);
    Keeping keeping(kept, work, columns, blockSize);
    if (keeping.sensorsTaken() > 0) {
        progress.note(fmt::format("going on after {} of {} {}",
                                  groupedDigits(keeping.sensorsTaken()), groupedDigits(count),
                                  counted(count, "sensor", "sensors")));
    }
    const std::size_t left = count - keeping.sensorsTaken();
    progress.begin(left, counted(left, "sensor", "sensors"));
    arena.execute([&] {
        const std::size_t blocks = (count + blockSize - 1) / blockSize;
        tbb::parallel_for(
            tbb::blocked_range<std::size_t>(0, blocks, 1),
            [&](const tbb::blocked_range<std::size_t>& range) {
                for (std::size_t block = range.begin(); block < range.end(); ++block) {
                    if (stop.stop_requested()) {
                        return;
                    }
                    const SensorRange sensors{block * blockSize,
                                              std::min((block + 1) * blockSize, count)};
                    if (keeping.isFinished(sensors.first)) {
                        continue;
                    }
                    method.calculate(work, sensors, tbb::this_task_arena::current_thread_index(),
                                     columns);
                    keeping.finish(sensors.first);
                    progress.advance(sensors.end - sensors.first);
                }
            },
            tbb::simple_partitioner());
    });
    progress.end();
    throwIfStopped(stop);
    return columns;
}

std::vector<float> enclosedSensors(const RadiationMethod& method,
                                   std::span<const ResultColumn> columns,
                                   const SensorField& field) {
    std::vector<float> enclosed(field.size());
    for (std::size_t sensor = 0; sensor < field.size(); ++sensor) {
        enclosed[sensor] = method.isEnclosed(columns, field, sensor) ? 1.0f : 0.0f;
    }
    return enclosed;
}

} // namespace insolate::study
