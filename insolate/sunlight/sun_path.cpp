#include <insolate/sunlight/sun_path.h>

#include <insolate/sunlight/sun_arc.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <utility>

namespace insolate {

namespace {

constexpr double degree = std::numbers::pi / 180.0;
constexpr double longestChord = 2.0;   // minutes
constexpr double shortestArc = 1.0e-3; // minutes

/// Spans of the window in which the altitude's sine is the least one or more.
///
/// The window is looked at every two minutes. Between looks of one kind lies another kind only
/// about a culmination, so the highest and lowest points are sought there.
class RisenSpans {
public:
    RisenSpans(const SunPath::Sun& sun, TimeSpan window, double leastAltitude)
        : m_sun(sun), m_leastSine(std::sin(leastAltitude)) {
        const auto steps =
            static_cast<std::size_t>(std::max(2.0, std::ceil(window.length() / longestChord)));
        std::vector<double> times(steps + 1);
        std::vector<double> heights(steps + 1);
        for (std::size_t i = 0; i <= steps; ++i) {
            times[i] = window.begin +
                       window.length() * static_cast<double>(i) / static_cast<double>(steps);
            heights[i] = height(times[i]);
        }
        look(times[0], heights[0]);
        for (std::size_t i = 1; i <= steps; ++i) {
            if (i < steps && sameKind(heights[i - 1], heights[i], heights[i + 1])) {
                const double rise = heights[i] - heights[i - 1];
                const double fall = heights[i] - heights[i + 1];
                const bool mayCross =
                    heights[i] < 0.0 ? rise >= 0.0 && fall >= 0.0 : rise <= 0.0 && fall <= 0.0;
                if (mayCross) {
                    const double at = extremum(times[i - 1], times[i + 1], heights[i] < 0.0);
                    // It may lie on either side of the middle look.
                    if (at < times[i]) {
                        look(at, height(at));
                        look(times[i], heights[i]);
                    } else {
                        look(times[i], heights[i]);
                        look(at, height(at));
                    }
                    continue;
                }
            }
            look(times[i], heights[i]);
        }
        if (m_lastHeight >= 0.0) {
            m_spans.push_back({m_begin, m_last});
        }
    }

    std::vector<TimeSpan> take() { return std::move(m_spans); }

private:
    double height(double time) const { return m_sun(time)[2] - m_leastSine; }

    static bool sameKind(double a, double b, double c) {
        return (a < 0.0) == (b < 0.0) && (b < 0.0) == (c < 0.0);
    }

    double extremum(double low, double high, bool highest) const {
        for (int i = 0; i < 40; ++i) {
            const double third = (high - low) / 3.0;
            const bool left = height(low + third) > height(high - third);
            (left == highest ? high : low) += left == highest ? -third : third;
        }
        return 0.5 * (low + high);
    }

    /// Takes the next time in order.
    void look(double time, double heightThere) {
        if (m_started && (heightThere < 0.0) != (m_lastHeight < 0.0)) {
            double before = m_last;
            double after = time;
            for (int i = 0; i < 40; ++i) {
                const double middle = 0.5 * (before + after);
                ((height(middle) < 0.0) == (m_lastHeight < 0.0) ? before : after) = middle;
            }
            const double crossing = 0.5 * (before + after);
            if (heightThere >= 0.0) {
                m_begin = crossing;
            } else {
                m_spans.push_back({m_begin, crossing});
            }
        } else if (!m_started) {
            m_begin = time;
        }
        m_started = true;
        m_last = time;
        m_lastHeight = heightThere;
    }

    const SunPath::Sun& m_sun;
    double m_leastSine;
    bool m_started = false;
    double m_begin = 0.0;
    double m_last = 0.0;
    double m_lastHeight = 0.0;
    std::vector<TimeSpan> m_spans;
};

/// u and v of a direction in a quarter.
std::pair<double, double> inQuarter(const Vector3d& direction, int quarter) {
    const double x = direction[0];
    const double y = direction[1];
    switch (quarter) {
    case 0:
        return {x, y};
    case 1:
        return {y, -x};
    case 2:
        return {-x, -y};
    default:
        return {-y, x};
    }
}

/// The quarter about whose axis a direction lies.
int quarterOf(const Vector3d& direction) {
    for (int quarter = 0; quarter < 3; ++quarter) {
        const auto [u, v] = inQuarter(direction, quarter);
        if (u >= std::fabs(v)) {
            return quarter;
        }
    }
    return 3;
}

/// Times at which the arc passes the bins. Slopes are widened by a tenth of a per mille, a
/// hundredth of what a bin spans and far more than single precision loses.
void divideIntoBins(const SunArc& arc, const std::vector<double>& slopes, SunFan& fan) {
    constexpr double margin = 1.0e-4;
    for (int bin = 0; bin < SunFan::binCount; ++bin) {
        const double low = bin / SunFan::binsPerSlope - SunFan::reach - margin;
        const double high = (bin + 1) / SunFan::binsPerSlope - SunFan::reach + margin;
        const auto place = static_cast<std::size_t>(bin);
        bool passed = false;
        for (std::size_t i = fan.firstKnot; i < fan.lastKnot; ++i) {
            const double from = slopes[i - fan.firstKnot];
            const double to = slopes[i + 1 - fan.firstKnot];
            if (std::max(from, to) < low || std::min(from, to) > high) {
                continue;
            }
            // Slopes along a chord are not quite linear in time, by far less than a chord; whole
            // chords are simple and cost two minutes on either side.
            if (!passed) {
                fan.binFirstKnot[place] = static_cast<std::uint16_t>(i);
            }
            fan.binLastKnot[place] = static_cast<std::uint16_t>(i + 1);
            passed = true;
        }
        if (passed) {
            fan.bins |= std::uint64_t{1} << static_cast<unsigned>(bin);
            fan.binBegin[place] = arc.timeAt(fan.binFirstKnot[place]);
            fan.binEnd[place] = arc.timeAt(fan.binLastKnot[place]);
        }
    }
}

SunFan makeFan(const SunArc& arc, int quarter, std::size_t firstKnot, std::size_t lastKnot) {
    SunFan fan;
    fan.quarter = quarter;
    fan.firstKnot = firstKnot;
    fan.lastKnot = lastKnot;
    constexpr double infinity = std::numeric_limits<double>::infinity();
    double lowestSlope = infinity;
    double highestSlope = -infinity;
    double lowestRise = infinity;
    double highestRise = -infinity;
    std::vector<double> slopes;
    for (std::size_t i = firstKnot; i <= lastKnot; ++i) {
        const Vector3d& knot = arc.knots[i];
        const auto [u, v] = inQuarter(knot, quarter);
        slopes.push_back(v / u);
        lowestSlope = std::min(lowestSlope, slopes.back());
        highestSlope = std::max(highestSlope, slopes.back());
        const double rise = knot[2] / std::hypot(u, v);
        lowestRise = std::min(lowestRise, rise);
        highestRise = std::max(highestRise, rise);
    }
    // Chords lie inside the circle by 1e-5 of its radius.
    constexpr double margin = 1.0e-4;
    const auto squared = [](double rise) { return static_cast<float>(rise * std::fabs(rise)); };
    fan.lowestSlope = static_cast<float>(lowestSlope - margin);
    fan.highestSlope = static_cast<float>(highestSlope + margin);
    fan.lowestRise = squared(lowestRise - margin);
    fan.highestRise = squared(highestRise + margin);
    divideIntoBins(arc, slopes, fan);
    return fan;
}

SunArc makeArc(const SunPath::Sun& sun, TimeSpan span, const SkyAxes& axes) {
    SunArc arc;
    // The bend of a way is known from two chords on.
    const auto chords =
        static_cast<std::size_t>(std::max(2.0, std::ceil(span.length() / longestChord)));
    arc.begin = span.begin;
    arc.step = span.length() / static_cast<double>(chords);
    for (std::size_t i = 0; i <= chords; ++i) {
        arc.knots.push_back(axes.polar(axes.model(sun(arc.timeAt(static_cast<double>(i))))));
    }
    double largest = 0.0;
    std::vector<Vector3d> atKnots(chords + 1); // second differences
    for (std::size_t i = 1; i < chords; ++i) {
        Vector3d& second = atKnots[i];
        for (std::size_t axis = 0; axis < 3; ++axis) {
            second[axis] =
                arc.knots[i - 1][axis] - 2.0 * arc.knots[i][axis] + arc.knots[i + 1][axis];
        }
        largest = std::max(largest, std::sqrt(dotProduct(second.data(), second.data())));
    }
    atKnots.front() = atKnots[1];
    atKnots.back() = atKnots[chords - 1];
    for (std::size_t i = 0; i < chords; ++i) {
        Vector3d& bend = arc.bends.emplace_back();
        for (std::size_t axis = 0; axis < 3; ++axis) {
            bend[axis] = 0.5 * (atKnots[i][axis] + atKnots[i + 1][axis]);
        }
    }
    // A sequence whose second differences are bounded departs from its chord like a parabola.
    arc.bend = largest / 8.0 * 1.001;
    std::size_t first = 0;
    while (first <= chords) {
        const int quarter = quarterOf(arc.knots[first]);
        std::size_t last = first;
        while (last < chords && quarterOf(arc.knots[last + 1]) == quarter) {
            ++last;
        }
        // A chord that leads over belongs to both quarters.
        arc.fans.push_back(
            makeFan(arc, quarter, first > 0 ? first - 1 : 0, std::min(last + 1, chords)));
        first = last + 1;
    }
    return arc;
}

} // namespace

Direction SkyAxes::model(const Direction& eastNorthUp) const {
    const double c = std::cos(northOffset);
    const double s = std::sin(northOffset);
    return {eastNorthUp[0] * c + eastNorthUp[1] * s, eastNorthUp[1] * c - eastNorthUp[0] * s,
            eastNorthUp[2]};
}

Direction SkyAxes::polar(const Direction& inModel) const {
    const double c = std::cos(northOffset);
    const double s = std::sin(northOffset);
    const double east = inModel[0] * c - inModel[1] * s;
    const double north = inModel[0] * s + inModel[1] * c;
    const double cosLatitude = std::cos(latitude * degree);
    const double sinLatitude = std::sin(latitude * degree);
    return {inModel[2] * cosLatitude - north * sinLatitude, -east,
            north * cosLatitude + inModel[2] * sinLatitude};
}

SunPath::SunPath() : m_arcs(std::make_shared<std::vector<SunArc>>()) {}

SunPath::SunPath(const Sun& sun, TimeSpan window, const SkyAxes& axes, double leastAltitude)
    : m_axes(axes) {
    auto arcs = std::make_shared<std::vector<SunArc>>();
    if (window.length() > shortestArc) {
        for (const TimeSpan& span : RisenSpans(sun, window, leastAltitude).take()) {
            if (span.length() > shortestArc) {
                arcs->push_back(makeArc(sun, span, axes));
            }
        }
    }
    m_arcs = std::move(arcs);
}

std::vector<TimeSpan> SunPath::spans() const {
    std::vector<TimeSpan> result;
    for (const SunArc& arc : *m_arcs) {
        result.push_back({arc.begin, arc.end()});
    }
    return result;
}

SunPath::Sun sunOfDate(int year, int month, int day, const Site& site, bool refraction) {
    const double midnight = julianDay(year, month, day, -site.timeZone);
    const Air air{refraction ? standardPressure(site.elevation) : 0.0};
    return [midnight, site, air](double minute) -> Direction {
        const SunPosition sun = sunPosition(midnight + minute / 1440.0, site, air);
        const double level = std::cos(sun.altitude);
        return {level * std::sin(sun.azimuth), level * std::cos(sun.azimuth),
                std::sin(sun.altitude)};
    };
}

SunPath::Sun sunOfDeclination(double declination, double latitude) {
    const double cosDeclination = std::cos(declination);
    const double sinDeclination = std::sin(declination);
    const double cosLatitude = std::cos(latitude);
    const double sinLatitude = std::sin(latitude);
    return [=](double minute) -> Direction {
        const double hourAngle = (minute / 60.0 - 12.0) * 15.0 * degree;
        const double towardsNoon = cosDeclination * std::cos(hourAngle);
        return {-cosDeclination * std::sin(hourAngle),
                sinDeclination * cosLatitude - towardsNoon * sinLatitude,
                sinDeclination * sinLatitude + towardsNoon * cosLatitude};
    };
}

} // namespace insolate
