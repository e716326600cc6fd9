/// The hours of many sensors, a block at a time.
#pragma once

#include "study/run/radiation_method.h"
#include "study/support/progress.h"

#include <cstddef>
#include <functional>
#include <span>
#include <stop_token>
#include <vector>

namespace insolate::study {

/// Calculates the hours of the sensors on several threads and hands them on in order, from this
/// thread: no more than a block is in memory.
/// @param threads 0: all processors
/// @param take receives the place of a block's first sensor among `sensors`, and the hours
/// @throws Stopped at the next block after the stop was asked for
void calculateHours(
    const RadiationMethod& method, const SensorWork& work, std::span<const std::size_t> sensors,
    int threads, const std::function<void(std::size_t first, std::span<const SensorHours>)>& take,
    Progress& progress, const std::stop_token& stop);

/// The numbers of all sensors of the field.
std::vector<std::size_t> everySensor(const SensorField& field);

} // namespace insolate::study
