#include "study/model/ground_plane.h"

#include "study/model/mesh.h"
#include "study/model/mesh_edges.h"
#include "study/model/plan_tree.h"
#include "study/model/winding.h"
#include "study/support/closest_name.h"
#include "study/support/errors.h"
#include "study/support/numbers.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numbers>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace insolate::study {

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

PlanBox widened(const PlanBox& box, const Vector3& p) {
    return {std::min(box.lowX, p.x), std::min(box.lowY, p.y), std::max(box.highX, p.x),
            std::max(box.highY, p.y)};
}

PlanBox planOf(const Scene& scene) {
    PlanBox box{infinity, infinity, -infinity, -infinity};
    for (const Vector3& p : scene.vertices) {
        box = widened(box, p);
    }
    return scene.vertices.empty() ? PlanBox{} : box;
}

double pieces(double edge, double grid) {
    constexpr double slack = 1.0 + 1.0e-6; // an edge of exactly ten cells has ten
    return std::max(1.0, std::ceil(edge / (grid * slack)));
}

/// Solid angle between the directions to a and b and the zenith, positive when these turn
/// counter-clockwise seen from above (Van Oosterom and Strackee 1983, IEEE Transactions on
/// Biomedical Engineering 30(2), 125-126).
double angleBelowZenith(const Vector3& a, const Vector3& b) {
    const double lengths = length(a) * length(b);
    const double volume = a.x * b.y - a.y * b.x;
    const double rest = lengths + dot(a, b) + b.z * length(a) + a.z * length(b);
    return 2.0 * std::atan2(volume, rest);
}

/// Whether places of a scene lie in its bodies.
class Insides {
public:
    Insides(const Scene& scene, const std::stop_token& stop) : m_surfaces(0) {
        Mesh mesh;
        mesh.vertices = scene.vertices;
        mesh.corners.resize(scene.vertices.size());
        for (std::uint32_t i = 0; i < mesh.corners.size(); ++i) {
            mesh.corners[i] = i;
        }
        for (std::uint32_t i = 0; i + 2 < mesh.corners.size(); i += 3) {
            mesh.faces.push_back({.firstCorner = i, .cornerCount = 3});
        }
        const Bodies bodies = findBodies(mesh, stop);
        m_surfaces = bodies.bodies.size();
        m_kinds.assign(m_surfaces, Kind::closed);
        findGround(mesh, bodies, planOf(scene));
        findBorders(mesh, bodies);
        std::vector<PlumbLines::Triangle> triangles;
        for (std::uint32_t f = 0; f < mesh.faces.size(); ++f) {
            triangles.push_back({mesh.vertices[3 * f], mesh.vertices[3 * f + 1],
                                 mesh.vertices[3 * f + 2], bodies.bodyOf[f]});
        }
        m_lines.emplace(std::move(triangles));
    }

    enum class Place { free, inside, buried };

    Place placeOf(const Vector3& p) {
        m_above.clear();
        m_below.clear();
        double under = 0.0; // crossings of the ground above
        bool isCovered = false;
        m_lines->forEachCrossing(p.x, p.y, [&](std::uint32_t surface, double z, bool looksUp) {
            if (m_kinds[surface] == Kind::open && z < p.z) {
                m_below.emplace_back(surface, looksUp ? 1.0 : -1.0);
            } else if (m_kinds[surface] == Kind::open) {
                isCovered = true;
            } else if (m_kinds[surface] == Kind::ground && z > p.z) {
                under += 1.0;
            } else if (m_kinds[surface] == Kind::closed && z > p.z) {
                m_above.push_back(surface);
            }
        });
        std::sort(m_above.begin(), m_above.end());
        for (std::size_t first = 0; first < m_above.size();) {
            const auto begin = m_above.begin() + static_cast<std::ptrdiff_t>(first);
            const auto end = std::upper_bound(begin, m_above.end(), *begin);
            if ((end - begin) % 2 == 1) {
                return Place::inside;
            }
            first += static_cast<std::size_t>(end - begin);
        }
        if (std::fmod(under, 2.0) == 1.0) {
            return Place::buried;
        }
        if (!isCovered) {
            return Place::free; // a court, whose walls may hide more than half too
        }
        double windingNumber = 0.0;
        m_openPlan->forEachAt(p.x, p.y, [&](std::uint32_t i) {
            const double share = shareHidden(p, i);
            if (std::abs(share) >= leastShareOfAWall || !mayBeLeaf(m_openSurfaces[i])) {
                windingNumber += share;
            }
        });
        return std::abs(windingNumber) > 0.5 + 1.0e-9 ? Place::inside : Place::free;
    }

private:
    enum class Kind : char { closed, open, ground };

    /// A small surface that hides less than this of all directions is no wall or roof of the
    /// building around a place, but a leaf of a crown above it: a square metre hides it from 2 m.
    static constexpr double leastShareOfAWall = 0.02;

    bool mayBeLeaf(std::uint32_t surface) const {
        constexpr double widestLeaf = 2.0; // metres, of a spray of leaves drawn as one polygon
        const PlanBox& box = m_plans[surface];
        return std::max(box.highX - box.lowX, box.highY - box.lowY) < widestLeaf;
    }

    /// The share of all directions that an open surface hides from a place, positive where it looks
    /// away from it. What a surface hides is what its borders enclose, counted from the zenith, but
    /// for each of its faces below, which turns it by the whole sphere. m_below must be that of the
    /// place.
    double shareHidden(const Vector3& p, std::uint32_t openNumber) const {
        double hidden = 0.0;
        for (std::uint32_t k = m_borderStart[openNumber]; k < m_borderStart[openNumber + 1]; ++k) {
            hidden += angleBelowZenith(m_borders[k][0] - p, m_borders[k][1] - p);
        }
        double share = hidden / (4.0 * std::numbers::pi);
        for (const auto& [surface, turns] : m_below) {
            share -= surface == m_openSurfaces[openNumber] ? turns : 0.0;
        }
        return share;
    }

    void findGround(const Mesh& mesh, const Bodies& bodies, const PlanBox& whole) {
        m_plans.assign(m_surfaces, {infinity, infinity, -infinity, -infinity});
        for (std::uint32_t f = 0; f < mesh.faces.size(); ++f) {
            for (std::uint32_t i = 3 * f; i < 3 * f + 3; ++i) {
                PlanBox& box = m_plans[bodies.bodyOf[f]];
                box = widened(box, mesh.vertices[i]);
            }
        }
        constexpr double asWide = 0.9;
        for (std::size_t i = 0; i < m_surfaces; ++i) {
            if (bodies.bodies[i].winding != Winding::open) {
                continue;
            }
            const PlanBox& box = m_plans[i];
            const bool isGround = box.highX - box.lowX >= asWide * (whole.highX - whole.lowX) &&
                                  box.highY - box.lowY >= asWide * (whole.highY - whole.lowY) &&
                                  isMostlyLevel(mesh, bodies, static_cast<std::uint32_t>(i));
            m_kinds[i] = isGround ? Kind::ground : Kind::open;
        }
    }

    /// The only house of a scene is as wide as it too, but has walls.
    [[nodiscard]] static bool isMostlyLevel(const Mesh& mesh, const Bodies& bodies,
                                            std::uint32_t surface) {
        double level = 0.0;
        double all = 0.0;
        std::vector<Vector3> polygon;
        for (std::uint32_t f = 0; f < mesh.faces.size(); ++f) {
            if (bodies.bodyOf[f] == surface) {
                const Vector3 area = areaVector(mesh.polygonOf(mesh.faces[f], polygon));
                level += std::abs(area.z);
                all += length(area);
            }
        }
        return level > 0.7 * all;
    }

    /// The sides of the open surfaces' faces that no other face of theirs takes back.
    void findBorders(const Mesh& mesh, const Bodies& bodies) {
        std::vector<std::uint32_t> openNumber(m_surfaces, 0);
        std::vector<PlanBox> plans;
        for (std::size_t i = 0; i < m_surfaces; ++i) {
            if (m_kinds[i] == Kind::open) {
                openNumber[i] = static_cast<std::uint32_t>(plans.size());
                m_openSurfaces.push_back(static_cast<std::uint32_t>(i));
                // Walls close a house though no place in it lies under them, and so do the houses
                // beside it where they share one; what is farther off hides little.
                const PlanBox& box = m_plans[i];
                const double reach = std::max(box.highX - box.lowX, box.highY - box.lowY);
                plans.push_back(
                    {box.lowX - reach, box.lowY - reach, box.highX + reach, box.highY + reach});
            }
        }
        m_borderStart.assign(plans.size() + 1, 0);
        m_openPlan.emplace(std::move(plans));
        const std::vector<EdgeUse> uses = edgeUses(mesh, weldedVertices(mesh));
        std::vector<std::pair<std::uint32_t, std::array<Vector3, 2>>> found;
        std::vector<std::pair<std::uint32_t, int>> balance;
        forEachEdge(std::span(uses), [&](std::span<const EdgeUse> edge) {
            balance.clear();
            for (const EdgeUse& use : edge) {
                if (const std::uint32_t body = bodies.bodyOf[use.face];
                    m_kinds[body] == Kind::open) {
                    balance.emplace_back(openNumber[body], use.isForward ? 1 : -1);
                }
            }
            std::sort(balance.begin(), balance.end());
            for (std::size_t i = 0; i < balance.size(); ++i) {
                const bool endsHere =
                    i + 1 == balance.size() || balance[i + 1].first != balance[i].first;
                if (!endsHere) {
                    balance[i + 1].second += balance[i].second;
                    continue;
                }
                std::array<Vector3, 2> ends = {mesh.vertices[edge[0].low],
                                               mesh.vertices[edge[0].high]};
                if (balance[i].second < 0) {
                    std::swap(ends[0], ends[1]);
                }
                for (int k = std::abs(balance[i].second); k > 0; --k) {
                    found.emplace_back(balance[i].first, ends);
                }
            }
        });
        for (const auto& [surface, ends] : found) {
            ++m_borderStart[surface + 1];
        }
        for (std::size_t i = 1; i < m_borderStart.size(); ++i) {
            m_borderStart[i] += m_borderStart[i - 1];
        }
        m_borders.resize(found.size());
        std::vector<std::uint32_t> next = m_borderStart;
        for (const auto& [surface, ends] : found) {
            m_borders[next[surface]++] = ends;
        }
    }

    std::size_t m_surfaces;
    std::vector<Kind> m_kinds;    ///< by surface
    std::vector<PlanBox> m_plans; ///< likewise
    std::optional<PlumbLines> m_lines;
    std::optional<PlanTree> m_openPlan;            ///< of the open surfaces
    std::vector<std::uint32_t> m_openSurfaces;     ///< their surfaces
    std::vector<std::uint32_t> m_borderStart;      ///< of each of them in m_borders
    std::vector<std::array<Vector3, 2>> m_borders; ///< along the direction of their faces
    std::vector<std::uint32_t> m_above;
    std::vector<std::pair<std::uint32_t, double>> m_below; ///< open surfaces, up 1 and down -1
};

double metresOf(std::string_view name, std::string_view text, bool mayBeNegative) {
    const auto number = parseNumber<double>(text);
    if (!number || !(std::abs(*number) < 1.0e9) || (!mayBeNegative && !(*number > 0.0))) {
        throw UsageError(fmt::format("--sensors plane: {} is {}, where metres{} are wanted; write "
                                     "plane:z=1.5,grid=1",
                                     name, quoteText(text), mayBeNegative ? "" : " above 0"));
    }
    return *number;
}

} // namespace

std::optional<GroundPlane> parseGroundPlane(std::string_view text) {
    constexpr std::string_view prefix = "plane:";
    if (!text.starts_with(prefix)) {
        return std::nullopt;
    }
    GroundPlane plane;
    std::array<bool, 2> isGiven = {};
    std::string_view rest = text.substr(prefix.size());
    for (;;) {
        const std::string_view part = rest.substr(0, rest.find(','));
        const std::size_t equals = std::min(part.find('='), part.size());
        const std::string_view name = trimmed(part.substr(0, equals));
        const std::string_view value = part.substr(std::min(equals + 1, part.size()));
        const std::size_t which = name == "z" ? 0 : name == "grid" ? 1 : 2;
        if (which == 2) {
            throw UsageError(fmt::format("--sensors plane: {} is not known{}; write "
                                         "plane:z=1.5,grid=1",
                                         quoteText(name),
                                         didYouMean(name, std::vector<std::string>{"z", "grid"})));
        }
        if (std::exchange(isGiven[which], true)) {
            throw UsageError(
                fmt::format("--sensors plane: {} is given twice; write plane:z=1.5,grid=1", name));
        }
        (which == 0 ? plane.z : plane.grid) = metresOf(name, value, which == 0);
        if (rest.find(',') == std::string_view::npos) {
            break;
        }
        rest.remove_prefix(rest.find(',') + 1);
    }
    if (!isGiven[0]) {
        throw UsageError("--sensors plane: its height is missing; write plane:z=1.5,grid=1, with z "
                         "in the model's own heights");
    }
    return plane;
}

double groundPlaneCells(const GroundPlane& plane, const Scene& scene) {
    const PlanBox box = planOf(scene);
    return pieces(box.highX - box.lowX, plane.grid) * pieces(box.highY - box.lowY, plane.grid);
}

GroundPlaneSensors cutGroundPlane(const GroundPlane& plane, const Scene& scene,
                                  const std::stop_token& stop) {
    GroundPlaneSensors result;
    const PlanBox box = planOf(scene);
    if (!(box.highX > box.lowX && box.highY > box.lowY)) {
        return result; // a scene without extent has no ground
    }
    const double columns = pieces(box.highX - box.lowX, plane.grid);
    const double rows = pieces(box.highY - box.lowY, plane.grid);
    Insides insides(scene, stop);
    SensorField& field = result.field;
    field.cellStart.push_back(0);
    const auto at = [&](double column, double row) {
        return Vector3{box.lowX + (box.highX - box.lowX) * (column / columns),
                       box.lowY + (box.highY - box.lowY) * (row / rows), plane.z};
    };
    for (double row = 0.0; row < rows; row += 1.0) {
        throwIfStopped(stop);
        for (double column = 0.0; column < columns; column += 1.0) {
            const Vector3 middle = at(column + 0.5, row + 0.5);
            switch (insides.placeOf(middle)) {
            case Insides::Place::inside:
                ++result.inside;
                continue;
            case Insides::Place::buried:
                ++result.buried;
                continue;
            case Insides::Place::free:
                break;
            }
            field.positions.push_back(middle);
            field.normals.push_back({0.0, 0.0, 1.0});
            field.corners.insert(field.corners.end(),
                                 {at(column, row), at(column + 1.0, row),
                                  at(column + 1.0, row + 1.0), at(column, row + 1.0)});
            field.cellStart.push_back(static_cast<std::uint32_t>(field.corners.size()));
        }
    }
    return result;
}

} // namespace insolate::study
