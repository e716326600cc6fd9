#include "study/model/recentring.h"

#include "study/model/mesh.h"
#include "study/model/sensor_grid.h"

#include <algorithm>
#include <cmath>

namespace insolate::study {

/// What is smaller than a micrometre stays so.
constexpr double largestScale = 0x1p23;

Recentring::Recentring(const Scene& scene, const SensorField& field) {
    Bounds bounds;
    bounds.add(scene.vertices);
    bounds.add(field.positions);
    if (!bounds.isEmpty()) {
        const Vector3 middle = (bounds.low + bounds.high) * 0.5;
        m_centre = {std::floor(middle.x), std::floor(middle.y), std::floor(middle.z)};
        const double longest = bounds.longest();
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
