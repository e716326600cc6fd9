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

/// A ray as the box test wants it: per axis where a node keeps the planes that the ray enters and
/// leaves by (offsets in floats), the origin's bounds for each, and one over the direction.
struct BoundedRay {
    std::size_t nearPlane[3];
    std::size_t farPlane[3];
    float nearOrigin[3];
    float farOrigin[3];
    float inverse[3];

    BoundedRay(const BoundedOrigin& origin, const XYZf& inverseDirection)
        : inverse{inverseDirection.x, inverseDirection.y, inverseDirection.z} {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const std::size_t backward = std::signbit(inverse[axis]) ? 1 : 0;
            nearPlane[axis] = (2 * axis + backward) * OcclusionNode::width;
            farPlane[axis] = (2 * axis + 1 - backward) * OcclusionNode::width;
            nearOrigin[axis] = origin.bound[1 - backward][axis];
            farOrigin[axis] = origin.bound[backward][axis];
        }
    }
};

/// Asks for the memory of an entry that a walk will come to.
inline void prefetchEntry(const OcclusionIndex::Storage& index, std::uint32_t entry) {
    constexpr std::size_t line = 64;
    const char* first = nullptr;
    std::size_t bytes = sizeof(OcclusionNode) - 32;
    if (occlusionChild::isLeaf(entry)) {
        first = reinterpret_cast<const char*>(
            index.triangles.get() + doublesPerTriangle * occlusionChild::firstTriangle(entry));
        bytes = doublesPerTriangle * sizeof(double) * occlusionChild::triangleCount(entry);
    } else {
        first = reinterpret_cast<const char*>(index.nodes.data() + entry);
    }
    for (std::size_t offset = 0; offset < bytes; offset += line) {
        __builtin_prefetch(first + offset);
    }
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
            const std::uint32_t child = node.child[static_cast<std::size_t>(std::countr_zero(met))];
            prefetchEntry(index, child);
            stack[held++] = child;
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
    const XYZf scaled = {static_cast<float>(direction[0] / length),
                         static_cast<float>(direction[1] / length),
                         static_cast<float>(direction[2] / length)};
    return rayIsBlocked(index, index.root, origin, direction.data(),
                        BoundedRay(bounded, inverseDirection(scaled)));
}

// ---------------------------------------------------------------------------------------------
// All cells of one origin

/// An entry that a walk holds back, with the cells that it may block.
struct HeldEntry {
    std::uint32_t child;
    CellRange range;
};

/// The cells that each of eight boxes may block.
struct BoxReach {
    // First and last cell whose direction may pass through the box; first > last for none. Sectors
    // may lie outside 0..71 by up to a turn.
    alignas(32) std::array<std::int32_t, 8> azimuthFirst, azimuthLast, altitudeFirst, altitudeLast;
    alignas(32) std::array<float, 8> distance; ///< squared, from the origin to the box
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
    constexpr float unit = static_cast<float>(36.0 / std::numbers::pi);
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

/// Everything about one mask's walk.
class MaskWalk {
public:
    MaskWalk(const OcclusionIndex::Storage& storage, const Vector3d& from,
             const SkyDirectionTable& table, SkyCellSet& cells)
        : index(storage), origin(from), directions(table), open(cells),
          bounded(from, storage.centre) {}

    void run() {
        HeldEntry stack[stackSize];
        std::size_t held = 0;
        stack[held++] = {index.root, {0, 72, 0, skyGrid::altitudeCount - 1}};
        while (held != 0) {
            const HeldEntry entry = stack[--held];
            const int cells = openCells(open, entry.range, fewCells + 1);
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
            held += holdChildren(index.nodes[entry.child], stack + held);
        }
    }

private:
    /// So few open cells are cheaper to cast one by one.
    static constexpr int fewCells = 2;

    /// Added to either end of a range [cells]: six times the error of angleOf(). The boxes
    /// themselves are rounded outwards and hold every hit of the exact test.
    static constexpr float angleMargin = 1e-3f;

    /// Puts the children that may block an open cell on the stack, the nearest last.
    HWY_INLINE std::size_t holdChildren(const OcclusionNode& node, HeldEntry* stack) const {
        BoxReach reach;
        std::uint32_t reached = 0;
        const Floats d;
        for (std::size_t lane = 0; lane < OcclusionNode::width; lane += hn::Lanes(d)) {
            reached |= reachOfBoxes(
                hn::Sub(hn::Load(d, node.minX.data() + lane), hn::Set(d, bounded.bound[1][0])),
                hn::Sub(hn::Load(d, node.maxX.data() + lane), hn::Set(d, bounded.bound[0][0])),
                hn::Sub(hn::Load(d, node.minY.data() + lane), hn::Set(d, bounded.bound[1][1])),
                hn::Sub(hn::Load(d, node.maxY.data() + lane), hn::Set(d, bounded.bound[0][1])),
                hn::Sub(hn::Load(d, node.minZ.data() + lane), hn::Set(d, bounded.bound[1][2])),
                hn::Sub(hn::Load(d, node.maxZ.data() + lane), hn::Set(d, bounded.bound[0][2])),
                reach, lane);
        }
        float distances[OcclusionNode::width];
        std::size_t count = 0;
        for (std::uint32_t lanes = reached & allLanes(node.childCount); lanes != 0;
             lanes &= lanes - 1) {
            const auto lane = static_cast<std::size_t>(std::countr_zero(lanes));
            const CellRange range = rangeOf(reach, lane);
            if (openCells(open, range, 1) == 0) {
                continue;
            }
            const float distance = reach.distance[lane];
            std::size_t place = count++;
            for (; place > 0 && distances[place - 1] < distance; --place) {
                distances[place] = distances[place - 1];
                stack[place] = stack[place - 1];
            }
            distances[place] = distance;
            stack[place] = {node.child[lane], range};
            prefetchEntry(index, node.child[lane]);
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

    /// The cells whose directions may pass through boxes, given relative to the origin; the lanes
    /// that have any.
    template <typename V>
    HWY_INLINE std::uint32_t reachOfBoxes(V x0, V x1, V y0, V y1, V z0, V z1, BoxReach& reach,
                                          std::size_t lane) const {
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

        const auto turn = hn::Set(d, 72.0f);
        const auto reference = hn::Set(d, directions.azimuthOrigin);
        auto from = hn::Sub(reference, angleOf(d, counterX, counterY));
        auto to = hn::Sub(reference, angleOf(d, clockwiseX, clockwiseY));
        // An outline that crosses the negative x axis; no outline is wider than half a turn.
        to = hn::IfThenElse(hn::Lt(to, hn::Sub(from, hn::Set(d, 18.0f))), hn::Add(to, turn), to);
        from = hn::Sub(from, hn::Set(d, directions.azimuthMax + angleMargin));
        to = hn::Sub(to, hn::Set(d, directions.azimuthMin - angleMargin));
        from = hn::IfThenElse(around, zero, from);
        to = hn::IfThenElse(around, turn, to);

        const auto nearX = hn::Max(hn::Max(x0, hn::Neg(x1)), zero);
        const auto nearY = hn::Max(hn::Max(y0, hn::Neg(y1)), zero);
        const auto nearZ = hn::Max(hn::Max(z0, hn::Neg(z1)), zero);
        const auto farX = hn::Max(hn::Neg(x0), x1);
        const auto farY = hn::Max(hn::Neg(y0), y1);
        const auto nearSquared = hn::MulAdd(nearX, nearX, hn::Mul(nearY, nearY));
        const auto farSquared = hn::MulAdd(farX, farX, hn::Mul(farY, farY));
        const auto nearest = hn::Sqrt(nearSquared);
        const auto farthest = hn::Sqrt(farSquared);
        auto high = angleOf(d, hn::IfThenElse(hn::Gt(z1, zero), nearest, farthest), z1);
        auto low = angleOf(d, hn::IfThenElse(hn::Gt(z0, zero), farthest, nearest), z0);
        low = hn::Sub(low, hn::Set(d, directions.altitudeMax + angleMargin));
        high = hn::Sub(high, hn::Set(d, directions.altitudeMin - angleMargin));
        low = hn::Max(low, zero);
        high = hn::Min(high, hn::Set(d, static_cast<float>(skyGrid::altitudeCount - 1)));

        from = hn::Ceil(from);
        to = hn::Floor(to);
        low = hn::Ceil(low);
        high = hn::Floor(high);
        const auto reaches = hn::And(hn::Le(from, to), hn::Le(low, high));
        // Places that hold no box give NaN, which has no whole number.
        const hn::RebindToSigned<Floats> di;
        const auto whole = [&](V value) HWY_ATTR {
            return hn::ConvertTo(di, hn::IfThenElseZero(reaches, value));
        };
        hn::Store(whole(from), di, reach.azimuthFirst.data() + lane);
        hn::Store(whole(to), di, reach.azimuthLast.data() + lane);
        hn::Store(whole(low), di, reach.altitudeFirst.data() + lane);
        hn::Store(whole(high), di, reach.altitudeLast.data() + lane);
        hn::Store(hn::MulAdd(nearZ, nearZ, nearSquared), d, reach.distance.data() + lane);
        return bitsOf(d, reaches) << lane;
    }

    /// Casts the open cells of an entry one by one.
    void castCells(const HeldEntry& entry) {
        const BandBits sectors = sectorsOf(entry.range);
        for (std::size_t band = entry.range.altitudeLow; band <= entry.range.altitudeHigh; ++band) {
            for (std::size_t word = 0; word < 2; ++word) {
                std::uint64_t cells =
                    open.words[2 * band + word] & (word == 0 ? sectors.low : sectors.high);
                for (; cells != 0; cells &= cells - 1) {
                    const auto bit = static_cast<std::size_t>(std::countr_zero(cells));
                    const std::size_t azimuth = 64 * word + bit;
                    const double direction[3] = {static_cast<double>(directions.x[band][azimuth]),
                                                 static_cast<double>(directions.y[band][azimuth]),
                                                 static_cast<double>(directions.z[band][azimuth])};
                    bool blocked = false;
                    if (occlusionChild::isLeaf(entry.child)) {
                        blocked = hitsLeaf(origin, direction,
                                           index.triangles.get() +
                                               doublesPerTriangle *
                                                   occlusionChild::firstTriangle(entry.child),
                                           occlusionChild::triangleCount(entry.child));
                    } else {
                        const XYZf& inverse =
                            directions.inverse[skyGrid::azimuthCount * band + azimuth];
                        blocked = rayIsBlocked(index, entry.child, origin, direction,
                                               BoundedRay(bounded, inverse));
                    }
                    if (blocked) {
                        open.words[2 * band + word] &= ~(std::uint64_t{1} << bit);
                    }
                }
            }
        }
    }

    /// Eight triangles seen from the origin.
    struct SeenTriangles {
        using Lanes = std::array<float, 8>;

        // Directions d inside the triangle's outline have positive dot products with all three
        // planes, which are turned so that the dot products' sum has the sign of a hit in front.
        alignas(32) std::array<Lanes, 3> u, v, w;
        alignas(32) Lanes bound;    ///< dot products are decided beyond this
        alignas(32) Lanes distance; ///< hit distance times the sum of the dot products
        alignas(32) Lanes lowX, highX, lowY, highY, lowZ, highZ;
        std::uint32_t possible = 0; ///< may be hit at all
        std::uint32_t near = 0;     ///< may be hit nearer than 0.01
    };

    HWY_INLINE void closeBehindLeaf(std::uint32_t child) {
        const std::size_t count = occlusionChild::triangleCount(child);
        const double* leaf =
            index.triangles.get() + doublesPerTriangle * occlusionChild::firstTriangle(child);
        SeenTriangles seen;
        const Doubles d;
        for (std::size_t lane = 0; lane < count; lane += hn::Lanes(d)) {
            see(leaf, count, lane, seen);
        }
        BoxReach reach;
        std::uint32_t reached = 0;
        const Floats df;
        for (std::size_t lane = 0; lane < count; lane += hn::Lanes(df)) {
            reached |= reachOfBoxes(
                hn::Load(df, seen.lowX.data() + lane), hn::Load(df, seen.highX.data() + lane),
                hn::Load(df, seen.lowY.data() + lane), hn::Load(df, seen.highY.data() + lane),
                hn::Load(df, seen.lowZ.data() + lane), hn::Load(df, seen.highZ.data() + lane),
                reach, lane);
        }
        for (std::uint32_t lanes = reached & allLanes(count) & seen.possible; lanes != 0;
             lanes &= lanes - 1) {
            const auto lane = static_cast<std::size_t>(std::countr_zero(lanes));
            if ((seen.near >> lane & 1U) != 0) {
                closeBehindTriangle<true>(seen, lane, rangeOf(reach, lane), leaf + lane, count);
            } else {
                closeBehindTriangle<false>(seen, lane, rangeOf(reach, lane), leaf + lane, count);
            }
        }
    }

    /// Prepares triangles [lane, lane + lanes of a double vector) of a leaf.
    ///
    /// With s = origin - p0 the exact test forms, for a direction d,
    ///     det = d . D,  u det = d . U,  v det = d . V,  t det = T,
    ///     D = edge2 x edge1,  U = edge2 x s,  V = s x edge1,  T = edge2 . V,
    /// and with W = D - U - V, (1 - u - v) det = d . W. T is the very number of the exact test, so
    /// a hit (t > 0) has det of T's sign, and then U, V and W, all turned by it, have positive dot
    /// products with d.
    ///
    /// Bound. Let n(a) be the sum of the magnitudes of a's components and m the largest component
    /// of any direction. A component of a cross product in double precision is off by at most 2^-52
    /// n(a) n(b), and the exact test's own dot products, formed in another order, by no more than
    /// 10 roundings of terms that sum up to m n(a) n(b). 2^-48 m (n(e1) n(e2) + n(s) (n(e1) +
    /// n(e2))) is more than all these together. The single-precision dot product has at most four
    /// roundings per term, one of them in the narrowing: 6 * 2^-24 m n(U). Beyond the sum of both
    /// the sign is the one that the exact test finds; adding its limit of |det| makes a hit decided
    /// here pass that limit too, since det is the sum of the three.
    HWY_INLINE void see(const double* leaf, std::size_t count, std::size_t lane,
                        SeenTriangles& seen) const {
        const Doubles d;
        const double* first = leaf + lane;
        const auto sx = hn::Sub(hn::Set(d, origin[0]), hn::LoadU(d, first));
        const auto sy = hn::Sub(hn::Set(d, origin[1]), hn::LoadU(d, first + count));
        const auto sz = hn::Sub(hn::Set(d, origin[2]), hn::LoadU(d, first + 2 * count));
        const auto e1x = hn::LoadU(d, first + 3 * count);
        const auto e1y = hn::LoadU(d, first + 4 * count);
        const auto e1z = hn::LoadU(d, first + 5 * count);
        const auto e2x = hn::LoadU(d, first + 6 * count);
        const auto e2y = hn::LoadU(d, first + 7 * count);
        const auto e2z = hn::LoadU(d, first + 8 * count);
        const auto vx = hn::Sub(hn::Mul(sy, e1z), hn::Mul(sz, e1y));
        const auto vy = hn::Sub(hn::Mul(sz, e1x), hn::Mul(sx, e1z));
        const auto vz = hn::Sub(hn::Mul(sx, e1y), hn::Mul(sy, e1x));
        const auto t = hn::Add(hn::Add(hn::Mul(e2x, vx), hn::Mul(e2y, vy)), hn::Mul(e2z, vz));
        const auto ux = hn::Sub(hn::Mul(e2y, sz), hn::Mul(e2z, sy));
        const auto uy = hn::Sub(hn::Mul(e2z, sx), hn::Mul(e2x, sz));
        const auto uz = hn::Sub(hn::Mul(e2x, sy), hn::Mul(e2y, sx));
        const auto dx = hn::Sub(hn::Mul(e2y, e1z), hn::Mul(e2z, e1y));
        const auto dy = hn::Sub(hn::Mul(e2z, e1x), hn::Mul(e2x, e1z));
        const auto dz = hn::Sub(hn::Mul(e2x, e1y), hn::Mul(e2y, e1x));
        const auto wx = hn::Sub(hn::Sub(dx, ux), vx);
        const auto wy = hn::Sub(hn::Sub(dy, uy), vy);
        const auto wz = hn::Sub(hn::Sub(dz, uz), vz);

        const auto n1 = sumOfMagnitudes(d, e1x, e1y, e1z);
        const auto n2 = sumOfMagnitudes(d, e2x, e2y, e2z);
        const auto ns = sumOfMagnitudes(d, sx, sy, sz);
        const auto nd = sumOfMagnitudes(d, dx, dy, dz);
        const auto planes =
            hn::Max(hn::Max(sumOfMagnitudes(d, ux, uy, uz), sumOfMagnitudes(d, vx, vy, vz)),
                    sumOfMagnitudes(d, wx, wy, wz));
        const double m = static_cast<double>(directions.largestComponent);
        const auto det = hn::Mul(hn::Set(d, m * 0x1p-48), hn::Mul(n1, n2));
        const auto exact = hn::MulAdd(hn::Set(d, m * 0x1p-48), hn::Mul(ns, hn::Add(n1, n2)), det);
        const auto bound =
            hn::MulAdd(hn::Set(d, m * 6 * 0x1p-24), planes, hn::Add(exact, hn::Set(d, 1.1e-10)));
        const auto distance = hn::Abs(t);
        const auto largestDet = hn::MulAdd(hn::Set(d, m * 1.001), nd, det);
        // A determinant never reaches its limit, or the origin lies in the plane.
        const auto never =
            hn::Or(hn::Lt(largestDet, hn::Set(d, parallelLimit)), hn::Eq(t, hn::Zero(d)));
        const auto near = hn::Lt(distance, hn::Mul(hn::Set(d, 1.01 * nearestHit), largestDet));
        seen.possible |= bitsOf(d, hn::Not(never)) << lane;
        seen.near |= bitsOf(d, near) << lane;

        const hn::Rebind<float, Doubles> df;
        const auto store = [&](const auto& value, SeenTriangles::Lanes& lanes) HWY_ATTR {
            hn::Store(hn::DemoteTo(df, value), df, lanes.data() + lane);
        };
        const auto turned = [&](const auto& value)
                                HWY_ATTR { return hn::Xor(value, hn::And(t, hn::SignBit(d))); };
        store(turned(ux), seen.u[0]);
        store(turned(uy), seen.u[1]);
        store(turned(uz), seen.u[2]);
        store(turned(vx), seen.v[0]);
        store(turned(vy), seen.v[1]);
        store(turned(vz), seen.v[2]);
        store(turned(wx), seen.w[0]);
        store(turned(wy), seen.w[1]);
        store(turned(wz), seen.w[2]);
        store(hn::Mul(bound, hn::Set(d, 1.0 + 0x1p-20)), seen.bound);
        store(distance, seen.distance);

        // The vertices relative to the origin; a margin as for the stored boxes.
        const auto ax = hn::Neg(sx);
        const auto ay = hn::Neg(sy);
        const auto az = hn::Neg(sz);
        const auto margin = hn::MulAdd(hn::Set(d, 0x1p-20), hn::Add(n1, n2), hn::Set(d, 1e-20));
        const auto storeSpan = [&](const auto& a, const auto& e1, const auto& e2,
                                   SeenTriangles::Lanes& low, SeenTriangles::Lanes& high) HWY_ATTR {
            const auto b = hn::Add(a, e1);
            const auto c = hn::Add(a, e2);
            store(hn::Sub(hn::Min(a, hn::Min(b, c)), margin), low);
            store(hn::Add(hn::Max(a, hn::Max(b, c)), margin), high);
        };
        storeSpan(ax, e1x, e2x, seen.lowX, seen.highX);
        storeSpan(ay, e1y, e2y, seen.lowY, seen.highY);
        storeSpan(az, e1z, e2z, seen.lowZ, seen.highZ);
    }

    template <typename V>
    static HWY_INLINE V sumOfMagnitudes(Doubles /*d*/, V x, V y, V z) {
        return hn::Add(hn::Add(hn::Abs(x), hn::Abs(y)), hn::Abs(z));
    }

    /// Closes the open cells of a range whose rays one triangle blocks.
    template <bool near>
    HWY_INLINE void closeBehindTriangle(const SeenTriangles& seen, std::size_t lane,
                                        const CellRange& range, const double* triangle,
                                        std::size_t stride) {
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
        const auto bound = hn::Set(d, seen.bound[lane]);
        for (std::size_t done = 0; done < range.width; done += lanes) {
            const std::size_t left = range.width - done;
            const std::uint32_t asked = left >= lanes ? allLanes(lanes) : allLanes(left);
            std::size_t azimuth = range.azimuth + done;
            azimuth = azimuth >= skyGrid::azimuthCount ? azimuth - skyGrid::azimuthCount : azimuth;
            for (std::size_t band = range.altitudeLow; band <= range.altitudeHigh; ++band) {
                const std::uint32_t still = window(band, azimuth) & asked;
                if (still == 0) {
                    continue;
                }
                const auto x = hn::LoadU(d, directions.x[band].data() + azimuth);
                const auto y = hn::LoadU(d, directions.y[band].data() + azimuth);
                const auto z = hn::LoadU(d, directions.z[band].data() + azimuth);
                const auto u = hn::MulAdd(z, uz, hn::MulAdd(y, uy, hn::Mul(x, ux)));
                const auto v = hn::MulAdd(z, vz, hn::MulAdd(y, vy, hn::Mul(x, vx)));
                const auto w = hn::MulAdd(z, wz, hn::MulAdd(y, wy, hn::Mul(x, wx)));
                const auto least = hn::Min(hn::Min(u, v), w);
                auto maybe = hn::Ge(least, hn::Neg(bound));
                auto surely = hn::Gt(least, bound);
                if constexpr (near) {
                    // The distance against 0.01, with the sum off by three bounds at most.
                    const auto det = hn::Add(hn::Add(u, v), w);
                    const auto slack = hn::Mul(bound, hn::Set(d, 3.01f));
                    const auto distance = hn::Set(d, seen.distance[lane]);
                    constexpr auto limit = static_cast<float>(nearestHit);
                    maybe = hn::And(maybe, hn::Ge(distance, hn::Mul(hn::Set(d, 0.999f * limit),
                                                                    hn::Sub(det, slack))));
                    surely = hn::And(surely, hn::Gt(distance, hn::Mul(hn::Set(d, 1.001f * limit),
                                                                      hn::Add(det, slack))));
                }
                std::uint32_t closed = bitsOf(d, surely) & still;
                std::uint32_t undecided = bitsOf(d, maybe) & still & ~closed;
                for (; undecided != 0; undecided &= undecided - 1) {
                    const auto cell = static_cast<std::size_t>(std::countr_zero(undecided));
                    const double direction[3] = {
                        static_cast<double>(directions.x[band][azimuth + cell]),
                        static_cast<double>(directions.y[band][azimuth + cell]),
                        static_cast<double>(directions.z[band][azimuth + cell])};
                    if (hitsLeafTriangle(origin, direction, triangle, stride)) {
                        closed |= 1U << cell;
                    }
                }
                close(band, azimuth, closed);
            }
        }
    }

    static HWY_INLINE std::uint32_t allLanes(std::size_t count) { return (1U << count) - 1; }

    /// Open cells of a band from a sector on, the sector's own in bit 0; at least 16 bits.
    HWY_INLINE std::uint32_t window(std::size_t band, std::size_t azimuth) const {
        const std::uint64_t low = open.words[2 * band];
        const std::uint64_t high = open.words[2 * band + 1] | low << 8U;
        return static_cast<std::uint32_t>(
            azimuth < 64 ? low >> azimuth | high << 1U << (63 - azimuth) : high >> (azimuth - 64));
    }

    /// Closes the cells of a window.
    HWY_INLINE void close(std::size_t band, std::size_t azimuth, std::uint64_t cells) {
        std::uint64_t beyond = 0;
        std::uint64_t low = 0;
        if (azimuth < 64) {
            low = cells << azimuth;
            beyond = cells >> 1U >> (63 - azimuth);
        } else {
            beyond = cells << (azimuth - 64);
        }
        open.words[2 * band] &= ~(low | beyond >> 8U);
        open.words[2 * band + 1] &= ~(beyond & 0xFF);
    }

    const OcclusionIndex::Storage& index;
    const Vector3d& origin;
    const SkyDirectionTable& directions;
    SkyCellSet& open;
    BoundedOrigin bounded;
};

void CloseBlockedCells(const OcclusionIndex::Storage& index, const Vector3d& origin,
                       const SkyDirectionTable& directions, SkyCellSet& open) {
    MaskWalk(index, origin, directions, open).run();
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
