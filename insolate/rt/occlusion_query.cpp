#include <insolate/rt/occlusion_query.h>

#include <insolate/platform/simd.h>
#include <insolate/platform/simd_targets.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <numbers>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "insolate/rt/occlusion_query.cpp"
#include <hwy/foreach_target.h>

#include <hwy/highway.h>

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
    float low[3];  ///< not above the origin
    float high[3]; ///< not below it

    BoundedOrigin(const Vector3d& origin, const std::array<double, 3>& centre) {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const auto value = static_cast<float>(origin[axis] - centre[axis]);
            const float margin = std::fabs(value) * 0x1p-22f + 1e-20f;
            low[axis] = value - margin;
            high[axis] = value + margin;
        }
    }
};

/// A ray as the box test wants it.
struct BoundedRay {
    /// Per axis: where a node keeps the planes that the ray enters and leaves by (offsets in
    /// floats), the origin's bounds for each, and one over the direction.
    std::size_t nearPlane[3];
    std::size_t farPlane[3];
    float nearOrigin[3];
    float farOrigin[3];
    float inverse[3];

    BoundedRay(const BoundedOrigin& origin, const float* direction) {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const bool forward = direction[axis] >= 0;
            const std::size_t low = 2 * axis * OcclusionNode::width;
            const std::size_t high = low + OcclusionNode::width;
            nearPlane[axis] = forward ? low : high;
            farPlane[axis] = forward ? high : low;
            nearOrigin[axis] = forward ? origin.high[axis] : origin.low[axis];
            farOrigin[axis] = forward ? origin.low[axis] : origin.high[axis];
            // A component of 0 (or nearly) never leaves its slab: the large number stands for
            // infinity without making NaN of a distance of 0.
            inverse[axis] = std::fabs(direction[axis]) < 1e-30f ? (forward ? 1e30f : -1e30f)
                                                                : 1.0f / direction[axis];
        }
    }
};

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

/// Bits [0, count) of a band, 0 <= count <= 72.
inline BandBits firstSectors(unsigned count) {
    if (count < 64) {
        return {(std::uint64_t{1} << count) - 1, 0};
    }
    return {~std::uint64_t{0}, (std::uint64_t{1} << (count - 64)) - 1};
}

/// The sectors of a range.
inline BandBits sectorsOf(const CellRange& range) {
    const unsigned end = range.azimuth + static_cast<unsigned>(range.width);
    const BandBits before = firstSectors(range.azimuth);
    const BandBits upTo = firstSectors(std::min(end, 72U));
    BandBits bits{upTo.low & ~before.low, upTo.high & ~before.high};
    if (end > 72) {
        const BandBits wrapped = firstSectors(end - 72);
        bits.low |= wrapped.low;
        bits.high |= wrapped.high;
    }
    return bits;
}

/// Open cells of a range, counted up to a limit.
inline int openCells(const SkyCellSet& open, const CellRange& range, int limit) {
    const BandBits sectors = sectorsOf(range);
    int count = 0;
    for (std::size_t band = range.altitudeLow; band <= range.altitudeHigh; ++band) {
        count += std::popcount(open.words[2 * band] & sectors.low) +
                 std::popcount(open.words[2 * band + 1] & sectors.high);
        if (count >= limit) {
            break;
        }
    }
    return count;
}

/// The exact test of one triangle of a leaf.
inline bool hitsLeafTriangle(const Vector3d& origin, const double* direction,
                             const double* triangle, std::size_t stride) {
    double vectors[doublesPerTriangle];
    for (std::size_t i = 0; i < doublesPerTriangle; ++i) {
        vectors[i] = triangle[i * stride];
    }
    return hitsTriangle(origin.data(), direction, vectors, vectors + 3, vectors + 6);
}

} // namespace insolate

#endif // INSOLATE_OCCLUSION_QUERY_ONCE

HWY_BEFORE_NAMESPACE();
namespace insolate {
namespace HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

using Floats = hn::CappedTag<float, 8>;
using Doubles = hn::CappedTag<double, 8>;
using Cells = hn::CappedTag<float, 16>;

template <typename Tag, typename Mask>
HWY_INLINE std::uint32_t bitsOf(Tag tag, Mask mask) {
    std::uint8_t bytes[8] = {};
    hn::StoreMaskBits(tag, mask, bytes);
    std::uint32_t bits;
    std::memcpy(&bits, bytes, sizeof(bits));
    return bits;
}

// ---------------------------------------------------------------------------------------------
// One ray

/// The children of a node whose boxes the ray may meet, one bit each.
///
/// Ize (2013), "Robust BVH ray traversal", Journal of Computer Graphics Techniques 2(2): each
/// distance is off by at most three roundings, so 2^-20 between near and far keeps every box that
/// the real ray meets.
HWY_INLINE std::uint32_t childrenMet(const OcclusionNode& node, const BoundedRay& ray) {
    const Floats d;
    const float* planes = node.minX.data();
    std::uint32_t met = 0;
    for (std::size_t lane = 0; lane < OcclusionNode::width; lane += hn::Lanes(d)) {
        auto nearest = hn::Zero(d);
        auto farthest = hn::Set(d, 3e38f);
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const auto inverse = hn::Set(d, ray.inverse[axis]);
            const auto in = hn::Mul(hn::Sub(hn::Load(d, planes + ray.nearPlane[axis] + lane),
                                            hn::Set(d, ray.nearOrigin[axis])),
                                    inverse);
            const auto out = hn::Mul(hn::Sub(hn::Load(d, planes + ray.farPlane[axis] + lane),
                                             hn::Set(d, ray.farOrigin[axis])),
                                     inverse);
            nearest = hn::Max(nearest, in);
            farthest = hn::Min(farthest, out);
        }
        const auto mask = hn::Le(nearest, hn::Mul(farthest, hn::Set(d, 1.0f + 0x1p-20f)));
        met |= bitsOf(d, mask) << lane;
    }
    return met;
}

/// Whether the ray hits one of a leaf's triangles: the operations of hitsTriangle(), in its order,
/// on several triangles at once.
HWY_INLINE bool hitsLeaf(const Vector3d& origin, const double* direction, const double* leaf,
                         std::size_t count) {
    const Doubles d;
    const auto dx = hn::Set(d, direction[0]);
    const auto dy = hn::Set(d, direction[1]);
    const auto dz = hn::Set(d, direction[2]);
    const auto zero = hn::Zero(d);
    const auto one = hn::Set(d, 1.0);
    for (std::size_t lane = 0; lane < count; lane += hn::Lanes(d)) {
        const double* first = leaf + lane;
        const auto e1x = hn::LoadU(d, first + 3 * count);
        const auto e1y = hn::LoadU(d, first + 4 * count);
        const auto e1z = hn::LoadU(d, first + 5 * count);
        const auto e2x = hn::LoadU(d, first + 6 * count);
        const auto e2y = hn::LoadU(d, first + 7 * count);
        const auto e2z = hn::LoadU(d, first + 8 * count);
        const auto px = hn::Sub(hn::Mul(dy, e2z), hn::Mul(dz, e2y));
        const auto py = hn::Sub(hn::Mul(dz, e2x), hn::Mul(dx, e2z));
        const auto pz = hn::Sub(hn::Mul(dx, e2y), hn::Mul(dy, e2x));
        const auto det = hn::Add(hn::Add(hn::Mul(e1x, px), hn::Mul(e1y, py)), hn::Mul(e1z, pz));
        auto miss = hn::Lt(hn::Abs(det), hn::Set(d, parallelLimit));
        const auto inverse = hn::Div(one, det);
        const auto sx = hn::Sub(hn::Set(d, origin[0]), hn::LoadU(d, first));
        const auto sy = hn::Sub(hn::Set(d, origin[1]), hn::LoadU(d, first + count));
        const auto sz = hn::Sub(hn::Set(d, origin[2]), hn::LoadU(d, first + 2 * count));
        const auto u =
            hn::Mul(hn::Add(hn::Add(hn::Mul(sx, px), hn::Mul(sy, py)), hn::Mul(sz, pz)), inverse);
        miss = hn::Or(miss, hn::Or(hn::Ge(u, one), hn::Le(u, zero)));
        const auto qx = hn::Sub(hn::Mul(sy, e1z), hn::Mul(sz, e1y));
        const auto qy = hn::Sub(hn::Mul(sz, e1x), hn::Mul(sx, e1z));
        const auto qz = hn::Sub(hn::Mul(sx, e1y), hn::Mul(sy, e1x));
        const auto v =
            hn::Mul(hn::Add(hn::Add(hn::Mul(dx, qx), hn::Mul(dy, qy)), hn::Mul(dz, qz)), inverse);
        miss = hn::Or(miss, hn::Or(hn::Le(v, zero), hn::Ge(hn::Add(u, v), one)));
        const auto t = hn::Mul(
            hn::Add(hn::Add(hn::Mul(e2x, qx), hn::Mul(e2y, qy)), hn::Mul(e2z, qz)), inverse);
        const auto hit = hn::AndNot(miss, hn::Ge(t, hn::Set(d, nearestHit)));
        const std::uint32_t lanes = (1U << std::min<std::size_t>(count - lane, 8)) - 1;
        if ((bitsOf(d, hit) & lanes) != 0) {
            return true;
        }
    }
    return false;
}

/// Whether anything below `top` blocks the ray.
HWY_NOINLINE bool rayIsBlocked(const OcclusionIndex::Storage& index, std::uint32_t top,
                               const Vector3d& origin, const double* direction,
                               const BoundedRay& ray) {
    std::uint32_t stack[stackSize];
    std::size_t held = 0;
    stack[held++] = top;
    while (held != 0) {
        const std::uint32_t entry = stack[--held];
        if (occlusionChild::isLeaf(entry)) {
            if (hitsLeaf(origin, direction,
                         index.triangles.get() +
                             doublesPerTriangle * occlusionChild::firstTriangle(entry),
                         occlusionChild::triangleCount(entry))) {
                return true;
            }
            continue;
        }
        const OcclusionNode& node = index.nodes[entry];
        std::uint32_t met = childrenMet(node, ray);
        while (met != 0) {
            stack[held++] = node.child[static_cast<std::size_t>(std::countr_zero(met))];
            met &= met - 1;
        }
    }
    return false;
}

bool OccludedInHierarchy(const OcclusionIndex::Storage& index, const Vector3d& origin,
                         const Vector3d& direction) {
    const BoundedOrigin bounded(origin, index.centre);
    // Boxes do not care for the direction's length; near 1 nothing overflows.
    const double length =
        std::max({std::fabs(direction[0]), std::fabs(direction[1]), std::fabs(direction[2])});
    const float scaled[3] = {static_cast<float>(direction[0] / length),
                             static_cast<float>(direction[1] / length),
                             static_cast<float>(direction[2] / length)};
    return rayIsBlocked(index, index.root, origin, direction.data(), BoundedRay(bounded, scaled));
}

void CloseBlockedCells(const OcclusionIndex::Storage& index, const Vector3d& origin,
                       const SkyDirectionTable& directions, SkyCellSet& open) {
    const BoundedOrigin bounded(origin, index.centre);
    for (int altitude = 0; altitude < skyGrid::altitudeCount; ++altitude) {
        for (int azimuth = 0; azimuth < skyGrid::azimuthCount; ++azimuth) {
            if (!open.contains(azimuth, altitude)) {
                continue;
            }
            const XYZf& v =
                directions
                    .directions[static_cast<std::size_t>(skyGrid::cellIndex(azimuth, altitude))];
            const double wide[3] = {static_cast<double>(v.x), static_cast<double>(v.y),
                                    static_cast<double>(v.z)};
            const float narrow[3] = {v.x, v.y, v.z};
            if (rayIsBlocked(index, index.root, origin, wide, BoundedRay(bounded, narrow))) {
                open.erase(azimuth, altitude);
            }
        }
    }
}

} // namespace HWY_NAMESPACE
} // namespace insolate
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace insolate {

HWY_EXPORT(OccludedInHierarchy);
HWY_EXPORT(CloseBlockedCells);

bool occludedInHierarchy(const OcclusionIndex::Storage& index, const Vector3d& origin,
                         const Vector3d& direction) {
    if (index.nodes.empty()) {
        return false;
    }
    applySimdChoice();
    return HWY_DYNAMIC_DISPATCH(OccludedInHierarchy)(index, origin, direction);
}

void closeBlockedCells(const OcclusionIndex::Storage& index, const Vector3d& origin,
                       const SkyDirectionTable& directions, SkyCellSet& open) {
    if (index.nodes.empty()) {
        return;
    }
    applySimdChoice();
    HWY_DYNAMIC_DISPATCH(CloseBlockedCells)(index, origin, directions, open);
}

} // namespace insolate

#endif // HWY_ONCE
