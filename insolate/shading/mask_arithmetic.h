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
#include <memory>

namespace insolate {

/// One number for each cell, in the order of skyGrid::cellIndex.
struct CellValues {
    alignas(64) std::array<float, skyGrid::cellCount> value;
};

/// Cells go by blocks of 16, in the order of skyGrid::cellIndex.
inline constexpr std::size_t blockSize = 16;
inline constexpr std::size_t blockCount = skyGrid::cellCount / blockSize;

/// One bit for each cell, the first of a block lowest.
using CellBits = std::array<std::uint16_t, blockCount>;

/// The largest cosine whose angle, rounded to single precision, is not below pi/2: cells with it or
/// less lie behind the surface.
inline constexpr float behindCosine = 0x1.110b44p-26f;

/// A surface at a point, ready for the cosines between its normal and cells' directions.
///
/// Cosines are measured between points 100 units away from the point, as EGeometry::Angle does: far
/// from the model's origin they carry the coarseness of single-precision coordinates.
struct MaskSurface {
    /// direction: of the normal, of any length.
    MaskSurface(const XYZf& position, const XYZf& direction, bool isDoubleSided);

    XYZf point;
    XYZf normal;
    XYZf up;      ///< from the point to the end of its normal, 100 times as long
    float length; ///< of up
    bool doubleSided;
    XYZf unit;    ///< the normal of length 1
    float margin; ///< that a cosine may differ by from unit . direction; infinite for odd normals
};

struct CosineTable;

/// How the cells lie before a surface: what is known of a mask before any ray is cast.
struct FacedSky {
    SkyCellSet wanted;  ///< the cells to which rays are cast
    CellBits inFront;   ///< the same
    CellBits undecided; ///< among them, those whose incidence fillMask() has to complete
    std::shared_ptr<const CosineTable> table; ///< what masks of equal normals share; may be null
};

/// Writes the incidence plane (1,296 bytes): 0 for cells behind a single-sided surface; a
/// double-sided one takes the cosine's absolute value. From the second of equal normals in a row
/// on, a thread keeps what depends on the normal alone.
FacedSky faceSky(const MaskSurface& surface,
                 const std::shared_ptr<const CellDirections>& directions, std::uint8_t* incidence);

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

/// A mask's planes, 1,296 bytes each.
struct MaskPlanes {
    std::uint8_t* exposure;
    std::uint8_t* incidence;
};

/// Writes the exposures, completes the incidences that faceSky() has left open and sums up the
/// shares. surface and faced are null for a point without a normal, which faces every cell
/// squarely. Cells not in front must be neither visible nor transparent.
MaskSums fillMask(const MaskSurface* surface, const FacedSky* faced,
                  const CellDirections& directions, const SkyCellSet& visible,
                  const MaskPlanes& planes);

/// The same with a transparency for each cell, which may be any number: the sums take it as it is,
/// the exposures limit it to 0..1, NaN being 0.
MaskSums fillMask(const MaskSurface* surface, const FacedSky* faced,
                  const CellDirections& directions, const CellValues& transparency,
                  const MaskPlanes& planes);

} // namespace insolate
