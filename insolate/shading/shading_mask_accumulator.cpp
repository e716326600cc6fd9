#include <insolate/shading/shading_mask_accumulator.h>

#include <insolate/solar/cell_lookup.h>

namespace {

using insolate::valueByAngle;
using insolate::skyGrid::altitudeCount;
using insolate::skyGrid::azimuthCount;
using insolate::skyGrid::isCell;

} // namespace

bool EShadingMaskAccumulator::addMask(EShadingMask* mask) {
    if (mask == nullptr) {
        return false;
    }
    for (int altitude = 0; altitude < altitudeCount; ++altitude) {
        for (int azimuth = 0; azimuth < azimuthCount; ++azimuth) {
            exposureSum[altitude][azimuth] += mask->getExposure(azimuth, altitude);
            incidenceSum[altitude][azimuth] += mask->getSurfaceIncidence(azimuth, altitude);
        }
    }
    overcastSkySum += mask->getOvercastSkyComponent();
    uniformSkySum += mask->getUniformSkyComponent();
    perezHorizonSum += mask->getPerezHorizonFactor();
    count += 1.0f;
    return true;
}

bool EShadingMaskAccumulator::getAverageMask(EShadingMask* out) const {
    if (count < 0.9f || out == nullptr) {
        return false;
    }
    for (int altitude = 0; altitude < altitudeCount; ++altitude) {
        for (int azimuth = 0; azimuth < azimuthCount; ++azimuth) {
            out->setIncidenceValue(azimuth, altitude, incidenceSum[altitude][azimuth] / count);
            out->setExposureValue(azimuth, altitude, exposureSum[altitude][azimuth] / count);
        }
    }
    out->setUniformSkyComponent(uniformSkySum / count);
    out->setOvercastSkyComponent(overcastSkySum / count);
    out->setPerezHorizonFactor(perezHorizonSum / count);
    return true;
}

float EShadingMaskAccumulator::getExposure(int azimuth, int altitude) const {
    return isCell(azimuth, altitude) ? average(exposureSum[altitude][azimuth]) : 0.0f;
}

float EShadingMaskAccumulator::getSurfaceIncidence(int azimuth, int altitude) const {
    return isCell(azimuth, altitude) ? average(incidenceSum[altitude][azimuth]) : 0.0f;
}

int EShadingMaskAccumulator::getInPlane(int azimuth, int altitude) const {
    return isCell(azimuth, altitude) ? 1 : 0;
}

float EShadingMaskAccumulator::getModifier(int azimuth, int altitude) const {
    return isCell(azimuth, altitude)
               ? average(incidenceSum[altitude][azimuth]) * average(exposureSum[altitude][azimuth])
               : 1.0f;
}

float EShadingMaskAccumulator::getObstruction(int azimuth, int altitude) const {
    return getShading(azimuth, altitude);
}

float EShadingMaskAccumulator::getShading(int azimuth, int altitude) const {
    return isCell(azimuth, altitude) ? 1.0f - average(exposureSum[altitude][azimuth]) * 100.0f
                                     : 1.0f;
}

float EShadingMaskAccumulator::getExposureByAngle(float angle, float altitude) const {
    return valueByAngle(angle, altitude,
                        [this](int sector, int band) { return getExposure(sector, band); });
}

float EShadingMaskAccumulator::getSurfaceIncidenceByAngle(float angle, float altitude) const {
    return valueByAngle(angle, altitude,
                        [this](int sector, int band) { return getSurfaceIncidence(sector, band); });
}

float EShadingMaskAccumulator::getShadingByAngle(float angle, float altitude) const {
    return valueByAngle(angle, altitude,
                        [this](int sector, int band) { return getShading(sector, band); });
}
