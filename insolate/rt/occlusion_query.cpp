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
// A leaf's triangles are tested in single precision with a bound of the error (occlusion_walk.h).
// What lies within the bound goes to hitsTriangle() in double precision, which is the one
// definition of a hit: so all walks answer as if every ray had been tested with every triangle. The
// file is compiled once for each instruction set.

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

#include <insolate/rt/occlusion_lanes.h>
#include <insolate/rt/occlusion_open_cells.h>

#ifndef INSOLATE_OCCLUSION_QUERY_ONCE
#define INSOLATE_OCCLUSION_QUERY_ONCE

namespace insolate {

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

} // namespace insolate

#endif // INSOLATE_OCCLUSION_QUERY_ONCE

HWY_BEFORE_NAMESPACE();
namespace insolate {
namespace HWY_NAMESPACE {

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
            for (std::uint32_t lanes = childrenMet(node, m_bounded, m_rays, asked, met); lanes != 0;
                 lanes &= lanes - 1) {
                const auto lane = static_cast<std::size_t>(std::countr_zero(lanes));
                prefetchEntry(m_index, node.child[lane]);
                stack[held++] = {node.child[lane], met[lane]};
            }
        }
        return m_rays.all() & ~open;
    }

private:
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
    /// roundings, as in BoxEntries; four times as much is left. A hit that the exact
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
        const auto farthest = hn::Set(d, limit());
        std::uint32_t children = 0;
        for (std::size_t lane = 0; lane < OcclusionNode::width; lane += hn::Lanes(d)) {
            const RelativeBoxes box(node, m_bounded, lane);
            const BoxEntries entries(box, m_inverse);
            const auto meets = hn::And(entries.meets, hn::Le(entries.distance, farthest));
            hn::Store(entries.distance, d, distances.data() + lane);
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
                m_open.words[OpenCells<split>::placeOf(word, k)] = m_skies[k].open->words[word];
            }
        }
    }

    /// Leaves what is still open in the sets.
    void finish() const {
        for (std::size_t k = 0; k < split; ++k) {
            for (std::size_t word = 0; word < SkyCellSet::wordCount; ++word) {
                m_skies[k].open->words[word] = m_open.words[OpenCells<split>::placeOf(word, k)];
            }
        }
    }

    void run() {
        m_open.walk(
            m_index, m_bounded, m_reachOfSkies, fewCells,
            [&](const HeldEntry& entry) HWY_ATTR { castCells(entry); },
            [&](std::uint32_t leaf) HWY_ATTR { closeBehindLeaf(leaf); }, [] { return true; });
    }

private:
    /// So few open cells of a range are cheaper as rays (./dev bench rays masks). As many as a set
    /// of rays takes: with more, a range would be walked twice.
    static constexpr int fewCells = RaySet::largest;

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
                m_open.words[2 * bands[ray] + sectors[ray] / 64] &=
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
                    m_open.words[2 * band + word] & (word == 0 ? asked.low : asked.high);
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

        const auto ceiling =
            hn::IfThenElse(lanes.edgeOn, noCeiling(),
                           ceilingOf(lanes.ux, lanes.uy, lanes.uz, lanes.vx, lanes.vy, lanes.vz,
                                     lanes.wx, lanes.wy, lanes.wz, lanes.error));
        return reachOfBoxes<split>(boxesOf(lanes, from.reach, {0, 0, 0}, {0, 0, 0}), m_reachOfSkies,
                                   reach, lane, ceiling);
    }

    /// Closes the open cells of a range whose rays one triangle blocks.
    template <bool near>
    HWY_INLINE void closeBehindTriangle(const SeenTriangles& seen, std::size_t lane,
                                        const CellRange& range, const OcclusionLeaf& leaf) {
        const Cells d;
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
            const auto [azimuth, asked] = takeSectors(sectors);
            for (std::size_t band = range.altitudeLow; band <= range.altitudeHigh; ++band) {
                const std::uint32_t still = m_open.window(band, azimuth) & asked;
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
                m_open.close(band, azimuth, closed);
            }
        }
    }

    const OcclusionIndex::Storage& m_index;
    const Vector3d& m_origin;
    std::span<const OpenSky, split> m_skies;
    BoundedOrigin m_bounded;
    SkyReach m_reachOfSkies;
    OpenCells<split> m_open;
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
