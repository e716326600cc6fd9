#include <insolate/rt/ray_queries.h>

#include <insolate/geometry/sky_grid.h>
#include <insolate/rt/input_package.h>
#include <insolate/rt/ray.h>
#include <insolate/rt/spatial_tree.h>

#include <cstddef>

namespace {

RT::Ray makeRay(const XYZf& origin, const XYZf& direction) {
    return {.origin = {origin.x, origin.y, origin.z},
            .direction = {direction.x, direction.y, direction.z}};
}

} // namespace

bool GetTransparencyValueOnRayInternal::getSurfaceDoubleSided() {
    return false;
}

int GetTransparencyValueOnRayInternal::initialise() {
    return 0;
}

float GetTransparencyValueOnRayInternal::getTransparencyValue(const XYZf& origin,
                                                              const XYZf& direction,
                                                              const XYZf* /*normal*/) {
    const RT::Ray ray = makeRay(origin, direction);
    return isRayIntersectWithTriangles(ray, *RT::SpatialTree::root) ? 0.0f : 1.0f;
}

bool GetTransparencyValueOnRayInternal::isRayIntersectWithTriangles(const RT::Ray& ray,
                                                                    const RT::SpatialTree& node) {
    if (!insolate::passesBox(ray, node.boxMin, node.boxMax)) {
        return false;
    }
    if (!node.isLeaf) {
        for (std::int32_t i = 0; i < node.childCount; ++i) {
            if (isRayIntersectWithTriangles(ray, node.child(i))) {
                return true;
            }
        }
        return false;
    }
    for (const std::int32_t index : node.leafTriangles()) {
        if (insolate::hitsTriangle(ray.origin, ray.direction,
                                   node.package->triangles[static_cast<std::size_t>(index)])) {
            return true;
        }
    }
    return false;
}

namespace RT {

GetTransparencyValueOnRayImpl::GetTransparencyValueOnRayImpl(int slot, int point)
    : threadSlot(slot), pointIndex(point) {}

bool GetTransparencyValueOnRayImpl::getSurfaceDoubleSided() {
    return false;
}

int GetTransparencyValueOnRayImpl::initialise() {
    return 0;
}

float GetTransparencyValueOnRayImpl::getTransparencyValue(const XYZf& origin, const XYZf& direction,
                                                          const XYZf* /*normal*/) {
    ++rayCounter;
    Ray ray = makeRay(origin, direction);
    // Unsigned, so that a large point index wraps instead of overflowing.
    ray.id =
        static_cast<std::int32_t>(static_cast<std::uint32_t>(pointIndex) *
                                      static_cast<std::uint32_t>(insolate::skyGrid::cellCount) +
                                  static_cast<std::uint32_t>(rayCounter));
    return isRayIntersectWithTriangles(ray, *SpatialTree::root) ? 0.0f : 1.0f;
}

bool GetTransparencyValueOnRayImpl::isRayIntersectWithTriangles(const Ray& ray,
                                                                const SpatialTree& node) {
    if (!insolate::passesBox(ray, node.boxMin, node.boxMax)) {
        return false;
    }
    if (!node.isLeaf) {
        for (std::int32_t i = 0; i < node.childCount; ++i) {
            if (isRayIntersectWithTriangles(ray, node.child(i))) {
                return true;
            }
        }
        return false;
    }
    const auto id = static_cast<std::uint32_t>(ray.id);
    for (const std::int32_t index : node.leafTriangles()) {
        const Triangle& triangle = node.package->triangles[static_cast<std::size_t>(index)];
        std::uint32_t& lastRay = triangle.mailbox[static_cast<std::size_t>(threadSlot)];
        if (lastRay == id) {
            continue;
        }
        lastRay = id;
        if (insolate::hitsTriangle(ray.origin, ray.direction, triangle)) {
            return true;
        }
    }
    return false;
}

} // namespace RT
