#include <insolate/hourly/sensor_order.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>

namespace insolate {

std::uint64_t placeOnCurve(const std::array<std::uint32_t, 3>& coordinates) {
    // Each bit goes to three times its place: halves of what is left move apart.
    const auto spread = [](std::uint64_t bits) {
        bits = (bits | bits << 16U) & 0x00FF0000FFU;
        bits = (bits | bits << 8U) & 0xF00F00F00FU;
        bits = (bits | bits << 4U) & 0xC30C30C30C3U;
        return (bits | bits << 2U) & 0x249249249249U;
    };
    return spread(coordinates[0]) | spread(coordinates[1]) << 1U | spread(coordinates[2]) << 2U;
}

std::vector<std::uint32_t> alongCurve(std::span<const Sensor> sensors) {
    constexpr float infinity = std::numeric_limits<float>::infinity();
    constexpr unsigned bits = 10; // of a coordinate
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
        std::uint64_t code;
        std::uint32_t sensor;
    };
    const double scale = extent > 0.0 ? ((1 << bits) - 1) / extent : 0.0;
    std::vector<Place> places(sensors.size());
    for (std::size_t i = 0; i < sensors.size(); ++i) {
        std::array<std::uint32_t, 3> coordinates{};
        for (std::size_t axis = 0; axis < 3; ++axis) {
            coordinates[axis] = static_cast<std::uint32_t>(
                (static_cast<double>(place(i)[axis]) - static_cast<double>(low[axis])) * scale);
        }
        places[i] = {placeOnCurve(coordinates), static_cast<std::uint32_t>(i)};
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
