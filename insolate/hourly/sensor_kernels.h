/// What every sensor of the hourly method computes over all cells of the sky, for the widest
/// instructions at hand: what the cells weigh on its surface, what it sees of the diffuse sky, and
/// what it gets of the sun.
///
/// Sums keep an order of 16 lanes, so that every instruction level gives the same bits.
#pragma once

#include <insolate/geometry/xyzf.h>
#include <insolate/hourly/first_rays.h>
#include <insolate/rt/sky_visibility.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace insolate::sensorKernels {

inline constexpr std::size_t lanes = 16;
inline constexpr std::size_t cellCount = skyGrid::cellCount;
inline constexpr std::size_t patchCount = skyPatches::count;

/// Sum of a[i] * b[i]; count is a multiple of lanes.
float sumOfProducts(const float* a, const float* b, std::size_t count);

/// Projects vectors on a surface: out[i] = max(normal * (x, y, z)[i], 0). front gets a bit for each
/// that is above 0, heavy for each that is above least (eight a byte). count is a multiple of 8;
/// the outputs hold that many.
void projectOnSurface(const XYZf& normal, const float* x, const float* y, const float* z,
                      std::size_t count, float least, float* out, std::uint8_t* front,
                      std::uint8_t* heavy);

/// What a sensor sees of the sky, one cell after the other.
struct SkyCellView {
    const float* weight;                 ///< projected solid angle [sr]
    std::array<const float*, 2> visible; ///< of the cells' lower and upper halves
    const float* diffuse;                ///< [Wh/(m2 sr)]
    float* seen;                         ///< gets the visible part of the weights
};
struct SkySums {
    float view;    ///< visible projected solid angle [sr]
    float diffuse; ///< [Wh/m2]
};
SkySums sumVisibleSky(const SkyCellView& cells);

/// The same for the sun, one sun cell after the other; the surface is one-sided.
struct SunCellView {
    const FirstRays* rays;
    std::array<const float*, 2> visible; ///< of the cells' halves, by cell
    float* weight;                       ///< gets the energy on the surface [Wh/m2]
    float* sunVisible;                   ///< gets the visible share of it
};
struct SunSums {
    float beam;  ///< [Wh/m2]
    float hours; ///< of direct sun
};
SunSums sumVisibleSun(const XYZf& normal, const SunCellView& cells);

/// out[cell] = 1 for the cells of the set, 0 for the others.
void expandSet(const SkyCellSet& set, float* out);

} // namespace insolate::sensorKernels
