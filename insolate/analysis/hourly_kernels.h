/// The loops of the hourly method that every sensor runs, for the widest instructions at hand.
///
/// All give the same results at every instruction level: sums keep their order of 16 lanes, and
/// bounds decide what is looked at, not what comes out.
#pragma once

#include <insolate/analysis/peak_hours.h>
#include <insolate/geometry/xyzf.h>
#include <insolate/rt/sky_visibility.h>

#include <cstddef>
#include <cstdint>

namespace insolate::hourlyKernels {

inline constexpr std::size_t lanes = PeakHours::lanes;

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

/// out[cell] = 1 for the cells of the set, 0 for the others.
void spread(const SkyCellSet& set, float* out);

/// One-sided sensor.
struct PeakSensor {
    XYZf normal{0, 0, 1};
    const float* patchWeight = nullptr;
    const float* zoneWeight = nullptr; ///< skyZones::measure of the patch weights, as sums
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
/// It starts from the strongest hour of the sun cell that promises most. Blocks whose bound exceeds
/// the best hour so far are opened, the one that promises most first; of them only hours whose own
/// bound does are computed: with the visibility of their sun cells first, then with one product
/// over the patches. Where an hour's bound is equal to the best it is computed too, so the order
/// does not matter.
Peak highestHour(const PeakHours& hours, const PeakSensor& sensor);

} // namespace insolate::hourlyKernels
