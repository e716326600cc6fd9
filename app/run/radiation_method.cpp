#include "app/run/radiation_method.h"

#include "app/run/hourly_study.h"
#include "app/run/solar_analysis.h"
#include "app/terminal/interrupt.h"

#include <algorithm>
#include <thread>

#include <oneapi/tbb/blocked_range.h>
#include <oneapi/tbb/parallel_for.h>
#include <oneapi/tbb/partitioner.h>
#include <oneapi/tbb/task_arena.h>

namespace insolate::app {

namespace {

/// Sensors of one block: enough to keep the threads from meeting, few enough to stop soon.
constexpr std::size_t blockSize = 256;

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

std::vector<ResultColumn> calculateSensors(RadiationMethod& method, const SensorWork& work,
                                           Progress& progress) {
    const std::size_t count = work.field.size();
    std::vector<ResultColumn> columns = method.columns();
    for (ResultColumn& column : columns) {
        column.values.resize(count);
    }
    // A slot of the arena is a slot in every triangle's memory of rays: no more than processors.
    tbb::task_arena arena(usedThreads(work.threads));
    progress.begin(count, "sensors");
    arena.execute([&] {
        const std::size_t blocks = (count + blockSize - 1) / blockSize;
        tbb::parallel_for(
            tbb::blocked_range<std::size_t>(0, blocks, 1),
            [&](const tbb::blocked_range<std::size_t>& range) {
                for (std::size_t block = range.begin(); block < range.end(); ++block) {
                    if (pendingSignal() != 0) {
                        return;
                    }
                    const SensorRange sensors{block * blockSize,
                                              std::min((block + 1) * blockSize, count)};
                    method.calculate(work, sensors, tbb::this_task_arena::current_thread_index(),
                                     columns);
                    progress.advance(sensors.end - sensors.first);
                }
            },
            tbb::simple_partitioner());
    });
    progress.end();
    throwIfInterrupted();
    return columns;
}

} // namespace insolate::app
