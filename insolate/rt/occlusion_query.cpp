// The walks through an OcclusionIndex: a few rays together, one ray to its hits, or all cells of a
// mask at once.
//
// All walk the same hierarchy of boxes from the root, eight boxes in a few vector operations, with
// a stack of entries that are still to be visited.
//
// - RayWalk carries up to 32 rays as bits. Each entry holds the rays that may meet its box.
// - HitWalk carries one ray and asks the nearest box first: for the nearest hit it leaves out what
//   begins behind the hit that it has, for all hits nothing.
// - MaskWalk carries the open cells of the sky, a bit each, and no rays. A box seen from the origin
//   spans a range of azimuths and altitudes; it matters when a cell in that range is still open.
//   The nearest box comes first, since what it blocks need not be asked of those behind it. In a
//   leaf, each triangle closes the cells of its own range whose directions pass through it. Where
//   few cells of a range are open they go on as rays.
//
// A leaf's triangles are tested in single precision with a bound of the error, derived below. What
// lies within the bound goes to hitsTriangle() in double precision, which is the one definition of
// a hit: so both walks answer as if every ray had been tested with every triangle. The file is
// compiled once for each instruction set.

#include <insolate/rt/occlusion_query.h>

#include <insolate/platform/simd.h>
#include <insolate/platform/simd_targets.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "insolate/rt/occlusion_query.cpp"
#include <hwy/foreach_target.h>

#include <hwy/highway.h>

#include <insolate/platform/vector_masks.h>

#ifndef INSOLATE_OCCLUSION_QUERY_ONCE
#define INSOLATE_OCCLUSION_QUERY_ONCE

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

/// Keeps the nearest hit; of hits at one distance that of the lowest number, so that the answer
/// does not depend on the order of the walk.
struct NearestFound {
    RayHit* hit;
    void add(double distance, std::uint32_t number) const {
        if (distance < hit->distance || (distance == hit->distance && number < hit->triangle)) {
            *hit = {distance, number};
        }
    }
    double limit() const { return hit->distance; }
};

struct AllFound {
    std::vector<RayHit>* hits;
    void add(double distance, std::uint32_t number) const { hits->push_back({distance, number}); }
    static double limit() { return std::numeric_limits<double>::infinity(); }
};

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
    float x, y, z; ///< relative to the anchor
    float reach;   ///< the bound S

    LeafOrigin(const OcclusionLeafHeader& header, const Vector3d& origin)
        : x(static_cast<float>(origin[0] - header.anchor[0])),
          y(static_cast<float>(origin[1] - header.anchor[1])),
          z(static_cast<float>(origin[2] - header.anchor[2])),
          reach(std::max((std::fabs(x) + std::fabs(y) + std::fabs(z) + header.reach) *
                             (1.0f + 0x1p-20f),
                         1e-15f)) {}
};

} // namespace insolate

#endif // INSOLATE_OCCLUSION_QUERY_ONCE

HWY_BEFORE_NAMESPACE();
namespace insolate {
namespace HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

using Floats = hn::CappedTag<float, 8>;
using Cells = hn::CappedTag<float, 16>;

template <typename V>
HWY_INLINE V crossTerm(V a, V b, V c, V d) {
    return hn::MulSub(a, b, hn::Mul(c, d));
}
template <typename V>
HWY_INLINE V dotOf(V ax, V ay, V az, V bx, V by, V bz) {
    return hn::MulAdd(az, bz, hn::MulAdd(ay, by, hn::Mul(ax, bx)));
}
template <typename V>
HWY_INLINE V sumOfMagnitudes(V x, V y, V z) {
    return hn::Add(hn::Add(hn::Abs(x), hn::Abs(y)), hn::Abs(z));
}
HWY_INLINE std::uint32_t allLanes(std::size_t count) {
    return (1U << count) - 1;
}

using FloatLanes = hn::Vec<Floats>;

/// Some boxes of a node relative to an origin, each large enough for the origin's rounding.
struct RelativeBoxes {
    FloatLanes x0, x1, y0, y1, z0, z1;

    HWY_INLINE RelativeBoxes() = default;
    HWY_INLINE RelativeBoxes(const OcclusionNode& node, const BoundedOrigin& origin,
                             std::size_t lane) {
        const Floats d;
        x0 = hn::Sub(hn::Load(d, node.minX.data() + lane), hn::Set(d, origin.bound[1][0]));
        x1 = hn::Sub(hn::Load(d, node.maxX.data() + lane), hn::Set(d, origin.bound[0][0]));
        y0 = hn::Sub(hn::Load(d, node.minY.data() + lane), hn::Set(d, origin.bound[1][1]));
        y1 = hn::Sub(hn::Load(d, node.maxY.data() + lane), hn::Set(d, origin.bound[0][1]));
        z0 = hn::Sub(hn::Load(d, node.minZ.data() + lane), hn::Set(d, origin.bound[1][2]));
        z1 = hn::Sub(hn::Load(d, node.maxZ.data() + lane), hn::Set(d, origin.bound[0][2]));
    }
};

/// Some triangles of a leaf seen from an origin.
struct SeenLanes {
    // Relative to p0, and the edges.
    FloatLanes sx, sy, sz, e1x, e1y, e1z, e2x, e2y, e2z;
    FloatLanes edge; ///< the bound e

    // U, V and W, turned so that a hit has positive dot products with all three.
    FloatLanes ux, uy, uz, vx, vy, vz, wx, wy, wz;
    FloatLanes error;          ///< E
    FloatLanes volume;         ///< |T|
    FloatLanes volumeError;    ///< ET
    hn::Mask<Floats> possible; ///< may be hit at all
    hn::Mask<Floats> near;     ///< may be hit nearer than 0.01
    hn::Mask<Floats> edgeOn;   ///< T's sign is not certain

    /// m: the largest component of any direction.
    HWY_INLINE SeenLanes(const OcclusionLeaf& leaf, const LeafOrigin& origin, std::size_t lane,
                         float m) {
        const Floats d;
        const float* first = leaf.runs + lane;
        const std::size_t n = leaf.count;
        sx = hn::Sub(hn::Set(d, origin.x), hn::LoadU(d, first));
        sy = hn::Sub(hn::Set(d, origin.y), hn::LoadU(d, first + n));
        sz = hn::Sub(hn::Set(d, origin.z), hn::LoadU(d, first + 2 * n));
        e1x = hn::LoadU(d, first + 3 * n);
        e1y = hn::LoadU(d, first + 4 * n);
        e1z = hn::LoadU(d, first + 5 * n);
        e2x = hn::LoadU(d, first + 6 * n);
        e2y = hn::LoadU(d, first + 7 * n);
        e2z = hn::LoadU(d, first + 8 * n);
        edge = hn::LoadU(d, first + 9 * n);

        vx = crossTerm(sy, e1z, sz, e1y);
        vy = crossTerm(sz, e1x, sx, e1z);
        vz = crossTerm(sx, e1y, sy, e1x);
        ux = crossTerm(e2y, sz, e2z, sy);
        uy = crossTerm(e2z, sx, e2x, sz);
        uz = crossTerm(e2x, sy, e2y, sx);
        const FloatLanes dx = crossTerm(e2y, e1z, e2z, e1y);
        const FloatLanes dy = crossTerm(e2z, e1x, e2x, e1z);
        const FloatLanes dz = crossTerm(e2x, e1y, e2y, e1x);
        const FloatLanes t = dotOf(e2x, e2y, e2z, vx, vy, vz);
        const FloatLanes sign = hn::And(t, hn::SignBit(d));
        wx = hn::Xor(hn::Sub(hn::Sub(dx, ux), vx), sign);
        wy = hn::Xor(hn::Sub(hn::Sub(dy, uy), vy), sign);
        wz = hn::Xor(hn::Sub(hn::Sub(dz, uz), vz), sign);
        ux = hn::Xor(ux, sign);
        uy = hn::Xor(uy, sign);
        uz = hn::Xor(uz, sign);
        vx = hn::Xor(vx, sign);
        vy = hn::Xor(vy, sign);
        vz = hn::Xor(vz, sign);

        const FloatLanes edge2 = hn::Mul(edge, edge);
        error = hn::MulAdd(hn::Mul(edge, hn::Set(d, directionFactor * m)),
                           hn::Add(hn::Set(d, origin.reach), edge), hn::Set(d, smallestError));
        volume = hn::Abs(t);
        volumeError = hn::Mul(edge2, hn::Set(d, volumeFactor * origin.reach));
        const FloatLanes largestDet =
            hn::Mul(hn::Set(d, m * 1.001f),
                    hn::MulAdd(hn::Set(d, 0x1p-20f), edge2, sumOfMagnitudes(dx, dy, dz)));
        possible = hn::Gt(largestDet, hn::Set(d, 0.99f * static_cast<float>(parallelLimit)));
        near = hn::Lt(hn::Sub(volume, volumeError),
                      hn::Mul(hn::Set(d, 1.02f * static_cast<float>(nearestHit)), largestDet));
        edgeOn = hn::Le(volume, volumeError);
    }
};

// ---------------------------------------------------------------------------------------------
// A few rays

/// The rays of a set that something below an entry blocks.
class RayWalk {
public:
    RayWalk(const OcclusionIndex::Storage& index, const Vector3d& origin,
            const BoundedOrigin& bounded, const RaySet& rays, float largestComponent)
        : m_index(index), m_origin(origin), m_bounded(bounded), m_rays(rays),
          m_largestComponent(largestComponent) {}

    HWY_NOINLINE std::uint32_t blockedBelow(std::uint32_t top) const {
        struct Held {
            std::uint32_t child;
            std::uint32_t rays;
        };
        Held stack[stackSize];
        std::size_t held = 0;
        stack[held++] = {top, m_rays.all()};
        std::uint32_t open = m_rays.all();
        while (held != 0) {
            const Held entry = stack[--held];
            const std::uint32_t asked = entry.rays & open;
            if (asked == 0) {
                continue;
            }
            if (occlusionChild::isLeaf(entry.child)) {
                open &= ~blockedByLeaf(entry.child, asked);
                continue;
            }
            const OcclusionNode& node = m_index.nodes[entry.child];
            alignas(32) std::array<std::uint32_t, OcclusionNode::width> met;
            for (std::uint32_t lanes = childrenMet(node, asked, met); lanes != 0;
                 lanes &= lanes - 1) {
                const auto lane = static_cast<std::size_t>(std::countr_zero(lanes));
                prefetchEntry(m_index, node.child[lane]);
                stack[held++] = {node.child[lane], met[lane]};
            }
        }
        return m_rays.all() & ~open;
    }

private:
    /// For each child the rays that may meet its box; the children that any ray may meet.
    ///
    /// Ize (2013), "Robust BVH ray traversal", Journal of Computer Graphics Techniques 2(2): each
    /// distance is off by at most three roundings, so 2^-20 between near and far keeps every box
    /// that the real ray meets.
    HWY_INLINE std::uint32_t
    childrenMet(const OcclusionNode& node, std::uint32_t asked,
                std::array<std::uint32_t, OcclusionNode::width>& met) const {
        const Floats d;
        const hn::RebindToUnsigned<Floats> du;
        std::uint32_t children = 0;
        for (std::size_t lane = 0; lane < OcclusionNode::width; lane += hn::Lanes(d)) {
            const RelativeBoxes box(node, m_bounded, lane);
            auto meeting = hn::Zero(du);
            for (std::uint32_t left = asked; left != 0; left &= left - 1) {
                const auto ray = static_cast<std::size_t>(std::countr_zero(left));
                const auto inverseX = hn::Set(d, m_rays.inverse[ray].x);
                const auto inverseY = hn::Set(d, m_rays.inverse[ray].y);
                const auto inverseZ = hn::Set(d, m_rays.inverse[ray].z);
                const auto ax = hn::Mul(box.x0, inverseX);
                const auto bx = hn::Mul(box.x1, inverseX);
                const auto ay = hn::Mul(box.y0, inverseY);
                const auto by = hn::Mul(box.y1, inverseY);
                const auto az = hn::Mul(box.z0, inverseZ);
                const auto bz = hn::Mul(box.z1, inverseZ);
                const auto in = hn::Max(hn::Max(hn::Min(ax, bx), hn::Min(ay, by)),
                                        hn::Max(hn::Min(az, bz), hn::Zero(d)));
                const auto out =
                    hn::Min(hn::Min(hn::Max(ax, bx), hn::Max(ay, by)), hn::Max(az, bz));
                const auto meets = hn::Le(in, hn::Mul(out, hn::Set(d, 1.0f + 0x1p-20f)));
                meeting = hn::Or(meeting, hn::IfThenElseZero(hn::RebindMask(du, meets),
                                                             hn::Set(du, std::uint32_t{1} << ray)));
            }
            hn::Store(meeting, du, met.data() + lane);
            children |= bitsOf(du, hn::Ne(meeting, hn::Zero(du))) << lane;
        }
        return children & allLanes(node.childCount);
    }

    /// The rays among `asked` that hit one of a leaf's triangles.
    HWY_INLINE std::uint32_t blockedByLeaf(std::uint32_t child, std::uint32_t asked) const {
        const OcclusionLeaf leaf(m_index, child);
        const LeafOrigin from(*leaf.header, m_origin);
        const Floats d;
        std::uint32_t blocked = 0;
        for (std::size_t lane = 0; lane < leaf.count; lane += hn::Lanes(d)) {
            const SeenLanes seen(leaf, from, lane, m_largestComponent);
            const std::uint32_t real =
                allLanes(std::min<std::size_t>(leaf.count - lane, hn::Lanes(d)));
            const std::uint32_t possible = bitsOf(d, seen.possible) & real;
            const std::uint32_t certain = possible & ~bitsOf(d, seen.near);
            const std::uint32_t edgeOn = bitsOf(d, seen.edgeOn) & possible;
            for (std::uint32_t left = asked & ~blocked; left != 0; left &= left - 1) {
                const auto ray = static_cast<std::size_t>(std::countr_zero(left));
                const auto x = hn::Set(d, m_rays.direction[ray].x);
                const auto y = hn::Set(d, m_rays.direction[ray].y);
                const auto z = hn::Set(d, m_rays.direction[ray].z);
                const auto u = dotOf(x, y, z, seen.ux, seen.uy, seen.uz);
                const auto v = dotOf(x, y, z, seen.vx, seen.vy, seen.vz);
                const auto w = dotOf(x, y, z, seen.wx, seen.wy, seen.wz);
                const auto least = hn::Min(hn::Min(u, v), w);
                bool isBlocked = (bitsOf(d, hn::Gt(least, seen.error)) & certain) != 0;
                std::uint32_t maybe = bitsOf(d, hn::Ge(least, hn::Neg(seen.error))) & possible;
                if (edgeOn != 0) {
                    const auto greatest = hn::Max(hn::Max(u, v), w);
                    maybe |= bitsOf(d, hn::Le(greatest, seen.error)) & edgeOn;
                }
                for (; maybe != 0 && !isBlocked; maybe &= maybe - 1) {
                    const XYZf& along = m_rays.direction[ray];
                    const double direction[3] = {static_cast<double>(along.x),
                                                 static_cast<double>(along.y),
                                                 static_cast<double>(along.z)};
                    isBlocked = hitsExactly(
                        m_index, leaf, lane + static_cast<std::size_t>(std::countr_zero(maybe)),
                        m_origin, direction);
                }
                blocked |= static_cast<std::uint32_t>(isBlocked) << ray;
            }
        }
        return blocked;
    }

    const OcclusionIndex::Storage& m_index;
    const Vector3d& m_origin;
    const BoundedOrigin& m_bounded;
    const RaySet& m_rays;
    float m_largestComponent;
};

bool OccludedInHierarchy(const OcclusionIndex::Storage& index, const Vector3d& origin,
                         const XYZf& direction) {
    // Boxes do not care for the direction's length; near 1 nothing overflows.
    const float largest =
        std::max({std::fabs(direction.x), std::fabs(direction.y), std::fabs(direction.z)});
    RaySet rays;
    rays.add(direction, inverseDirection(
                            {direction.x / largest, direction.y / largest, direction.z / largest}));
    const BoundedOrigin bounded(origin, index.centre);
    return RayWalk(index, origin, bounded, rays, largest).blockedBelow(index.root) != 0;
}

std::uint32_t ManyOccludedInHierarchy(const OcclusionIndex::Storage& index, const Vector3d& origin,
                                      std::span<const XYZf> directions) {
    RaySet rays;
    float largest = 0.0f;
    for (const XYZf& direction : directions) {
        const float length =
            std::max({std::fabs(direction.x), std::fabs(direction.y), std::fabs(direction.z)});
        rays.add(direction, inverseDirection({direction.x / length, direction.y / length,
                                              direction.z / length}));
        largest = std::max(largest, length);
    }
    const BoundedOrigin bounded(origin, index.centre);
    return RayWalk(index, origin, bounded, rays, largest).blockedBelow(index.root);
}

// ---------------------------------------------------------------------------------------------
// One ray to its hits

template <class Found>
class HitWalk {
public:
    /// length: the direction's largest component; distances of boxes are measured in that.
    HitWalk(const OcclusionIndex::Storage& index, const Vector3d& origin,
            const BoundedOrigin& bounded, const XYZf& direction, float length, Found found)
        : m_index(index), m_origin(origin), m_bounded(bounded), m_direction(direction),
          m_inverse(
              inverseDirection({direction.x / length, direction.y / length, direction.z / length})),
          m_length(length), m_found(found) {}

    HWY_NOINLINE void run(std::uint32_t top) const {
        Held stack[stackSize];
        std::size_t held = 0;
        stack[held++] = {top, 0.0f};
        while (held != 0) {
            const Held entry = stack[--held];
            if (entry.distance > limit()) {
                continue;
            }
            if (occlusionChild::isLeaf(entry.child)) {
                findInLeaf(entry.child);
            } else {
                held += holdChildren(m_index.nodes[entry.child], stack + held);
            }
        }
    }

private:
    struct Held {
        std::uint32_t child;
        float distance;
    };

    /// Boxes that begin beyond this hold nothing nearer. Distances of boxes are off by three
    /// roundings, as in RayWalk::childrenMet(); four times as much is left. A hit that the exact
    /// test finds by its roundings alone lies within a millionth of its distance of its box, and
    /// that has its room here too.
    HWY_INLINE float limit() const {
        return static_cast<float>(m_found.limit() * static_cast<double>(m_length)) *
                   (1.0f + 0x1p-17f) +
               1e-20f;
    }

    /// Puts the children that the ray may meet on the stack, the nearest last.
    HWY_INLINE std::size_t holdChildren(const OcclusionNode& node, Held* stack) const {
        const Floats d;
        alignas(32) std::array<float, OcclusionNode::width> distances;
        const auto inverseX = hn::Set(d, m_inverse.x);
        const auto inverseY = hn::Set(d, m_inverse.y);
        const auto inverseZ = hn::Set(d, m_inverse.z);
        const auto farthest = hn::Set(d, limit());
        std::uint32_t children = 0;
        for (std::size_t lane = 0; lane < OcclusionNode::width; lane += hn::Lanes(d)) {
            const RelativeBoxes box(node, m_bounded, lane);
            const auto ax = hn::Mul(box.x0, inverseX);
            const auto bx = hn::Mul(box.x1, inverseX);
            const auto ay = hn::Mul(box.y0, inverseY);
            const auto by = hn::Mul(box.y1, inverseY);
            const auto az = hn::Mul(box.z0, inverseZ);
            const auto bz = hn::Mul(box.z1, inverseZ);
            const auto in = hn::Max(hn::Max(hn::Min(ax, bx), hn::Min(ay, by)),
                                    hn::Max(hn::Min(az, bz), hn::Zero(d)));
            const auto out = hn::Min(hn::Min(hn::Max(ax, bx), hn::Max(ay, by)), hn::Max(az, bz));
            const auto meets = hn::And(hn::Le(in, hn::Mul(out, hn::Set(d, 1.0f + 0x1p-20f))),
                                       hn::Le(in, farthest));
            hn::Store(in, d, distances.data() + lane);
            children |= bitsOf(d, meets) << lane;
        }
        std::size_t count = 0;
        for (children &= allLanes(node.childCount); children != 0; children &= children - 1) {
            const auto lane = static_cast<std::size_t>(std::countr_zero(children));
            const float distance = distances[lane];
            std::size_t place = count++;
            for (; place > 0 && stack[place - 1].distance < distance; --place) {
                stack[place] = stack[place - 1];
            }
            stack[place] = {node.child[lane], distance};
            prefetchEntry(m_index, node.child[lane]);
        }
        return count;
    }

    HWY_INLINE void findInLeaf(std::uint32_t child) const {
        const OcclusionLeaf leaf(m_index, child);
        const LeafOrigin from(*leaf.header, m_origin);
        const Floats d;
        const auto x = hn::Set(d, m_direction.x);
        const auto y = hn::Set(d, m_direction.y);
        const auto z = hn::Set(d, m_direction.z);
        for (std::size_t lane = 0; lane < leaf.count; lane += hn::Lanes(d)) {
            const SeenLanes seen(leaf, from, lane, m_length);
            const auto u = dotOf(x, y, z, seen.ux, seen.uy, seen.uz);
            const auto v = dotOf(x, y, z, seen.vx, seen.vy, seen.vz);
            const auto w = dotOf(x, y, z, seen.wx, seen.wy, seen.wz);
            const auto least = hn::Min(hn::Min(u, v), w);
            const auto greatest = hn::Max(hn::Max(u, v), w);
            std::uint32_t maybe =
                (bitsOf(d, hn::Ge(least, hn::Neg(seen.error))) |
                 (bitsOf(d, hn::Le(greatest, seen.error)) & bitsOf(d, seen.edgeOn))) &
                bitsOf(d, seen.possible) &
                allLanes(std::min<std::size_t>(leaf.count - lane, hn::Lanes(d)));
            for (; maybe != 0; maybe &= maybe - 1) {
                const std::size_t place = leaf.header->firstTriangle + lane +
                                          static_cast<std::size_t>(std::countr_zero(maybe));
                const double direction[3] = {static_cast<double>(m_direction.x),
                                             static_cast<double>(m_direction.y),
                                             static_cast<double>(m_direction.z)};
                const double* exact = m_index.exact.data() + doublesPerTriangle * place;
                double distance = 0.0;
                if (hitsTriangle(m_origin.data(), direction, exact, exact + 3, exact + 6,
                                 distance)) {
                    m_found.add(distance, m_index.numbers[place]);
                }
            }
        }
    }

    const OcclusionIndex::Storage& m_index;
    const Vector3d& m_origin;
    const BoundedOrigin& m_bounded;
    XYZf m_direction;
    XYZf m_inverse;
    float m_length;
    Found m_found;
};

inline float largestComponent(const XYZf& v) {
    return std::max({std::fabs(v.x), std::fabs(v.y), std::fabs(v.z)});
}

void NearestInHierarchy(const OcclusionIndex::Storage& index, const Vector3d& origin,
                        std::span<const XYZf> directions, std::span<RayHit> hits) {
    const BoundedOrigin bounded(origin, index.centre);
    for (std::size_t i = 0; i < directions.size(); ++i) {
        HitWalk<NearestFound>(index, origin, bounded, directions[i],
                              largestComponent(directions[i]), {&hits[i]})
            .run(index.root);
    }
}

void AllHitsInHierarchy(const OcclusionIndex::Storage& index, const Vector3d& origin,
                        const XYZf& direction, std::vector<RayHit>& hits) {
    const BoundedOrigin bounded(origin, index.centre);
    HitWalk<AllFound>(index, origin, bounded, direction, largestComponent(direction), {&hits})
        .run(index.root);
}

// ---------------------------------------------------------------------------------------------
// All cells of one origin

/// The cells that each of eight boxes may block.
struct BoxReach {
    // First and last cell whose direction may pass through the box. Sectors may lie outside 0..71
    // by up to a turn.
    alignas(32) std::array<std::int32_t, 8> azimuthFirst, azimuthLast, altitudeFirst, altitudeLast;
};

/// The angle of (x, y) counterclockwise from the x axis in units of 5 degrees, in [-36, 36].
///
/// Abramowitz, Stegun (1964), Handbook of Mathematical Functions, eq. 4.4.47: arctangent within
/// 1e-5 rad, which is 1.2e-4 units; rounding adds less than 3e-5.
template <typename Tag, typename V>
HWY_INLINE V angleOf(Tag d, V x, V y) {
    const auto ax = hn::Abs(x);
    const auto ay = hn::Abs(y);
    const auto larger = hn::Max(hn::Max(ax, ay), hn::Set(d, 1e-37f));
    const auto q = hn::Div(hn::Min(ax, ay), larger);
    const auto q2 = hn::Mul(q, q);
    constexpr float unit = static_cast<float>(1.0 / skyGrid::cellWidth);
    auto sum = hn::Set(d, 0.0208351f * unit);
    sum = hn::MulAdd(sum, q2, hn::Set(d, -0.0851330f * unit));
    sum = hn::MulAdd(sum, q2, hn::Set(d, 0.1801410f * unit));
    sum = hn::MulAdd(sum, q2, hn::Set(d, -0.3302995f * unit));
    sum = hn::MulAdd(sum, q2, hn::Set(d, 0.9998660f * unit));
    auto angle = hn::Mul(sum, q);
    angle = hn::IfThenElse(hn::Gt(ay, ax), hn::Sub(hn::Set(d, 18.0f), angle), angle);
    angle = hn::IfThenElse(hn::Lt(x, hn::Zero(d)), hn::Sub(hn::Set(d, 36.0f), angle), angle);
    return hn::CopySign(angle, y);
}

/// Everything about one walk for a mask. With two sets of directions each band of cells is split in
/// two, the first set's in the lower halves: a finer mask, of which nothing is asked twice.
template <std::size_t split>
class MaskWalk {
public:
    MaskWalk(const OcclusionIndex::Storage& index, const Vector3d& origin,
             std::span<const OpenSky, split> skies, const SkyReach& reachOfSkies)
        : m_index(index), m_origin(origin), m_skies(skies), m_bounded(origin, index.centre),
          m_reachOfSkies(reachOfSkies) {
        for (std::size_t k = 0; k < split; ++k) {
            m_largestComponent =
                std::max(m_largestComponent, m_skies[k].directions->largestComponent);
            for (std::size_t word = 0; word < SkyCellSet::wordCount; ++word) {
                m_open[(word / 2 * split + k) * 2 + word % 2] = m_skies[k].open->words[word];
            }
        }
    }

    /// Leaves what is still open in the sets.
    void finish() const {
        for (std::size_t k = 0; k < split; ++k) {
            for (std::size_t word = 0; word < SkyCellSet::wordCount; ++word) {
                m_skies[k].open->words[word] = m_open[(word / 2 * split + k) * 2 + word % 2];
            }
        }
    }

    void run() {
        HeldEntry stack[stackSize];
        std::size_t held = 0;
        stack[held].child = m_index.root;
        stack[held++].range = {0, 72, 0, bandCount - 1};
        while (held != 0) {
            const HeldEntry entry = stack[--held];
            const int cells = openCells(m_open.data(), entry.range, fewCells);
            if (cells == 0) {
                continue;
            }
            if (cells <= fewCells) {
                castCells(entry);
                continue;
            }
            if (occlusionChild::isLeaf(entry.child)) {
                closeBehindLeaf(entry.child);
                continue;
            }
            held += holdChildren(m_index.nodes[entry.child], stack + held);
        }
    }

private:
    static constexpr int bandCount = skyGrid::altitudeCount * split;

    /// An entry that the walk holds back, with the cells that it may block.
    struct HeldEntry {
        std::uint32_t child;
        CellRange range;
    };

    /// So few open cells of a range are cheaper as rays (./dev bench rays masks). As many as a set
    /// of rays takes: with more, a range would be walked twice.
    static constexpr int fewCells = RaySet::largest;

    /// Added to either end of a range [cells]: six times the error of angleOf(). The boxes
    /// themselves are rounded outwards and hold every hit of the exact test.
    static constexpr float angleMargin = 1e-3f;

    /// Puts the children that may block an open cell on the stack, the nearest last.
    HWY_INLINE std::size_t holdChildren(const OcclusionNode& node, HeldEntry* stack) const {
        BoxReach reach;
        alignas(32) std::array<float, 8> boxDistance; // squared
        std::uint32_t reached = 0;
        const Floats d;
        for (std::size_t lane = 0; lane < OcclusionNode::width; lane += hn::Lanes(d)) {
            const RelativeBoxes box(node, m_bounded, lane);
            reached |= reachOfBoxes(box, reach, lane);
            hn::Store(squaredDistance(box), d, boxDistance.data() + lane);
        }
        float distances[OcclusionNode::width];
        std::size_t count = 0;
        for (std::uint32_t lanes = reached & allLanes(node.childCount); lanes != 0;
             lanes &= lanes - 1) {
            const auto lane = static_cast<std::size_t>(std::countr_zero(lanes));
            HeldEntry entry;
            entry.child = node.child[lane];
            entry.range = rangeOf(reach, lane);
            if (!anyOpen(m_open.data(), entry.range)) {
                continue;
            }
            const float distance = boxDistance[lane];
            std::size_t place = count++;
            for (; place > 0 && distances[place - 1] < distance; --place) {
                distances[place] = distances[place - 1];
                stack[place] = stack[place - 1];
            }
            distances[place] = distance;
            stack[place] = entry;
            prefetchEntry(m_index, entry.child);
        }
        return count;
    }

    static HWY_INLINE CellRange rangeOf(const BoxReach& reach, std::size_t lane) {
        int first = reach.azimuthFirst[lane];
        int width = reach.azimuthLast[lane] - first + 1;
        if (width >= skyGrid::azimuthCount) {
            first = 0;
            width = skyGrid::azimuthCount;
        } else {
            first = first < 0 ? first + skyGrid::azimuthCount : first;
            first = first >= skyGrid::azimuthCount ? first - skyGrid::azimuthCount : first;
        }
        return {static_cast<std::uint8_t>(first), static_cast<std::uint8_t>(width),
                static_cast<std::uint8_t>(reach.altitudeFirst[lane]),
                static_cast<std::uint8_t>(reach.altitudeLast[lane])};
    }

    static HWY_INLINE FloatLanes squaredDistance(const RelativeBoxes& box) {
        const auto zero = hn::Zero(Floats());
        const auto x = hn::Max(hn::Max(box.x0, hn::Neg(box.x1)), zero);
        const auto y = hn::Max(hn::Max(box.y0, hn::Neg(box.y1)), zero);
        const auto z = hn::Max(hn::Max(box.z0, hn::Neg(box.z1)), zero);
        return hn::MulAdd(z, z, hn::MulAdd(x, x, hn::Mul(y, y)));
    }

    /// The cells whose directions may pass through boxes, given relative to the origin; the lanes
    /// that have any.
    HWY_INLINE std::uint32_t reachOfBoxes(const RelativeBoxes& box, BoxReach& reach,
                                          std::size_t lane) const {
        const auto x0 = box.x0;
        const auto x1 = box.x1;
        const auto y0 = box.y0;
        const auto y1 = box.y1;
        const auto z0 = box.z0;
        const auto z1 = box.z1;
        const Floats d;
        const auto zero = hn::Zero(d);
        const auto right = hn::Gt(x0, zero);
        const auto left = hn::Lt(x1, zero);
        const auto above = hn::Gt(y0, zero);
        const auto below = hn::Lt(y1, zero);
        // The outline's corners seen from the origin: the one farthest clockwise and the one
        // farthest counterclockwise.
        const auto clockwiseX = hn::IfThenElse(hn::Or(above, hn::AndNot(below, left)), x1, x0);
        const auto clockwiseY = hn::IfThenElse(hn::Or(right, hn::AndNot(left, above)), y0, y1);
        const auto counterX = hn::IfThenElse(hn::Or(below, hn::AndNot(above, left)), x1, x0);
        const auto counterY = hn::IfThenElse(hn::Or(left, hn::AndNot(right, above)), y0, y1);
        const auto around = hn::Not(hn::Or(hn::Or(right, left), hn::Or(above, below)));

        const auto nearX = hn::Max(hn::Max(x0, hn::Neg(x1)), zero);
        const auto nearY = hn::Max(hn::Max(y0, hn::Neg(y1)), zero);
        const auto farX = hn::Max(hn::Neg(x0), x1);
        const auto farY = hn::Max(hn::Neg(y0), y1);
        const auto nearest = hn::Sqrt(hn::MulAdd(nearX, nearX, hn::Mul(nearY, nearY)));
        const auto farthest = hn::Sqrt(hn::MulAdd(farX, farX, hn::Mul(farY, farY)));
        const auto highest = angleOf(d, hn::IfThenElse(hn::Gt(z1, zero), nearest, farthest), z1);
        const auto lowest = angleOf(d, hn::IfThenElse(hn::Gt(z0, zero), farthest, nearest), z0);
        const auto counter = angleOf(d, counterX, counterY);
        const auto clockwise = angleOf(d, clockwiseX, clockwiseY);

        const auto turn = hn::Set(d, 72.0f);
        const auto reference = hn::Set(d, m_reachOfSkies.azimuthOrigin);
        auto from = hn::Sub(reference, counter);
        auto to = hn::Sub(reference, clockwise);
        // An outline that crosses the negative x axis; no outline is wider than half a turn.
        to = hn::IfThenElse(hn::Lt(to, hn::Sub(from, hn::Set(d, 18.0f))), hn::Add(to, turn), to);
        from = hn::Sub(from, hn::Set(d, m_reachOfSkies.azimuthMax + angleMargin));
        to = hn::Sub(to, hn::Set(d, m_reachOfSkies.azimuthMin - angleMargin));
        from = hn::IfThenElse(around, zero, from);
        to = hn::IfThenElse(around, turn, to);
        const auto fine = hn::Set(d, static_cast<float>(split));
        auto low = hn::Sub(hn::Mul(lowest, fine),
                           hn::Set(d, m_reachOfSkies.altitudeMax + angleMargin * split));
        auto high = hn::Sub(hn::Mul(highest, fine),
                            hn::Set(d, m_reachOfSkies.altitudeMin - angleMargin * split));
        low = hn::Max(low, zero);
        high = hn::Min(high, hn::Set(d, static_cast<float>(bandCount - 1)));

        from = hn::Ceil(from);
        to = hn::Floor(to);
        low = hn::Ceil(low);
        high = hn::Floor(high);
        const auto reaches = hn::And(hn::Le(from, to), hn::Le(low, high));
        // Places that hold no box give NaN, which has no whole number.
        const hn::RebindToSigned<Floats> di;
        const auto whole = [&](FloatLanes value) HWY_ATTR {
            return hn::ConvertTo(di, hn::IfThenElseZero(reaches, value));
        };
        hn::Store(whole(from), di, reach.azimuthFirst.data() + lane);
        hn::Store(whole(to), di, reach.azimuthLast.data() + lane);
        hn::Store(whole(low), di, reach.altitudeFirst.data() + lane);
        hn::Store(whole(high), di, reach.altitudeLast.data() + lane);
        return bitsOf(d, reaches) << lane;
    }

    /// Casts the open cells of an entry, few as they are.
    void castCells(const HeldEntry& entry) {
        RaySet rays;
        std::array<std::uint8_t, RaySet::largest> bands;
        std::array<std::uint8_t, RaySet::largest> sectors;
        const auto cast = [&] {
            const RayWalk walk(m_index, m_origin, m_bounded, rays, m_largestComponent);
            for (std::uint32_t blocked = walk.blockedBelow(entry.child); blocked != 0;
                 blocked &= blocked - 1) {
                const auto ray = static_cast<std::size_t>(std::countr_zero(blocked));
                m_open[2 * bands[ray] + sectors[ray] / 64] &=
                    ~(std::uint64_t{1} << sectors[ray] % 64);
            }
            rays.count = 0;
        };
        const CellRange& range = entry.range;
        const BandBits asked = sectorsOf(range);
        for (std::size_t band = range.altitudeLow; band <= range.altitudeHigh; ++band) {
            const SkyDirectionTable& table = *m_skies[band % split].directions;
            for (std::size_t word = 0; word < 2; ++word) {
                std::uint64_t cells =
                    m_open[2 * band + word] & (word == 0 ? asked.low : asked.high);
                for (; cells != 0; cells &= cells - 1) {
                    const std::size_t sector =
                        64 * word + static_cast<std::size_t>(std::countr_zero(cells));
                    const std::size_t cell = skyGrid::azimuthCount * (band / split) + sector;
                    bands[rays.count] = static_cast<std::uint8_t>(band);
                    sectors[rays.count] = static_cast<std::uint8_t>(sector);
                    rays.add(table.directions[cell], table.inverse[cell]);
                    if (rays.count == RaySet::largest) {
                        cast();
                    }
                }
            }
        }
        if (rays.count != 0) {
            cast();
        }
    }

    /// Eight triangles seen from the origin.
    struct SeenTriangles {
        using Lanes = std::array<float, 8>;

        // U, V and W, turned so that a hit has positive dot products with all three.
        alignas(32) std::array<Lanes, 3> u, v, w;
        alignas(32) Lanes error;  ///< E
        alignas(32) Lanes volume; ///< |T|
        alignas(32) Lanes volumeError;
        std::uint32_t possible = 0; ///< may be hit at all
        std::uint32_t near = 0;     ///< may be hit nearer than 0.01
        std::uint32_t edgeOn = 0;   ///< T's sign is not certain
    };

    void closeBehindLeaf(std::uint32_t child) {
        const OcclusionLeaf leaf(m_index, child);
        const LeafOrigin from(*leaf.header, m_origin);
        SeenTriangles seen;
        BoxReach reach;
        std::uint32_t reached = 0;
        const Floats d;
        for (std::size_t lane = 0; lane < leaf.count; lane += hn::Lanes(d)) {
            reached |= see(leaf, from, lane, seen, reach);
        }
        for (std::uint32_t lanes = reached & allLanes(leaf.count) & seen.possible; lanes != 0;
             lanes &= lanes - 1) {
            const auto lane = static_cast<std::size_t>(std::countr_zero(lanes));
            const CellRange range = rangeOf(reach, lane);
            if ((seen.near >> lane & 1U) != 0) {
                closeBehindTriangle<true>(seen, lane, range, leaf);
            } else {
                closeBehindTriangle<false>(seen, lane, range, leaf);
            }
        }
    }

    /// Prepares triangles from `lane` on, as many as a vector has; those that may block any cell.
    HWY_INLINE std::uint32_t see(const OcclusionLeaf& leaf, const LeafOrigin& from,
                                 std::size_t lane, SeenTriangles& seen, BoxReach& reach) const {
        const Floats d;
        const SeenLanes lanes(leaf, from, lane, m_largestComponent);
        seen.possible |= bitsOf(d, lanes.possible) << lane;
        seen.near |= bitsOf(d, lanes.near) << lane;
        seen.edgeOn |= bitsOf(d, lanes.edgeOn) << lane;
        hn::Store(lanes.ux, d, seen.u[0].data() + lane);
        hn::Store(lanes.uy, d, seen.u[1].data() + lane);
        hn::Store(lanes.uz, d, seen.u[2].data() + lane);
        hn::Store(lanes.vx, d, seen.v[0].data() + lane);
        hn::Store(lanes.vy, d, seen.v[1].data() + lane);
        hn::Store(lanes.vz, d, seen.v[2].data() + lane);
        hn::Store(lanes.wx, d, seen.w[0].data() + lane);
        hn::Store(lanes.wy, d, seen.w[1].data() + lane);
        hn::Store(lanes.wz, d, seen.w[2].data() + lane);
        hn::Store(lanes.error, d, seen.error.data() + lane);
        hn::Store(lanes.volume, d, seen.volume.data() + lane);
        hn::Store(lanes.volumeError, d, seen.volumeError.data() + lane);

        // The box of the vertices relative to the origin: a millionth of the edges to spare, as in
        // the stored boxes, and the error of s.
        const auto margin = hn::MulAdd(hn::Set(d, 0x1p-19f), lanes.edge,
                                       hn::Set(d, 0x1p-22f * from.reach + 1e-20f));
        RelativeBoxes box;
        const auto span = [&](auto s, auto e1, auto e2, auto& low, auto& high) HWY_ATTR {
            const auto a = hn::Neg(s);
            const auto b = hn::Sub(e1, s);
            const auto c = hn::Sub(e2, s);
            low = hn::Sub(hn::Min(a, hn::Min(b, c)), margin);
            high = hn::Add(hn::Max(a, hn::Max(b, c)), margin);
        };
        span(lanes.sx, lanes.e1x, lanes.e2x, box.x0, box.x1);
        span(lanes.sy, lanes.e1y, lanes.e2y, box.y0, box.y1);
        span(lanes.sz, lanes.e1z, lanes.e2z, box.z0, box.z1);
        return reachOfBoxes(box, reach, lane);
    }

    /// Closes the open cells of a range whose rays one triangle blocks.
    template <bool near>
    HWY_INLINE void closeBehindTriangle(const SeenTriangles& seen, std::size_t lane,
                                        const CellRange& range, const OcclusionLeaf& leaf) {
        const Cells d;
        const std::size_t lanes = hn::Lanes(d);
        const auto ux = hn::Set(d, seen.u[0][lane]);
        const auto uy = hn::Set(d, seen.u[1][lane]);
        const auto uz = hn::Set(d, seen.u[2][lane]);
        const auto vx = hn::Set(d, seen.v[0][lane]);
        const auto vy = hn::Set(d, seen.v[1][lane]);
        const auto vz = hn::Set(d, seen.v[2][lane]);
        const auto wx = hn::Set(d, seen.w[0][lane]);
        const auto wy = hn::Set(d, seen.w[1][lane]);
        const auto wz = hn::Set(d, seen.w[2][lane]);
        const auto bound = hn::Set(d, seen.error[lane]);
        const bool edgeOn = near && (seen.edgeOn >> lane & 1U) != 0;
        BandBits sectors = sectorsOf(range);
        while ((sectors.low | sectors.high) != 0) {
            const std::size_t azimuth =
                (sectors.low != 0 ? static_cast<std::size_t>(std::countr_zero(sectors.low))
                                  : 64 + static_cast<std::size_t>(std::countr_zero(sectors.high))) &
                ~(lanes - 1);
            std::uint64_t& half = azimuth < 64 ? sectors.low : sectors.high;
            const std::uint32_t asked =
                static_cast<std::uint32_t>(half >> azimuth % 64) & allLanes(lanes);
            half &= ~(std::uint64_t{allLanes(lanes)} << azimuth % 64);
            for (std::size_t band = range.altitudeLow; band <= range.altitudeHigh; ++band) {
                const std::uint32_t still = window(band, azimuth) & asked;
                if (still == 0) {
                    continue;
                }
                const SkyDirectionTable& table = *m_skies[band % split].directions;
                const std::size_t row = band / split;
                const auto x = hn::Load(d, table.x[row].data() + azimuth);
                const auto y = hn::Load(d, table.y[row].data() + azimuth);
                const auto z = hn::Load(d, table.z[row].data() + azimuth);
                const auto u = dotOf(x, y, z, ux, uy, uz);
                const auto v = dotOf(x, y, z, vx, vy, vz);
                const auto w = dotOf(x, y, z, wx, wy, wz);
                const auto least = hn::Min(hn::Min(u, v), w);
                std::uint32_t maybe = 0;
                std::uint32_t closed = 0;
                if constexpr (near) {
                    // The distance against 0.01, with det off by three bounds at most.
                    const auto det = hn::Abs(hn::Add(hn::Add(u, v), w));
                    const auto slack = hn::Mul(bound, hn::Set(d, 3.01f));
                    const auto volume = hn::Set(d, seen.volume[lane]);
                    const auto error = hn::Set(d, seen.volumeError[lane]);
                    constexpr auto limit = static_cast<float>(nearestHit);
                    const auto inside = hn::Ge(least, hn::Neg(bound));
                    const auto greatest = hn::Max(hn::Max(u, v), w);
                    maybe = bitsOf(d, inside) | (edgeOn ? bitsOf(d, hn::Le(greatest, bound)) : 0);
                    maybe &=
                        bitsOf(d, hn::Ge(hn::Add(volume, error),
                                         hn::Mul(hn::Set(d, 0.999f * limit), hn::Sub(det, slack))));
                    if (!edgeOn) {
                        closed = bitsOf(d, hn::Gt(least, bound)) &
                                 bitsOf(d, hn::Ge(hn::Sub(volume, error),
                                                  hn::Mul(hn::Set(d, 1.001f * limit),
                                                          hn::Add(det, slack))));
                    }
                } else {
                    maybe = bitsOf(d, hn::Ge(least, hn::Neg(bound)));
                    closed = bitsOf(d, hn::Gt(least, bound));
                }
                closed &= still;
                std::uint32_t undecided = maybe & still & ~closed;
                for (; undecided != 0; undecided &= undecided - 1) {
                    const auto cell = static_cast<std::size_t>(std::countr_zero(undecided));
                    const double direction[3] = {static_cast<double>(table.x[row][azimuth + cell]),
                                                 static_cast<double>(table.y[row][azimuth + cell]),
                                                 static_cast<double>(table.z[row][azimuth + cell])};
                    if (hitsExactly(m_index, leaf, lane, m_origin, direction)) {
                        closed |= 1U << cell;
                    }
                }
                close(band, azimuth, closed);
            }
        }
    }

    /// As many cells as a vector has lanes lie in one such part of a set.
    using Part =
        std::conditional_t<(HWY_MAX_BYTES / sizeof(float) >= 16), std::uint16_t, std::uint8_t>;

    HWY_INLINE void* placeOf(std::size_t band, std::size_t azimuth) {
        static_assert(std::endian::native == std::endian::little);
        return reinterpret_cast<char*>(&m_open[2 * band]) + azimuth / 8;
    }

    /// The part of the open cells in a band from a sector on, a multiple of the lanes; the sector's
    /// own in bit 0.
    HWY_INLINE std::uint32_t window(std::size_t band, std::size_t azimuth) {
        Part part;
        std::memcpy(&part, placeOf(band, azimuth), sizeof(part));
        return static_cast<std::uint32_t>(part) >> azimuth % 8;
    }

    /// Closes cells of such a part.
    HWY_INLINE void close(std::size_t band, std::size_t azimuth, std::uint32_t cells) {
        Part part;
        std::memcpy(&part, placeOf(band, azimuth), sizeof(part));
        part = static_cast<Part>(part & ~(cells << azimuth % 8));
        std::memcpy(placeOf(band, azimuth), &part, sizeof(part));
    }

    const OcclusionIndex::Storage& m_index;
    const Vector3d& m_origin;
    std::span<const OpenSky, split> m_skies;
    BoundedOrigin m_bounded;
    SkyReach m_reachOfSkies;
    std::array<std::uint64_t, SkyCellSet::wordCount * split>
        m_open;                      ///< band by band, as SkyCellSet
    float m_largestComponent = 0.0f; ///< of all directions
};

void CloseBlockedCells(const OcclusionIndex::Storage& index, const Vector3d& origin,
                       std::span<const OpenSky> skies, const SkyReach& reach) {
    if (skies.size() == 1) {
        MaskWalk<1> walk(index, origin, skies.first<1>(), reach);
        walk.run();
        walk.finish();
    } else {
        MaskWalk<2> walk(index, origin, skies.first<2>(), reach);
        walk.run();
        walk.finish();
    }
}

} // namespace HWY_NAMESPACE
} // namespace insolate
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace insolate {

HWY_EXPORT(OccludedInHierarchy);
HWY_EXPORT(ManyOccludedInHierarchy);
HWY_EXPORT(NearestInHierarchy);
HWY_EXPORT(AllHitsInHierarchy);
HWY_EXPORT(CloseBlockedCells);

bool occludedInHierarchy(const OcclusionIndex::Storage& index, const Vector3d& origin,
                         const XYZf& direction) {
    if (index.nodes.empty()) {
        return false;
    }
    applySimdChoice();
    return HWY_DYNAMIC_DISPATCH(OccludedInHierarchy)(index, origin, direction);
}

std::uint32_t occludedInHierarchy(const OcclusionIndex::Storage& index, const Vector3d& origin,
                                  std::span<const XYZf> directions) {
    if (index.nodes.empty()) {
        return 0;
    }
    applySimdChoice();
    return HWY_DYNAMIC_DISPATCH(ManyOccludedInHierarchy)(index, origin, directions);
}

void nearestInHierarchy(const OcclusionIndex::Storage& index, const Vector3d& origin,
                        std::span<const XYZf> directions, std::span<RayHit> hits) {
    if (index.nodes.empty()) {
        return;
    }
    applySimdChoice();
    HWY_DYNAMIC_DISPATCH(NearestInHierarchy)(index, origin, directions, hits);
}

void allHitsInHierarchy(const OcclusionIndex::Storage& index, const Vector3d& origin,
                        const XYZf& direction, std::vector<RayHit>& hits) {
    if (index.nodes.empty()) {
        return;
    }
    applySimdChoice();
    HWY_DYNAMIC_DISPATCH(AllHitsInHierarchy)(index, origin, direction, hits);
}

void closeBlockedCells(const OcclusionIndex::Storage& index, const Vector3d& origin,
                       std::span<const OpenSky> skies, const SkyReach& reach) {
    if (index.nodes.empty() || skies.empty()) {
        return;
    }
    applySimdChoice();
    HWY_DYNAMIC_DISPATCH(CloseBlockedCells)(index, origin, skies, reach);
}

} // namespace insolate

#endif // HWY_ONCE
