/// The way of the sun across the sky of one date, as far as sunlight is asked for.
///
/// Times are minutes of the date's clock, from its midnight; those of a sun of constant declination
/// are minutes of true solar time.
#pragma once

#include <insolate/export.h>
#include <insolate/solar/sun_position.h>

#include <array>
#include <functional>
#include <memory>
#include <vector>

namespace insolate {

/// From begin to end [minutes].
struct TimeSpan {
    double begin = 0.0;
    double end = 0.0;

    double length() const { return end - begin; }
};

/// A direction or a point in the axes that its user names.
using Direction = std::array<double, 3>;

/// How the model stands on the earth: what turns model axes (z up) into the axes of the sun's day,
/// of which the third is the earth's own, the first points at the noon sun of an equinox and the
/// second west.
struct INSOLATE_EXPORT SkyAxes {
    double latitude = 0.0;    ///< degrees, north positive, -90..90
    double northOffset = 0.0; ///< from the model's +Y clockwise to true north [radians]

    /// From true east, north and up to model axes.
    Direction model(const Direction& eastNorthUp) const;
    /// From model axes to those of the sun's day.
    Direction polar(const Direction& inModel) const;

    bool operator==(const SkyAxes&) const = default;
};

struct SunArc;

/// The spans of a window in which the sun's centre stands at a least altitude or above it.
///
/// The way is held as chords of two minutes at most, each bent to a parabola that lies within 5e-8
/// radians of the sun's course; within 1e-5 where refraction bends the course near the horizon.
/// SunlightIndex finds shadow edges on them in closed form.
class INSOLATE_EXPORT SunPath {
public:
    /// Where the sun stands at a minute: a unit vector in east, north, up.
    using Sun = std::function<Direction(double minute)>;

    /// Without any sun.
    SunPath();

    /// @param window where sunlight counts; at most 24 hours
    /// @param leastAltitude of the sun's centre as `sun` gives it [radians]
    SunPath(const Sun& sun, TimeSpan window, const SkyAxes& axes, double leastAltitude = 0.0);

    const SkyAxes& axes() const { return m_axes; }

    /// When the sun stands high enough, in order.
    std::vector<TimeSpan> spans() const;

    /// For SunlightIndex.
    const std::vector<SunArc>& arcs() const { return *m_arcs; }

private:
    SkyAxes m_axes;
    std::shared_ptr<const std::vector<SunArc>> m_arcs;
};

/// The sun of a calendar date by the minutes of the site's clock, for SunPath. The centre of its
/// disc; refraction, if wanted, is that of the standard atmosphere at the site's elevation and
/// 10 degrees C.
INSOLATE_EXPORT SunPath::Sun sunOfDate(int year, int month, int day, const Site& site,
                                       bool refraction);

/// A sun that keeps its declination, by the minutes of true solar time (720 is noon). Angles in
/// radians.
INSOLATE_EXPORT SunPath::Sun sunOfDeclination(double declination, double latitude);

} // namespace insolate
