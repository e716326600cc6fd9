#include "study/run/radiation_method.h"

#include "study/run/hourly_study.h"
#include "study/run/solar_analysis.h"
#include "study/support/readable.h"

#include <algorithm>
#include <thread>

#include <fmt/format.h>
#include <oneapi/tbb/blocked_range.h>
#include <oneapi/tbb/parallel_for.h>
#include <oneapi/tbb/partitioner.h>
#include <oneapi/tbb/task_arena.h>

namespace insolate::study {

namespace {

/// Sensors of one block: enough to keep the threads from meeting, few enough to stop soon.
constexpr std::size_t blockSize = 256;

/// Keeps finished sensors for as long as their columns are sure to be there.
class Keeping {
public:
    Keeping(const SensorWork& work, std::span<ResultColumn> columns)
        : m_kept(work.kept),
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

std::string methodName(Method method) {
    switch (method) {
    case Method::cumulativeSky:
        return "cumulative-sky";
    case Method::perezSky:
        return "perez-sky";
    case Method::perezPoint:
        return "perez-point";
    case Method::hourly:
        break;
    }
    return "hourly";
}

int usedThreads(int threads) {
    const int processors = std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
    return threads <= 0 ? processors : std::min(threads, processors);
}

std::unique_ptr<RadiationMethod> makeRadiationMethod(const SkyOptions& options, double north) {
    if (options.method == Method::hourly) {
        return std::make_unique<HourlyStudy>(options, north);
    }
    return std::make_unique<SolarAnalysis>(options, north);
}

std::size_t countEnclosed(std::span<const ResultColumn> columns, const SensorField& field) {
    const auto columnOf = [&](std::string_view name) {
        const auto found = std::find_if(columns.begin(), columns.end(),
                                        [&](const ResultColumn& c) { return c.name == name; });
        return found == columns.end() ? nullptr : &*found;
    };
    // Sums of views that were taken out again are not quite 0, and a nearly level roof's part of
    // the ground is not looked for.
    constexpr float leastSky = 0.001f;
    constexpr float leastGround = 0.5f;
    constexpr double straightDown = -0.999;
    const ResultColumn* sky = columnOf("sky_view");
    const ResultColumn* ground = columnOf("ground_view");
    std::size_t count = 0;
    for (std::size_t i = 0; sky != nullptr && i < field.size(); ++i) {
        const bool seesGround = ground != nullptr ? ground->values[i] >= leastGround
                                                  : field.normals[i].z < straightDown;
        count += sky->values[i] < leastSky && !seesGround ? 1 : 0;
    }
    return count;
}

std::vector<ResultColumn> calculateSensors(RadiationMethod& method, const SensorWork& work,
                                           Progress& progress, const std::stop_token& stop) {
    const std::size_t count = work.field.size();
    std::vector<ResultColumn> columns = method.columns();
    for (ResultColumn& column : columns) {
        column.values.resize(count);
    }
    // A slot of the arena is a slot in every triangle's memory of rays: no more than processors.
    tbb::task_arena arena(usedThreads(work.threads));
    Keeping keeping(work, columns);
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

} // namespace insolate::study
