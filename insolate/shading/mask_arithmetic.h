/// The per-cell arithmetic of a mask's calculation, apart from the rays.
#pragma once

#include <insolate/geometry/sky_grid.h>
#include <insolate/geometry/xyzf.h>
#include <insolate/shading/cell_directions.h>

#include <array>

namespace insolate {

/// How squarely each cell faces a surface, in the order of skyGrid::cellIndex.
struct CellIncidence {
    std::array<float, skyGrid::cellCount> cosine; ///< 0 behind a single-sided surface
    std::array<bool, skyGrid::cellCount> inFront; ///< whether a ray is to be cast at all
};

/// The incidence of every cell on a surface with the given normal (any length) at the given point.
/// A double-sided surface has its cosines taken as absolute values and nothing behind it. The angle
/// is measured between points 100 units away from the point: far from the model's origin it carries
/// the coarseness of single-precision coordinates.
void computeIncidence(const XYZf& point, const XYZf& normal, bool doubleSided,
                      const CellDirections& directions, CellIncidence& incidence);

} // namespace insolate
