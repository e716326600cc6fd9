/// What the wide loops know about a set of sky directions.
#pragma once

#include <insolate/rt/sky_visibility.h>

#include <array>
#include <cmath>

namespace insolate {

/// One over a direction's components, as the box test wants it. A component of 0 (or nearly) never
/// leaves its slab: the large number stands for infinity without making NaN of a distance of 0.
inline XYZf inverseDirection(const XYZf& direction) {
    const auto inverse = [](float component) {
        return std::fabs(component) < 1e-30f ? std::copysign(1e30f, component) : 1.0f / component;
    };
    return {inverse(direction.x), inverse(direction.y), inverse(direction.z)};
}

struct SkyDirectionTable {
    /// A band's directions, with room for a full load of 16 from sector 64 on.
    static constexpr std::size_t rowLength = 80;
    using Row = std::array<float, rowLength>;

    alignas(64) std::array<Row, skyGrid::altitudeCount> x{};
    alignas(64) std::array<Row, skyGrid::altitudeCount> y{};
    alignas(64) std::array<Row, skyGrid::altitudeCount> z{};
    std::array<XYZf, skyGrid::cellCount> directions{};
    std::array<XYZf, skyGrid::cellCount> inverse{}; ///< inverseDirection() of each
    SkyCellSet cells;

    /// The largest absolute component.
    float largestComponent = 0;

    /// Directions that are not finite, or far from unit length, are cast one by one.
    bool regular = true;

    // Where the directions lie in their cells. Azimuths are counted in sectors of 5 degrees,
    // clockwise from azimuthOrigin (itself sectors counterclockwise from the x axis), altitudes in
    // bands of 5 degrees from the horizon; a direction of cell (a, b) lies within
    // a + [azimuthMin, azimuthMax] and b + [altitudeMin, altitudeMax].
    float azimuthOrigin = 18;
    float azimuthMin = 0.5f;
    float azimuthMax = 0.5f;
    float altitudeMin = 0.5f;
    float altitudeMax = 0.5f;
};

} // namespace insolate
