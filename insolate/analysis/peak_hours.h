/// The hours of a period as the search for a sensor's peak wants them: ordered, with upper bounds.
#pragma once

#include <insolate/sky/hourly_sky.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace insolate {

/// Upper bounds of blocks of hours, as means over the hour [W/m2]. Each `lanes` of them lie
/// together, field by field, since they are read together.
class PeakBounds {
public:
    static constexpr std::size_t lanes = 16;

    enum Field : std::size_t {
        // The mean direction to the sun, times the strongest beam.
        beamX,
        beamY,
        beamZ,
        beamRadius, // largest distance of a direction from the mean, times the strongest beam
        beamSlack,  // most of a beam that the surface's plane cuts
        ground,
        // Open sky: constant and vector, to be added to the product of normal and vector.
        open,
        openX,
        openY,
        openZ,
        brightest, // radiance [W/(m2 sr)]
        fieldCount
    };

    /// Adds a bound of which every field is 0; gives its place.
    std::size_t add() {
        if (m_size % lanes == 0) {
            m_values.resize(m_values.size() + fieldCount * lanes, 0.0f);
        }
        return m_size++;
    }

    /// The bounds added so far; those up to the next multiple of lanes are 0.
    std::size_t size() const { return m_size; }
    float& at(std::size_t i, Field field) { return m_values[place(i, field)]; }
    float at(std::size_t i, Field field) const { return m_values[place(i, field)]; }
    /// A field of the `lanes` bounds from first, a multiple of lanes.
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
inline constexpr std::size_t mostPatches = 12; // of a zone

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
} // namespace skyZones

/// Direct radiation by sun cell: words of which each holds a cell in the lower half and, taken as
/// single precision, radiation that is not below the exact one; 0 for none. They come in parts of
/// full vectors.
struct SunWords {
    std::vector<std::uint32_t> words;
    std::vector<std::uint32_t> firsts{0}; ///< of the parts, and the end of the last

    /// Ends the part, filled up to full vectors.
    void close();
    std::size_t partCount() const { return firsts.size() - 1; }
};

/// Hours with a similar sun stand in blocks of `lanes`, the last of which are filled up with hours
/// that give nothing.
struct PeakHours {
    static constexpr std::size_t lanes = PeakBounds::lanes;
    static constexpr std::size_t mostBlocks = 1024;

    PeakHours() = default;
    /// Keeps a pointer to the sky's patches.
    PeakHours(const HourlySky& sky, const SkyCells& cells);

    /// Of the sun cells, padded with zeros to a multiple of lanes: the direction to the sun and the
    /// largest distance from it of a beam's own direction.
    std::vector<float> sunX, sunY, sunZ, sunRadius;

    /// For each patch that holds the sun its strongest hour, to start with; padded to a multiple of
    /// lanes. Their sun stands in one part for each `lanes`, hour by hour in the lanes.
    std::vector<int> leaders;
    SunWords leaderSun;
    std::vector<float> leaderSky;    ///< mean radiance [W/(m2 sr)]
    std::vector<float> leaderGround; ///< as Hour::ground

    PeakBounds blockBounds;
    SunWords blockSun; ///< for each block and sun cell the strongest of the hours
    /// For each block or hour its zones, by paired(): mean radiance and deviation.
    std::vector<std::uint32_t> blockZones, hourZones;
    SunWords hourSun; ///< for each block the sun of its hours, hour by hour in the lanes

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
    struct Described;
    static void split(Described* first, Described* last);
    void addLeaders(const std::vector<Described>& list);
    void addBlock(const HourlySky& sky, const Described* first, std::size_t count);
    void addHour(const HourlySky& sky, const Described& hour);
    void addSun(SunWords& suns, const std::vector<std::size_t>& places) const;
};

} // namespace insolate
