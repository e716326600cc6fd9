/// A SunPath as the search for shadow edges takes it.
///
/// Seen along the earth's axis the sun goes round the sensor almost on a circle, at an almost
/// constant height above its plane. Directions are therefore kept in the axes of the sun's day
/// (SkyAxes::polar), in which the box of a thing says at once when the sun can stand behind it: the
/// hour from the box's extent in plan, and whether at all from its height over its distance.
#pragma once

#include <insolate/rt/triangle.h>
#include <insolate/sunlight/sun_path.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace insolate {

/// The part of an arc within a quarter of the circle, of six hours, about one of the axes +x, +y,
/// -x, -y. There u is the distance along that axis, v that along the next one, and the slope v / u
/// grows with time.
///
/// The slopes from -reach to reach are divided into 64 bins; what is known to be blocked is struck
/// out by bins.
struct SunFan {
    static constexpr int binCount = 64;
    /// A chord that crosses into the next quarter belongs to both; it is at most half a degree
    /// long.
    static constexpr double reach = 1.02;
    static constexpr double binsPerSlope = binCount / (2.0 * reach);

    int quarter = 0;
    std::size_t firstKnot = 0; ///< of the first chord
    std::size_t lastKnot = 0;  ///< at the end of the last chord

    float lowestSlope = 0.0f;
    float highestSlope = 0.0f;
    /// Height over distance from the axis, bounds of its square with its sign.
    float lowestRise = 0.0f;
    float highestRise = 0.0f;

    std::uint64_t bins = 0; ///< those that the sun passes
    /// When it does, as knots and times; a little more than the bin, so that rounding loses
    /// nothing.
    std::array<std::uint16_t, binCount> binFirstKnot{};
    std::array<std::uint16_t, binCount> binLastKnot{};
    std::array<double, binCount> binBegin{};
    std::array<double, binCount> binEnd{};
};

/// Chords over a span without interruption, all of the same duration.
struct SunArc {
    double begin = 0.0;          ///< [minutes]
    double step = 0.0;           ///< of a chord [minutes]
    std::vector<Vector3d> knots; ///< unit vectors, in the axes of the sun's day
    /// Of each chord the second derivative of the way by knots: at a place s from 0 to 1 along it
    /// the way is off the straight line by -s (1 - s) / 2 times this.
    std::vector<Vector3d> bends;
    /// The way departs from the straight line between the knots i and j by no more than this times
    /// (j - i) squared.
    double bend = 0.0;
    std::vector<SunFan> fans;

    double timeAt(double knot) const { return begin + knot * step; }
    double end() const { return timeAt(static_cast<double>(knots.size() - 1)); }
};

} // namespace insolate
