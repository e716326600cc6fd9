/// The hours of single sensors.
#pragma once

#include <cstddef>
#include <vector>

#include <insolate/insolate.h>

namespace insolate::study {

struct SensorSeries {
    std::size_t sensor = 0;
    SensorHours hours;
};

} // namespace insolate::study
