/// The hours of a period as the search for a sensor's peak wants them: ordered, with upper bounds.
#pragma once

#include <insolate/sky/hourly_sky.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace insolate {

/// Upper bounds as means over the hour [W/m2], of hours or of blocks of hours. Each `lanes` of them
/// lie together, field by field, since they are read together.
class PeakBounds {
public:
    static constexpr std::size_t lanes = 16;

    enum Field : std::size_t {
        // Direct radiation as a vector: of a block, the mean direction to the sun times the
        // strongest beam.
        beamX,
        beamY,
        beamZ,
        beamSlack, // most of a beam that the surface's plane cuts
        ground,
        hourFields, // hours have no more
        // Largest distance of a direction from the mean, times the strongest beam.
        beamRadius = hourFields,
        // Open sky: constant and vector, to be added to the product of normal and vector.
        open,
        openX,
        openY,
        openZ,
        brightest, // radiance [W/(m2 sr)]
        blockFields
    };

    explicit PeakBounds(std::size_t fieldCount) : m_fieldCount(fieldCount) {}

    /// Adds a bound of which every field is 0; gives its place.
    std::size_t add() {
        if (m_size % lanes == 0) {
            m_values.resize(m_values.size() + m_fieldCount * lanes, 0.0f);
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
    std::size_t place(std::size_t i, std::size_t field) const {
        return (i / lanes * m_fieldCount + field) * lanes + i % lanes;
    }
    std::size_t m_fieldCount;
    std::vector<float> m_values;
    std::size_t m_size = 0;
};

/// Zones of the sky: sectors of 30 degrees up to 20 and up to 40 degrees, of 60 degrees up to 70,
/// halves above.
namespace skyZones {
inline constexpr std::size_t count = 32;
/// What bounds the product of two series of patch values: for each zone the sum of the values, then
/// for each the root of the squared deviations from their mean.
inline constexpr std::size_t termCount = 2 * count;
/// The terms of some patch values, not below the exact ones. With averages, means take the place of
/// the sums.
void measure(const float* patches, bool averages, float* terms);
} // namespace skyZones

/// Hours with a similar sun stand in blocks of `lanes`, the last of which are filled up with hours
/// that give nothing.
struct PeakHours {
    static constexpr std::size_t lanes = PeakBounds::lanes;
    static constexpr std::size_t mostBlocks = 1024;

    PeakHours() = default;
    /// Keeps a pointer to the sky's patches.
    PeakHours(const HourlySky& sky, const SkyCells& cells);

    /// Of the sun cells, padded with zeros to a multiple of lanes: the strongest hour, and the
    /// sun's direction times that hour's direct radiation [W/m2].
    std::vector<int> strongest;
    std::vector<float> strongestX, strongestY, strongestZ;

    PeakBounds blockBounds{PeakBounds::blockFields};
    /// The zones of each `lanes` blocks, zone by zone, by paired(): mean and deviation.
    std::vector<std::uint32_t> blockZones;
    std::size_t sunWords = 0;
    std::vector<std::uint64_t> blockSun; ///< for each block the sun cells of its hours, as a set

    PeakBounds hourBounds{PeakBounds::hourFields};
    std::vector<std::uint32_t> hourZones; ///< as blockZones, of each block's hours

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
    /// below the first by more than nothing nor above it by more than 2^-7; its lower half moved
    /// up stands for the second in the same way.
    static std::uint32_t paired(float first, float second);

private:
    struct Described;
    void addBlock(const HourlySky& sky, const Described* first, std::size_t count);
    void addHour(const HourlySky& sky, const Described& hour);
};

} // namespace insolate
