/// The average of many shading masks.
#pragma once

#include <insolate/export.h>
#include <insolate/geometry/sky_grid.h>
#include <insolate/shading/shading_mask.h>

/// Sums shading masks in single precision and answers a mask's questions for their average.
///
/// Cells are addressed (azimuth 0..71 clockwise from north, altitude 0..17 upwards). An empty
/// accumulator averages to 0. To be used by one thread at a time.
class INSOLATE_EXPORT EShadingMaskAccumulator {
public:
    EShadingMaskAccumulator() = default;

    /// Forgets all masks.
    void clear() { *this = EShadingMaskAccumulator(); }

    /// Adds a mask's cells, sky components and horizon factor; false for a null mask.
    bool addMask(EShadingMask* mask);

    /// Writes the average into a mask, whose normal altitude stays as it is; false, writing
    /// nothing, when no mask was added or out is null.
    bool getAverageMask(EShadingMask* out) const;

    /// Number of masks added.
    float getCount() const { return count; }

    /// Average transparency, 0..1; 0 outside the grid.
    float getExposure(int azimuth, int altitude) const;
    /// Average cosine of incidence, 0..1; 0 outside the grid.
    float getSurfaceIncidence(int azimuth, int altitude) const;
    /// 1 inside the grid, whatever was added, else 0.
    int getInPlane(int azimuth, int altitude) const;
    /// Average incidence times average exposure, 0..1; 1 outside the grid.
    float getModifier(int azimuth, int altitude) const;
    /// 1 - 100 times the average exposure: 1 for a fully blocked cell, down to -99 for an open one;
    /// 1 outside the grid. The scale differs from the mask's own getter, and hosts rely on it.
    float getObstruction(int azimuth, int altitude) const;
    /// The same as getObstruction.
    float getShading(int azimuth, int altitude) const;

    /// Average overcast sky component in percent, 0..100; unlike the mask's, no fraction.
    float getDiffuseFactor() const { return getOvercastSkyComponent(); }
    float getOvercastSkyComponent() const { return average(overcastSkySum); }
    /// Average uniform sky component in percent, 0..100.
    float getUniformSkyComponent() const { return average(uniformSkySum); }
    /// Average visible fraction of the horizon band, 0..1.
    float getPerezHorizonFactor() const { return average(perezHorizonSum); }
    /// Reserved: 0.
    float getPerezIsotropicFactor() const { return average(perezIsotropicSum); }

    /// The value of the cell in the direction of a plan angle (counter-clockwise from +X) and an
    /// altitude [radians]; 1 for altitudes outside the grid. The cell is found as EShadingMask
    /// does.
    float getExposureByAngle(float angle, float altitude) const;
    float getSurfaceIncidenceByAngle(float angle, float altitude) const;
    float getShadingByAngle(float angle, float altitude) const;

private:
    float average(float sum) const { return sum / (count > 1.0f ? count : 1.0f); }

    float exposureSum[insolate::skyGrid::altitudeCount][insolate::skyGrid::azimuthCount] = {};
    float incidenceSum[insolate::skyGrid::altitudeCount][insolate::skyGrid::azimuthCount] = {};
    float count = 0.0f;
    float overcastSkySum = 0.0f;
    float uniformSkySum = 0.0f;
    float perezIsotropicSum = 0.0f; ///< reserved, 0
    float perezHorizonSum = 0.0f;
};
