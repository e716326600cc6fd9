// The masks of a block of origins in one walk through an OcclusionIndex.
//
// The walk is MaskWalk's (occlusion_query.cpp): near to far, with a bit for each cell that is open,
// here for any of the block's origins. What a box or a triangle may block is its range of cells as
// seen from the box around the origins.
//
// A triangle is first seen from the middle of the block. For one direction, each of the values
// d.U, d.V and d.W of the exact test is linear in the origin: between two origins it differs by at
// most their distance times the length of an edge. Where the values of the middle exceed that, all
// origins or none are blocked, and a cell that is blocked for all is closed. In the cells between,
// along the edges of what is near, each origin is asked by itself: a direction's values for 16 of
// them are three dot products
//
//     d.U = s . (d x edge2),   d.V = s . (edge1 x d),   det = d.D
//
// in which only s depends on the origin, so that origins stand in the lanes of vectors. Bounds of
// the error are those of a single origin, and what lies within them goes to the exact test: the
// answers are those of each origin by itself. The file is compiled once for each instruction set.

#include <insolate/rt/occlusion_query.h>

#include <insolate/platform/simd.h>
#include <insolate/platform/simd_targets.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "insolate/rt/occlusion_blocks.cpp"
#include <hwy/foreach_target.h>

#include <hwy/highway.h>

#include <insolate/rt/occlusion_lanes.h>
#include <insolate/rt/occlusion_open_cells.h>

#ifndef INSOLATE_OCCLUSION_BLOCKS_ONCE
#define INSOLATE_OCCLUSION_BLOCKS_ONCE

namespace insolate {

/// Origins that are asked together. Those beyond count repeat the first.
struct OriginBlock {
    static constexpr std::size_t most = mostOriginsOfBlock;
    using Lanes = std::array<float, most>;

    std::span<const Vector3d> origins;
    Vector3d centre{};
    alignas(64) Lanes x, y, z;        ///< relative to the centre
    XYZf low{0, 0, 0}, high{0, 0, 0}; ///< of these
    XYZf half{0, 0, 0};               ///< the larger of their magnitudes
    float spread = 0.0f;              ///< largest distance from the centre
    float reach = 0.0f;               ///< largest sum of the magnitudes of x, y and z
    BoundedOrigin bounded;

    OriginBlock(std::span<const Vector3d> theOrigins, const std::array<double, 3>& sceneCentre)
        : origins(theOrigins), bounded(theOrigins.front(), sceneCentre) {
        Vector3d lowest = origins.front();
        Vector3d highest = lowest;
        for (const Vector3d& origin : origins) {
            bounded.include(BoundedOrigin(origin, sceneCentre));
            for (std::size_t axis = 0; axis < 3; ++axis) {
                lowest[axis] = std::min(lowest[axis], origin[axis]);
                highest[axis] = std::max(highest[axis], origin[axis]);
            }
        }
        for (std::size_t axis = 0; axis < 3; ++axis) {
            centre[axis] = 0.5 * (lowest[axis] + highest[axis]);
        }
        for (std::size_t i = 0; i < most; ++i) {
            const Vector3d& origin = origins[i < origins.size() ? i : 0];
            x[i] = static_cast<float>(origin[0] - centre[0]);
            y[i] = static_cast<float>(origin[1] - centre[1]);
            z[i] = static_cast<float>(origin[2] - centre[2]);
            spread = std::max(spread, std::sqrt(x[i] * x[i] + y[i] * y[i] + z[i] * z[i]));
            reach = std::max(reach, std::fabs(x[i]) + std::fabs(y[i]) + std::fabs(z[i]));
            low = {std::min(low.x, x[i]), std::min(low.y, y[i]), std::min(low.z, z[i])};
            high = {std::max(high.x, x[i]), std::max(high.y, y[i]), std::max(high.z, z[i])};
        }
        half = {std::max(-low.x, high.x), std::max(-low.y, high.y), std::max(-low.z, high.z)};
        half = {half.x * (1.0f + 0x1p-18f), half.y * (1.0f + 0x1p-18f), half.z * (1.0f + 0x1p-18f)};
        spread *= 1.0f + 0x1p-18f;
        reach *= 1.0f + 0x1p-18f;
    }

    std::uint32_t all() const { return (1U << most) - 1; }
};

} // namespace insolate

#endif // INSOLATE_OCCLUSION_BLOCKS_ONCE

HWY_BEFORE_NAMESPACE();
namespace insolate {
namespace HWY_NAMESPACE {

using Origins = hn::CappedTag<float, OriginBlock::most>;

/// A leaf's triangles seen from a block.
struct BlockLeaf {
    using Lanes = std::array<float, 8>;

    OcclusionLeaf leaf;
    // U, V and W from the middle, turned so that a hit has positive dot products with all three.
    alignas(32) std::array<Lanes, 3> u, v, w;
    alignas(32) std::array<Lanes, 3> s, edge1, edge2;
    alignas(32) Lanes edge;                   ///< the bound e
    alignas(32) Lanes error;                  ///< E
    alignas(32) Lanes boundU, boundV, boundW; ///< E, and what origins may differ by
    alignas(32) Lanes volumeError;
    alignas(32) Lanes sign;
    float margin = 0.0f;        ///< of the boxes around triangles, beside that of their edges
    std::uint32_t possible = 0; ///< may be hit at all
    std::uint32_t apart = 0;    ///< origins on either side of its plane, or near it

    /// What the origins have of their own of a triangle.
    struct Triangle {
        alignas(64) OriginBlock::Lanes x, y, z; ///< s, turned by the sign of T
        alignas(64) OriginBlock::Lanes sign;    ///< of T
        XYZf d;                                 ///< D
        std::uint32_t certain;                  ///< origins that T does not leave in doubt
        std::uint32_t edgeOn;                   ///< origins for which T's sign is not certain
    };
    std::array<Triangle, 8> triangles;
    std::uint32_t prepared = 0; ///< those that are filled in

    BlockLeaf(const OcclusionIndex::Storage& index, std::uint32_t child) : leaf(index, child) {}
};

template <std::size_t split>
class BlockWalk {
public:
    BlockWalk(const OcclusionIndex::Storage& index, const OriginBlock& block,
              std::span<const SkyDirectionTable* const> skies, const SkyReach& reachOfSkies,
              SkyCellSet* sets, std::size_t stride)
        : m_index(index), m_block(block), m_skies(skies), m_reachOfSkies(reachOfSkies),
          m_sets(sets), m_stride(stride) {
        for (const SkyDirectionTable* table : skies) {
            m_largestComponent = std::max(m_largestComponent, table->largestComponent);
            m_largestLength = std::max(m_largestLength, table->largestLength);
        }
        begin();
    }

    /// Whether the walk came to its end; else it was given up, and cells are open whose rays are
    /// blocked.
    bool run() {
        return m_open.walk(
            m_index, m_block.bounded, m_reachOfSkies, fewCells,
            [&](const HeldEntry& entry) HWY_ATTR { castCells(entry); },
            [&](std::uint32_t leaf) HWY_ATTR { closeBehindLeaf(leaf); },
            [&] { return m_separated <= mostSeparated * m_block.origins.size(); });
    }

    /// Leaves what is still open in the sets.
    void finish() const {
        for (std::size_t i = 0; i < m_block.origins.size(); ++i) {
            for (std::size_t k = 0; k < split; ++k) {
                SkyCellSet& set = m_sets[i * m_stride + k];
                for (std::size_t word = 0; word < SkyCellSet::wordCount; ++word) {
                    set.words[word] &= m_open.words[OpenCells<split>::placeOf(word, k)];
                }
            }
        }
        for (std::size_t word = 0; word < m_open.words.size(); ++word) {
            for (std::uint64_t bits = m_open.words[word]; bits != 0; bits &= bits - 1) {
                const auto bit = static_cast<std::size_t>(std::countr_zero(bits));
                const std::size_t band = word / 2;
                std::uint32_t blocked = m_blocked[band * rowLength + word % 2 * 64 + bit] & m_real;
                for (; blocked != 0; blocked &= blocked - 1) {
                    const auto i = static_cast<std::size_t>(std::countr_zero(blocked));
                    m_sets[i * m_stride + band % split].words[band / split * 2 + word % 2] &=
                        ~(std::uint64_t{1} << bit);
                }
            }
        }
    }

private:
    static constexpr int bandCount = OpenCells<split>::bandCount;
    static constexpr std::size_t rowLength = SkyDirectionTable::rowLength;
    static constexpr int fewCells = RaySet::largest;

    /// Pairs of a triangle and a direction at which each origin was asked by itself, for each
    /// origin: where there are more, a quarter of a mask's cells, walks one by one are faster
    /// (./dev bench rays neighbours).
    static constexpr std::size_t mostSeparated = 350 * split;

    /// Cells sectors x [altitudeLow, altitudeHigh] that something may block for some origins.
    struct CellSpan {
        BandBits sectors;
        std::size_t altitudeLow, altitudeHigh;
        std::uint32_t origins;
    };

    /// Cells that some origins do not ask count as blocked for these.
    void begin() {
        const std::size_t count = m_block.origins.size();
        m_real = count == OriginBlock::most ? m_block.all() : (1U << count) - 1;
        m_blocked.fill(static_cast<std::uint16_t>(m_block.all() & ~m_real));
        for (std::size_t k = 0; k < split; ++k) {
            for (std::size_t word = 0; word < SkyCellSet::wordCount; ++word) {
                std::uint64_t any = 0;
                for (std::size_t i = 0; i < count; ++i) {
                    any |= m_sets[i * m_stride + k].words[word];
                }
                const std::size_t place = OpenCells<split>::placeOf(word, k);
                m_open.words[place] = any;
                std::uint16_t* row = &m_blocked[place / 2 * rowLength + word % 2 * 64];
                for (std::size_t i = 0; i < count; ++i) {
                    for (std::uint64_t bits = any & ~m_sets[i * m_stride + k].words[word];
                         bits != 0; bits &= bits - 1) {
                        row[std::countr_zero(bits)] |= static_cast<std::uint16_t>(1U << i);
                    }
                }
            }
        }
    }

    // -----------------------------------------------------------------------------------------
    // Triangles

    /// Prepares triangles from `lane` on, as many as a vector has; boxes: those around them.
    HWY_INLINE RelativeBoxes see(const LeafOrigin& from, std::size_t lane, BlockLeaf& seen) const {
        const Floats d;
        const SeenLanes lanes(seen.leaf, from, lane, m_largestComponent);
        seen.possible |= bitsOf(d, lanes.possible) << lane;
        seen.apart |= bitsOf(d, lanes.near) << lane;
        const auto store = [&](std::array<BlockLeaf::Lanes, 3>& to, auto x, auto y, auto z)
                               HWY_ATTR {
                                   hn::Store(x, d, to[0].data() + lane);
                                   hn::Store(y, d, to[1].data() + lane);
                                   hn::Store(z, d, to[2].data() + lane);
                               };
        store(seen.u, lanes.ux, lanes.uy, lanes.uz);
        store(seen.v, lanes.vx, lanes.vy, lanes.vz);
        store(seen.w, lanes.wx, lanes.wy, lanes.wz);
        store(seen.s, lanes.sx, lanes.sy, lanes.sz);
        store(seen.edge1, lanes.e1x, lanes.e1y, lanes.e1z);
        store(seen.edge2, lanes.e2x, lanes.e2y, lanes.e2z);
        hn::Store(lanes.edge, d, seen.edge.data() + lane);
        hn::Store(lanes.error, d, seen.error.data() + lane);
        hn::Store(lanes.volumeError, d, seen.volumeError.data() + lane);
        hn::Store(lanes.sign, d, seen.sign.data() + lane);
        // How much d.U, d.V and d.W may differ within the block.
        const auto parallax = hn::Set(d, m_block.spread * m_largestLength * (1.0f + 0x1p-18f));
        const auto bound = [&](auto x, auto y, auto z) HWY_ATTR {
            return hn::MulAdd(hn::Sqrt(dotOf(x, y, z, x, y, z)), parallax, lanes.error);
        };
        hn::Store(bound(lanes.e2x, lanes.e2y, lanes.e2z), d, seen.boundU.data() + lane);
        hn::Store(bound(lanes.e1x, lanes.e1y, lanes.e1z), d, seen.boundV.data() + lane);
        hn::Store(bound(hn::Sub(lanes.e1x, lanes.e2x), hn::Sub(lanes.e1y, lanes.e2y),
                        hn::Sub(lanes.e1z, lanes.e2z)),
                  d, seen.boundW.data() + lane);
        return boxesOf(lanes, from.reach, m_block.low, m_block.high);
    }

    LeafOrigin originOf(const OcclusionLeaf& leaf) const {
        LeafOrigin from(*leaf.header, m_block.centre);
        from.reach += m_block.reach * (1.0f + 0x1p-18f);
        from.spread = m_block.spread;
        return from;
    }

    static XYZf vectorAt(const std::array<BlockLeaf::Lanes, 3>& lanes, std::size_t lane) {
        return {lanes[0][lane], lanes[1][lane], lanes[2][lane]};
    }

    /// Fills in what the origins have of their own of a triangle, and judges by it whether they
    /// are apart.
    void prepare(BlockLeaf& seen, std::size_t lane) const {
        const Origins d;
        BlockLeaf::Triangle& triangle = seen.triangles[lane];
        const XYZf e1 = vectorAt(seen.edge1, lane);
        const XYZf e2 = vectorAt(seen.edge2, lane);
        triangle.d = {e2.y * e1.z - e2.z * e1.y, e2.z * e1.x - e2.x * e1.z,
                      e2.x * e1.y - e2.y * e1.x};
        const XYZf& det = triangle.d;
        const float edge = seen.edge[lane];
        const float largestDet =
            m_largestComponent * 1.001f *
            (std::fabs(det.x) + std::fabs(det.y) + std::fabs(det.z) + 0x1p-20f * edge * edge);
        const auto nearLimit = hn::Set(d, 1.02f * static_cast<float>(nearestHit) * largestDet +
                                              seen.volumeError[lane]);
        const auto error = hn::Set(d, seen.volumeError[lane]);
        triangle.certain = 0;
        triangle.edgeOn = 0;
        std::uint32_t negative = 0;
        for (std::size_t i = 0; i < OriginBlock::most; i += hn::Lanes(d)) {
            const auto x = hn::Add(hn::Set(d, seen.s[0][lane]), hn::Load(d, m_block.x.data() + i));
            const auto y = hn::Add(hn::Set(d, seen.s[1][lane]), hn::Load(d, m_block.y.data() + i));
            const auto z = hn::Add(hn::Set(d, seen.s[2][lane]), hn::Load(d, m_block.z.data() + i));
            const auto t =
                hn::Neg(dotOf(x, y, z, hn::Set(d, det.x), hn::Set(d, det.y), hn::Set(d, det.z)));
            const auto sign = hn::And(t, hn::SignBit(d));
            hn::Store(sign, d, triangle.sign.data() + i);
            hn::Store(hn::Xor(x, sign), d, triangle.x.data() + i);
            hn::Store(hn::Xor(y, sign), d, triangle.y.data() + i);
            hn::Store(hn::Xor(z, sign), d, triangle.z.data() + i);
            triangle.certain |= bitsOf(d, hn::Ge(hn::Abs(t), nearLimit)) << i;
            triangle.edgeOn |= bitsOf(d, hn::Le(hn::Abs(t), error)) << i;
            negative |= bitsOf(d, hn::Lt(t, hn::Zero(d))) << i;
        }
        const bool middle = std::signbit(seen.sign[lane]);
        if (triangle.certain == m_block.all() && negative == (middle ? m_block.all() : 0)) {
            seen.apart &= ~(1U << lane);
        }
        seen.prepared |= 1U << lane;
    }

    /// The origins among `asked` for which a triangle blocks a direction, given with its products
    /// a = d x edge2, b = edge1 x d and det.
    HWY_INLINE std::uint32_t blockedOrigins(const BlockLeaf& seen, std::size_t lane,
                                            std::uint32_t asked, const XYZf& a, const XYZf& b,
                                            float det, const XYZf& along) {
        const Origins d;
        ++m_separated;
        const BlockLeaf::Triangle& triangle = seen.triangles[lane];
        const auto error = hn::Set(d, seen.error[lane]);
        std::uint32_t hit = 0;
        std::uint32_t maybe = 0;
        for (std::size_t i = 0; i < OriginBlock::most; i += hn::Lanes(d)) {
            const auto x = hn::Load(d, triangle.x.data() + i);
            const auto y = hn::Load(d, triangle.y.data() + i);
            const auto z = hn::Load(d, triangle.z.data() + i);
            const auto u = dotOf(x, y, z, hn::Set(d, a.x), hn::Set(d, a.y), hn::Set(d, a.z));
            const auto v = dotOf(x, y, z, hn::Set(d, b.x), hn::Set(d, b.y), hn::Set(d, b.z));
            const auto turned = hn::Xor(hn::Set(d, det), hn::Load(d, triangle.sign.data() + i));
            const auto w = hn::Sub(hn::Sub(turned, u), v);
            const auto least = hn::Min(hn::Min(u, v), w);
            hit |= bitsOf(d, hn::Gt(least, error)) << i;
            maybe |= bitsOf(d, hn::Ge(least, hn::Neg(error))) << i;
            if (triangle.edgeOn != 0) {
                const auto greatest = hn::Max(hn::Max(u, v), w);
                maybe |= bitsOf(d, hn::Le(greatest, error)) << i & triangle.edgeOn;
            }
        }
        hit &= triangle.certain & asked;
        for (std::uint32_t undecided = maybe & asked & ~hit; undecided != 0;
             undecided &= undecided - 1) {
            const auto i = static_cast<std::size_t>(std::countr_zero(undecided));
            const double direction[3] = {static_cast<double>(along.x), static_cast<double>(along.y),
                                         static_cast<double>(along.z)};
            if (hitsExactly(m_index, seen.leaf, lane, m_block.origins[i], direction)) {
                hit |= 1U << i;
            }
        }
        return hit;
    }

    // -----------------------------------------------------------------------------------------
    // Ranges of cells

    void closeBehindLeaf(std::uint32_t child) {
        BlockLeaf seen(m_index, child);
        const LeafOrigin from = originOf(seen.leaf);
        seen.margin = 0x1p-22f * from.reach + 1e-20f;
        BoxReach reach;
        std::uint32_t reached = 0;
        const Floats d;
        for (std::size_t lane = 0; lane < seen.leaf.count; lane += hn::Lanes(d)) {
            reached |= reachOfBoxes<split>(see(from, lane, seen), m_reachOfSkies, reach, lane,
                                           noCeiling());
        }
        for (std::uint32_t lanes = reached & allLanes(seen.leaf.count) & seen.possible; lanes != 0;
             lanes &= lanes - 1) {
            const auto lane = static_cast<std::size_t>(std::countr_zero(lanes));
            const CellRange range = rangeOf(reach, lane);
            CellSpan span{sectorsOf(range), range.altitudeLow, range.altitudeHigh, m_block.all()};
            if (!anyOpen(m_open.words.data(), range)) {
                continue;
            }
            bool apart = (seen.apart >> lane & 1U) != 0;
            if (apart || range.width == skyGrid::azimuthCount) {
                prepare(seen, lane);
                span = spanOf(seen, lane);
                if (span.origins == 0) {
                    continue;
                }
                apart = (seen.apart >> lane & 1U) != 0;
            }
            if (apart) {
                closeBehindTriangle<true>(seen, lane, span);
            } else {
                closeBehindTriangle<false>(seen, lane, span);
            }
        }
    }

    /// ceilingOf() a triangle for some origins.
    HWY_INLINE FloatLanes ceilingOfOrigins(const BlockLeaf& seen, std::size_t lane,
                                           std::size_t first) const {
        const Floats d;
        const BlockLeaf::Triangle& triangle = seen.triangles[lane];
        const auto x = hn::Load(d, triangle.x.data() + first);
        const auto y = hn::Load(d, triangle.y.data() + first);
        const auto z = hn::Load(d, triangle.z.data() + first);
        const auto sign = hn::Load(d, triangle.sign.data() + first);
        const auto set = [&](float value) HWY_ATTR { return hn::Set(d, value); };
        const auto e1x = set(seen.edge1[0][lane]);
        const auto e1y = set(seen.edge1[1][lane]);
        const auto e1z = set(seen.edge1[2][lane]);
        const auto e2x = set(seen.edge2[0][lane]);
        const auto e2y = set(seen.edge2[1][lane]);
        const auto e2z = set(seen.edge2[2][lane]);
        const auto vx = crossTerm(y, e1z, z, e1y);
        const auto vy = crossTerm(z, e1x, x, e1z);
        const auto vz = crossTerm(x, e1y, y, e1x);
        const auto ux = crossTerm(e2y, z, e2z, y);
        const auto uy = crossTerm(e2z, x, e2x, z);
        const auto uz = crossTerm(e2x, y, e2y, x);
        const auto wx = hn::Sub(hn::Sub(hn::Xor(set(triangle.d.x), sign), ux), vx);
        const auto wy = hn::Sub(hn::Sub(hn::Xor(set(triangle.d.y), sign), uy), vy);
        const auto wz = hn::Sub(hn::Sub(hn::Xor(set(triangle.d.z), sign), uz), vz);
        alignas(32) std::array<float, 8> doubtful;
        for (std::size_t i = 0; i < hn::Lanes(d); ++i) {
            doubtful[i] = static_cast<float>(triangle.edgeOn >> (first + i) & 1U);
        }
        return hn::IfThenElse(hn::Gt(hn::Load(d, doubtful.data()), hn::Zero(d)), noCeiling(),
                              ceilingOf(ux, uy, uz, vx, vy, vz, wx, wy, wz, set(seen.error[lane])));
    }

    /// The cells that a triangle near the origins may block for any of them, and these.
    CellSpan spanOf(const BlockLeaf& seen, std::size_t lane) const {
        const Floats d;
        CellSpan span{{0, 0}, bandCount, 0, 0};
        const float edge = seen.edge[lane];
        const float margin = 0x1p-19f * edge + seen.margin;
        std::array<float, 3> low;
        std::array<float, 3> high;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const float s = seen.s[axis][lane];
            const float b = seen.edge1[axis][lane] - s;
            const float c = seen.edge2[axis][lane] - s;
            low[axis] = std::min(-s, std::min(b, c)) - margin;
            high[axis] = std::max(-s, std::max(b, c)) + margin;
        }
        for (std::size_t first = 0; first < OriginBlock::most; first += 8) {
            BoxReach reach;
            std::uint32_t reached = 0;
            for (std::size_t i = 0; i < 8; i += hn::Lanes(d)) {
                const auto x = hn::Load(d, m_block.x.data() + first + i);
                const auto y = hn::Load(d, m_block.y.data() + first + i);
                const auto z = hn::Load(d, m_block.z.data() + first + i);
                RelativeBoxes box;
                box.x0 = hn::Sub(hn::Set(d, low[0]), x);
                box.x1 = hn::Sub(hn::Set(d, high[0]), x);
                box.y0 = hn::Sub(hn::Set(d, low[1]), y);
                box.y1 = hn::Sub(hn::Set(d, high[1]), y);
                box.z0 = hn::Sub(hn::Set(d, low[2]), z);
                box.z1 = hn::Sub(hn::Set(d, high[2]), z);
                const auto ceiling = ceilingOfOrigins(seen, lane, first + i);
                reached |= reachOfBoxes<split>(box, m_reachOfSkies, reach, i, ceiling);
            }
            for (std::uint32_t left = reached & m_real >> first; left != 0; left &= left - 1) {
                const auto i = static_cast<std::size_t>(std::countr_zero(left));
                const CellRange range = rangeOf(reach, i);
                const BandBits sectors = sectorsOf(range);
                span.sectors.low |= sectors.low;
                span.sectors.high |= sectors.high;
                span.altitudeLow = std::min<std::size_t>(span.altitudeLow, range.altitudeLow);
                span.altitudeHigh = std::max<std::size_t>(span.altitudeHigh, range.altitudeHigh);
                span.origins |= 1U << (first + i);
            }
        }
        return span;
    }

    /// Closes the open cells of a span whose rays one triangle blocks.
    template <bool apart>
    HWY_INLINE void closeBehindTriangle(BlockLeaf& seen, std::size_t lane, const CellSpan& span) {
        const Cells d;
        const auto set = [&](const std::array<BlockLeaf::Lanes, 3>& from, std::size_t axis)
                             HWY_ATTR { return hn::Set(d, from[axis][lane]); };
        const auto ux = set(seen.u, 0);
        const auto uy = set(seen.u, 1);
        const auto uz = set(seen.u, 2);
        const auto vx = set(seen.v, 0);
        const auto vy = set(seen.v, 1);
        const auto vz = set(seen.v, 2);
        const auto wx = set(seen.w, 0);
        const auto wy = set(seen.w, 1);
        const auto wz = set(seen.w, 2);
        const auto boundU = hn::Set(d, seen.boundU[lane]);
        const auto boundV = hn::Set(d, seen.boundV[lane]);
        const auto boundW = hn::Set(d, seen.boundW[lane]);
        // det, the sum of the three, does not depend on the origin.
        const auto leastDet = hn::Set(d, -3.01f * seen.error[lane]);
        const bool forAll = !apart && span.origins == m_block.all();
        BandBits sectors = span.sectors;
        while ((sectors.low | sectors.high) != 0) {
            const auto [azimuth, asked] = takeSectors(sectors);
            for (std::size_t band = span.altitudeLow; band <= span.altitudeHigh; ++band) {
                const std::uint32_t still = m_open.window(band, azimuth) & asked;
                if (still == 0) {
                    continue;
                }
                const SkyDirectionTable& table = *m_skies[band % split];
                const std::size_t row = band / split;
                const auto x = hn::Load(d, table.x[row].data() + azimuth);
                const auto y = hn::Load(d, table.y[row].data() + azimuth);
                const auto z = hn::Load(d, table.z[row].data() + azimuth);
                const auto u = dotOf(x, y, z, ux, uy, uz);
                const auto v = dotOf(x, y, z, vx, vy, vz);
                const auto w = dotOf(x, y, z, wx, wy, wz);
                std::uint32_t closed = 0;
                std::uint32_t between = allAbove(u, v, w, boundU, boundV, boundW);
                if constexpr (apart) {
                    between |= allBelow(u, v, w, boundU, boundV, boundW);
                } else {
                    between &= bitsOf(d, hn::Ge(hn::Add(hn::Add(u, v), w), leastDet));
                    if (forAll) {
                        closed = bitsOf(d, hn::And(hn::And(hn::Gt(u, boundU), hn::Gt(v, boundV)),
                                                   hn::Gt(w, boundW))) &
                                 still;
                    }
                }
                between &= still & ~closed;
                if (between != 0) {
                    closed |=
                        separate<apart>(seen, lane, span, x, y, z, u, v, w, band, azimuth, between);
                }
                m_open.close(band, azimuth, closed);
            }
        }
    }

    using CellLanes = hn::Vec<Cells>;

    static HWY_INLINE std::uint32_t allAbove(CellLanes u, CellLanes v, CellLanes w,
                                             CellLanes boundU, CellLanes boundV, CellLanes boundW) {
        return bitsOf(Cells(),
                      hn::And(hn::And(hn::Ge(u, hn::Neg(boundU)), hn::Ge(v, hn::Neg(boundV))),
                              hn::Ge(w, hn::Neg(boundW))));
    }
    static HWY_INLINE std::uint32_t allBelow(CellLanes u, CellLanes v, CellLanes w,
                                             CellLanes boundU, CellLanes boundV, CellLanes boundW) {
        return bitsOf(Cells(),
                      hn::And(hn::And(hn::Le(u, boundU), hn::Le(v, boundV)), hn::Le(w, boundW)));
    }

    /// Looks closer at some cells of a row: first by how much their own values may differ within
    /// the block, then origin by origin. Gives those that are now blocked for all.
    template <bool apart>
    HWY_INLINE std::uint32_t separate(BlockLeaf& seen, std::size_t lane, const CellSpan& span,
                                      CellLanes x, CellLanes y, CellLanes z, CellLanes u,
                                      CellLanes v, CellLanes w, std::size_t band,
                                      std::size_t azimuth, std::uint32_t between) {
        const Cells d;
        if ((seen.prepared >> lane & 1U) == 0) {
            prepare(seen, lane);
        }
        const auto e1x = hn::Set(d, seen.edge1[0][lane]);
        const auto e1y = hn::Set(d, seen.edge1[1][lane]);
        const auto e1z = hn::Set(d, seen.edge1[2][lane]);
        const auto e2x = hn::Set(d, seen.edge2[0][lane]);
        const auto e2y = hn::Set(d, seen.edge2[1][lane]);
        const auto e2z = hn::Set(d, seen.edge2[2][lane]);
        const auto ax = crossTerm(y, e2z, z, e2y);
        const auto ay = crossTerm(z, e2x, x, e2z);
        const auto az = crossTerm(x, e2y, y, e2x);
        const auto bx = crossTerm(e1y, z, e1z, y);
        const auto by = crossTerm(e1z, x, e1x, z);
        const auto bz = crossTerm(e1x, y, e1y, x);
        const auto halfX = hn::Set(d, m_block.half.x);
        const auto halfY = hn::Set(d, m_block.half.y);
        const auto halfZ = hn::Set(d, m_block.half.z);
        const auto error = hn::Set(d, 2.0f * seen.error[lane]);
        const auto bound = [&](auto gx, auto gy, auto gz) HWY_ATTR {
            return hn::MulAdd(
                hn::Abs(gx), halfX,
                hn::MulAdd(hn::Abs(gy), halfY, hn::MulAdd(hn::Abs(gz), halfZ, error)));
        };
        const auto boundU = bound(ax, ay, az);
        const auto boundV = bound(bx, by, bz);
        const auto boundW = bound(hn::Add(ax, bx), hn::Add(ay, by), hn::Add(az, bz));
        std::uint32_t closed = 0;
        if constexpr (apart) {
            between &= allAbove(u, v, w, boundU, boundV, boundW) |
                       allBelow(u, v, w, boundU, boundV, boundW);
        } else {
            between &= allAbove(u, v, w, boundU, boundV, boundW);
            if (span.origins == m_block.all()) {
                closed = bitsOf(d, hn::And(hn::And(hn::Gt(u, boundU), hn::Gt(v, boundV)),
                                           hn::Gt(w, boundW))) &
                         between;
                between &= ~closed;
            }
        }
        if (between == 0) {
            return closed;
        }
        const XYZf& normal = seen.triangles[lane].d;
        struct alignas(64) Row {
            std::array<float, 16> values;
        };
        std::array<Row, 10> rows;
        const auto keep = [&](std::size_t which, auto value)
                              HWY_ATTR { hn::Store(value, d, rows[which].values.data()); };
        keep(0, ax);
        keep(1, ay);
        keep(2, az);
        keep(3, bx);
        keep(4, by);
        keep(5, bz);
        keep(6, dotOf(x, y, z, hn::Set(d, normal.x), hn::Set(d, normal.y), hn::Set(d, normal.z)));
        keep(7, x);
        keep(8, y);
        keep(9, z);
        std::uint16_t* blocked = &m_blocked[band * rowLength + azimuth];
        for (; between != 0; between &= between - 1) {
            const auto cell = static_cast<std::size_t>(std::countr_zero(between));
            const auto value = [&](std::size_t which) { return rows[which].values[cell]; };
            const std::uint32_t asked = span.origins & ~std::uint32_t{blocked[cell]};
            blocked[cell] = static_cast<std::uint16_t>(
                blocked[cell] | blockedOrigins(seen, lane, asked, {value(0), value(1), value(2)},
                                               {value(3), value(4), value(5)}, value(6),
                                               {value(7), value(8), value(9)}));
            closed |= static_cast<std::uint32_t>(blocked[cell] == m_block.all()) << cell;
        }
        return closed;
    }

    /// Adds the origins for which a triangle blocks a direction; whether all are blocked now.
    HWY_INLINE bool blockOne(const BlockLeaf& seen, std::size_t lane, std::uint16_t& blocked,
                             const XYZf& along) {
        const XYZf e1 = vectorAt(seen.edge1, lane);
        const XYZf e2 = vectorAt(seen.edge2, lane);
        const XYZf& normal = seen.triangles[lane].d;
        const XYZf a{along.y * e2.z - along.z * e2.y, along.z * e2.x - along.x * e2.z,
                     along.x * e2.y - along.y * e2.x};
        const XYZf b{e1.y * along.z - e1.z * along.y, e1.z * along.x - e1.x * along.z,
                     e1.x * along.y - e1.y * along.x};
        const float det = along.x * normal.x + along.y * normal.y + along.z * normal.z;
        blocked = static_cast<std::uint16_t>(
            blocked |
            blockedOrigins(seen, lane, m_block.all() & ~std::uint32_t{blocked}, a, b, det, along));
        return blocked == m_block.all();
    }

    // -----------------------------------------------------------------------------------------
    // A few cells

    /// Casts the open cells of an entry, few as they are: each as a beam from all origins.
    void castCells(const HeldEntry& entry) {
        RaySet beams;
        std::array<std::uint8_t, RaySet::largest> bands;
        std::array<std::uint8_t, RaySet::largest> sectors;
        const CellRange& range = entry.range;
        const BandBits asked = sectorsOf(range);
        for (std::size_t band = range.altitudeLow; band <= range.altitudeHigh; ++band) {
            const SkyDirectionTable& table = *m_skies[band % split];
            for (std::size_t word = 0; word < 2; ++word) {
                std::uint64_t cells =
                    m_open.words[2 * band + word] & (word == 0 ? asked.low : asked.high);
                for (; cells != 0; cells &= cells - 1) {
                    const std::size_t sector =
                        64 * word + static_cast<std::size_t>(std::countr_zero(cells));
                    const std::size_t cell = skyGrid::azimuthCount * (band / split) + sector;
                    bands[beams.count] = static_cast<std::uint8_t>(band);
                    sectors[beams.count] = static_cast<std::uint8_t>(sector);
                    beams.add(table.directions[cell], table.inverse[cell]);
                }
            }
        }
        struct Held {
            std::uint32_t child;
            std::uint32_t beams;
        };
        Held stack[stackSize];
        std::size_t held = 0;
        stack[held++] = {entry.child, beams.all()};
        std::uint32_t open = beams.all();
        while (held != 0) {
            const Held next = stack[--held];
            const std::uint32_t left = next.beams & open;
            if (left == 0) {
                continue;
            }
            if (occlusionChild::isLeaf(next.child)) {
                BlockLeaf seen(m_index, next.child);
                open &= ~blockedByLeaf(seen, beams, left, bands, sectors);
                continue;
            }
            const OcclusionNode& node = m_index.nodes[next.child];
            std::array<std::uint32_t, OcclusionNode::width> met;
            for (std::uint32_t lanes = childrenMet(node, m_block.bounded, beams, left, met);
                 lanes != 0; lanes &= lanes - 1) {
                const auto lane = static_cast<std::size_t>(std::countr_zero(lanes));
                prefetchEntry(m_index, node.child[lane]);
                stack[held++] = {node.child[lane], met[lane]};
            }
        }
        for (std::uint32_t blocked = beams.all() & ~open; blocked != 0; blocked &= blocked - 1) {
            const auto beam = static_cast<std::size_t>(std::countr_zero(blocked));
            m_open.words[2 * std::size_t{bands[beam]} + sectors[beam] / 64] &=
                ~(std::uint64_t{1} << sectors[beam] % 64);
        }
    }

    /// The beams among `asked` that a leaf's triangles, and those before, block for all origins.
    HWY_INLINE std::uint32_t
    blockedByLeaf(BlockLeaf& seen, const RaySet& beams, std::uint32_t asked,
                  const std::array<std::uint8_t, RaySet::largest>& bands,
                  const std::array<std::uint8_t, RaySet::largest>& sectors) {
        const Floats d;
        const LeafOrigin from = originOf(seen.leaf);
        for (std::size_t lane = 0; lane < seen.leaf.count; lane += hn::Lanes(d)) {
            see(from, lane, seen);
        }
        const std::uint32_t possible = seen.possible & allLanes(seen.leaf.count);
        std::uint32_t all = 0;
        for (std::uint32_t left = asked; left != 0; left &= left - 1) {
            const auto beam = static_cast<std::size_t>(std::countr_zero(left));
            const XYZf& along = beams.direction[beam];
            std::uint32_t closed = 0;
            std::uint32_t between = 0;
            std::uint32_t backwards = 0;
            for (std::size_t lane = 0; lane < seen.leaf.count; lane += hn::Lanes(d)) {
                const auto load = [&](const BlockLeaf::Lanes& from8)
                                      HWY_ATTR { return hn::Load(d, from8.data() + lane); };
                const auto x = hn::Set(d, along.x);
                const auto y = hn::Set(d, along.y);
                const auto z = hn::Set(d, along.z);
                const auto u = dotOf(x, y, z, load(seen.u[0]), load(seen.u[1]), load(seen.u[2]));
                const auto v = dotOf(x, y, z, load(seen.v[0]), load(seen.v[1]), load(seen.v[2]));
                const auto w = dotOf(x, y, z, load(seen.w[0]), load(seen.w[1]), load(seen.w[2]));
                const auto boundU = load(seen.boundU);
                const auto boundV = load(seen.boundV);
                const auto boundW = load(seen.boundW);
                const auto front = hn::Ge(hn::Add(hn::Add(u, v), w),
                                          hn::Mul(load(seen.error), hn::Set(d, -3.01f)));
                between |=
                    bitsOf(d,
                           hn::And(hn::And(hn::Ge(u, hn::Neg(boundU)), hn::Ge(v, hn::Neg(boundV))),
                                   hn::And(hn::Ge(w, hn::Neg(boundW)), front)))
                    << lane;
                closed |= bitsOf(d, hn::And(hn::And(hn::Gt(u, boundU), hn::Gt(v, boundV)),
                                            hn::Gt(w, boundW)))
                          << lane;
                if (seen.apart != 0) {
                    backwards |=
                        bitsOf(d, hn::Or(hn::And(hn::And(hn::Le(u, boundU), hn::Le(v, boundV)),
                                                 hn::Le(w, boundW)),
                                         hn::And(hn::And(hn::Ge(u, hn::Neg(boundU)),
                                                         hn::Ge(v, hn::Neg(boundV))),
                                                 hn::Ge(w, hn::Neg(boundW)))))
                        << lane;
                }
            }
            if ((closed & possible & ~seen.apart) != 0) {
                all |= 1U << beam;
                continue;
            }
            std::uint16_t& blocked =
                m_blocked[std::size_t{bands[beam]} * rowLength + sectors[beam]];
            for (std::uint32_t some = (between | (backwards & seen.apart)) & possible; some != 0;
                 some &= some - 1) {
                const auto lane = static_cast<std::size_t>(std::countr_zero(some));
                if ((seen.prepared >> lane & 1U) == 0) {
                    prepare(seen, lane);
                }
                if (blockOne(seen, lane, blocked, along)) {
                    all |= 1U << beam;
                    break;
                }
            }
        }
        return all;
    }

    const OcclusionIndex::Storage& m_index;
    const OriginBlock& m_block;
    std::span<const SkyDirectionTable* const> m_skies;
    SkyReach m_reachOfSkies;
    SkyCellSet* m_sets;
    std::size_t m_stride;
    std::uint32_t m_real = 0; ///< the block's own origins
    OpenCells<split> m_open;
    std::array<std::uint16_t, bandCount * rowLength> m_blocked; ///< by cell, a bit for each origin
    float m_largestComponent = 0.0f;
    float m_largestLength = 0.0f;
    std::size_t m_separated = 0;
};

bool CloseBlockedCellsOfBlock(const OcclusionIndex::Storage& index,
                              std::span<const Vector3d> origins,
                              std::span<const SkyDirectionTable* const> skies,
                              const SkyReach& reach, SkyCellSet* sets, std::size_t stride) {
    const OriginBlock block(origins, index.centre);
    if (skies.size() == 1) {
        BlockWalk<1> walk(index, block, skies, reach, sets, stride);
        const bool ended = walk.run();
        walk.finish();
        return ended;
    }
    BlockWalk<2> walk(index, block, skies, reach, sets, stride);
    const bool ended = walk.run();
    walk.finish();
    return ended;
}

} // namespace HWY_NAMESPACE
} // namespace insolate
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace insolate {

HWY_EXPORT(CloseBlockedCellsOfBlock);

bool closeBlockedCellsOfBlock(const OcclusionIndex::Storage& index,
                              std::span<const Vector3d> origins,
                              std::span<const SkyDirectionTable* const> skies,
                              const SkyReach& reach, SkyCellSet* sets, std::size_t stride) {
    if (index.nodes.empty() || skies.empty() || origins.empty()) {
        return true;
    }
    applySimdChoice();
    return HWY_DYNAMIC_DISPATCH(CloseBlockedCellsOfBlock)(index, origins, skies, reach, sets,
                                                          stride);
}

} // namespace insolate

#endif // HWY_ONCE
