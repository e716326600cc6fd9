/// How an OcclusionIndex lies in memory.
///
/// A hierarchy of boxes, eight children a node, over leaves of at most eight triangles. Box
/// coordinates are single precision, relative to the scene's centre, so that scenes far from the
/// origin keep their resolution. Each box is larger than what it holds: by the rounding to single
/// precision, and by a millionth of each triangle's size.
#pragma once

#include <insolate/rt/occlusion_index.h>

#include <array>
#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

namespace insolate {

/// A node of eight children, 256 bytes; the lanes beyond childCount hold boxes that no ray meets.
struct alignas(64) OcclusionNode {
    static constexpr std::size_t width = 8;
    using Lanes = std::array<float, width>;

    Lanes minX, maxX, minY, maxY, minZ, maxZ;
    std::array<std::uint32_t, width> child; ///< see OcclusionChild
    std::uint32_t childCount;
    std::uint32_t unused[7];
};
static_assert(sizeof(OcclusionNode) == 256);

/// What a node's child entry says: the index of an inner node, or a leaf's triangles.
namespace occlusionChild {

inline constexpr std::uint32_t leafBit = 0x80000000U;
inline constexpr std::uint32_t largestLeaf = 8;
inline constexpr int largestDepth = 96;
inline constexpr std::size_t largestScene = std::size_t{1} << 28U;

constexpr bool isLeaf(std::uint32_t child) {
    return (child & leafBit) != 0;
}
constexpr std::uint32_t leaf(std::uint32_t first, std::uint32_t count) {
    return leafBit | ((count - 1) << 28U) | first;
}
constexpr std::uint32_t firstTriangle(std::uint32_t child) {
    return child & 0x0FFFFFFFU;
}
constexpr std::uint32_t triangleCount(std::uint32_t child) {
    return ((child >> 28U) & 7U) + 1;
}

} // namespace occlusionChild

/// The doubles of a triangle in the order in which a leaf stores them: x, y, z of p0, then edge1,
/// then edge2. A leaf of n triangles is 9 runs of n doubles.
inline constexpr std::size_t doublesPerTriangle = 9;

/// Coordinates beyond this [model units] overflow the single-precision products of the wide loops.
inline constexpr double largestCoordinate = 1e9;

struct OcclusionIndex::Storage {
    std::vector<OcclusionNode> nodes; ///< the root is nodes[root]; empty without triangles
    std::uint32_t root = 0;
    std::size_t count = 0; ///< triangles in the hierarchy
    std::size_t total = 0; ///< triangles given

    /// Leaves' triangles, with room for a full load behind the last one.
    std::unique_ptr<double[]> triangles;

    /// Triangles with a coordinate beyond largestCoordinate (or not finite), nine doubles each as
    /// in a leaf of one: tested for every ray.
    std::vector<double> unbounded;

    std::array<double, 3> centre{}; ///< of the scene; boxes are relative to it
};

} // namespace insolate
