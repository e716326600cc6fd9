/// The rays into the lower hemisphere, which find what the scene leaves of the ground.
#pragma once

#include <insolate/geometry/xyzf.h>
#include <insolate/rt/sky_visibility.h>

#include <array>
#include <cstddef>
#include <vector>

namespace insolate {

/// A piece of the lower hemisphere, with one ray.
struct GroundPiece {
    XYZf direction; ///< of the ray, unit
    XYZf moment;    ///< integral of the direction over the piece [sr]
    /// The same of four parts, sector by sector.
    std::array<XYZf, 4> moments;
    float solidAngle; ///< [sr]
};

/// About as many pieces as there should be rays, of equal horizontal projection in each of their
/// bands. The rays stand in their pieces at places spread by golden ratios, so that the errors
/// along the foot of a wall cancel.
///
/// They are asked like a sky: as cells of the lower hemisphere, band 0 at the nadir, in as many
/// sets as it takes to give each ray a cell of its own.
struct GroundRays {
    /// More rays than this are held to it.
    static constexpr int mostRays = 4096;

    struct Cell {
        std::size_t set;
        int azimuth, altitude;
    };
    /// The pieces stand band by band, from the horizon down, sector by sector from north.
    std::vector<GroundPiece> pieces;
    int bands = 0;
    int sectors = 0;
    std::vector<Cell> cells; ///< of the pieces
    std::vector<SkyDirections> sets;

    /// Without any pieces for a number of 0 or less.
    GroundRays(int rays, double northOffset);
};

} // namespace insolate
