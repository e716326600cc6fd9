/// The search for the hour of a sensor's peak.
///
/// What an hour gives a sensor is
///
///     beam    over its sun cells: share of the cell that is seen * max(normal * energy, 0)
///   + sky     over the 240 patches: what the sensor sees of the patch * the hour's radiance there
///   + ground  what the sensor sees of the ground * what the hour's ground reflects
///
/// over the part of the hour that lies in the period. To compute all 4,000 hours with light takes
/// several times as long as all rays of the sensor. The search computes about six of them. It takes
/// the best hour found so far, and leaves out every hour for which some upper bound, taken a little
/// higher for its rounding, does not exceed it. Cheap bounds come first, for blocks of 16 hours
/// with a similar sun and sky (PeakHours):
///
/// 1. A first best hour is the most promising of the leaders, the strongest hours for each place of
///    the sun.
/// 2. All blocks, by an unshaded sun and an open sky. The strongest beam of the block, along the
///    mean direction to its suns, gives its product with the normal, and at most as much more as
///    the farthest sun lies away from that mean. The open sky is bounded by a linear function of
///    the normal that lies above it everywhere, or by the brightest radiance times the sensor's
///    view, whichever is less.
/// 3. A block loses its beam when the sensor sees none of its sun cells.
/// 4. The sky of a block, zone by zone of the 32 skyZones. With the n weights w and radiances p of
///    a zone's patches,
///        sum(w p) = sum(w) mean(p) + sum((w - mean(w)) (p - mean(p))),
///    and the last term is at most the product of the two roots of summed squares (Cauchy and
///    Schwarz). A block takes the largest mean and deviation among its hours.
/// 5. The beam of a block is at most the largest unshaded beam of its 16 hours (WholeBeams).
/// 6. The blocks left are opened, the most promising one first: their hours get their exact beams
///    and the zones of their own sky, and those that still may exceed the best are computed.
///
/// A bound decides only what is looked at. The peak is that of a search over all hours, whatever
/// the order and the instruction set: an hour whose bound is equal to the best is computed too, and
/// of equal hours the first in the sky counts.
#pragma once

#include <insolate/geometry/xyzf.h>
#include <insolate/hourly/peak_hours.h>

namespace insolate {

/// A one-sided sensor.
struct PeakSensor {
    XYZf normal{0, 0, 1};
    const float* patchWeight = nullptr; ///< what is seen of each patch [sr]
    const float* sunVisible = nullptr;  ///< share of each sun cell, padded with 0 as in PeakHours
    float openScale = 1.0f;             ///< factor on the open sky's bound
    float view = 0.0f;                  ///< sum of the patch weights
    float groundView = 0.0f;
};

struct Peak {
    float value = 0.0f; ///< [W/m2]
    int hour = -1;      ///< place in PeakHours::hours, -1 for none
};

/// The hour with the highest mean.
Peak highestHour(const PeakHours& hours, const PeakSensor& sensor);

} // namespace insolate
