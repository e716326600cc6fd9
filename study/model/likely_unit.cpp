#include "study/model/likely_unit.h"

#include "study/model/mesh.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace insolate::study {

namespace {

/// Whether these are lengths of buildings, cities or terrain [m].
bool isPlausible(const ModelLengths& lengths) {
    const Vector3& extent = lengths.extent;
    const double longest = std::max({extent.x, extent.y, extent.z});
    if (!(longest >= 2.0 && longest <= 2.0e5 && extent.z <= 1.0e4)) {
        return false;
    }
    // A tower of 300 m has faces as long; but not most of them, unless it is a plain block.
    const bool isHuge = lengths.medianEdge > 200.0 && extent.z > 300.0;
    return !lengths.hasWalls || (extent.z >= 1.5 && lengths.medianEdge >= 0.02 && !isHuge);
}

} // namespace

ModelLengths lengthsOf(const Scene& scene) {
    ModelLengths lengths;
    if (scene.vertices.empty()) {
        return lengths;
    }
    Bounds bounds;
    std::vector<float> edges;
    edges.reserve(scene.vertices.size());
    double area = 0.0;
    double upright = 0.0;
    for (std::size_t i = 0; i + 3 <= scene.vertices.size(); i += 3) {
        const Vector3* const corner = &scene.vertices[i];
        for (std::size_t k = 0; k < 3; ++k) {
            const Vector3& p = corner[k];
            bounds.add(p);
            edges.push_back(static_cast<float>(length(corner[(k + 1) % 3] - p)));
        }
        const Vector3 normal = cross(corner[1] - corner[0], corner[2] - corner[0]);
        area += length(normal);
        upright += std::abs(normal.z) < 0.1 * length(normal) ? length(normal) : 0.0;
    }
    const auto middle = edges.begin() + static_cast<std::ptrdiff_t>(edges.size() / 2);
    std::nth_element(edges.begin(), middle, edges.end());
    lengths.extent = bounds.extent();
    lengths.medianEdge = static_cast<double>(*middle);
    lengths.hasWalls = upright > 0.1 * area;
    return lengths;
}

std::optional<LengthUnit> likelyUnit(LengthUnit asRead, const ModelLengths& lengths) {
    for (const LengthUnit unit : {asRead, LengthUnit::metre, LengthUnit::millimetre,
                                  LengthUnit::centimetre, LengthUnit::foot, LengthUnit::inch}) {
        const double factor = metresIn(unit) / metresIn(asRead);
        if (isPlausible({lengths.extent * factor, lengths.medianEdge * factor, lengths.hasWalls})) {
            return unit;
        }
    }
    return std::nullopt;
}

} // namespace insolate::study
