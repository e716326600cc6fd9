#include "app/input/mesh.h"

#include "app/closest_name.h"
#include "app/errors.h"
#include "app/input/numbers.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include <fmt/format.h>

namespace insolate::app {

namespace {

/// A corner of the polygon in the plane that shows it largest.
struct PlanePoint {
    double u;
    double v;
};

double turn(const PlanePoint& a, const PlanePoint& b, const PlanePoint& c) {
    return (b.u - a.u) * (c.v - a.v) - (b.v - a.v) * (c.u - a.u);
}

bool isInside(const PlanePoint& p, const PlanePoint& a, const PlanePoint& b, const PlanePoint& c) {
    return turn(a, b, p) >= 0.0 && turn(b, c, p) >= 0.0 && turn(c, a, p) >= 0.0;
}

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
    return sum;
}

std::vector<std::array<std::uint32_t, 3>> triangulate(std::span<const Vector3> polygon) {
    std::vector<std::array<std::uint32_t, 3>> triangles;
    if (polygon.size() < 3) {
        return triangles;
    }
    triangles.reserve(polygon.size() - 2);
    if (polygon.size() == 3) {
        triangles.push_back({0, 1, 2});
        return triangles;
    }
    const std::vector<PlanePoint> points = projected(polygon, areaVector(polygon));
    std::vector<std::uint32_t> rest(polygon.size());
    std::iota(rest.begin(), rest.end(), 0U);
    std::size_t at = 0;
    std::size_t failures = 0;
    while (rest.size() > 3) {
        const std::size_t count = rest.size();
        const std::uint32_t a = rest[at % count];
        const std::uint32_t b = rest[(at + 1) % count];
        const std::uint32_t c = rest[(at + 2) % count];
        bool ear = turn(points[a], points[b], points[c]) > 0.0;
        for (std::size_t i = 3; ear && i < count; ++i) {
            const std::uint32_t other = rest[(at + i) % count];
            ear = !isInside(points[other], points[a], points[b], points[c]);
        }
        // When a whole round finds no ear the polygon is degenerate; cutting anyway ends the work.
        if (ear || failures >= count) {
            triangles.push_back({a, b, c});
            rest.erase(rest.begin() + static_cast<std::ptrdiff_t>((at + 1) % count));
            at %= rest.size();
            failures = 0;
        } else {
            at = (at + 1) % count;
            ++failures;
        }
    }
    triangles.push_back({rest[0], rest[1], rest[2]});
    return triangles;
}

void appendTriangles(const Mesh& mesh, Scene& scene) {
    scene.vertices.reserve(scene.vertices.size() +
                           3 * (mesh.corners.size() - 2 * mesh.faces.size()));
    std::vector<Vector3> polygon;
    for (const Mesh::Face& face : mesh.faces) {
        const auto corners = mesh.cornersOf(face);
        if (corners.size() == 3) {
            for (const std::uint32_t corner : corners) {
                scene.vertices.push_back(mesh.vertices[corner]);
            }
            continue;
        }
        polygon.clear();
        for (const std::uint32_t corner : corners) {
            polygon.push_back(mesh.vertices[corner]);
        }
        for (const auto& triangle : triangulate(polygon)) {
            for (const std::uint32_t corner : triangle) {
                scene.vertices.push_back(polygon[corner]);
            }
        }
    }
}

namespace {

bool markNamed(const Mesh& mesh, std::string_view name, std::vector<bool>& marks) {
    const auto found = std::find(mesh.names.begin(), mesh.names.end(), name);
    if (found == mesh.names.end()) {
        return false;
    }
    marks[static_cast<std::size_t>(found - mesh.names.begin())] = true;
    return true;
}

/// What can be selected, as the end of a message about a name that cannot.
std::string choiceOf(const Mesh& mesh, std::string_view name) {
    if (mesh.names.empty()) {
        return "; the model has no names: leave --select out to take every face";
    }
    std::string close = didYouMean(name, mesh.names);
    if (!close.empty()) {
        return close;
    }
    constexpr std::size_t most = 12;
    std::string known;
    for (std::size_t i = 0; i < std::min(mesh.names.size(), most); ++i) {
        known += (i == 0 ? "; choose from " : ", ") + quoteText(mesh.names[i]);
    }
    return mesh.names.size() > most ? known + fmt::format(" and {} more", mesh.names.size() - most)
                                    : known;
}

} // namespace

std::vector<std::uint32_t> selectFaces(const Mesh& mesh, std::span<const std::string> names,
                                       const std::string& source) {
    std::vector<std::uint32_t> selected;
    if (names.empty()) {
        selected.resize(mesh.faces.size());
        std::iota(selected.begin(), selected.end(), 0U);
        return selected;
    }
    std::vector<bool> wanted(mesh.names.size(), false);
    for (const std::string& name : names) {
        if (!markNamed(mesh, name, wanted)) {
            // Where no name is the whole text, it is a list of names.
            std::string_view rest = name;
            do {
                const std::string part(trimmed(rest.substr(0, rest.find(','))));
                if (!markNamed(mesh, part, wanted)) {
                    throw DataError(fmt::format("{}: no object, group or material is called {}{}",
                                                source, quoteText(part), choiceOf(mesh, part)));
                }
                rest.remove_prefix(std::min(rest.find(','), rest.size() - 1) + 1);
            } while (!rest.empty());
        }
    }
    const auto matches = [&](std::uint32_t name) { return name != Mesh::unnamed && wanted[name]; };
    for (std::uint32_t i = 0; i < mesh.faces.size(); ++i) {
        const Mesh::Face& face = mesh.faces[i];
        if (matches(face.object) || matches(face.group) || matches(face.material)) {
            selected.push_back(i);
        }
    }
    if (selected.empty()) {
        throw DataError(fmt::format("{}: the selection holds no face; choose another name or leave "
                                    "--select out to take every face",
                                    source));
    }
    return selected;
}

} // namespace insolate::app
