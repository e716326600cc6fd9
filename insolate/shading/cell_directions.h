/// Directions of the sky cells' centres in the model, for the north offset in force.
#pragma once

#include <insolate/geometry/sky_grid.h>
#include <insolate/geometry/xyzf.h>
#include <insolate/rt/sky_visibility.h>

#include <array>
#include <memory>

namespace insolate {

/// All directions for one north offset, unit vectors in the order of skyGrid::cellIndex.
struct CellDirections {
    double northOffset = 0.0; ///< [radians]
    std::array<XYZf, skyGrid::cellCount> direction{};
    // The same by component, for vector code, and prepared for rays; both only once all are known.
    alignas(64) std::array<float, skyGrid::cellCount> x{}, y{}, z{};
    SkyDirections sky;
};

/// The unit vector to a cell, cell 0 being centred 2.5 degrees clockwise from north. A direction is
/// computed once and then kept until the north offset of ESolarPosition::Global changes. jittered
/// moves the one that is computed now from the cell's centre to a random place in the first tenth
/// of the cell; a direction that is already kept is returned as it is, jittered or not.
/// Precondition: the pair addresses a cell. Safe to call from several threads.
XYZf cellDirection(int azimuth, int altitude, bool jittered = false);

/// The kept directions of all cells, computing those that are missing. Threads share one object,
/// which never changes and lives as long as somebody holds it.
std::shared_ptr<const CellDirections> allCellDirections();

} // namespace insolate
