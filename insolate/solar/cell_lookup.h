/// Which cell of the sky lies in a direction of the model: the grid alone cannot say, north is the
/// shared site's.
#pragma once

#include <insolate/geometry/sky_grid.h>
#include <insolate/solar/solar_position.h>

namespace insolate {

/// Indices that may lie outside the grid.
struct SkyCell {
    int azimuth;
    int altitude;
};

/// The cell at a plan angle (counter-clockwise from +X) and an altitude [radians]. The north offset
/// of the shared site turns the plan angle into an azimuth.
inline SkyCell skyCellAt(float trigAngle, float altitude) {
    const auto azimuth = static_cast<float>(
        ESolarPosition::Global.convertTrigAngleToAzimuth(static_cast<double>(trigAngle)));
    return {skyGrid::azimuthSector(azimuth), skyGrid::altitudeBand(altitude)};
}

/// What value(azimuth, altitude) gives for the cell in a direction; 1 below the horizon's band and
/// from the zenith up.
template <typename Value>
float valueByAngle(float trigAngle, float altitude, Value&& value) {
    const SkyCell cell = skyCellAt(trigAngle, altitude);
    return skyGrid::isAltitude(cell.altitude) ? value(cell.azimuth, cell.altitude) : 1.0f;
}

} // namespace insolate
