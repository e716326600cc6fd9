/// How an OcclusionIndex lies in memory.
///
/// A hierarchy of boxes, eight children a node, over leaves of at most eight triangles. Box
/// coordinates are single precision, relative to the scene's centre, so that scenes far from the
/// origin keep their resolution. Each box is larger than what it holds: by the rounding to single
/// precision, and by a millionth of each triangle's size.
#pragma once

#include <insolate/platform/large_block.h>
#include <insolate/rt/occlusion_index.h>

#include <array>
#include <cstdint>
#include <limits>
#include <span>
#include <vector>

namespace insolate {

/// A node of eight children, 256 bytes; the lanes beyond childCount hold boxes that no ray meets.
struct alignas(64) OcclusionNode {
    static constexpr std::size_t width = 8;
    using Lanes = std::array<float, width>;

    Lanes minX, maxX, minY, maxY, minZ, maxZ;
    std::array<std::uint32_t, width> child; ///< see occlusionChild
    std::uint32_t childCount;
    std::uint32_t unused[7];
};
static_assert(sizeof(OcclusionNode) == 256);

/// What a node's child entry says: the index of an inner node, or where a leaf starts and how many
/// triangles it has.
namespace occlusionChild {

inline constexpr std::uint32_t leafBit = 0x80000000U;
inline constexpr std::uint32_t largestLeaf = 8;
inline constexpr int largestDepth = 96;

constexpr bool isLeaf(std::uint32_t child) {
    return (child & leafBit) != 0;
}
constexpr std::uint32_t leaf(std::uint32_t firstUnit, std::uint32_t count) {
    return leafBit | ((count - 1) << 28U) | firstUnit;
}
constexpr std::uint32_t firstUnit(std::uint32_t child) {
    return child & 0x0FFFFFFFU;
}
constexpr std::uint32_t triangleCount(std::uint32_t child) {
    return ((child >> 28U) & 7U) + 1;
}

} // namespace occlusionChild

/// Leaves' triangles in single precision, in units of 32 bytes. A leaf's first unit is its header;
/// behind it stand nine runs of as many floats as it has triangles: x, y, z of p0 relative to the
/// anchor, of edge1 and of edge2.
struct alignas(32) OcclusionLeafUnit {
    std::array<float, 8> values;
};

struct alignas(32) OcclusionLeafHeader {
    std::array<double, 3> anchor;
    float reach;                 ///< largest sum of the magnitudes of a p0's coordinates
    std::uint32_t firstTriangle; ///< its place in Storage::exact
};
static_assert(sizeof(OcclusionLeafHeader) == sizeof(OcclusionLeafUnit));

inline constexpr std::size_t floatsPerTriangle = 9;

constexpr std::uint32_t leafUnits(std::uint32_t triangles) {
    return 1 + (static_cast<std::uint32_t>(floatsPerTriangle) * triangles + 7) / 8;
}

/// More than these do not fit the places that an entry can name, if every leaf held one triangle.
inline constexpr std::size_t largestScene = std::size_t{1} << 26U;
static_assert(largestScene * leafUnits(1) < (std::size_t{1} << 28U));

/// The doubles of a triangle: p0, edge1, edge2.
inline constexpr std::size_t doublesPerTriangle = 9;

/// Coordinates beyond this [model units] overflow the single-precision products of the wide loops.
inline constexpr double largestCoordinate = 1e9;

struct OcclusionIndex::Storage {
    /// Holds nodes, leaves, exact and numbers, one behind the other.
    LargeBlock block;

    std::span<OcclusionNode> nodes; ///< the root is nodes[root]; empty without triangles
    std::uint32_t root = 0;

    std::span<OcclusionLeafUnit> leaves; ///< with room for a full load behind the last

    /// Triangles as the exact test takes them, in the order of the leaves.
    std::span<double> exact;

    /// The places of those triangles in the input.
    std::span<std::uint32_t> numbers;

    /// Triangles with a coordinate beyond largestCoordinate (or not finite), and those beyond
    /// largestScene, as in exact: tested for every ray.
    std::vector<double> unbounded;
    std::vector<std::uint32_t> unboundedNumbers;

    std::array<double, 3> centre{}; ///< of the scene; boxes are relative to it

    std::size_t triangleCount() const {
        return (exact.size() + unbounded.size()) / doublesPerTriangle;
    }
};

/// One leaf.
struct OcclusionLeaf {
    const OcclusionLeafHeader* header;
    const float* runs;
    std::size_t count;

    OcclusionLeaf(const OcclusionIndex::Storage& index, std::uint32_t child)
        : header(reinterpret_cast<const OcclusionLeafHeader*>(index.leaves.data() +
                                                              occlusionChild::firstUnit(child))),
          runs(reinterpret_cast<const float*>(header + 1)),
          count(occlusionChild::triangleCount(child)) {}
};

} // namespace insolate
