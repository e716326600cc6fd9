/// One obstructing triangle, prepared for ray and box tests, and the test that decides every ray.
#pragma once

#include <insolate/geometry/vector_math.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>

namespace insolate {

/// Corners of the box that encloses nothing yet: the first point folded in sets them, as long as it
/// lies within 1e8 model units of the origin.
inline constexpr double emptyBoxMin = 1e8;
inline constexpr double emptyBoxMax = -1e8;

} // namespace insolate

namespace RT {

/// Nothing keeps a triangle from being degenerate; the ray test never hits such a one.
struct Triangle {
    insolate::Vector3d p0, p1, p2;     ///< vertices as given
    insolate::Vector3d boxMin, boxMax; ///< axis-aligned box of the vertices
    insolate::Vector3d negEdge2;       ///< p0 - p2
    insolate::Vector3d normal;         ///< edge1 x negEdge2, not normalised
    insolate::Vector3d edge1;          ///< p1 - p0
    insolate::Vector3d edge2;          ///< p2 - p0
    insolate::Vector3d edge3;          ///< p2 - p1
    /// Id of the last ray tested against this triangle, one entry per processor; 0xFFFFFFFF when
    /// there was none yet. The entries live in the package that holds the triangle: a million
    /// triangles share a few large blocks.
    std::span<std::uint32_t> mailbox;
};

} // namespace RT

namespace insolate {

/// A mailbox entry before any ray.
inline constexpr std::uint32_t noRay = 0xFFFFFFFFU;

/// Determinants below this mean a ray parallel to the triangle's plane: 1e-10 as single precision
/// holds it, widened.
inline constexpr double parallelLimit = static_cast<double>(1e-10f);

/// Hits nearer than this along the ray do not count [multiples of the direction], so that a surface
/// does not shade the point that lies on it.
inline constexpr double nearestHit = 0.01;

/// A triangle with all derived fields but an empty mailbox, from nine coordinates (x, y, z of p0,
/// p1, p2).
inline RT::Triangle makeTriangle(const double* coordinates) {
    RT::Triangle triangle{};
    triangle.boxMin.fill(emptyBoxMin);
    triangle.boxMax.fill(emptyBoxMax);
    Vector3d* const vertices[3] = {&triangle.p0, &triangle.p1, &triangle.p2};
    for (Vector3d* vertex : vertices) {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const double value = *coordinates++;
            (*vertex)[axis] = value;
            if (value < triangle.boxMin[axis]) {
                triangle.boxMin[axis] = value;
            }
            if (value > triangle.boxMax[axis]) {
                triangle.boxMax[axis] = value;
            }
        }
    }
    triangle.edge1 = difference(triangle.p1, triangle.p0);
    triangle.edge2 = difference(triangle.p2, triangle.p0);
    triangle.negEdge2 = {-triangle.edge2[0], -triangle.edge2[1], -triangle.edge2[2]};
    triangle.normal = crossProduct(triangle.edge1.data(), triangle.negEdge2.data());
    triangle.edge3 = difference(triangle.p2, triangle.p1);
    return triangle;
}

/// Whether a ray hits the triangle p0, p0 + edge1, p0 + edge2; every argument points at 3 doubles.
///
/// Moeller, Trumbore (1997), Journal of Graphics Tools 2(1). Both sides are hit; the edges and
/// vertices are not, so that a ray along the common edge of two triangles passes between them.
/// There is no upper limit of distance. The comparisons decide as they stand when a value is NaN:
/// it passes the bounds of u and v, and the last comparison, which it cannot pass, says "no hit".
///
/// This is the one definition of a hit: whatever finds candidates faster ends here. distance is set
/// only where there is one [multiples of the direction].
inline bool hitsTriangle(const double* origin, const double* direction, const double* p0,
                         const double* edge1, const double* edge2, double& distance) {
    const Vector3d p = crossProduct(direction, edge2);
    const double det = dotProduct(edge1, p.data());
    if (std::fabs(det) < parallelLimit) {
        return false;
    }
    const double inverse = 1.0 / det;
    const Vector3d s = {origin[0] - p0[0], origin[1] - p0[1], origin[2] - p0[2]};
    const double u = dotProduct(s.data(), p.data()) * inverse;
    if (u >= 1.0 || u <= 0.0) {
        return false;
    }
    const Vector3d q = crossProduct(s.data(), edge1);
    const double v = dotProduct(direction, q.data()) * inverse;
    if (v <= 0.0 || u + v >= 1.0) {
        return false;
    }
    const double t = dotProduct(edge2, q.data()) * inverse;
    if (!(t >= nearestHit)) {
        return false;
    }
    distance = t;
    return true;
}

inline bool hitsTriangle(const double* origin, const double* direction, const double* p0,
                         const double* edge1, const double* edge2) {
    double distance = 0.0;
    return hitsTriangle(origin, direction, p0, edge1, edge2, distance);
}

inline bool hitsTriangle(const Vector3d& origin, const Vector3d& direction,
                         const RT::Triangle& triangle) {
    return hitsTriangle(origin.data(), direction.data(), triangle.p0.data(), triangle.edge1.data(),
                        triangle.edge2.data());
}

} // namespace insolate
