#include "study/model/mesh.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <iterator>
#include <limits>
#include <map>
#include <numeric>
#include <optional>
#include <string_view>
#include <utility>

namespace insolate::study {

namespace {

/// A corner of the polygon in the plane that shows it largest.
struct PlanePoint {
    double u;
    double v;
};

/// Twice the area of the triangle, positive when it winds counter-clockwise. The corners are taken
/// in a fixed order, so that rounding cannot put a point outside of both sides of an edge.
double turn(const PlanePoint& a, const PlanePoint& b, const PlanePoint& c) {
    const PlanePoint* p = &a;
    const PlanePoint* q = &b;
    const PlanePoint* r = &c;
    double sign = 1.0;
    const auto order = [&](const PlanePoint*& first, const PlanePoint*& second) {
        if (second->u < first->u || (second->u == first->u && second->v < first->v)) {
            std::swap(first, second);
            sign = -sign;
        }
    };
    order(p, q);
    order(q, r);
    order(p, q);
    return sign * ((q->u - p->u) * (r->v - p->v) - (q->v - p->v) * (r->u - p->u));
}

bool isSame(const PlanePoint& a, const PlanePoint& b) {
    return a.u == b.u && a.v == b.v;
}

/// A triangle that winds counter-clockwise, with its border.
struct Ear {
    const PlanePoint& a;
    const PlanePoint& b;
    const PlanePoint& c;

    [[nodiscard]] bool holds(const PlanePoint& p) const {
        return turn(a, b, p) >= 0.0 && turn(b, c, p) >= 0.0 && turn(c, a, p) >= 0.0;
    }
    /// Whether it may hold a point of the box: no edge has the whole box on its outer side,
    /// rounding allowed for. Each edge looks at the box's corner that lies farthest in.
    [[nodiscard]] bool mayMeet(const PlanePoint& low, const PlanePoint& high) const {
        const auto reaches = [&](const PlanePoint& from, const PlanePoint& to) {
            const double alongU = to.u - from.u;
            const double alongV = to.v - from.v;
            const double u = (alongV >= 0.0 ? low.u : high.u) - from.u;
            const double v = (alongU >= 0.0 ? high.v : low.v) - from.v;
            const double edge = std::abs(alongU) + std::abs(alongV);
            return alongU * v - alongV * u >= -1.0e-14 * edge * (edge + std::abs(u) + std::abs(v));
        };
        return reaches(a, b) && reaches(b, c) && reaches(c, a);
    }
};

/// The corners that are still part of the polygon, in a tree of boxes. To ask whether a triangle is
/// empty takes the square root of their number at most, so that no polygon makes the cutting cubic.
class CornerTree {
public:
    explicit CornerTree(const std::vector<PlanePoint>& points)
        : m_points(points), m_order(points.size()), m_place(points.size()),
          m_present(points.size(), true) {
        std::iota(m_order.begin(), m_order.end(), 0U);
        m_nodes.resize(2 * std::bit_ceil(points.size() / leafSize + 1));
        build(1, 0, points.size());
        for (std::uint32_t i = 0; i < m_order.size(); ++i) {
            m_place[m_order[i]] = i;
        }
    }

    void remove(std::uint32_t corner) {
        m_present[corner] = false;
        std::size_t node = 1;
        --m_nodes[node].present;
        for (std::size_t first = 0, end = m_order.size(); end - first > leafSize;) {
            const std::size_t middle = (first + end) / 2;
            const bool upper = m_place[corner] >= middle;
            (upper ? first : end) = middle;
            node = 2 * node + (upper ? 1 : 0);
            --m_nodes[node].present;
        }
    }

    /// Whether the triangle, which winds counter-clockwise, is free of all present corners but its
    /// own: holds none, and none at its corners' places reaches into it.
    /// @param reachesIn (corner, its place, the triangle's next two corners)
    /// @param looks how many corners may still be looked at; with none the answer is no
    template <typename ReachesIn>
    [[nodiscard]] bool isEmpty(const Ear& ear, const ReachesIn& reachesIn,
                               std::size_t& looks) const {
        const auto blocks = [&](std::uint32_t corner) {
            if (looks == 0) {
                return true;
            }
            --looks;
            const PlanePoint& p = m_points[corner];
            return isSame(p, ear.a)   ? reachesIn(corner, ear.a, ear.b, ear.c)
                   : isSame(p, ear.b) ? reachesIn(corner, ear.b, ear.c, ear.a)
                   : isSame(p, ear.c) ? reachesIn(corner, ear.c, ear.a, ear.b)
                                      : ear.holds(p);
        };
        return isEmpty(ear, blocks, 1, 0, m_order.size());
    }

private:
    static constexpr std::size_t leafSize = 8;

    struct Node {
        PlanePoint low{}, high{};
        std::size_t present = 0;
    };

    void build(std::size_t node, std::size_t first, std::size_t end) {
        PlanePoint low = m_points[m_order[first]];
        PlanePoint high = low;
        for (std::size_t i = first; i < end; ++i) {
            const PlanePoint& p = m_points[m_order[i]];
            low = {std::min(low.u, p.u), std::min(low.v, p.v)};
            high = {std::max(high.u, p.u), std::max(high.v, p.v)};
        }
        m_nodes[node] = {low, high, end - first};
        if (end - first <= leafSize) {
            return;
        }
        const std::size_t middle = (first + end) / 2;
        const bool alongU = high.u - low.u >= high.v - low.v;
        const auto at = [&](std::size_t i) {
            return m_order.begin() + static_cast<std::ptrdiff_t>(i);
        };
        std::nth_element(at(first), at(middle), at(end), [&](std::uint32_t i, std::uint32_t j) {
            return alongU ? m_points[i].u < m_points[j].u : m_points[i].v < m_points[j].v;
        });
        build(2 * node, first, middle);
        build(2 * node + 1, middle, end);
    }

    template <typename Blocks>
    bool isEmpty(const Ear& ear, const Blocks& blocks, std::size_t node, std::size_t first,
                 std::size_t end) const {
        const Node& box = m_nodes[node];
        if (box.present == 0 || !ear.mayMeet(box.low, box.high)) {
            return true;
        }
        if (end - first > leafSize) {
            const std::size_t middle = (first + end) / 2;
            return isEmpty(ear, blocks, 2 * node, first, middle) &&
                   isEmpty(ear, blocks, 2 * node + 1, middle, end);
        }
        for (std::size_t i = first; i < end; ++i) {
            const std::uint32_t corner = m_order[i];
            if (m_present[corner] && blocks(corner)) {
                return false;
            }
        }
        return true;
    }

    const std::vector<PlanePoint>& m_points;
    std::vector<std::uint32_t> m_order; ///< corners, as the tree's leaves hold them
    std::vector<std::uint32_t> m_place; ///< of a corner in the order
    std::vector<bool> m_present;
    std::vector<Node> m_nodes; ///< 1 is the whole; the halves of n are 2n and 2n + 1
};

/// Cuts ears off a polygon of five or more corners. Bridges to holes, and holes that touch, may
/// pass a place more than once.
class EarCutter {
public:
    explicit EarCutter(const std::vector<PlanePoint>& points)
        : m_points(points), m_corners(points), m_before(points.size()), m_after(points.size()),
          m_waiting(points.size()), m_waits(points.size(), true), m_queued(points.size()) {
        const auto count = static_cast<std::uint32_t>(points.size());
        for (std::uint32_t i = 0; i < count; ++i) {
            m_before[i] = (i + count - 1) % count;
            m_after[i] = (i + 1) % count;
            // Every other corner first: each time around halves a round face, where corners in
            // their order would cut a fan of needles.
            m_waiting[i] = i < count / 2 ? 2 * i + 1 : 2 * (i - count / 2);
        }
        for (std::uint32_t i = 0; i < count; ++i) {
            noteSlit(i);
        }
        m_triangles.reserve(count - 2);
    }

    std::vector<std::array<std::uint32_t, 3>> cut() {
        const std::size_t count = m_points.size();
        // When no corner is an ear though neighbours have gone, all are looked at once more:
        // corners that touch others may have come free. A polygon that has none then is degenerate,
        // and cutting anyway ends the work.
        std::size_t looksAgain = std::size_t{20} * count;
        bool hasChanged = false;
        while (m_triangles.size() + 3 < count) {
            bool forced = false;
            if (m_queued == 0 && m_slits.empty()) {
                const std::size_t left = count - m_triangles.size();
                forced = !hasChanged || looksAgain < left;
                if (forced) {
                    enqueue(m_last);
                } else {
                    looksAgain -= left;
                    hasChanged = false;
                    for (std::uint32_t i = m_last, seen = 0; seen < left; ++seen, i = m_after[i]) {
                        enqueue(i);
                    }
                }
            }
            const std::uint32_t corner = next();
            const bool isGone = m_before[corner] == corner;
            if (!isGone && (forced || isSlit(corner) || isEar(corner))) {
                cutOff(corner);
                hasChanged = !forced;
            }
        }
        m_triangles.push_back({m_last, m_after[m_last], m_before[m_last]});
        return std::move(m_triangles);
    }

private:
    void enqueue(std::uint32_t corner) {
        if (!m_waits[corner]) {
            m_waits[corner] = true;
            m_waiting[(m_head + m_queued++) % m_waiting.size()] = corner;
        }
    }

    std::uint32_t next() {
        if (!m_slits.empty()) {
            const std::uint32_t corner = m_slits.back();
            m_slits.pop_back();
            return corner;
        }
        const std::uint32_t corner = m_waiting[m_head];
        m_head = (m_head + 1) % m_waiting.size();
        --m_queued;
        m_waits[corner] = false;
        return corner;
    }

    /// Whether the way stands still at the corner or turns back: nothing lies between, and what is
    /// left hides which way is inside.
    [[nodiscard]] bool isSlit(std::uint32_t corner) const {
        const PlanePoint& from = m_points[m_before[corner]];
        const PlanePoint& at = m_points[corner];
        const PlanePoint& to = m_points[m_after[corner]];
        return isSame(from, at) || isSame(at, to) || isSame(from, to);
    }
    void noteSlit(std::uint32_t corner) {
        if (isSlit(corner)) {
            m_slits.push_back(corner);
        }
    }

    [[nodiscard]] bool isEar(std::uint32_t b) {
        const Ear ear{m_points[m_before[b]], m_points[b], m_points[m_after[b]]};
        if (m_looks == 0 || !(turn(ear.a, ear.b, ear.c) > 0.0)) {
            return false;
        }
        // Another corner at one of the ear's places is in the way when an edge leads from it
        // inside. Where its edges run along the ear's at the tip, the ear may be the hole between.
        bool mayBeHole = false;
        const auto reachesIn = [&](std::uint32_t corner, const PlanePoint& at, const PlanePoint& x,
                                   const PlanePoint& y) {
            const PlanePoint& from = m_points[m_before[corner]];
            const PlanePoint& to = m_points[m_after[corner]];
            const auto leadsIn = [&](const PlanePoint& end) {
                return turn(at, x, end) > 0.0 && turn(at, end, y) > 0.0;
            };
            mayBeHole = mayBeHole || (corner != b && isSame(at, ear.b) &&
                                      turn(at, x, from) == 0.0 && turn(at, to, y) == 0.0);
            return leadsIn(from) || leadsIn(to);
        };
        return m_corners.isEmpty(ear, reachesIn, m_looks) && !(mayBeHole && isOutside(ear));
    }

    /// Whether the middle of a triangle that no edge enters lies outside of what is left: a ray
    /// from it crosses an even number of edges.
    [[nodiscard]] bool isOutside(const Ear& ear) {
        const std::size_t left = m_points.size() - m_triangles.size();
        if (m_stepsAround < left) {
            return false;
        }
        m_stepsAround -= left;
        const PlanePoint middle{(ear.a.u + ear.b.u + ear.c.u) / 3.0,
                                (ear.a.v + ear.b.v + ear.c.v) / 3.0};
        bool isInside = false;
        std::uint32_t i = m_last;
        for (std::size_t seen = 0; seen < left; ++seen, i = m_after[i]) {
            const PlanePoint& p = m_points[i];
            const PlanePoint& q = m_points[m_after[i]];
            if ((p.v > middle.v) != (q.v > middle.v)) {
                const bool isLeft = turn(p, q, middle) > 0.0;
                isInside = isInside != (isLeft == (q.v > p.v));
            }
        }
        return !isInside;
    }

    void cutOff(std::uint32_t b) {
        const std::uint32_t a = m_before[b];
        const std::uint32_t c = m_after[b];
        m_triangles.push_back({a, b, c});
        m_corners.remove(b);
        m_after[a] = c;
        m_before[c] = a;
        m_before[b] = b;
        m_last = c;
        for (const std::uint32_t end : {a, c}) {
            enqueue(end);
            noteSlit(end);
        }
    }

    const std::vector<PlanePoint>& m_points;
    CornerTree m_corners;
    std::vector<std::uint32_t> m_before; ///< itself for a corner that has gone
    std::vector<std::uint32_t> m_after;
    std::vector<std::uint32_t> m_waiting; ///< a ring: no corner waits twice
    std::vector<bool> m_waits;
    std::vector<std::uint32_t> m_slits; ///< to be cut before all others
    std::size_t m_head = 0;
    std::size_t m_queued;
    std::uint32_t m_last = 0;                                       ///< a corner that is left
    std::size_t m_stepsAround = std::size_t{200} * m_points.size(); ///< bounds the work
    /// Bounds it too: thousands of corners at a few places are all looked at for each ear there.
    std::size_t m_looks = 20'000'000 + std::size_t{200} * m_points.size();
    std::vector<std::array<std::uint32_t, 3>> m_triangles;
};

/// Drops the axis along which the normal is longest; the result winds counter-clockwise.
std::vector<PlanePoint> projected(std::span<const Vector3> polygon, const Vector3& normal) {
    const double x = std::abs(normal.x);
    const double y = std::abs(normal.y);
    const double z = std::abs(normal.z);
    std::vector<PlanePoint> points;
    points.reserve(polygon.size());
    for (const Vector3& corner : polygon) {
        const Vector3 p = corner - polygon.front();
        if (z >= x && z >= y) {
            points.push_back(normal.z >= 0.0 ? PlanePoint{p.x, p.y} : PlanePoint{p.y, p.x});
        } else if (x >= y) {
            points.push_back(normal.x >= 0.0 ? PlanePoint{p.y, p.z} : PlanePoint{p.z, p.y});
        } else {
            points.push_back(normal.y >= 0.0 ? PlanePoint{p.z, p.x} : PlanePoint{p.x, p.z});
        }
    }
    return points;
}

} // namespace

std::uint32_t Mesh::nameIndex(const std::string& name) {
    if (name.empty()) {
        return unnamed;
    }
    const auto [entry, isNew] =
        m_nameIndices.try_emplace(name, static_cast<std::uint32_t>(names.size()));
    if (isNew) {
        names.push_back(name);
    }
    return entry->second;
}

std::span<const Vector3> Mesh::polygonOf(const Face& face, std::vector<Vector3>& polygon) const {
    polygon.clear();
    for (const std::uint32_t corner : cornersOf(face)) {
        polygon.push_back(vertices[corner]);
    }
    return polygon;
}

double dot(const Vector3& a, const Vector3& b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

Vector3 cross(const Vector3& a, const Vector3& b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

double length(const Vector3& a) {
    return std::sqrt(dot(a, a));
}

Vector3 areaVector(std::span<const Vector3> polygon) {
    // Relative to a corner, so that map coordinates lose nothing.
    Vector3 sum;
    for (std::size_t i = 2; i < polygon.size(); ++i) {
        sum = sum + cross(polygon[i - 1] - polygon[0], polygon[i] - polygon[0]);
    }
    // Areas in the results are floats: a smaller one is 0 there. It still has a direction here,
    // which its square, too small for a double, would lose later on.
    constexpr double smallest = std::numeric_limits<float>::min();
    return length(sum) < smallest ? Vector3() : sum;
}

std::vector<std::array<std::uint32_t, 3>> triangulate(std::span<const Vector3> polygon) {
    std::vector<std::array<std::uint32_t, 3>> triangles;
    if (polygon.size() < 3) {
        return triangles;
    }
    if (polygon.size() == 3) {
        triangles.push_back({0, 1, 2});
        return triangles;
    }
    const std::vector<PlanePoint> points = projected(polygon, areaVector(polygon));
    if (polygon.size() == 4) { // most faces: an ear of the second corner, or else of the third
        const bool ear = turn(points[0], points[1], points[2]) > 0.0 &&
                         !Ear{points[0], points[1], points[2]}.holds(points[3]);
        triangles.push_back(ear ? std::array{0U, 1U, 2U} : std::array{1U, 2U, 3U});
        triangles.push_back(ear ? std::array{0U, 2U, 3U} : std::array{0U, 1U, 3U});
        return triangles;
    }
    return EarCutter(points).cut();
}

namespace {

/// Gives the triangles of a model's faces their names.
class NamesOfTriangles {
public:
    NamesOfTriangles(const Mesh& mesh, Scene& scene) : m_scene(scene) {
        std::unordered_map<std::string_view, std::uint32_t> known;
        m_scene.kindOf.resize(m_scene.triangleCount(), kindOf({unnamed, unnamed, unnamed}));
        for (std::size_t i = 0; i < m_scene.names.size(); ++i) {
            known.emplace(m_scene.names[i], static_cast<std::uint32_t>(i));
        }
        const std::size_t before = m_scene.names.size();
        std::vector<std::string> fresh;
        for (const std::string& name : mesh.names) {
            const auto [found, isNew] =
                known.emplace(name, static_cast<std::uint32_t>(before + fresh.size()));
            m_names.push_back(found->second);
            if (isNew) {
                fresh.push_back(name);
            }
        }
        m_scene.names.insert(m_scene.names.end(), std::make_move_iterator(fresh.begin()),
                             std::make_move_iterator(fresh.end()));
    }

    /// The last triangles of the scene, up to its end, belong to the face.
    void give(const Mesh::Face& face) {
        const TriangleNames names = {nameOf(face.object), nameOf(face.group),
                                     nameOf(face.material)};
        if (!m_last || !(m_scene.kinds[*m_last] == names)) {
            m_last = kindOf(names);
        }
        m_scene.kindOf.resize(m_scene.triangleCount(), *m_last);
    }

private:
    static constexpr std::uint32_t unnamed = CellOrigin::unnamed;

    [[nodiscard]] std::uint32_t nameOf(std::uint32_t ofMesh) const {
        return ofMesh == unnamed ? unnamed : m_names[ofMesh];
    }
    std::uint32_t kindOf(const TriangleNames& names) {
        const auto [found, isNew] =
            m_kinds.emplace(std::array{names.object, names.group, names.material},
                            static_cast<std::uint32_t>(m_scene.kinds.size()));
        if (isNew) {
            m_scene.kinds.push_back(names);
        }
        return found->second;
    }

    Scene& m_scene;
    std::vector<std::uint32_t> m_names; ///< by the mesh's
    std::map<std::array<std::uint32_t, 3>, std::uint32_t> m_kinds;
    std::optional<std::uint32_t> m_last;
};

} // namespace

void appendTriangles(const Mesh& mesh, Scene& scene) {
    scene.vertices.reserve(scene.vertices.size() +
                           3 * (mesh.corners.size() - 2 * mesh.faces.size()));
    NamesOfTriangles names(mesh, scene);
    std::vector<Vector3> polygon;
    for (const Mesh::Face& face : mesh.faces) {
        const auto corners = mesh.cornersOf(face);
        if (corners.size() == 3) {
            for (const std::uint32_t corner : corners) {
                scene.vertices.push_back(mesh.vertices[corner]);
            }
            names.give(face);
            continue;
        }
        for (const auto& triangle : triangulate(mesh.polygonOf(face, polygon))) {
            for (const std::uint32_t corner : triangle) {
                scene.vertices.push_back(polygon[corner]);
            }
        }
        names.give(face);
    }
}

} // namespace insolate::study
