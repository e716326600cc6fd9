/// The rays that every sensor of the hourly method asks: two for each cell of the sky, one in its
/// lower and one in its upper half.
///
/// Where a half holds the sun, its ray points to the mean of the sun's places there, each step of
/// time counted alike: what a sensor sees depends on site and period, not on the clouds of the
/// weather. The other rays do not stand in the middle but spread over the cells by golden ratios,
/// row by row and column by column: along a roof line the errors of the cells then add up like
/// those of chance or better.
#pragma once

#include <insolate/hourly/hourly_sky.h>
#include <insolate/rt/sky_visibility.h>

#include <array>
#include <cstdint>
#include <span>
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

    /// The half of its cell in which a step of the sun lies: 0 is the lower one.
    static std::size_t halfOf(const SunStep& step) { return step.place >> 11 & 1U; }

    /// The sun's steps in the lower and the upper half of a cell: they are in the order of their
    /// places.
    static std::array<std::span<const SunStep>, 2> stepsOf(const HourlySky& sky,
                                                           const SunCell& cell);

    /// The direction to the mean of the places of some steps of a cell, at least one, each counted
    /// alike.
    static XYZf towards(const HourlySky& sky, const SunCell& cell, std::span<const SunStep> steps);

    SkyCellSet withSun;
    /// Sums of energies below this come from directions without energy [Wh/m2].
    static constexpr float leastEnergy = 1e-15f;

    /// The sun of the halves, by sun cell, padded with zeros to a multiple of 16.
    struct Sun {
        /// Energy as in SunCell [Wh/m2]. A sun without energy keeps its direction in a vector too
        /// short to count.
        std::vector<float> energyX, energyY, energyZ;
        std::vector<float> hours;
        /// The direction of the half's ray, which decides whether the sun counts as in front of a
        /// surface.
        std::vector<float> rayX, rayY, rayZ;
    };
    std::array<Sun, 2> sun;
    std::vector<std::int32_t> cellOfSun;
};

} // namespace insolate
