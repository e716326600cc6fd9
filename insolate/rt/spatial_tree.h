/// The octree over the scene's triangles.
#pragma once

#include <insolate/rt/input_package.h>

#include <tbb/blocked_range.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace RT {

/// One node; the root is the tree.
struct SpatialTree {
    std::int32_t depth = 1; ///< 1 for the root
    bool isLeaf = false;
    insolate::Vector3d boxMin{}, boxMax{};
    std::int32_t triangleCount = 0;  ///< entries of triangles
    std::int32_t containedCount = 0; ///< how many of them lie wholly inside the box
    /// Indices into the package's triangles. -1 stands where a child claimed a triangle that lies
    /// wholly inside it; rays read the lists of leaves only, which have no such marks.
    std::vector<std::int32_t> triangles;
    SpatialTree* parent = nullptr;
    std::vector<std::unique_ptr<SpatialTree>> children; ///< octants that hold something, in order
    const InputPackage* package = nullptr;

    /// The tree of this process; null until it is first generated.
    static std::unique_ptr<SpatialTree> root;

    /// Nodes deeper than this are leaves whatever they hold.
    static std::int32_t maxDepth;
};

/// Body of the parallel loop over a node's children: builds the subtree of each.
class BuildSpatialSubtree {
public:
    explicit BuildSpatialSubtree(SpatialTree* parentNode) : node(parentNode) {}
    void operator()(const tbb::blocked_range<int>& range) const;

private:
    SpatialTree* node;
};

} // namespace RT

namespace insolate {

/// An unbuilt root over all triangles of a package.
std::unique_ptr<RT::SpatialTree> makeRoot(const RT::InputPackage& package);

/// The depth limit for a number of triangles: the depth at which leaves would hold about one
/// triangle each, and three levels to spare. For no triangles it is 3.
std::int32_t depthLimit(std::int32_t triangleCount);

/// Subdivides a node and everything below it. Whatever the scheduling, the tree is the same.
void buildNode(RT::SpatialTree& node);

/// Whether a triangle overlaps a box given by its centre and half extents; touching counts.
bool overlapsBox(const RT::Triangle& triangle, const Vector3d& centre, const Vector3d& halfExtents);

} // namespace insolate
