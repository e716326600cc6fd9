/// The hours of a period as the search for a sensor's peak wants them: in blocks of 16 alike, each
/// with what bounds it for any sensor (peak_search.h says how).
///
/// Made once per analysis. Sixteen hours whose sun and sky are alike share a bound that is nearly
/// as tight as that of each of them, so hours are ordered by halving: the list is cut where its
/// features spread most, and the halves again, down to blocks.
#pragma once

#include <insolate/hourly/hourly_sky.h>
#include <insolate/weather/weather_series.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace insolate {

/// What the first bound of a block is made of, for blocks of hours, as means over the hour [W/m2].
/// Each `lanes` blocks lie together, field by field, since they are read together.
class BlockTerms {
public:
    static constexpr std::size_t lanes = 16;

    enum Field : std::size_t {
        beamX, ///< the mean direction to the sun, times the strongest beam
        beamY,
        beamZ,
        beamRadius, ///< largest distance of a direction from the mean, times the strongest beam
        beamSlack,  ///< most of a beam that the surface's plane cuts
        ground,     ///< reflected by the ground
        open,       ///< the open sky gives at most this and normal * (openX, openY, openZ)
        openX,
        openY,
        openZ,
        brightest, ///< radiance [W/(m2 sr)]
        fieldCount
    };

    /// Adds a block of which every field is 0; gives its place.
    std::size_t add() {
        if (m_size % lanes == 0) {
            m_values.resize(m_values.size() + fieldCount * lanes, 0.0f);
        }
        return m_size++;
    }

    /// The blocks added so far; the fields of those up to the next multiple of lanes are 0.
    std::size_t size() const { return m_size; }
    float& at(std::size_t i, Field field) { return m_values[place(i, field)]; }
    float at(std::size_t i, Field field) const { return m_values[place(i, field)]; }
    /// A field of the `lanes` blocks from first, a multiple of lanes.
    const float* lanesOf(std::size_t first, Field field) const {
        return &m_values[place(first, field)];
    }

private:
    static std::size_t place(std::size_t i, std::size_t field) {
        return (i / lanes * fieldCount + field) * lanes + i % lanes;
    }
    std::vector<float> m_values;
    std::size_t m_size = 0;
};

/// Zones of the sky: sectors of 30 degrees up to 20 and up to 40 degrees, of 60 degrees up to 70,
/// halves above.
namespace skyZones {
inline constexpr std::size_t count = 32;
inline constexpr std::size_t mostPatches = 12; ///< of a zone

struct Table {
    /// The zones' patches, a first one of each zone, then a second; filled up with an empty one.
    std::array<std::int32_t, mostPatches * count> patches;
    std::array<float, count> share; ///< 1 / patches of the zone
};
const Table& table();

/// What bounds the product of two series of patch values: for each zone the sum of the values and
/// the root of the squared deviations from their mean, not below the exact ones.
struct Terms {
    std::array<float, count> sums;
    std::array<float, count> deviations;
};
/// Of skyPatches::count values.
Terms measure(const float* patches);
} // namespace skyZones

/// Direct radiation of `lanes` hours: of each one part, from one sun cell.
struct BeamLanes {
    static constexpr std::size_t lanes = BlockTerms::lanes;
    std::array<std::int32_t, lanes> cell{};
    std::array<float, lanes> x{}, y{}, z{}; ///< [W/m2]
};

/// Such parts, as many for each `lanes` hours as the one with the most has.
struct BeamTable {
    std::vector<BeamLanes> parts;
    std::vector<std::size_t> firsts{0};

    const BeamLanes* begin(std::size_t i) const { return parts.data() + firsts[i]; }
    const BeamLanes* end(std::size_t i) const { return parts.data() + firsts[i + 1]; }
};

/// The whole direct radiation of `lanes` hours [W/m2].
struct WholeBeams {
    /// The share of the swing that stands for the rounding of a product with the vector: with a
    /// swing of leastRadius or more of the beam, 2e-6 of the beam; three products round by 4e-7.
    static constexpr float rounding = 1e-4f;
    static constexpr float leastRadius = 0.02f;
    std::array<float, BeamLanes::lanes> x{}, y{}, z{};
    /// How far the parts' directions lie from their mean, at least leastRadius, times the sum of
    /// the parts. Of parts within d of a mean product p, those above 0 bring at most (p + d) / 2
    /// where the surface's plane cuts them: at worst half of them lie at p + d and half at p - d <
    /// 0.
    std::array<float, BeamLanes::lanes> swing{};
};

struct HourFeatures;

/// Hours with a similar sun and sky stand in blocks of `lanes`; the last block is filled up with
/// hours that give nothing.
struct PeakHours {
    static constexpr std::size_t lanes = BlockTerms::lanes;
    /// The search keeps its lists on the stack; a multiple of lanes, as many blocks being read at
    /// once.
    static constexpr std::size_t mostBlocks = 560;
    static_assert(mostBlocks * lanes >= hoursPerYear && mostBlocks % lanes == 0);

    PeakHours() = default;
    /// Keeps a pointer to the sky's patches.
    PeakHours(const HourlySky& sky, const SkyCells& cells);

    /// Sun cells, as a multiple of lanes.
    std::size_t sunCellCount = 0;

    /// For each patch that holds the sun its strongest hour, to start with; padded to a multiple of
    /// lanes.
    std::vector<int> leaders;
    BeamTable leaderBeams;
    std::vector<float> leaderSky;    ///< mean radiance [W/(m2 sr)]
    std::vector<float> leaderGround; ///< as Hour::ground

    BlockTerms blockTerms;
    /// The sun cells of each block's hours, a bit for each in so many words: a multiple of four,
    /// since as many are read at once.
    std::vector<std::uint64_t> blockCells;
    std::size_t cellWords = 0;
    static constexpr std::size_t mostCellWords = (skyGrid::cellCount + 255) / 256 * 4;
    /// For each block or hour its zones, by paired(): mean radiance and deviation.
    std::vector<std::uint32_t> blockZones, hourZones;
    BeamTable hourBeams; ///< of each block's hours
    std::vector<WholeBeams> wholeBeams;

    struct Hour {
        std::uint32_t firstBeam = 0; ///< its part of beams
        std::uint32_t beamCount = 0;
        int skyHour = -1;       ///< index into the sky's hours, -1 for none
        float shareInverse = 1; ///< 1 / SkyHour::share
        float ground = 0;       ///< [W/m2]
    };
    std::vector<Hour> hours;
    std::vector<BeamPart> beams;    ///< as means [W/m2]
    const float* patches = nullptr; ///< HourlySky::patchRadiance

    /// Two numbers of 0 or more in one word. The word itself, taken as single precision, is not
    /// below the first nor above it by more than 2^-7 of it; its lower half moved
    /// up stands for the second in the same way.
    static std::uint32_t paired(float first, float second);

private:
    void addLeaders(const std::vector<HourFeatures>& list);
    void addBlock(const HourlySky& sky, const HourFeatures* first, std::size_t count);
    void addHour(const HourlySky& sky, const HourFeatures& hour);
    void addBeams(BeamTable& table, const std::vector<std::size_t>& places) const;
    WholeBeams wholeBeamsOf(const std::vector<std::size_t>& places) const;
};

} // namespace insolate
