#include "study/run/calculate_sensors.h"

#include "study/run/sensor_blocks.h"
#include "study/support/errors.h"
#include "study/support/readable.h"

#include <algorithm>

#include <fmt/format.h>

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
    const SensorBlocks blocks{count, blockSizeFor(count)};
    Keeping keeping(kept, work, columns, blocks.size);
    if (keeping.sensorsTaken() > 0) {
        progress.note(fmt::format("going on after {} of {} {}",
                                  groupedDigits(keeping.sensorsTaken()), groupedDigits(count),
                                  counted(count, "sensor", "sensors")));
    }
    const std::size_t left = count - keeping.sensorsTaken();
    progress.begin(left, counted(left, "sensor", "sensors"));
    forEachBlock(
        blocks, threads,
        [&](SensorRange sensors, int slot) {
            if (!keeping.isFinished(sensors.first)) {
                method.calculate(work, sensors, slot, columns);
                keeping.finish(sensors.first);
                progress.advance(sensors.end - sensors.first);
            }
        },
        stop);
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
