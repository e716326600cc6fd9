/// The division of the sky vault into cells that the cumulative sky and the shading mask share.
///
/// 72 azimuth sectors by 18 altitude bands, 1,296 cells of 5 by 5 degrees; band 17 reaches the
/// zenith, there is no cell of its own for it. Band b spans altitudes [5b, 5b + 5) degrees, sector
/// a azimuths [5a, 5a + 5) degrees clockwise from north. Cells are stored altitude-major but
/// addressed (azimuth sector, altitude band) everywhere.
#pragma once

#include <algorithm>

namespace insolate::skyGrid {

inline constexpr int azimuthCount = 72;
inline constexpr int altitudeCount = 18;
inline constexpr int cellCount = azimuthCount * altitudeCount;

/// One cell's width and height, 5 degrees [radians]: to the last bit of double precision, and as
/// the single-precision arithmetic of cells and bands uses it, one unit in the last place more.
inline constexpr double cellWidth = 0.08726646259971647;
inline constexpr float cellAngle = 0.08726647f;

/// Pi as the cell lookups use it, in single precision.
inline constexpr float pi = 3.1415927f;
inline constexpr float halfPi = 1.5707964f;

/// The place of a cell in its plane.
constexpr int cellIndex(int azimuth, int altitude) {
    return altitude * azimuthCount + azimuth;
}

/// Whether the pair addresses a cell; negative indices do not.
constexpr bool isAzimuth(int azimuth) {
    return azimuth >= 0 && azimuth < azimuthCount;
}
constexpr bool isAltitude(int altitude) {
    return altitude >= 0 && altitude < altitudeCount;
}
constexpr bool isCell(int azimuth, int altitude) {
    return isAzimuth(azimuth) && isAltitude(altitude);
}

/// Truncation toward zero that gives -1 where the integer could not hold the result (NaN included),
/// so that an impossible angle is outside the grid and not undefined.
constexpr int truncateToIndex(float value) {
    return value > -1.0e9f && value < 1.0e9f ? static_cast<int>(value) : -1;
}

/// The sector of an azimuth [radians clockwise from north, within one turn of [0, 2 pi)]; outside
/// 0..71 only when the wrapped angle rounds to a full turn. One correction by a turn, not a modulo.
constexpr int azimuthSector(float azimuth) {
    float degrees = azimuth / pi * 180.0f;
    if (degrees >= 360.0f) {
        degrees -= 360.0f;
    }
    if (degrees < 0.0f) {
        degrees += 360.0f;
    }
    return truncateToIndex(degrees / 5.0f);
}

/// The band of an altitude [radians], by truncation toward zero: altitudes between -5 and 0 degrees
/// fall into band 0. Outside 0..17 for altitudes from 90 degrees up or -5 degrees down.
constexpr int altitudeBand(float altitude) {
    return truncateToIndex(altitude / pi * 180.0f / 5.0f);
}

/// Lower and upper edge of a band [radians]; the uppermost edge is held at the zenith.
constexpr float bandLowerEdge(int altitude) {
    return static_cast<float>(altitude) * cellAngle;
}
constexpr float bandUpperEdge(int altitude) {
    return std::min(bandLowerEdge(altitude) + cellAngle, halfPi);
}

} // namespace insolate::skyGrid
