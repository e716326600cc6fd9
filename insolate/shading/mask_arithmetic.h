/// The per-cell arithmetic of a mask's calculation, apart from the rays, in vector code.
///
/// Everything is single precision in a fixed order, the arc cosine and the cosine apart
/// (geometry/arc_cosine.h): every instruction set gives the same bytes and sums.
#pragma once

#include <insolate/geometry/sky_grid.h>
#include <insolate/geometry/xyzf.h>
#include <insolate/rt/sky_visibility.h>
#include <insolate/shading/cell_directions.h>

#include <array>
#include <cstdint>

namespace insolate {

/// One number for each cell, in the order of skyGrid::cellIndex.
struct CellValues {
    alignas(64) std::array<float, skyGrid::cellCount> value;
};

/// The largest cosine whose angle, rounded to single precision, is not below pi/2: cells with it or
/// less lie behind the surface.
inline constexpr float behindCosine = 0x1.110b44p-26f;

/// The cosine between a normal (any length) and each cell's direction, before the angle is taken.
///
/// Measured between points 100 units away from the point, as EGeometry::Angle does: far from the
/// model's origin it carries the coarseness of single-precision coordinates.
void measureCosines(const XYZf& point, const XYZf& normal, const CellDirections& directions,
                    CellValues& cosines);

/// The cells in front of the surface.
SkyCellSet cellsInFront(const CellValues& cosines);

/// 1 for the cells of the set, 0 for the others.
void setTransparency(const SkyCellSet& visible, CellValues& transparency);

/// The shares of the sky that the mask's factors are made of, summed in cell order.
struct MaskSums {
    float uniform = 0.0f;  ///< cosine of incidence x solid angle x transparency
    float overcast = 0.0f; ///< the same x relative luminance
    float horizon = 0.0f;  ///< solid angle x transparency, altitudes 0 to 15 degrees
};

/// What depends on the altitude band alone, and the sums over the unobstructed horizontal plane.
struct SkyWeights {
    SkyWeights();

    std::array<float, skyGrid::altitudeCount> solidAngle{}; ///< of one cell of the band [sr]
    /// Relative luminance of the overcast sky, (1 + 2 sin h) / 3: Moon, Spencer (1942),
    /// Illumination from a non-uniform sky, Transactions of the Illuminating Engineering
    /// Society 37.
    std::array<float, skyGrid::altitudeCount> luminance{};
    MaskSums open;

    static const SkyWeights& instance();
};

inline constexpr int horizonBands = 3; ///< altitudes 0 to 15 degrees

/// Writes a mask's planes (1,296 bytes each) and sums up its shares. cosines is null for a point
/// without a normal. Cells behind a single-sided surface get incidence 0, a double-sided one takes
/// the cosine's absolute value. The sums take the transparency as it is, the planes limit it to
/// 0..1, NaN being 0.
MaskSums fillMask(const CellValues* cosines, bool doubleSided, const CellValues& transparency,
                  std::uint8_t* exposure, std::uint8_t* incidence);

} // namespace insolate
