/// The loops of the hourly method that every sensor runs, for the widest instructions at hand.
///
/// All give the same results at every instruction level: sums keep their order of 16 lanes, and
/// bounds decide what is looked at, not what comes out.
#pragma once

#include <insolate/geometry/xyzf.h>
#include <insolate/hourly/first_rays.h>
#include <insolate/hourly/peak_hours.h>
#include <insolate/rt/sky_visibility.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace insolate::hourlyKernels {

inline constexpr std::size_t lanes = PeakHours::lanes;
inline constexpr std::size_t cellCount = skyGrid::cellCount;
inline constexpr std::size_t patchCount = skyPatches::count;

/// Sum of a[i] * b[i]; count is a multiple of lanes.
float sumOfProducts(const float* a, const float* b, std::size_t count);

/// out[i] = max(normal * (x, y, z)[i], 0), and a bit in front for each that is above 0, in heavy
/// for each that is above least (eight a byte). count is a multiple of 8; the outputs hold that
/// many.
void weighInFront(const XYZf& normal, const float* x, const float* y, const float* z,
                  std::size_t count, float least, float* out, std::uint8_t* front,
                  std::uint8_t* heavy);

/// What a sensor sees of the sky, one cell after the other.
struct SkySeen {
    const float* weight;                 ///< projected solid angle [sr]
    std::array<const float*, 2> visible; ///< of the cells' lower and upper halves
    const float* diffuse;                ///< [Wh/(m2 sr)]
    float* seen;                         ///< gets the visible part of the weights
};
struct ViewSums {
    float view, sky;
};
ViewSums sumSky(const SkySeen& cells);

/// The same for the sun, one sun cell after the other; the surface is one-sided.
struct SunSeen {
    const FirstRays* rays;
    std::array<const float*, 2> visible; ///< of the cells' halves, by cell
    float* weight;                       ///< gets the energy on the surface [Wh/m2]
    float* sunVisible;                   ///< gets the visible share of it
};
struct SunSums {
    float beam, hours;
};
SunSums sumSun(const XYZf& normal, const SunSeen& cells);

/// out[cell] = 1 for the cells of the set, 0 for the others.
void spread(const SkyCellSet& set, float* out);

/// The terms of some patch values.
skyZones::Terms measureZones(const float* patches);

/// One-sided sensor.
struct PeakSensor {
    XYZf normal{0, 0, 1};
    const float* patchWeight = nullptr;
    const float* sunVisible =
        nullptr;            ///< of the sun cells, padded with zeros as PeakHours has them
    float openScale = 1.0f; ///< of the open sky's bound
    float view = 0.0f;      ///< sum of the patch weights
    float groundView = 0.0f;
};

struct Peak {
    float value = 0.0f;
    int hour = -1; ///< in the order of PeakHours; of equal ones the first in the sky
};

/// The highest hour.
///
/// It starts from the leader that promises most. Blocks that the whole sun and the open sky could
/// lift above the best hour so far lose the sun if none of its cells is seen, and are bounded by
/// the zones of the sky that the sensor sees and by their hours' whole beams. Those still above it
/// are opened, the one that promises most first; of their hours only those are computed that their
/// exact direct radiation and their own zones leave above the best. Where a bound is equal to the
/// best the hour is computed too, so the order does not matter.
Peak highestHour(const PeakHours& hours, const PeakSensor& sensor);

} // namespace insolate::hourlyKernels
