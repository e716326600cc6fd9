/// What one point sees of the sky.
#pragma once

#include <insolate/export.h>
#include <insolate/geometry/sky_grid.h>
#include <insolate/geometry/xyzf.h>
#include <insolate/rt/ray_transparency.h>

#include <cstdint>
#include <type_traits>

namespace insolate {
struct ShadingMaskAccess;
}

/// Visibility and incidence of the 72 x 18 sky cells of 5 degrees, as one point sees them.
///
/// exposure is the cell's transparency, incidence the cosine of the angle between the surface
/// normal and the cell's centre; both lie in 0..1 and are kept as bytes, truncated, so that 0.5 is
/// 127/255. Cells are addressed (azimuth 0..71 clockwise from north, altitude 0..17 upwards). A
/// read outside the grid gives a fixed value that differs from getter to getter; nothing fails.
///
/// A plain value: it may be copied, and stored and restored byte by byte.
class INSOLATE_EXPORT EShadingMask {
public:
    /// An open sky faced squarely: every exposure and incidence is 1, the summary factors are 0.
    EShadingMask() { clear(); }

    /// Back to the state of a new mask.
    void clear();

    /// Casts one ray per cell and sums up the daylight factors. With a normal, cells behind a
    /// single-sided surface are hidden and no ray is cast to them; rayQuery says whether the
    /// surface is double-sided. Without one (nullptr), the point faces every direction equally.
    /// A rayQuery that offers insolate::SkyVisibilityQuery answers all cells in one call.
    /// False, changing nothing, when rayQuery is null.
    ///
    /// The normal should be a unit vector. Cosines are measured in single precision at the tip of
    /// 100 normals: one longer than 1e17 units or shorter than coordinates resolve (a hundredth of
    /// 1e-7 of the position), and a point or normal that is not a number, faces no cell. Without a
    /// normal, a point that is not a number sees an open sky through the library's ray casters.
    ///
    /// Masks may be calculated on several threads with one rayQuery each; the north offset of
    /// ESolarPosition::Global must not change meanwhile.
    bool calculate(GetTransparencyValueOnRay* rayQuery, const XYZf& point, XYZf* normal);

    /// The same with a new GetTransparencyValueOnRayInternal, which is never released: it costs one
    /// small object per call. Always true.
    bool calculate(const XYZf& point, const XYZf& normal);

    /// Transparency of the cell, 0..1; 0 outside the grid.
    float getExposure(int azimuth, int altitude) const;
    /// Cosine of incidence on the surface, 0..1; 0 outside the grid.
    float getSurfaceIncidence(int azimuth, int altitude) const;
    /// 1 when the stored incidence is not 0, else 0; 0 outside the grid.
    int getInPlane(int azimuth, int altitude) const;
    /// Incidence times exposure, 0..1; 1 outside the grid.
    float getModifier(int azimuth, int altitude) const;
    /// 1 - exposure; 1 outside the grid.
    float getObstruction(int azimuth, int altitude) const;
    /// 1 - exposure; 0 outside the grid.
    float getShading(int azimuth, int altitude) const;

    /// Stores a value, limited to 0..1 (NaN as 0); false, changing nothing, outside the grid.
    bool setExposureValue(int azimuth, int altitude, float value);
    bool setIncidenceValue(int azimuth, int altitude, float value);

    /// The value of the cell in the direction of a plan angle (counter-clockwise from +X) and an
    /// altitude [radians], without interpolation; the north offset of ESolarPosition::Global turns
    /// the plan angle into an azimuth. 1 for altitudes outside the grid: from 90 degrees up or
    /// -5 degrees down.
    float getExposureByAngle(float angle, float altitude) const;
    float getSurfaceIncidenceByAngle(float angle, float altitude) const;
    float getShadingByAngle(float angle, float altitude) const;

    /// Altitude of the normal that the mask was calculated with [radians]; 0 without one.
    float getSurfaceNormalAltitude() const { return surfaceNormalAltitude; }
    /// Illuminance from an overcast sky, in percent of the unobstructed horizontal one, 0..100.
    float getOvercastSkyComponent() const { return overcastSkyComponent; }
    /// The overcast sky component as a fraction, 0..1.
    float getDiffuseFactor() const { return overcastSkyComponent / 100.0f; }
    /// Illuminance from a uniform sky, in percent of the unobstructed horizontal one, 0..100.
    float getUniformSkyComponent() const { return uniformSkyComponent; }
    /// Visible fraction of the horizon band, altitudes 0 to 15 degrees, 0..1.
    float getPerezHorizonFactor() const { return perezHorizonFactor; }

    /// Limited to 0..100.
    void setOvercastSkyComponent(float percent);
    /// Limited to 0..100.
    void setUniformSkyComponent(float percent);
    /// Limited to 0..1.
    void setPerezHorizonFactor(float factor);

private:
    friend struct insolate::ShadingMaskAccess;

    static std::uint8_t convertToByte(float value);
    static float convertToFloat(std::uint8_t byte) { return static_cast<float>(byte) / 255.0f; }

    std::uint8_t exposure[insolate::skyGrid::altitudeCount][insolate::skyGrid::azimuthCount];
    std::uint8_t incidence[insolate::skyGrid::altitudeCount][insolate::skyGrid::azimuthCount];
    float surfaceNormalAltitude;
    float overcastSkyComponent;
    float uniformSkyComponent;
    float perezIsotropicFactor; ///< reserved, 0
    float perezHorizonFactor;
};

static_assert(std::is_trivially_copyable_v<EShadingMask>);
static_assert(sizeof(EShadingMask) == 2 * insolate::skyGrid::cellCount + 5 * sizeof(float));

namespace insolate {

/// A mask's planes for code that reads whole masks: 1,296 bytes each, altitude-major, 255 for 1.
struct ShadingMaskAccess {
    static const std::uint8_t* exposure(const EShadingMask& mask) { return mask.exposure[0]; }
    static const std::uint8_t* incidence(const EShadingMask& mask) { return mask.incidence[0]; }
};

} // namespace insolate
