#include "study/run/calculate_hours.h"

#include "study/support/errors.h"

#include <algorithm>
#include <numeric>

#include <oneapi/tbb/parallel_for.h>
#include <oneapi/tbb/task_arena.h>

namespace insolate::study {

void calculateHours(
    const RadiationMethod& method, const SensorWork& work, std::span<const std::size_t> sensors,
    int threads, const std::function<void(std::size_t first, std::span<const SensorHours>)>& take,
    Progress& progress, const std::stop_token& stop) {
    constexpr std::size_t sensorsAtOnce = 256; // 27 MB
    std::vector<SensorHours> hours(std::min(sensorsAtOnce, sensors.size()));
    tbb::task_arena arena(usedThreads(threads));
    progress.begin(sensors.size(), "sensors' hours");
    for (std::size_t first = 0; first < sensors.size(); first += sensorsAtOnce) {
        const std::size_t count = std::min(sensorsAtOnce, sensors.size() - first);
        arena.execute([&] {
            tbb::parallel_for(std::size_t{0}, count, [&](std::size_t i) {
                if (!stop.stop_requested()) {
                    hours[i] = method.hoursOf(work, sensors[first + i]);
                }
            });
        });
        throwIfStopped(stop);
        take(first, std::span<const SensorHours>(hours).first(count));
        progress.advance(count);
    }
    progress.end();
}

std::vector<std::size_t> everySensor(const SensorField& field) {
    std::vector<std::size_t> sensors(field.size());
    std::iota(sensors.begin(), sensors.end(), std::size_t{0});
    return sensors;
}

} // namespace insolate::study
