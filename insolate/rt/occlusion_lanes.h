/// Boxes and triangles seen from an origin, some lanes at a time, for the sources that walk an
/// OcclusionIndex. Included behind hwy/foreach_target.h, it is compiled with each instruction set.
#if defined(INSOLATE_RT_OCCLUSION_LANES_H) == defined(HWY_TARGET_TOGGLE)
#ifdef INSOLATE_RT_OCCLUSION_LANES_H
#undef INSOLATE_RT_OCCLUSION_LANES_H
#else
#define INSOLATE_RT_OCCLUSION_LANES_H
#endif

#include <hwy/highway.h>

#include <insolate/platform/vector_masks.h>
#include <insolate/rt/occlusion_walk.h>

#include <array>
#include <cstddef>
#include <cstdint>

HWY_BEFORE_NAMESPACE();
namespace insolate::HWY_NAMESPACE {

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

/// Where rays in one direction enter some boxes, and which of the boxes they meet.
///
/// Ize (2013), "Robust BVH ray traversal", Journal of Computer Graphics Techniques 2(2): each
/// distance is off by at most three roundings, so 2^-20 between near and far keeps every box that
/// the real ray meets.
struct BoxEntries {
    FloatLanes distance; ///< multiples of the inverse's direction, 0 from within
    hn::Mask<Floats> meets;

    HWY_INLINE BoxEntries(const RelativeBoxes& box, const XYZf& inverse) {
        const Floats d;
        const auto inverseX = hn::Set(d, inverse.x);
        const auto inverseY = hn::Set(d, inverse.y);
        const auto inverseZ = hn::Set(d, inverse.z);
        const auto ax = hn::Mul(box.x0, inverseX);
        const auto bx = hn::Mul(box.x1, inverseX);
        const auto ay = hn::Mul(box.y0, inverseY);
        const auto by = hn::Mul(box.y1, inverseY);
        const auto az = hn::Mul(box.z0, inverseZ);
        const auto bz = hn::Mul(box.z1, inverseZ);
        distance = hn::Max(hn::Max(hn::Min(ax, bx), hn::Min(ay, by)),
                           hn::Max(hn::Min(az, bz), hn::Zero(d)));
        const auto out = hn::Min(hn::Min(hn::Max(ax, bx), hn::Max(ay, by)), hn::Max(az, bz));
        meets = hn::Le(distance, hn::Mul(out, hn::Set(d, 1.0f + 0x1p-20f)));
    }
};

/// Asks which children of a node rays of a set may meet. met: for each child those of the rays
/// `asked`; the children that any of them may meet.
HWY_INLINE std::uint32_t childrenMet(const OcclusionNode& node, const BoundedOrigin& origin,
                                     const RaySet& rays, std::uint32_t asked,
                                     std::array<std::uint32_t, OcclusionNode::width>& met) {
    const Floats d;
    const hn::RebindToUnsigned<Floats> du;
    std::uint32_t children = 0;
    for (std::size_t lane = 0; lane < OcclusionNode::width; lane += hn::Lanes(d)) {
        const RelativeBoxes box(node, origin, lane);
        auto meeting = hn::Zero(du);
        for (std::uint32_t left = asked; left != 0; left &= left - 1) {
            const auto ray = static_cast<std::size_t>(std::countr_zero(left));
            const BoxEntries entries(box, rays.inverse[ray]);
            meeting = hn::Or(meeting, hn::IfThenElseZero(hn::RebindMask(du, entries.meets),
                                                         hn::Set(du, std::uint32_t{1} << ray)));
        }
        hn::StoreU(meeting, du, met.data() + lane);
        children |= bitsOf(du, hn::Ne(meeting, hn::Zero(du))) << lane;
    }
    return children & allLanes(node.childCount);
}

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
    hn::Mask<Floats> near;     ///< may be hit nearer than 0.01, from some origin at least
    hn::Mask<Floats> edgeOn;   ///< T's sign is not certain
    FloatLanes sign;           ///< T's sign bit

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
        // Above the exact sums by more than they round.
        edge = hn::Mul(hn::Max(sumOfMagnitudes(e1x, e1y, e1z), sumOfMagnitudes(e2x, e2y, e2z)),
                       hn::Set(d, 1.0f + 0x1p-20f));

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
        sign = hn::And(t, hn::SignBit(d));
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
        // Origins of a block differ in T by at most their distance from the centre times |D|.
        const float nearLimit = 1.02f * static_cast<float>(nearestHit) + 1.002f * origin.spread / m;
        near = hn::Lt(hn::Sub(volume, volumeError), hn::Mul(hn::Set(d, nearLimit), largestDet));
        edgeOn = hn::Le(volume, volumeError);
    }
};

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

/// A box's cells, its sectors counted from 0 to 71.
HWY_INLINE CellRange rangeOf(const BoxReach& reach, std::size_t lane) {
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

/// From the origin to the nearest points of boxes.
HWY_INLINE FloatLanes squaredDistance(const RelativeBoxes& box) {
    const auto zero = hn::Zero(Floats());
    const auto x = hn::Max(hn::Max(box.x0, hn::Neg(box.x1)), zero);
    const auto y = hn::Max(hn::Max(box.y0, hn::Neg(box.y1)), zero);
    const auto z = hn::Max(hn::Max(box.z0, hn::Neg(box.z1)), zero);
    return hn::MulAdd(z, z, hn::MulAdd(x, x, hn::Mul(y, y)));
}

/// Added to either end of a range [cells]: six times the error of angleOf(). The boxes themselves
/// are rounded outwards and hold every hit of the exact test.
inline constexpr float angleMargin = 1e-3f;

/// The cells whose directions may pass through boxes, given relative to the origin; the lanes that
/// have any. split: 1 for a mask's cells, 2 for their halves.
/// @param ceiling altitudes above which the boxes' contents block nothing [cells of 5 degrees]
template <std::size_t split>
HWY_INLINE std::uint32_t reachOfBoxes(const RelativeBoxes& box, const SkyReach& skies,
                                      BoxReach& reach, std::size_t lane, FloatLanes ceiling) {
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
    const auto highest =
        hn::Min(angleOf(d, hn::IfThenElse(hn::Gt(z1, zero), nearest, farthest), z1), ceiling);
    const auto lowest = angleOf(d, hn::IfThenElse(hn::Gt(z0, zero), farthest, nearest), z0);
    const auto counter = angleOf(d, counterX, counterY);
    const auto clockwise = angleOf(d, clockwiseX, clockwiseY);

    const auto turn = hn::Set(d, 72.0f);
    const auto reference = hn::Set(d, skies.azimuthOrigin);
    auto from = hn::Sub(reference, counter);
    auto to = hn::Sub(reference, clockwise);
    // An outline that crosses the negative x axis; no outline is wider than half a turn.
    to = hn::IfThenElse(hn::Lt(to, hn::Sub(from, hn::Set(d, 18.0f))), hn::Add(to, turn), to);
    from = hn::Sub(from, hn::Set(d, skies.azimuthMax + angleMargin));
    to = hn::Sub(to, hn::Set(d, skies.azimuthMin - angleMargin));
    from = hn::IfThenElse(around, zero, from);
    to = hn::IfThenElse(around, turn, to);
    const auto fine = hn::Set(d, static_cast<float>(split));
    auto low = hn::Sub(hn::Mul(lowest, fine), hn::Set(d, skies.altitudeMax + angleMargin * split));
    auto high =
        hn::Sub(hn::Mul(highest, fine), hn::Set(d, skies.altitudeMin - angleMargin * split));
    low = hn::Max(low, zero);
    high = hn::Min(high, hn::Set(d, static_cast<float>(skyGrid::altitudeCount * split - 1)));

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

/// No ceiling: the zenith, and what the margin of angles adds.
HWY_INLINE FloatLanes noCeiling() {
    return hn::Set(Floats(), 19.0f);
}

/// The highest altitude at which triangles may block a ray [cells of 5 degrees], by the planes
/// through the origin and an edge: a direction on the wrong side of one of them, given by U, V or W
/// turned as in SeenLanes, does not meet the triangle. Without it a triangle of the ground beside
/// the origin, whose box it stands in, would be asked for the whole sky. A plane counts where its
/// normal points down, and is at least 2^13 times as long as its error: then its slope is within a
/// thousandth of a cell.
HWY_INLINE FloatLanes ceilingOf(FloatLanes ux, FloatLanes uy, FloatLanes uz, FloatLanes vx,
                                FloatLanes vy, FloatLanes vz, FloatLanes wx, FloatLanes wy,
                                FloatLanes wz, FloatLanes error) {
    const Floats d;
    const auto least = hn::Mul(error, hn::Set(d, 0x1p13f));
    const auto least2 = hn::Mul(least, least);
    const auto steep = hn::Set(d, 1e12f);
    const auto slopeOf = [&](auto x, auto y, auto z) HWY_ATTR {
        const auto level2 = hn::MulAdd(x, x, hn::Mul(y, y));
        const auto z2 = hn::Mul(z, z);
        const auto counts = hn::And(hn::Lt(z, hn::Zero(d)), hn::Gt(hn::Add(level2, z2), least2));
        return hn::IfThenElse(counts, hn::Div(level2, z2), steep);
    };
    const auto slope2 =
        hn::Min(hn::Min(slopeOf(ux, uy, uz), slopeOf(vx, vy, vz)), slopeOf(wx, wy, wz));
    constexpr float margin = 3e-3f;
    return hn::Add(angleOf(d, hn::Set(d, 1.0f), hn::Sqrt(slope2)), hn::Set(d, margin));
}

/// Boxes of triangles relative to origins, a millionth of the edges larger, as in the stored boxes,
/// and by the error of s. low, high: how far the origins lie from the one that the triangles are
/// seen from.
HWY_INLINE RelativeBoxes boxesOf(const SeenLanes& seen, float reach, const XYZf& low,
                                 const XYZf& high) {
    const Floats d;
    const auto margin =
        hn::MulAdd(hn::Set(d, 0x1p-19f), seen.edge, hn::Set(d, 0x1p-22f * reach + 1e-20f));
    RelativeBoxes box;
    const auto span = [&](auto s, auto e1, auto e2, float first, float last, auto& from,
                          auto& to) HWY_ATTR {
        const auto a = hn::Neg(s);
        const auto b = hn::Sub(e1, s);
        const auto c = hn::Sub(e2, s);
        from = hn::Sub(hn::Min(a, hn::Min(b, c)), hn::Add(margin, hn::Set(d, last)));
        to = hn::Add(hn::Max(a, hn::Max(b, c)), hn::Sub(margin, hn::Set(d, first)));
    };
    span(seen.sx, seen.e1x, seen.e2x, low.x, high.x, box.x0, box.x1);
    span(seen.sy, seen.e1y, seen.e2y, low.y, high.y, box.y0, box.y1);
    span(seen.sz, seen.e1z, seen.e2z, low.z, high.z, box.z0, box.z1);
    return box;
}

} // namespace insolate::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
