#include "study/model/recentring.h"

#include "study/model/mesh.h"
#include "study/model/sensor_grid.h"

#include <algorithm>
#include <cmath>

namespace insolate::study {

/// What is smaller than a micrometre stays so.
constexpr double largestScale = 0x1p23;

Recentring::Recentring(const Scene& scene, const SensorField& field) {
    Vector3 lowest = {1e300, 1e300, 1e300};
    Vector3 highest = {-1e300, -1e300, -1e300};
    const auto fold = [&](const std::vector<Vector3>& points) {
        for (const Vector3& p : points) {
            lowest = {std::min(lowest.x, p.x), std::min(lowest.y, p.y), std::min(lowest.z, p.z)};
            highest = {std::max(highest.x, p.x), std::max(highest.y, p.y),
                       std::max(highest.z, p.z)};
        }
    };
    fold(scene.vertices);
    fold(field.positions);
    if (lowest.x <= highest.x) {
        const Vector3 middle = (lowest + highest) * 0.5;
        m_centre = {std::floor(middle.x), std::floor(middle.y), std::floor(middle.z)};
        const Vector3 extent = highest - lowest;
        const double longest = std::max({extent.x, extent.y, extent.z});
        while (longest > 0.0 && longest * m_scale < smallScene && m_scale < largestScale) {
            m_scale *= 2.0;
        }
    }
}

Vector3 Recentring::moved(const Vector3& point) const {
    return (point - m_centre) * m_scale;
}

XYZf Recentring::local(const Vector3& point) const {
    return narrowed(moved(point));
}

std::vector<double> Recentring::coordinates(const Scene& scene) const {
    std::vector<double> coordinates;
    coordinates.reserve(3 * scene.vertices.size());
    for (const Vector3& vertex : scene.vertices) {
        const Vector3 p = moved(vertex);
        coordinates.insert(coordinates.end(), {p.x, p.y, p.z});
    }
    return coordinates;
}

XYZf narrowed(const Vector3& vector) {
    return {static_cast<float>(vector.x), static_cast<float>(vector.y),
            static_cast<float>(vector.z)};
}

} // namespace insolate::study
