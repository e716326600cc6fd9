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
        // Open sky: constant and vector, to be added to the product of normal and vector.
        open,
        openX,
        openY,
        openZ,
        brightest, // radiance [W/(m2 sr)]
        ground,
        skyFields,         // hours have no more
        beamX = skyFields, // mean direction to the sun of a block times its strongest beam
        beamY,
        beamZ,
        beamRadius, // the directions' largest distance from their mean, times the same
        beamSlack,  // most of a beam that the surface's plane cuts
        allFields
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

    PeakBounds blockBounds{PeakBounds::allFields};
    /// Zone terms of each `lanes` blocks, term by term, by storedUp().
    std::vector<std::uint16_t> blockZones;
    std::size_t sunWords = 0;
    std::vector<std::uint64_t> blockSun; ///< for each block the sun cells of its hours, as a set

    PeakBounds hourBounds{PeakBounds::skyFields};
    std::vector<std::uint16_t> hourZones; ///< as blockZones, of each block's hours

    /// The direct radiation of a block's hours that came from one sun cell, as means [W/m2].
    struct Beams {
        alignas(64) std::array<float, lanes> x{}, y{}, z{};
    };
    std::vector<Beams> beams;
    std::vector<std::int32_t> sunCellOfBeams;
    std::vector<std::size_t> firstBeams{0}; ///< of each block; one more than blocks

    std::vector<int> skyHour;        ///< index into the sky's hours, -1 for none
    std::vector<float> shareInverse; ///< 1 / SkyHour::share
    const float* patches = nullptr;  ///< HourlySky::patchRadiance

    /// The upper half of a single-precision number, rounded up; for values of 0 or more.
    static std::uint16_t storedUp(float value);

private:
    struct Hour;
    void addBlock(const HourlySky& sky, const Hour* first, std::size_t count);
    void addHour(const HourlySky& sky, const Hour& hour);
};

} // namespace insolate
