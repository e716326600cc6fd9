/// The octree built octant by octant, as its definition reads: what the library's builder is
/// compared with.
#pragma once

#include <insolate/rt/spatial_tree.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <numeric>
#include <utility>
#include <vector>

namespace insolate::test {

struct PlainNode {
    int depth = 1;
    bool isLeaf = false;
    Vector3d boxMin{}, boxMax{};
    std::int32_t containedCount = 0;
    std::vector<std::int32_t> triangles;
    std::vector<std::unique_ptr<PlainNode>> children;
};

inline bool isInside(const Vector3d& vertex, const Vector3d& boxMin, const Vector3d& boxMax) {
    for (std::size_t axis = 0; axis < 3; ++axis) {
        if (!(boxMin[axis] <= vertex[axis] && vertex[axis] <= boxMax[axis])) {
            return false;
        }
    }
    return true;
}

inline void buildPlainly(const RT::InputPackage& package, int maxDepth, PlainNode& node) {
    if (node.triangles.size() < 12 || node.depth > maxDepth) {
        node.isLeaf = true;
        return;
    }
    Vector3d h{};
    for (std::size_t axis = 0; axis < 3; ++axis) {
        h[axis] = (node.boxMax[axis] - node.boxMin[axis]) * 0.5;
    }
    for (unsigned octant = 0; octant < 8; ++octant) {
        Vector3d boxMin{};
        Vector3d boxMax{};
        Vector3d centre{};
        Vector3d halfExtents{};
        for (std::size_t axis = 0; axis < 3; ++axis) {
            boxMin[axis] = node.boxMin[axis] + static_cast<double>((octant >> axis) & 1U) * h[axis];
            boxMax[axis] = boxMin[axis] + h[axis];
            halfExtents[axis] = h[axis] * 0.5;
            centre[axis] = boxMin[axis] + halfExtents[axis];
        }
        std::vector<std::int32_t> list;
        std::int32_t contained = 0;
        for (auto entry = node.triangles.rbegin(); entry != node.triangles.rend(); ++entry) {
            if (*entry == -1) {
                continue;
            }
            const RT::Triangle& triangle = package.triangles[static_cast<std::size_t>(*entry)];
            const int inside = isInside(triangle.p0, boxMin, boxMax) +
                               isInside(triangle.p1, boxMin, boxMax) +
                               isInside(triangle.p2, boxMin, boxMax);
            if (inside > 0 || overlapsBox(triangle, centre, halfExtents)) {
                list.push_back(*entry);
            }
            if (inside == 3) {
                ++contained;
                *entry = -1;
            }
        }
        if (!list.empty()) {
            auto child = std::make_unique<PlainNode>();
            child->depth = node.depth + 1;
            child->boxMin = boxMin;
            child->boxMax = boxMax;
            child->containedCount = contained;
            child->triangles = std::move(list);
            node.children.push_back(std::move(child));
        }
    }
    for (const auto& child : node.children) {
        buildPlainly(package, maxDepth, *child);
    }
}

inline PlainNode plainOctree(const RT::InputPackage& package, int maxDepth) {
    PlainNode root;
    root.boxMin = package.boxMin;
    root.boxMax = package.boxMax;
    root.triangles.resize(static_cast<std::size_t>(package.triangleCount));
    root.containedCount = package.triangleCount;
    std::iota(root.triangles.begin(), root.triangles.end(), 0);
    buildPlainly(package, maxDepth, root);
    return root;
}

} // namespace insolate::test
