/// The cells of the sky that are still open in a walk of an OcclusionIndex, and the walk itself,
/// for one origin or a block of them. Included behind hwy/foreach_target.h, it is compiled with
/// each instruction set.
#if defined(INSOLATE_RT_OCCLUSION_OPEN_CELLS_H) == defined(HWY_TARGET_TOGGLE)
#ifdef INSOLATE_RT_OCCLUSION_OPEN_CELLS_H
#undef INSOLATE_RT_OCCLUSION_OPEN_CELLS_H
#else
#define INSOLATE_RT_OCCLUSION_OPEN_CELLS_H
#endif

#include <hwy/highway.h>

#include <insolate/rt/occlusion_lanes.h>

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

HWY_BEFORE_NAMESPACE();
namespace insolate::HWY_NAMESPACE {

/// An entry that a walk holds back, with the cells that it may block.
struct HeldEntry {
    std::uint32_t child;
    CellRange range;
};

/// Some sectors next to each other, as many as a vector of cells has lanes.
struct SectorWindow {
    std::size_t azimuth; ///< the first one, a multiple of the lanes
    std::uint32_t asked; ///< those that are wanted, the first in bit 0
};

/// Takes the first window with a sector out of a set that has one.
HWY_INLINE SectorWindow takeSectors(BandBits& sectors) {
    const std::size_t lanes = hn::Lanes(Cells());
    const std::size_t azimuth =
        (sectors.low != 0 ? static_cast<std::size_t>(std::countr_zero(sectors.low))
                          : 64 + static_cast<std::size_t>(std::countr_zero(sectors.high))) &
        ~(lanes - 1);
    std::uint64_t& half = azimuth < 64 ? sectors.low : sectors.high;
    const std::uint32_t asked = static_cast<std::uint32_t>(half >> azimuth % 64) & allLanes(lanes);
    half &= ~(std::uint64_t{allLanes(lanes)} << azimuth % 64);
    return {azimuth, asked};
}

/// split: 1 for a mask's cells, 2 where each band of them is split in two, the first set of
/// directions in the lower halves.
template <std::size_t split>
class OpenCells {
public:
    static constexpr int bandCount = skyGrid::altitudeCount * static_cast<int>(split);

    /// Band by band, as SkyCellSet.
    std::array<std::uint64_t, SkyCellSet::wordCount * split> words;

    /// Where a word of set k stands.
    static constexpr std::size_t placeOf(std::size_t word, std::size_t k) {
        return (word / 2 * split + k) * 2 + word % 2;
    }

    /// The part of the cells in a band from a sector on, a multiple of the lanes; the sector's own
    /// in bit 0.
    HWY_INLINE std::uint32_t window(std::size_t band, std::size_t azimuth) const {
        Part part;
        std::memcpy(&part, bytesOf(words.data(), band, azimuth), sizeof(part));
        return static_cast<std::uint32_t>(part) >> azimuth % 8;
    }

    /// Closes cells of such a part.
    HWY_INLINE void close(std::size_t band, std::size_t azimuth, std::uint32_t cells) {
        Part part;
        auto* const place = bytesOf(words.data(), band, azimuth);
        std::memcpy(&part, place, sizeof(part));
        part = static_cast<Part>(part & ~(cells << azimuth % 8));
        std::memcpy(place, &part, sizeof(part));
    }

    /// Walks to what may block open cells, the nearest first.
    /// @param few where so few cells of a range are open, castCells(entry) ends the way
    /// @param goesOn asked before each entry
    /// @return whether goesOn() never said no
    template <typename CastCells, typename CloseBehindLeaf, typename GoesOn>
    HWY_INLINE bool walk(const OcclusionIndex::Storage& index, const BoundedOrigin& origin,
                         const SkyReach& skies, int few, const CastCells& castCells,
                         const CloseBehindLeaf& closeBehindLeaf, const GoesOn& goesOn) {
        HeldEntry stack[stackSize];
        std::size_t held = 0;
        stack[held].child = index.root;
        stack[held++].range = {0, 72, 0, bandCount - 1};
        while (held != 0) {
            if (!goesOn()) {
                return false;
            }
            const HeldEntry entry = stack[--held];
            const int cells = openCells(words.data(), entry.range, few);
            if (cells == 0) {
                continue;
            }
            if (cells <= few) {
                castCells(entry);
                continue;
            }
            if (occlusionChild::isLeaf(entry.child)) {
                closeBehindLeaf(entry.child);
                continue;
            }
            held += holdChildren(index, origin, skies, index.nodes[entry.child], stack + held);
        }
        return true;
    }

private:
    /// As many cells as a vector has lanes lie in one such part of a set.
    using Part =
        std::conditional_t<(HWY_MAX_BYTES / sizeof(float) >= 16), std::uint16_t, std::uint8_t>;

    template <typename Word>
    static HWY_INLINE auto* bytesOf(Word* words, std::size_t band, std::size_t azimuth) {
        static_assert(std::endian::native == std::endian::little);
        using Byte = std::conditional_t<std::is_const_v<Word>, const char, char>;
        return reinterpret_cast<Byte*>(words + 2 * band) + azimuth / 8;
    }

    /// Puts the children that may block an open cell on the stack, the nearest last.
    HWY_INLINE std::size_t holdChildren(const OcclusionIndex::Storage& index,
                                        const BoundedOrigin& origin, const SkyReach& skies,
                                        const OcclusionNode& node, HeldEntry* stack) const {
        BoxReach reach;
        alignas(32) std::array<float, 8> boxDistance; // squared
        std::uint32_t reached = 0;
        const Floats d;
        for (std::size_t lane = 0; lane < OcclusionNode::width; lane += hn::Lanes(d)) {
            const RelativeBoxes box(node, origin, lane);
            reached |= reachOfBoxes<split>(box, skies, reach, lane, noCeiling());
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
            if (!anyOpen(words.data(), entry.range)) {
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
            prefetchEntry(index, entry.child);
        }
        return count;
    }
};

} // namespace insolate::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
