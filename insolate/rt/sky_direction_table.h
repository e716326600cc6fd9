/// What the wide loops know about a set of sky directions.
#pragma once

#include <insolate/rt/sky_visibility.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>

namespace insolate {

/// One over a direction's components, as the box test wants it. A component of 0 (or nearly) never
/// leaves its slab: the large number stands for infinity without making NaN of a distance of 0.
inline XYZf inverseDirection(const XYZf& direction) {
    const auto inverse = [](float component) {
        return std::fabs(component) < 1e-30f ? std::copysign(1e30f, component) : 1.0f / component;
    };
    return {inverse(direction.x), inverse(direction.y), inverse(direction.z)};
}

/// Where directions lie in their cells. Azimuths are counted in sectors of 5 degrees, clockwise
/// from azimuthOrigin (itself sectors counterclockwise from the x axis), altitudes in bands of 5
/// degrees from the horizon; a direction of cell (a, b) lies within a + [azimuthMin, azimuthMax]
/// and b + [altitudeMin, altitudeMax].
struct SkyReach {
    float azimuthOrigin = 18;
    float azimuthMin = 0.5f;
    float azimuthMax = 0.5f;
    float altitudeMin = 0.5f;
    float altitudeMax = 0.5f;

    /// Ranges of cells are counted within a turn of the first sector.
    bool regular() const { return azimuthMin >= -1.0f && azimuthMax <= 2.0f; }

    /// The reach in bands of half the height, of this set in the lower and another in the upper
    /// halves, if it is about as narrow as a cell; else nothing.
    std::optional<SkyReach> halves(const SkyReach& upper) const {
        constexpr float narrow = 1.5f;
        const float turn = std::remainder(upper.azimuthOrigin - azimuthOrigin,
                                          static_cast<float>(skyGrid::azimuthCount));
        SkyReach both = *this;
        both.azimuthMin = std::min(azimuthMin, upper.azimuthMin - turn);
        both.azimuthMax = std::max(azimuthMax, upper.azimuthMax - turn);
        both.altitudeMin = std::min(2.0f * altitudeMin, 2.0f * upper.altitudeMin - 1.0f);
        both.altitudeMax = std::max(2.0f * altitudeMax, 2.0f * upper.altitudeMax - 1.0f);
        if (!both.regular() || both.azimuthMax - both.azimuthMin > narrow ||
            both.altitudeMax - both.altitudeMin > narrow) {
            return std::nullopt;
        }
        return both;
    }
};

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

    /// The largest length, rounded up.
    float largestLength = 0;

    /// Directions that are not finite, or far from unit length, are cast one by one.
    bool regular = true;

    SkyReach reach;
};

} // namespace insolate
