#include "study/model/polygon_rings.h"

#include "study/model/mesh.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <tuple>
#include <utility>

namespace insolate::study {

namespace {

bool isBefore(const Vector3& a, const Vector3& b) {
    return std::tie(a.x, a.y, a.z) < std::tie(b.x, b.y, b.z);
}

bool isSamePlace(const Vector3& a, const Vector3& b) {
    return a.x == b.x && a.y == b.y && a.z == b.z;
}

/// A polygon of many thousand holes and corners would keep one waiting: a few seconds' work.
constexpr double mostLooks = 4.0e8;

/// A corner in the plane of the polygon.
struct FlatPoint {
    double u = 0.0;
    double v = 0.0;
};

/// Positive when c lies left of the way from a to b.
double leftTurn(const FlatPoint& a, const FlatPoint& b, const FlatPoint& c) {
    return (b.u - a.u) * (c.v - a.v) - (b.v - a.v) * (c.u - a.u);
}

/// Axes of the plane with that normal, which looks at the viewer; by the axis along which the
/// normal is longest, so that coordinates are taken over as they are.
struct Plane {
    Vector3 origin;
    int axis = 2;
    bool isMirrored = false;

    Plane(const Vector3& place, const Vector3& normal) : origin(place) {
        const double x = std::abs(normal.x);
        const double y = std::abs(normal.y);
        const double z = std::abs(normal.z);
        axis = z >= x && z >= y ? 2 : x >= y ? 0 : 1;
        isMirrored = (axis == 0 ? normal.x : axis == 1 ? normal.y : normal.z) < 0.0;
    }
    [[nodiscard]] FlatPoint operator()(const Vector3& p) const {
        const Vector3 d = p - origin;
        const FlatPoint flat = axis == 2   ? FlatPoint{d.x, d.y}
                               : axis == 0 ? FlatPoint{d.y, d.z}
                                           : FlatPoint{d.z, d.x};
        return isMirrored ? FlatPoint{flat.v, flat.u} : flat;
    }
};

struct Corner {
    Vector3 place;
    FlatPoint flat;
};
using Ring = std::vector<Corner>;

/// Begins the ring at its first corner by place.
void rotateToFirst(std::vector<Vector3>& ring) {
    std::rotate(ring.begin(), std::min_element(ring.begin(), ring.end(), isBefore), ring.end());
}

/// Whether the segments meet in more than a common end.
bool isCrossing(const FlatPoint& a, const FlatPoint& b, const FlatPoint& p, const FlatPoint& q) {
    const auto same = [](const FlatPoint& s, const FlatPoint& t) {
        return s.u == t.u && s.v == t.v;
    };
    /// Whether t, which lies on the line through a and b, lies between them, ends excluded.
    const auto isWithin = [&](const FlatPoint& t) {
        return !same(t, a) && !same(t, b) &&
               (t.u - a.u) * (t.u - b.u) + (t.v - a.v) * (t.v - b.v) < 0.0;
    };
    const double sideP = leftTurn(a, b, p);
    const double sideQ = leftTurn(a, b, q);
    if (sideP == 0.0 && isWithin(p)) {
        return true;
    }
    if (sideQ == 0.0 && isWithin(q)) {
        return true;
    }
    if (same(a, p) || same(a, q) || same(b, p) || same(b, q)) {
        return false;
    }
    return (sideP > 0.0) != (sideQ > 0.0) && (leftTurn(p, q, a) > 0.0) != (leftTurn(p, q, b) > 0.0);
}

/// Whether the way from the ring's corner to the target begins inside, left of both sides at the
/// corner; a place that comes twice has one corner for which it does.
bool beginsInside(const Ring& ring, std::size_t corner, const FlatPoint& target) {
    const FlatPoint& before = ring[(corner + ring.size() - 1) % ring.size()].flat;
    const FlatPoint& at = ring[corner].flat;
    const FlatPoint& after = ring[(corner + 1) % ring.size()].flat;
    const bool leftOfFirst = leftTurn(before, at, target) > 0.0;
    const bool leftOfSecond = leftTurn(at, after, target) > 0.0;
    return leftTurn(before, at, after) > 0.0 ? leftOfFirst && leftOfSecond
                                             : leftOfFirst || leftOfSecond;
}

/// The corner of the ring to which the hole's first corner is joined: the nearest that it sees.
/// @param looks edges that may still be looked at
std::optional<std::size_t> bridgeEnd(const Ring& ring, const std::vector<Ring>& holes,
                                     std::size_t hole, double& looks) {
    const FlatPoint from = holes[hole].front().flat;
    std::vector<std::pair<double, std::size_t>> byDistance;
    looks -= static_cast<double>(ring.size());
    for (std::size_t i = 0; i < ring.size(); ++i) {
        byDistance.emplace_back(std::hypot(ring[i].flat.u - from.u, ring[i].flat.v - from.v), i);
    }
    const auto isNearer = [&](const auto& a, const auto& b) {
        return a.first != b.first ? a.first < b.first
                                  : isBefore(ring[a.second].place, ring[b.second].place);
    };
    // Nearly always one of the nearest is in sight; all are sorted only when none is.
    const std::size_t few = std::min<std::size_t>(byDistance.size(), 16);
    std::partial_sort(byDistance.begin(), byDistance.begin() + static_cast<std::ptrdiff_t>(few),
                      byDistance.end(), isNearer);
    for (std::size_t i = 0; i < byDistance.size() && looks > 0.0; ++i) {
        if (i == few) {
            std::sort(byDistance.begin() + static_cast<std::ptrdiff_t>(few), byDistance.end(),
                      isNearer);
        }
        const std::size_t end = byDistance[i].second;
        const FlatPoint& to = ring[end].flat;
        // At a place in common the hole's next corner shows on which side it lies.
        const bool isTouching = isSamePlace(ring[end].place, holes[hole].front().place);
        if (!beginsInside(ring, end, isTouching ? holes[hole][1].flat : from)) {
            continue;
        }
        if (isTouching) {
            return end;
        }
        const auto crosses = [&](const Ring& other) {
            looks -= static_cast<double>(other.size());
            for (std::size_t k = 0; k < other.size(); ++k) {
                if (isCrossing(from, to, other[k].flat, other[(k + 1) % other.size()].flat)) {
                    return true;
                }
            }
            return false;
        };
        // Holes that begin to the right of the way, as all behind them do, cannot meet it.
        const auto last = std::partition_point(
            holes.begin() + static_cast<std::ptrdiff_t>(hole), holes.end(),
            [&](const Ring& other) { return other.front().flat.u <= std::max(from.u, to.u); });
        if (!crosses(ring) &&
            std::none_of(holes.begin() + static_cast<std::ptrdiff_t>(hole), last, crosses)) {
            return end;
        }
    }
    return std::nullopt;
}

} // namespace

std::optional<std::vector<Vector3>> bridged(std::vector<Vector3> outline,
                                            std::vector<std::vector<Vector3>> holes) {
    if (holes.empty()) {
        return outline;
    }
    rotateToFirst(outline);
    const Vector3 normal = areaVector(outline);
    const Plane plane(outline.front(), normal);
    const auto flattened = [&](const std::vector<Vector3>& corners) {
        Ring ring;
        for (const Vector3& p : corners) {
            ring.push_back({p, plane(p)});
        }
        return ring;
    };
    Ring ring = flattened(outline);
    std::vector<Ring> rings;
    for (std::vector<Vector3>& hole : holes) {
        if (hole.size() < 3) {
            return std::nullopt;
        }
        if (dot(areaVector(hole), normal) > 0.0) { // a hole winds against the outline
            std::reverse(hole.begin(), hole.end());
        }
        Ring flat = flattened(hole);
        std::rotate(flat.begin(),
                    std::min_element(flat.begin(), flat.end(),
                                     [](const Corner& a, const Corner& b) {
                                         return std::tie(a.flat.u, a.flat.v) <
                                                std::tie(b.flat.u, b.flat.v);
                                     }),
                    flat.end());
        rings.push_back(std::move(flat));
    }
    // From left to right: what lies left of a hole is joined before it, so that its leftmost corner
    // always sees a corner of the ring (Eberly, Triangulation by Ear Clipping, section 3).
    std::sort(rings.begin(), rings.end(), [](const Ring& a, const Ring& b) {
        const FlatPoint& p = a.front().flat;
        const FlatPoint& q = b.front().flat;
        return std::tie(p.u, p.v) < std::tie(q.u, q.v);
    });
    double looks = mostLooks;
    for (std::size_t i = 0; i < rings.size(); ++i) {
        const auto end = bridgeEnd(ring, rings, i, looks);
        if (!end) {
            return std::nullopt;
        }
        // ... end, hole from its first corner around to it again, end ...
        Ring loop = rings[i];
        const bool isTouching = isSamePlace(ring[*end].place, loop.front().place);
        if (!isTouching) {
            loop.push_back(rings[i].front());
        }
        loop.push_back(ring[*end]);
        if (isTouching) {
            loop.erase(loop.begin());
        }
        ring.insert(ring.begin() + static_cast<std::ptrdiff_t>(*end) + 1, loop.begin(), loop.end());
    }
    std::vector<Vector3> result;
    result.reserve(ring.size());
    for (const Corner& corner : ring) {
        result.push_back(corner.place);
    }
    return result;
}

bool crossesItself(std::span<const Vector3> ring, const Vector3& normal) {
    struct Side {
        FlatPoint from, to;
        double left = 0.0, right = 0.0; ///< what it spans along u
    };
    const Plane plane(ring.front(), normal);
    std::vector<Side> sides(ring.size());
    for (std::size_t i = 0; i < ring.size(); ++i) {
        const FlatPoint from = plane(ring[i]);
        const FlatPoint to = plane(ring[(i + 1) % ring.size()]);
        sides[i] = {from, to, std::min(from.u, to.u), std::max(from.u, to.u)};
    }
    std::sort(sides.begin(), sides.end(),
              [](const Side& a, const Side& b) { return a.left < b.left; });
    double looks = 0.0;
    for (std::size_t i = 0; i < sides.size(); ++i) {
        const Side& side = sides[i];
        for (std::size_t j = i + 1; j < sides.size() && sides[j].left <= side.right; ++j) {
            const Side& other = sides[j];
            if (++looks > mostLooks || isCrossing(side.from, side.to, other.from, other.to)) {
                return true;
            }
        }
    }
    return false;
}

std::vector<Vector3> simplified(std::span<const Vector3> ring) {
    std::vector<Vector3> kept(ring.begin(), ring.end());
    if (ring.size() < 5) {
        return kept;
    }
    std::vector<Vector3> sorted = kept;
    std::sort(sorted.begin(), sorted.end(), isBefore);
    if (std::adjacent_find(sorted.begin(), sorted.end(), isSamePlace) != sorted.end()) {
        return kept;
    }
    rotateToFirst(
        kept); // an end of the shape, never on a line between others by more than rounding
    std::vector<Vector3> result;
    for (std::size_t i = 0; i < kept.size(); ++i) {
        const Vector3& before = result.empty() ? kept.back() : result.back();
        const Vector3& after = kept[(i + 1) % kept.size()];
        const Vector3 way = after - before;
        const Vector3 in = kept[i] - before;
        const double whole = length(way);
        constexpr double rounding = 1.0e-6; // of the length, as single precision leaves it
        const bool isBetween = dot(in, way) > 0.0 && dot(after - kept[i], way) > 0.0;
        if (!isBetween || length(cross(in, way)) > rounding * whole * whole) {
            result.push_back(kept[i]);
        }
    }
    return result.size() < 3 ? kept : result;
}

} // namespace insolate::study
