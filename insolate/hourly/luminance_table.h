/// What the luminance of the sky depends on the angle to the sun by, as a table, and its sum over
/// the places of the sun in an hour. Four thousand hours of ten places each over all cells make it
/// most of the work of a year's sky, so that it runs on the widest instructions at hand.
#pragma once

#include <insolate/geometry/sky_grid.h>
#include <insolate/geometry/xyzf.h>

#include <array>
#include <cstddef>
#include <span>

namespace insolate {

/// A function of the angle to the sun, linear in between over the sine of half that angle, in which
/// it is smooth also at the sun.
struct LuminanceTable {
    static constexpr std::size_t size = 512;
    std::array<float, size + 1> values{};
    std::array<float, size + 1> steps{}; ///< to the next value; 0 for the last
};

/// The centres of the cells, each coordinate by itself.
struct CellCentres {
    std::array<float, skyGrid::cellCount> x{}, y{}, z{};
};

/// sums[cell] = what the table says, added up over the suns in their order. The same bits at every
/// instruction level.
void sumOverSuns(const CellCentres& centres, std::span<const XYZf> suns,
                 const LuminanceTable& table, std::span<float, skyGrid::cellCount> sums);

} // namespace insolate
