/// The rays that every sensor of the hourly method asks: two for each cell of the sky, one in its
/// lower and one in its upper half.
///
/// Where a half holds the sun, its ray points to the energy-weighted mean of the sun's directions
/// there. The other rays do not stand in the middle but spread over the cells by golden ratios, row
/// by row and column by column: along a roof line the errors of the cells then add up like those of
/// chance or better.
#pragma once

#include <insolate/hourly/hourly_sky.h>
#include <insolate/rt/sky_visibility.h>

#include <array>
#include <cstdint>
#include <vector>

namespace insolate {

/// Places in the cells, from 0 to 1 of their width and height, spread by golden ratios.
namespace rayLattice {
double placeX(int altitude); ///< the same in all cells of a band
double placeY(int azimuth);  ///< the same in all cells of a column
/// A pair of rays of each cell, in the lower and in the upper half of it: the lattice's places,
/// moved by shares of the cells, wrapped around within them, and those half a width and height
/// away.
std::array<std::vector<XYZf>, 2> pair(double moveX, double moveY, double northOffset);
} // namespace rayLattice

struct FirstRays {
    explicit FirstRays(const HourlySky& sky);

    /// Of the lower halves, of the upper halves.
    std::array<SkyDirections, 2> directions;
    /// The cells whose ray in that half is the lattice's.
    std::array<SkyCellSet, 2> ofLattice;

    SkyCellSet withSun;
    /// Sums of energies below this come from directions without energy [Wh/m2].
    static constexpr float leastEnergy = 1e-15f;

    /// The sun of the halves, by sun cell, padded with zeros to a multiple of 16.
    struct Sun {
        /// Energy as in SunCell [Wh/m2]. A sun without energy keeps its direction in a vector too
        /// short to count.
        std::vector<float> energyX, energyY, energyZ;
        std::vector<float> hours;
    };
    std::array<Sun, 2> sun;
    std::vector<std::int32_t> cellOfSun;
};

} // namespace insolate
