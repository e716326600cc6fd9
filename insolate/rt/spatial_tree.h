/// The octree over the scene's triangles.
#pragma once

#include <insolate/rt/input_package.h>

#include <oneapi/tbb/blocked_range.h>
#include <oneapi/tbb/enumerable_thread_specific.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace insolate {

/// Memory in large blocks that is given back as a whole. A tree over a million triangles has
/// millions of nodes with lists of a few entries each: allocated one by one they would take half as
/// much again.
class TreeArena {
public:
    /// Uninitialised room for a number of objects. Throws std::bad_alloc only.
    template <class T>
    T* take(std::size_t count) {
        static_assert(alignof(T) <= alignment);
        return static_cast<T*>(takeBytes(count * sizeof(T)));
    }

private:
    static constexpr std::size_t alignment = 8;

    void* takeBytes(std::size_t bytes);

    std::vector<std::unique_ptr<std::byte[]>> blocks;
    std::byte* next = nullptr;
    std::size_t left = 0;
};

/// One arena for each thread that takes part in the build.
using TreeMemory = tbb::enumerable_thread_specific<TreeArena>;

} // namespace insolate

namespace RT {

/// One node; the root is the tree. The arrays lie in the tree's memory.
struct SpatialTree {
    std::int32_t depth = 1; ///< 1 for the root
    bool isLeaf = false;
    std::uint8_t childCount = 0;
    insolate::Vector3d boxMin{}, boxMax{};
    std::int32_t triangleCount = 0;    ///< entries of triangles
    std::int32_t containedCount = 0;   ///< how many of them lie wholly inside the box
    std::int32_t* triangles = nullptr; ///< see triangleList
    SpatialTree* parent = nullptr;
    SpatialTree* children = nullptr; ///< see childNodes
    const InputPackage* package = nullptr;

    /// Indices into the package's triangles. -1 stands where a child claimed a triangle that lies
    /// wholly inside it; rays read the lists of leaves only, which have no such marks.
    std::span<std::int32_t> triangleList() const {
        return {triangles, static_cast<std::size_t>(triangleCount)};
    }

    /// The octants that hold something, in order; at most 8.
    std::span<SpatialTree> childNodes() const { return {children, childCount}; }

    /// The tree of this process; null until it is first generated.
    static SpatialTree* root;

    /// Nodes deeper than this are leaves whatever they hold.
    static std::int32_t maxDepth;
};

/// Body of the parallel loop over a node's children: builds the subtree of each.
class BuildSpatialSubtree {
public:
    BuildSpatialSubtree(SpatialTree* parentNode, insolate::TreeMemory* treeMemory)
        : node(parentNode), memory(treeMemory) {}
    void operator()(const tbb::blocked_range<int>& range) const;

private:
    SpatialTree* node;
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

    RT::SpatialTree& root() { return rootNode; }

private:
    TreeMemory memory;
    RT::SpatialTree rootNode;
};

/// Whether a triangle overlaps a box given by its centre and half extents; touching counts.
bool overlapsBox(const RT::Triangle& triangle, const Vector3d& centre, const Vector3d& halfExtents);

} // namespace insolate
