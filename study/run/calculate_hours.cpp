#include "study/run/calculate_hours.h"

#include "study/run/sensor_blocks.h"
#include "study/support/errors.h"

#include <algorithm>
#include <numeric>

namespace insolate::study {

void calculateHours(
    const RadiationMethod& method, const SensorWork& work, std::span<const std::size_t> sensors,
    int threads, const std::function<void(std::size_t first, std::span<const SensorHours>)>& take,
    Progress& progress, const std::stop_token& stop) {
    constexpr std::size_t sensorsAtOnce = 256; // 27 MB
    std::vector<SensorHours> hours(std::min(sensorsAtOnce, sensors.size()));
    progress.begin(sensors.size(), "sensors' hours");
    for (std::size_t first = 0; first < sensors.size(); first += sensorsAtOnce) {
        const std::size_t count = std::min(sensorsAtOnce, sensors.size() - first);
        forEachBlock(
            {count, 1}, threads,
            [&](SensorRange one, int) {
                hours[one.first] = method.hoursOf(work, sensors[first + one.first]);
            },
            stop);
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
