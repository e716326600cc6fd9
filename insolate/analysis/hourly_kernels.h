/// The loops of the hourly method that every sensor runs, for the widest instructions at hand.
///
/// All give the same results at every instruction level: sums keep their order of 16 lanes, and
/// bounds decide what is looked at, not what comes out.
#pragma once

#include <insolate/geometry/xyzf.h>
#include <insolate/rt/sky_visibility.h>
#include <insolate/sky/hourly_sky.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace insolate::hourlyKernels {

inline constexpr std::size_t lanes = 16;
inline constexpr std::size_t zoneCount = 32;

/// Sum of a[i] * b[i]; count is a multiple of lanes.
float sumOfProducts(const float* a, const float* b, std::size_t count);

/// out[i] = max(normal * (x, y, z)[i], 0), and a bit in front for each that is above 0 (eight a
/// byte). count is a multiple of 8; out and front hold that many.
void weighInFront(const XYZf& normal, const float* x, const float* y, const float* z,
                  std::size_t count, float* out, std::uint8_t* front);

/// Sets the weights of the cells outside the set to 0; sums what is left, plain and times diffuse.
struct ViewSums {
    float view, sky;
};
ViewSums keepVisible(const SkyCellSet& visible, const float* diffuse, float* weight);

/// Upper bounds as means over the hour [W/m2], of hours or of blocks of hours. Each `lanes` of them
/// lie together, field by field, since they are read together.
class Bounds {
public:
    enum Field : std::size_t {
        beamX, // direct radiation as a vector
        beamY,
        beamZ,
        beamRadius, // of a block's vectors around their mean, 0 for an hour
        beamSlack,  // most of a beam that the surface's plane cuts
        open,       // open sky: constant and vector
        openX,
        openY,
        openZ,
        brightest, // radiance [W/(m2 sr)]
        ground,
        fieldCount
    };

    void add(const std::array<float, fieldCount>& bound) {
        if (m_size % lanes == 0) {
            m_values.resize(m_values.size() + fieldCount * lanes, 0.0f);
        }
        for (std::size_t field = 0; field < fieldCount; ++field) {
            m_values[place(m_size, field)] = bound[field];
        }
        ++m_size;
    }

    /// The bounds added so far; those up to the next multiple of lanes are 0.
    std::size_t size() const { return m_size; }
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

/// The hours, ordered in blocks of `lanes`, as the peak's search wants them.
struct PeakHours {
    Bounds blockBounds;
    Bounds hourBounds;
    const float* blockZones = nullptr; // brightest radiance of each zone, zoneCount for each block
    const float* hourZones = nullptr;  // and of its hours: zone by zone, `lanes` values each
    const std::uint64_t* blockSun = nullptr; // sun cells of the block, sunWords words each
    std::size_t sunWords = 0;
    const BeamPart* beams = nullptr; // as means [W/m2]
    const std::size_t* firstBeam = nullptr;
    const int* skyHour = nullptr;   // index into the sky's hours
    const float* share = nullptr;   // 1 / SkyHour::share
    const float* patches = nullptr; // patch radiance of the sky's hours
};

/// One-sided sensor.
struct PeakSensor {
    XYZf normal{0, 0, 1};
    const float* patchWeight = nullptr;
    const float* zoneWeight = nullptr;
    const float* sunVisible = nullptr;
    const std::uint64_t* visibleSun = nullptr; // sunWords words
    float openScale = 1.0f;                    // of the open sky's bound
    float view = 0.0f;                         // sum of the patch weights
    float groundView = 0.0f;
};

struct Peak {
    float value = 0.0f;
    int hour = -1; // in the order of PeakHours
};

/// The highest hour; start is a guess that seeds the search (-1 for none).
Peak highestHour(const PeakHours& hours, const PeakSensor& sensor, int start);

} // namespace insolate::hourlyKernels
