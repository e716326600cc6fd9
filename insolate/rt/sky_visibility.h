/// The question a whole shading mask asks at once: which sky cells does a point see?
///
/// A ray caster may offer SkyVisibilityQuery beside GetTransparencyValueOnRay. Its answers are
/// those of one ray for each cell; only the work is shared between them.
#pragma once

#include <insolate/export.h>
#include <insolate/geometry/sky_grid.h>
#include <insolate/geometry/xyzf.h>
#include <insolate/rt/ray_transparency.h>

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace insolate {

/// A set of sky cells, one bit each.
///
/// Two words per altitude band: sectors 0..63, then sectors 64..71. Bits beyond sector 71 are 0.
class SkyCellSet {
public:
    static constexpr std::size_t wordCount = 2 * skyGrid::altitudeCount;

    /// The empty set.
    SkyCellSet() = default;

    /// All 1,296 cells.
    static SkyCellSet all() {
        SkyCellSet set;
        for (std::size_t word = 0; word < wordCount; word += 2) {
            set.words[word] = ~std::uint64_t{0};
            set.words[word + 1] = 0xFF;
        }
        return set;
    }

    // Indices as in skyGrid: azimuth 0..71, altitude 0..17.
    bool contains(int azimuth, int altitude) const {
        return (words[wordOf(azimuth, altitude)] >> (azimuth & 63) & 1U) != 0;
    }
    void insert(int azimuth, int altitude) {
        words[wordOf(azimuth, altitude)] |= std::uint64_t{1} << (azimuth & 63);
    }
    void erase(int azimuth, int altitude) {
        words[wordOf(azimuth, altitude)] &= ~(std::uint64_t{1} << (azimuth & 63));
    }

    /// The number of cells in the set.
    int count() const {
        int cells = 0;
        for (const std::uint64_t word : words) {
            cells += std::popcount(word);
        }
        return cells;
    }

    /// The set and the eight cells around each of its cells.
    SkyCellSet grown() const {
        SkyCellSet wide = *this;
        for (std::size_t word = 0; word < wordCount; word += 2) {
            const std::uint64_t low = words[word];
            const std::uint64_t high = words[word + 1];
            wide.words[word] |= low << 1 | high >> 7 | low >> 1 | high << 63;
            wide.words[word + 1] |= (high << 1 | low >> 63 | high >> 1 | low << 7) & 0xFF;
        }
        SkyCellSet result = wide;
        for (std::size_t word = 0; word + 2 < wordCount; ++word) {
            result.words[word] |= wide.words[word + 2];
            result.words[word + 2] |= wide.words[word];
        }
        return result;
    }

    /// Keeps the cells that are also in the other set.
    SkyCellSet& operator&=(const SkyCellSet& other) {
        for (std::size_t word = 0; word < wordCount; ++word) {
            words[word] &= other.words[word];
        }
        return *this;
    }

    bool operator==(const SkyCellSet&) const = default;

    std::array<std::uint64_t, wordCount> words{};

private:
    static std::size_t wordOf(int azimuth, int altitude) {
        return static_cast<std::size_t>(2 * altitude + (azimuth >> 6));
    }
};

struct SkyDirectionTable;

/// At most one ray direction for each sky cell, prepared once and used for any number of points.
///
/// A handle: copies share one unchanging table, from any thread.
class INSOLATE_EXPORT SkyDirections {
public:
    /// No directions.
    SkyDirections();

    /// directions: one for each of the 1,296 cells, in the order of skyGrid::cellIndex; those of
    /// cells outside `cells` are not read. They should be unit vectors within their cell (its
    /// centre, or where the sun stands in it), under whatever north offset. Any other vectors give
    /// correct answers too, only slower.
    explicit SkyDirections(std::span<const XYZf, skyGrid::cellCount> directions,
                           const SkyCellSet& cells = SkyCellSet::all());

    /// The cells that have a direction.
    const SkyCellSet& cells() const;

    /// The direction of a cell, as given; a zero vector for a cell without one.
    const XYZf& direction(int azimuth, int altitude) const;

    const SkyDirectionTable& table() const { return *m_shared; }

private:
    std::shared_ptr<const SkyDirectionTable> m_shared;
};

/// An ability that a ray caster may have beside GetTransparencyValueOnRay.
///
/// The caster offers it when the library asks getSurfaceDoubleSided(), once before each mask:
///
///     class Rays : public GetTransparencyValueOnRay, public insolate::SkyVisibilityQuery {
///         bool getSurfaceDoubleSided() override {
///             offerWholeSkies(*this);
///             return false;
///         }
///
/// Nothing else makes the library use it: no type of the host's is looked at, so that classes may
/// be compiled without run-time type information.
class INSOLATE_EXPORT SkyVisibilityQuery {
public:
    /// The cells among `wanted` that have a direction and whose ray from origin nothing blocks.
    ///
    /// The same answer as casting one ray for each cell: a cell is in the result exactly when
    /// getTransparencyValue(origin, directions.direction(cell), normal) gives 1, and not when it
    /// gives 0. A caster with partial transparency cannot offer this interface.
    virtual SkyCellSet visibleSky(const XYZf& origin, const SkyDirections& directions,
                                  const SkyCellSet& wanted) = 0;

    /// The same question for several sets of directions from one origin. Two sets that follow each
    /// other, the second with its directions above those of the first in each cell, may share the
    /// work.
    ///
    /// cells: for each of the directions the wanted cells; they become the visible ones, as
    /// visibleSky() would give them. The shorter span counts.
    virtual void visibleSkies(const XYZf& origin, std::span<const SkyDirections> directions,
                              std::span<SkyCellSet> cells);

    /// The same for several origins, such as neighbours on a face, which may share the work. cells:
    /// for each origin as many sets as there are directions, one behind the other.
    virtual void visibleSkies(std::span<const XYZf> origins,
                              std::span<const SkyDirections> directions,
                              std::span<SkyCellSet> cells);

protected:
    /// Offers this object's answers for the rays of `caster`, the object that the library is asking
    /// at the moment: for this one mask and on this thread. An offer for any other object counts
    /// for nothing, so a caster may forward the question to another one that offers: its own rays
    /// are asked all the same.
    void offerWholeSkies(const GetTransparencyValueOnRay& caster);

    SkyVisibilityQuery() = default;
    SkyVisibilityQuery(const SkyVisibilityQuery&) = default;
    SkyVisibilityQuery& operator=(const SkyVisibilityQuery&) = default;
    ~SkyVisibilityQuery() = default;
};

} // namespace insolate
