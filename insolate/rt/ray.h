/// The ray handed to the walk of the octree.
#pragma once

#include <insolate/rt/triangle.h>

#include <cstdint>

namespace RT {

struct Ray {
    insolate::Vector3d origin;
    insolate::Vector3d direction; ///< any length; distances are measured in multiples of it
    std::int32_t id = 0;
};

} // namespace RT

namespace insolate {

/// Whether a ray passes through a box, within 1e8 directions. A box wholly behind the origin is
/// missed; a component of exactly 0 runs inside the box's two planes of that axis, or on one of
/// them, or misses.
inline bool passesBox(const RT::Ray& ray, const Vector3d& boxMin, const Vector3d& boxMax) {
    double tNear = -1e8;
    double tFar = 1e8;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        const double origin = ray.origin[axis];
        const double direction = ray.direction[axis];
        if (direction == 0.0) {
            if (origin < boxMin[axis] || origin > boxMax[axis]) {
                return false;
            }
            continue; // the quotients would be infinite, or 0 / 0 on a face: no limit either way
        }
        const double t1 = (boxMin[axis] - origin) / direction;
        const double t2 = (boxMax[axis] - origin) / direction;
        const double enter = t1 > t2 ? t2 : t1;
        const double leave = t1 > t2 ? t1 : t2;
        tNear = enter > tNear ? enter : tNear;
        tFar = leave < tFar ? leave : tFar;
        if (tFar < 0.0 || tNear > tFar) {
            return false;
        }
    }
    return true;
}

} // namespace insolate
