#include <insolate/hourly/sensor_order.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>

namespace insolate {

std::vector<std::uint32_t> alongCurve(std::span<const Sensor> sensors) {
    constexpr float infinity = std::numeric_limits<float>::infinity();
    constexpr int bits = 10; // of a coordinate
    std::array<float, 3> low{infinity, infinity, infinity};
    double extent = 0.0; // of finite floats never beyond a double
    const auto place = [&](std::size_t i) {
        const XYZf& p = sensors[i].position;
        return std::array{p.x, p.y, p.z};
    };
    for (std::size_t axis = 0; axis < 3; ++axis) {
        float high = -infinity;
        for (std::size_t i = 0; i < sensors.size(); ++i) {
            low[axis] = std::min(low[axis], place(i)[axis]);
            high = std::max(high, place(i)[axis]);
        }
        extent = std::max(extent, static_cast<double>(high) - static_cast<double>(low[axis]));
    }
    struct Place {
        std::uint32_t code, sensor;
    };
    const double scale = extent > 0.0 ? ((1 << bits) - 1) / extent : 0.0;
    std::vector<Place> places(sensors.size());
    for (std::size_t i = 0; i < sensors.size(); ++i) {
        std::uint32_t code = 0;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const auto coordinate = static_cast<std::uint32_t>(
                (static_cast<double>(place(i)[axis]) - static_cast<double>(low[axis])) * scale);
            for (unsigned bit = 0; bit < bits; ++bit) {
                code |= (coordinate >> bit & 1U) << (3 * bit + axis);
            }
        }
        places[i] = {code, static_cast<std::uint32_t>(i)};
    }
    std::sort(places.begin(), places.end(), [](const Place& a, const Place& b) {
        return a.code != b.code ? a.code < b.code : a.sensor < b.sensor;
    });
    std::vector<std::uint32_t> order(places.size());
    std::transform(places.begin(), places.end(), order.begin(),
                   [](const Place& a) { return a.sensor; });
    return order;
}

} // namespace insolate
