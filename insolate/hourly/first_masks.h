/// What a sensor of the hourly method asks a scene first, and what it is answered.
///
/// These answers come from whole walks through the scene, one for each sensor or one for several
/// sensors that stand together. All else is computed from them, sensor by sensor.
#pragma once

#include <insolate/hourly/ground_rays.h>
#include <insolate/rt/sky_visibility.h>

#include <array>
#include <vector>

namespace insolate {

struct FirstMasks {
    /// Of FirstRays::directions: the cells that are wanted, and afterwards those that are free.
    std::array<SkyCellSet, 2> sky;
    const GroundRays* ground = nullptr;  ///< null where the ground is not asked for
    std::vector<SkyCellSet> groundCells; ///< of ground->sets, in the same way
};

} // namespace insolate
