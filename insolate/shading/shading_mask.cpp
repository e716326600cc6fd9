#include <insolate/shading/shading_mask.h>

#include <insolate/solar/cell_lookup.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

using insolate::valueByAngle;
using insolate::skyGrid::isCell;

/// NaN passes.
float limited(float value, float highest) {
    return value > highest ? highest : value < 0.0f ? 0.0f : value;
}

} // namespace

std::uint8_t EShadingMask::convertToByte(float value) {
    if (!(value > 0.0f)) { // NaN too
        return 0;
    }
    return static_cast<std::uint8_t>(std::min(value, 1.0f) * 255.0f);
}

void EShadingMask::clear() {
    std::memset(exposure, 255, sizeof exposure);
    std::memset(incidence, 255, sizeof incidence);
    surfaceNormalAltitude = 0.0f;
    overcastSkyComponent = 0.0f;
    uniformSkyComponent = 0.0f;
    perezIsotropicFactor = 0.0f;
    perezHorizonFactor = 0.0f;
}

float EShadingMask::getExposure(int azimuth, int altitude) const {
    return isCell(azimuth, altitude) ? convertToFloat(exposure[altitude][azimuth]) : 0.0f;
}

float EShadingMask::getSurfaceIncidence(int azimuth, int altitude) const {
    return isCell(azimuth, altitude) ? convertToFloat(incidence[altitude][azimuth]) : 0.0f;
}

int EShadingMask::getInPlane(int azimuth, int altitude) const {
    return isCell(azimuth, altitude) && incidence[altitude][azimuth] != 0 ? 1 : 0;
}

float EShadingMask::getModifier(int azimuth, int altitude) const {
    return isCell(azimuth, altitude) ? convertToFloat(incidence[altitude][azimuth]) *
                                           convertToFloat(exposure[altitude][azimuth])
                                     : 1.0f;
}

float EShadingMask::getObstruction(int azimuth, int altitude) const {
    return isCell(azimuth, altitude) ? getShading(azimuth, altitude) : 1.0f;
}

float EShadingMask::getShading(int azimuth, int altitude) const {
    return isCell(azimuth, altitude)
               ? static_cast<float>(255 - exposure[altitude][azimuth]) / 255.0f
               : 0.0f;
}

bool EShadingMask::setExposureValue(int azimuth, int altitude, float value) {
    if (!isCell(azimuth, altitude)) {
        return false;
    }
    exposure[altitude][azimuth] = convertToByte(value);
    return true;
}

bool EShadingMask::setIncidenceValue(int azimuth, int altitude, float value) {
    if (!isCell(azimuth, altitude)) {
        return false;
    }
    incidence[altitude][azimuth] = convertToByte(value);
    return true;
}

float EShadingMask::getExposureByAngle(float angle, float altitude) const {
    return valueByAngle(angle, altitude,
                        [this](int sector, int band) { return getExposure(sector, band); });
}

float EShadingMask::getSurfaceIncidenceByAngle(float angle, float altitude) const {
    return valueByAngle(angle, altitude,
                        [this](int sector, int band) { return getSurfaceIncidence(sector, band); });
}

float EShadingMask::getShadingByAngle(float angle, float altitude) const {
    return valueByAngle(angle, altitude,
                        [this](int sector, int band) { return getShading(sector, band); });
}

void EShadingMask::setOvercastSkyComponent(float percent) {
    overcastSkyComponent = limited(percent, 100.0f);
}

void EShadingMask::setUniformSkyComponent(float percent) {
    uniformSkyComponent = limited(percent, 100.0f);
}

void EShadingMask::setPerezHorizonFactor(float factor) {
    perezHorizonFactor = limited(factor, 1.0f);
}
