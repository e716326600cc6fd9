#include <insolate/rt/spatial_tree.h>

#include <insolate/rt/spatial_tree_util.h>

#include <tbb/parallel_for.h>
#include <tbb/partitioner.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <numeric>

namespace insolate {
namespace {

constexpr std::int32_t leafLimit = 12;
constexpr std::int32_t claimed = -1;

bool isInside(const Vector3d& vertex, const Vector3d& boxMin, const Vector3d& boxMax) {
    for (std::size_t axis = 0; axis < 3; ++axis) {
        if (!(boxMin[axis] <= vertex[axis] && vertex[axis] <= boxMax[axis])) {
            return false;
        }
    }
    return true;
}

/// Whether the projections of a triangle's vertices and a box of the given radius are apart.
bool isSeparated(double a, double b, double c, double radius) {
    return std::min({a, b, c}) > radius || std::max({a, b, c}) < -radius;
}

} // namespace

bool overlapsBox(const RT::Triangle& triangle, const Vector3d& centre,
                 const Vector3d& halfExtents) {
    const Vector3d v0 = difference(triangle.p0, centre);
    const Vector3d v1 = difference(triangle.p1, centre);
    const Vector3d v2 = difference(triangle.p2, centre);

    // Akenine-Moeller (2001), Fast 3D triangle-box overlap testing, Journal of Graphics Tools 6(1):
    // the cross products of the box axes and the edges, the box axes, the triangle's plane.
    for (const Vector3d* edge : {&triangle.edge1, &triangle.edge3, &triangle.negEdge2}) {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const std::size_t i = (axis + 1) % 3;
            const std::size_t j = (axis + 2) % 3;
            const double ei = (*edge)[i];
            const double ej = (*edge)[j];
            const auto project = [=](const Vector3d& v) { return ei * v[j] - ej * v[i]; };
            const double radius = std::fabs(ej) * halfExtents[i] + std::fabs(ei) * halfExtents[j];
            if (isSeparated(project(v0), project(v1), project(v2), radius)) {
                return false;
            }
        }
    }
    for (std::size_t axis = 0; axis < 3; ++axis) {
        if (isSeparated(v0[axis], v1[axis], v2[axis], halfExtents[axis])) {
            return false;
        }
    }
    const Vector3d& normal = triangle.normal;
    const double d = -dotProduct(normal.data(), v0.data());
    Vector3d against{};
    Vector3d along{};
    for (std::size_t axis = 0; axis < 3; ++axis) {
        along[axis] = normal[axis] > 0.0 ? halfExtents[axis] : -halfExtents[axis];
        against[axis] = -along[axis];
    }
    if (dotProduct(normal.data(), against.data()) + d > 0.0) {
        return false;
    }
    return dotProduct(normal.data(), along.data()) + d >= 0.0;
}

std::int32_t depthLimit(std::int32_t triangleCount) {
    const double levels =
        triangleCount > 0 ? std::log10(static_cast<double>(triangleCount)) / std::log10(8.0) : 0.0;
    return static_cast<std::int32_t>(levels + 0.5) + 3;
}

std::unique_ptr<RT::SpatialTree> makeRoot(const RT::InputPackage& package) {
    auto root = std::make_unique<RT::SpatialTree>();
    root->boxMin = package.boxMin;
    root->boxMax = package.boxMax;
    root->package = &package;
    root->triangleCount = package.triangleCount;
    root->containedCount = package.triangleCount;
    root->triangles.resize(static_cast<std::size_t>(package.triangleCount));
    std::iota(root->triangles.begin(), root->triangles.end(), 0);
    return root;
}

void buildNode(RT::SpatialTree& node) {
    if (node.triangleCount < leafLimit || node.depth > RT::SpatialTree::maxDepth) {
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
            if (*entry == claimed) {
                continue;
            }
            const RT::Triangle& triangle =
                node.package->triangles[static_cast<std::size_t>(*entry)];
            const int inside = isInside(triangle.p0, boxMin, boxMax) +
                               isInside(triangle.p1, boxMin, boxMax) +
                               isInside(triangle.p2, boxMin, boxMax);
            if (inside > 0 || overlapsBox(triangle, centre, halfExtents)) {
                list.push_back(*entry);
            }
            if (inside == 3) {
                ++contained;
                *entry = claimed;
            }
        }
        if (!list.empty()) {
            auto child = std::make_unique<RT::SpatialTree>();
            child->depth = node.depth + 1;
            child->boxMin = boxMin;
            child->boxMax = boxMax;
            child->triangleCount = static_cast<std::int32_t>(list.size());
            child->containedCount = contained;
            child->triangles = std::move(list);
            child->parent = &node;
            child->package = node.package;
            node.children.push_back(std::move(child));
        }
    }
    if (!node.children.empty()) {
        tbb::parallel_for(tbb::blocked_range<int>(0, static_cast<int>(node.children.size()), 4),
                          RT::BuildSpatialSubtree(&node), tbb::simple_partitioner());
    }
}

} // namespace insolate

namespace RT {

std::unique_ptr<SpatialTree> SpatialTree::root;
std::int32_t SpatialTree::maxDepth = 8;

void BuildSpatialSubtree::operator()(const tbb::blocked_range<int>& range) const {
    for (int i = range.begin(); i != range.end(); ++i) {
        insolate::buildNode(*node->children[static_cast<std::size_t>(i)]);
    }
}

void SpatialTreeUtil::GenerateSpatialTree() {
    SpatialTree::root.reset();
    const InputPackage& package = InputPackage::instance();
    SpatialTree::root = insolate::makeRoot(package);
    SpatialTree::maxDepth = insolate::depthLimit(package.triangleCount);
    insolate::buildNode(*SpatialTree::root);
}

} // namespace RT
