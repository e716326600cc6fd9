#include "app/input/sensor_grid.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace insolate::app {

namespace {

/// Equal lengths in the model must stay equal wherever it stands: rounding of map coordinates must
/// not push an edge of exactly the spacing over it.
constexpr double slack = 1.0 + 1.0e-6;

using Triangle = std::array<Vector3, 3>;

double longestEdge(const Triangle& t) {
    return std::max({length(t[1] - t[0]), length(t[2] - t[1]), length(t[0] - t[2])});
}

/// Whether the corners lie in one plane, within a thousandth of the polygon's size, and turn the
/// same way at every corner.
bool isFlatAndConvex(std::span<const Vector3> quad, const Vector3& normal) {
    const double tolerance = 1.0e-3 * length(quad[2] - quad[0]);
    for (std::size_t i = 0; i < 4; ++i) {
        const Vector3 before = quad[(i + 3) % 4];
        const Vector3 after = quad[(i + 1) % 4];
        if (std::abs(dot(quad[i] - quad[0], normal)) > tolerance ||
            dot(cross(quad[i] - before, after - quad[i]), normal) <= 0.0) {
            return false;
        }
    }
    return true;
}

class Cutter {
public:
    explicit Cutter(const SensorGridOptions& options) : m_options(options) {
        m_grid.field.cellStart.push_back(0);
    }

    void addFace(std::span<const Vector3> polygon) {
        const Vector3 area = areaVector(polygon);
        const double size = length(area);
        if (!(size > 0.0)) {
            ++m_grid.emptyFaces;
            return;
        }
        const Vector3 normal = area * (1.0 / size);
        if (polygon.size() == 4 && isFlatAndConvex(polygon, normal)) {
            cutQuad(polygon, normal);
            return;
        }
        for (const auto& corners : triangulate(polygon)) {
            const Triangle triangle = {polygon[corners[0]], polygon[corners[1]],
                                       polygon[corners[2]]};
            const Vector3 own = areaVector(triangle);
            const double ownSize = length(own);
            if (ownSize > 0.0) {
                cutTriangle(triangle, own * (1.0 / ownSize));
            }
        }
    }

    SensorGrid result() && { return std::move(m_grid); }

private:
    void addCell(std::span<const Vector3> cell, const Vector3& centre, const Vector3& normal) {
        SensorField& field = m_grid.field;
        field.positions.push_back(centre + normal * m_options.offset);
        field.normals.push_back(normal);
        field.corners.insert(field.corners.end(), cell.begin(), cell.end());
        field.cellStart.push_back(static_cast<std::uint32_t>(field.corners.size()));
    }

    void cutTriangle(const Triangle& whole, const Vector3& normal) {
        const double largestArea = m_options.spacing * m_options.spacing * slack;
        const double largestEdge = 2.0 * m_options.spacing * slack;
        m_open.assign(1, whole);
        while (!m_open.empty()) {
            const Triangle t = m_open.back();
            m_open.pop_back();
            if (length(areaVector(t)) * 0.5 <= largestArea && longestEdge(t) <= largestEdge) {
                addCell(t, (t[0] + t[1] + t[2]) * (1.0 / 3.0), normal);
                continue;
            }
            std::size_t first = 0; // the longest edge starts here; the earliest of equals
            double longest = length(t[1] - t[0]);
            for (std::size_t i = 1; i < 3; ++i) {
                const double edge = length(t[(i + 1) % 3] - t[i]);
                if (edge > longest * slack) {
                    longest = edge;
                    first = i;
                }
            }
            const Vector3& a = t[first];
            const Vector3& b = t[(first + 1) % 3];
            const Vector3& c = t[(first + 2) % 3];
            const Vector3 middle = (a + b) * 0.5;
            m_open.push_back({middle, b, c});
            m_open.push_back({a, middle, c});
        }
    }

    void cutQuad(std::span<const Vector3> quad, const Vector3& normal) {
        const auto pieces = [&](double edge, double opposite) {
            const double larger = std::max(edge, opposite);
            return std::max(1.0, std::ceil(larger / (m_options.spacing * slack)));
        };
        const double columns = pieces(length(quad[1] - quad[0]), length(quad[2] - quad[3]));
        const double rows = pieces(length(quad[3] - quad[0]), length(quad[2] - quad[1]));
        const auto at = [&](double column, double row) {
            const double u = column / columns;
            const double v = row / rows;
            const Vector3 lower = quad[0] + (quad[1] - quad[0]) * u;
            const Vector3 upper = quad[3] + (quad[2] - quad[3]) * u;
            return lower + (upper - lower) * v;
        };
        for (double row = 0.0; row < rows; row += 1.0) {
            for (double column = 0.0; column < columns; column += 1.0) {
                const std::array<Vector3, 4> cell = {at(column, row), at(column + 1.0, row),
                                                     at(column + 1.0, row + 1.0),
                                                     at(column, row + 1.0)};
                addCell(cell, at(column + 0.5, row + 0.5), normal);
            }
        }
    }

    SensorGridOptions m_options;
    SensorGrid m_grid;
    std::vector<Triangle> m_open;
};

std::vector<Vector3>& polygonOf(const Mesh& mesh, const Mesh::Face& face,
                                std::vector<Vector3>& polygon) {
    polygon.clear();
    for (const std::uint32_t corner : mesh.cornersOf(face)) {
        polygon.push_back(mesh.vertices[corner]);
    }
    return polygon;
}

} // namespace

double estimatedSensorCount(const Mesh& mesh, std::span<const std::uint32_t> faces,
                            const SensorGridOptions& options) {
    double count = 0.0;
    std::vector<Vector3> polygon;
    for (const std::uint32_t index : faces) {
        polygonOf(mesh, mesh.faces[index], polygon);
        // The parts of a polygon that crosses itself have more area than the whole.
        double area = 0.0;
        for (const auto& corners : triangulate(polygon)) {
            area += 0.5 * length(areaVector(std::array{polygon[corners[0]], polygon[corners[1]],
                                                       polygon[corners[2]]}));
        }
        double longest = 0.0;
        for (std::size_t i = 0; i < polygon.size(); ++i) {
            longest = std::max(longest, length(polygon[i] - polygon[(i + 1) % polygon.size()]));
        }
        const double byArea = 1.3 * area / (options.spacing * options.spacing);
        // A needle is halved along both its long edges; each of a polygon's triangles may be one.
        const double byEdge =
            static_cast<double>(polygon.size() - 2) * (2.0 * longest / options.spacing - 3.0);
        count += std::max({1.0, byArea, byEdge});
    }
    return count;
}

SensorGrid cutIntoSensors(const Mesh& mesh, std::span<const std::uint32_t> faces,
                          const SensorGridOptions& options) {
    Cutter cutter(options);
    std::vector<Vector3> polygon;
    for (const std::uint32_t index : faces) {
        cutter.addFace(polygonOf(mesh, mesh.faces[index], polygon));
    }
    return std::move(cutter).result();
}

} // namespace insolate::app
