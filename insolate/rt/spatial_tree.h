/// The octree over the scene's triangles.
#pragma once

#include <insolate/rt/input_package.h>
#include <insolate/rt/tree_memory.h>

#include <oneapi/tbb/blocked_range.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace insolate {

/// A node as it is kept. A million triangles make millions of nodes: their boxes follow from the
/// root's box to the last bit, and RT::SpatialTree works them out on the way down.
struct PackedNode {
    TreeReference triangles = 0; ///< a leaf's list as it stands, another's packed
    TreeReference children = 0;
    std::int32_t triangleCount = 0;
    std::int32_t containedCount = 0;
    std::uint8_t depth = 1;
    std::uint8_t octant = 0; ///< of its parent
    std::uint8_t childCount = 0;
    bool isLeaf = false;
};

/// Corners of one octant of a box; octant k lies in the upper half along axis a when bit a of k is
/// set.
inline void octantBox(const Vector3d& boxMin, const Vector3d& boxMax, unsigned octant,
                      Vector3d& octantMin, Vector3d& octantMax) {
    for (std::size_t axis = 0; axis < 3; ++axis) {
        const double h = (boxMax[axis] - boxMin[axis]) * 0.5;
        octantMin[axis] = boxMin[axis] + static_cast<double>((octant >> axis) & 1U) * h;
        octantMax[axis] = octantMin[axis] + h;
    }
}

} // namespace insolate

namespace RT {

/// One node, as it is seen on the way down from the root; the root is the tree.
struct SpatialTree {
    /// The root.
    SpatialTree(const insolate::PackedNode& packedRoot, const insolate::TreeMemory& treeMemory,
                const InputPackage& triangles);

    std::int32_t depth; ///< 1 for the root
    bool isLeaf;
    insolate::Vector3d boxMin, boxMax;
    std::int32_t triangleCount;  ///< entries of triangleList()
    std::int32_t containedCount; ///< how many of them lie wholly inside the box
    const SpatialTree* parent;   ///< the node from which this one was reached; null for the root
    std::int32_t childCount;     ///< octants that hold something, at most 8
    const InputPackage* package;

    /// A child, in the octants' order; 0 <= index < childCount. It refers to this node.
    SpatialTree child(std::int32_t index) const;

    /// Indices into the package's triangles, of copies that of the first (see
    /// insolate::DistinctTriangles). -1 stands where a child claimed a triangle that lies wholly
    /// inside it; leaves have no such marks.
    std::vector<std::int32_t> triangleList() const;

    /// The same list of a leaf, for rays: they read no others.
    std::span<const std::int32_t> leafTriangles() const {
        return {memory->at<const std::int32_t>(packed->triangles),
                static_cast<std::size_t>(triangleCount)};
    }

    /// The tree of this process; null until it is first generated.
    static const SpatialTree* root;

    /// Nodes deeper than this are leaves whatever they hold.
    static std::int32_t maxDepth;

private:
    SpatialTree(const SpatialTree& from, const insolate::PackedNode& packedChild);

    const insolate::PackedNode* packed;
    const insolate::TreeMemory* memory;
};

} // namespace RT

namespace insolate {

/// A package's triangles without their copies.
///
/// Triangles that are equal to the last bit go the same way through every box, and a ray hits all
/// of them or none: the first stands for all in the tree's lists, but counts for all where a node
/// is judged full. So the nodes are those of a tree over all triangles, and thousands of copies,
/// each of which may reach thousands of boxes, cost no more than one. Of the mailboxes, too, only
/// that of the first is used.
struct DistinctTriangles {
    explicit DistinctTriangles(const RT::InputPackage& package);

    std::vector<std::int32_t> first;  ///< the first of each, in the package's order
    std::vector<std::int32_t> copies; ///< by triangle, what it counts for; empty without copies

    /// What a triangle in a list counts for.
    std::int32_t weight(std::size_t triangle) const {
        return copies.empty() ? 1 : copies[triangle];
    }
};

/// A node that is being built: its place, its box, and its list until that is packed.
struct NodeInWork {
    PackedNode* node = nullptr;
    Vector3d boxMin{}, boxMax{};
    std::unique_ptr<std::int32_t[]> triangles; ///< null for a leaf, whose list is in its place
};

} // namespace insolate

namespace RT {

/// Body of the parallel loop over a node's children: builds the subtree of each.
class BuildSpatialSubtree {
public:
    struct Children {
        std::array<insolate::NodeInWork, 8> nodes;
        /// Counts finished chunks: every task's work is ordered after its parent's and before the
        /// end of the loop by this alone, also for tools that do not see into the task library.
        std::atomic<int> finished = 0;
    };

    BuildSpatialSubtree(Children* nodes, const InputPackage* triangles,
                        const insolate::DistinctTriangles* distinctTriangles,
                        insolate::TreeMemory* treeMemory)
        : children(nodes), package(triangles), distinct(distinctTriangles), memory(treeMemory) {}
    void operator()(const tbb::blocked_range<int>& range) const;

private:
    Children* children;
    const InputPackage* package;
    const insolate::DistinctTriangles* distinct;
    insolate::TreeMemory* memory;
};

} // namespace RT

namespace insolate {

/// The depth limit for a number of triangles: the depth at which leaves would hold about one
/// triangle each, and three levels to spare. For no triangles it is 3.
std::int32_t depthLimit(std::int32_t triangleCount);

/// A tree with its memory. It refers to the package, which must not change while it is used.
class Octree {
public:
    /// Builds the tree over all triangles of a package to the depth limit in force
    /// (RT::SpatialTree::maxDepth). Whatever the scheduling, the tree is the same.
    explicit Octree(const RT::InputPackage& package);

    Octree(const Octree&) = delete;
    Octree& operator=(const Octree&) = delete;

    const RT::SpatialTree& root() const { return m_rootNode; }

private:
    TreeMemory m_memory;
    PackedNode m_packedRoot;
    RT::SpatialTree m_rootNode;
};

} // namespace insolate
