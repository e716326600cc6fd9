/// What the walks through an OcclusionIndex share on every instruction set: origins, rays, ranges
/// of cells, and what single precision may decide.
#pragma once

#include <insolate/rt/occlusion_storage.h>
#include <insolate/rt/sky_direction_table.h>
#include <insolate/rt/triangle.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace insolate {

/// Entries that a walk may hold back: seven siblings a level.
inline constexpr std::size_t stackSize =
    7 * static_cast<std::size_t>(occlusionChild::largestDepth) + 9;

/// An origin relative to the scene's centre, and its bounds in single precision.
///
/// The value is off by at most 2^-24 of its magnitude; the bounds leave 2^-22, and at least 1e-20
/// so that a box touching the origin stays in front of it.
struct BoundedOrigin {
    float bound[2][3]; ///< not above the origin; not below it

    BoundedOrigin(const Vector3d& origin, const std::array<double, 3>& centre) {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const auto value = static_cast<float>(origin[axis] - centre[axis]);
            const float margin = std::fabs(value) * 0x1p-22f + 1e-20f;
            bound[0][axis] = value - margin;
            bound[1][axis] = value + margin;
        }
    }

    /// Widens the bounds to those of another origin.
    void include(const BoundedOrigin& other) {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            bound[0][axis] = std::min(bound[0][axis], other.bound[0][axis]);
            bound[1][axis] = std::max(bound[1][axis], other.bound[1][axis]);
        }
    }
};

/// Rays from one origin that walk the hierarchy together; each is a bit in the masks of a walk.
struct RaySet {
    static constexpr std::size_t largest = 32;

    std::array<XYZf, largest> direction;
    std::array<XYZf, largest> inverse; ///< inverseDirection() of each, of any positive scale
    std::size_t count = 0;

    void add(const XYZf& along, const XYZf& inverseAlong) {
        direction[count] = along;
        inverse[count] = inverseAlong;
        ++count;
    }
    std::uint32_t all() const { return count == 0 ? 0 : ~std::uint32_t{0} >> (largest - count); }
};

/// Asks for the memory of an entry that a walk will come to. Written out, since a compiler may drop
/// a loop of prefetches as having no effect.
inline void prefetchEntry(const OcclusionIndex::Storage& index, std::uint32_t entry) {
    const char* first =
        occlusionChild::isLeaf(entry)
            ? reinterpret_cast<const char*>(index.leaves.data() + occlusionChild::firstUnit(entry))
            : reinterpret_cast<const char*>(index.nodes.data() + entry);
    __builtin_prefetch(first);
    __builtin_prefetch(first + 64);
    __builtin_prefetch(first + 128);
    __builtin_prefetch(first + 192);
    __builtin_prefetch(first + 256);
}

/// The 72 bits of a band.
struct BandBits {
    std::uint64_t low, high;
};

/// Cells [azimuth, azimuth + width) x [altitudeLow, altitudeHigh]; sectors count on from 71 to 0.
struct CellRange {
    std::uint8_t azimuth;
    std::uint8_t width;
    std::uint8_t altitudeLow;
    std::uint8_t altitudeHigh;
};

/// Sets of sectors that differ by a range's bits: ends[0..72] hold the sectors before an end,
/// ends[73..144] the sectors from the end's place in the next turn on.
inline constexpr std::array<BandBits, 145> ends = [] {
    std::array<BandBits, 145> bits{};
    for (unsigned end = 0; end < 145; ++end) {
        for (unsigned sector = 0; sector < 72; ++sector) {
            if (end <= 72 ? sector < end : sector >= end - 72) {
                (sector < 64 ? bits[end].low : bits[end].high) |= std::uint64_t{1} << sector % 64;
            }
        }
    }
    return bits;
}();

/// The sectors of a range.
inline BandBits sectorsOf(const CellRange& range) {
    const BandBits& from = ends[range.azimuth];
    const BandBits& to = ends[range.azimuth + std::size_t{range.width}];
    return {from.low ^ to.low, from.high ^ to.high};
}

/// Open cells of a range, counted on until there are more than enough.
inline int openCells(const std::uint64_t* open, const CellRange& range, int enough) {
    const BandBits sectors = sectorsOf(range);
    int count = 0;
    for (std::size_t band = range.altitudeLow; band <= range.altitudeHigh && count <= enough;
         ++band) {
        count += std::popcount(open[2 * band] & sectors.low) +
                 std::popcount(open[2 * band + 1] & sectors.high);
    }
    return count;
}

/// Whether any cell of a range is open.
inline bool anyOpen(const std::uint64_t* open, const CellRange& range) {
    const BandBits sectors = sectorsOf(range);
    std::uint64_t any = 0;
    for (std::size_t band = range.altitudeLow; band <= range.altitudeHigh; ++band) {
        any |= (open[2 * band] & sectors.low) | (open[2 * band + 1] & sectors.high);
    }
    return any != 0;
}

/// The exact test of one triangle of a leaf.
inline bool hitsExactly(const OcclusionIndex::Storage& index, const OcclusionLeaf& leaf,
                        std::size_t triangle, const Vector3d& origin, const double* direction) {
    const double* exact =
        index.exact.data() + doublesPerTriangle * (leaf.header->firstTriangle + triangle);
    return hitsTriangle(origin.data(), direction, exact, exact + 3, exact + 6);
}

// What the single-precision filters may decide.
//
// With s = origin - p0, the exact test forms, for a direction d,
//     det = d . D,  u det = d . U,  v det = d . V,  t det = T,
//     D = edge2 x edge1,  U = edge2 x s,  V = s x edge1,  T = edge2 . V,
// and (1 - u - v) det = d . W with W = D - U - V. A hit has d.U, d.V and d.W of det's sign, and T
// of the same sign, since t > 0. The filters form the same values in single precision.
//
// Let m be the largest magnitude of d's components, e the larger of the two edges' sums of
// magnitudes, S a bound of the sum of magnitudes of origin - anchor plus that of p0 - anchor, and
// r = 2^-24. Sums of magnitudes obey n(a x b) <= n(a) n(b) and |d . a| <= m n(a).
//   - s, rounded from two differences that are themselves rounded once each, is off by at most
//     3 r S; the edges by r e.
//   - A cross product of s and an edge: 3 r S e + r S e from its factors and 2 r S e from its own
//     roundings. Its dot product with d: 3 r m S e more. Together 9 r m S e. For D: 7 r m e^2.
//   - W, or det - d.U - d.V: the sum of the three and two more roundings: 9 r m e^2 + 22 r m S e.
//   - T: e times the error of V, the rounding of edge2, and 3 roundings: 10 r S e^2.
// The exact test's own roundings are 2^-29 times smaller. So beyond
//     E = 26 r m e (S + e)
// the signs of the single-precision values are those of the exact test, and beyond
//     ET = 13 r S e^2
// so is that of T. E also takes in the limit below which the exact test rejects det: a hit decided
// with all three values beyond E has det beyond three times the limit.
//
// What a box must hold. The exact test may count a ray as a hit that passes the triangle by a
// rounding error: u, v and t are off by about 2^-50 n(s) n(e) m / |det| of an edge's length. As
// long as |det| > 2^-29 m n(e1) n(e2), rays not within 2e-9 rad of the plane of a well-shaped
// triangle, that is a millionth of the distance and of the edge, and boxes and angles here have
// that much to spare. Below it, u and v of the exact test are noise, and a hit needs an origin
// within the same 2e-9 of the plane.

inline constexpr float directionFactor = 26 * 0x1p-24f; ///< times m e (S + e)
inline constexpr float volumeFactor = 13 * 0x1p-24f;    ///< times S e^2
inline constexpr float smallestError = 1.1e-10f;        ///< above the limit of |det|

/// An origin as a leaf sees it.
struct LeafOrigin {
    float x, y, z;       ///< relative to the anchor
    float reach;         ///< the bound S
    float spread = 0.0f; ///< of a block of origins around this one: their largest distance

    LeafOrigin(const OcclusionLeafHeader& header, const Vector3d& origin)
        : x(static_cast<float>(origin[0] - header.anchor[0])),
          y(static_cast<float>(origin[1] - header.anchor[1])),
          z(static_cast<float>(origin[2] - header.anchor[2])),
          reach(std::max((std::fabs(x) + std::fabs(y) + std::fabs(z) + header.reach) *
                             (1.0f + 0x1p-20f),
                         1e-15f)) {}
};

} // namespace insolate
