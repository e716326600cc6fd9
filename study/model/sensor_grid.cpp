#include "study/model/sensor_grid.h"

#include "study/model/polygon_rings.h"
#include "study/support/errors.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace insolate::study {

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

/// Rows and columns of cells on a quadrilateral; none when its edges ask for far more cells than
/// its area and outline do, as in a kite as thin as a needle.
struct QuadCells {
    double columns = 0.0;
    double rows = 0.0;

    QuadCells(std::span<const Vector3> quad, const Vector3& area, double spacing) {
        if (quad.size() != 4 || !isFlatAndConvex(quad, area * (1.0 / length(area)))) {
            return;
        }
        const auto pieces = [&](double edge, double opposite) {
            return std::max(1.0, std::ceil(std::max(edge, opposite) / (spacing * slack)));
        };
        const double first = length(quad[1] - quad[0]);
        const double second = length(quad[2] - quad[1]);
        const double third = length(quad[3] - quad[2]);
        const double fourth = length(quad[0] - quad[3]);
        columns = pieces(first, third);
        rows = pieces(fourth, second);
        const double needed =
            0.5 * length(area) / (spacing * spacing) + (first + second + third + fourth) / spacing;
        if (columns * rows > 4.0 * needed + 4.0) {
            columns = rows = 0.0;
        }
    }
    [[nodiscard]] bool any() const { return columns > 0.0; }
};

class Cutter {
public:
    explicit Cutter(const SensorGridOptions& options) : m_options(options) {
        m_grid.field.cellStart.push_back(0);
    }

    /// @param origin where the face's cells come from
    void addFace(std::span<const Vector3> polygon, const CellOrigin& origin) {
        const Vector3 area = areaVector(polygon);
        const double size = length(area);
        if (!(size > 0.0)) {
            ++m_grid.emptyFaces;
            return;
        }
        m_origin = origin;
        const Vector3 normal = area * (1.0 / size);
        if (const QuadCells cells(polygon, area, m_options.spacing); cells.any()) {
            cutQuad(polygon, normal, cells);
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

    SensorGrid result(const Mesh& mesh) && {
        m_grid.field.names = mesh.names;
        return std::move(m_grid);
    }

private:
    void addCell(std::span<const Vector3> cell, const Vector3& centre, const Vector3& normal) {
        SensorField& field = m_grid.field;
        field.positions.push_back(centre + normal * m_options.offset);
        field.normals.push_back(normal);
        field.corners.insert(field.corners.end(), cell.begin(), cell.end());
        field.cellStart.push_back(static_cast<std::uint32_t>(field.corners.size()));
        field.origins.push_back(m_origin);
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
            std::size_t least = 0; // and the shortest here
            double longest = length(t[1] - t[0]);
            double shortest = longest;
            for (std::size_t i = 1; i < 3; ++i) {
                const double edge = length(t[(i + 1) % 3] - t[i]);
                if (edge > longest * slack) {
                    longest = edge;
                    first = i;
                }
                if (edge < shortest) {
                    shortest = edge;
                    least = i;
                }
            }
            const double narrow = 0.5 * m_options.spacing;
            if (shortest <= narrow && longest > largestEdge) {
                slice({t[least], t[(least + 1) % 3], t[(least + 2) % 3]},
                      std::ceil(longest / largestEdge), normal);
                continue;
            }
            const Vector3& a = t[first];
            const Vector3& b = t[(first + 1) % 3];
            const Vector3& c = t[(first + 2) % 3];
            const Vector3 foot = a + (b - a) * (dot(c - a, b - a) / (longest * longest));
            if (length(foot - c) <= narrow && longest > largestEdge) {
                m_open.push_back({foot, b, c});
                m_open.push_back({a, foot, c});
                continue;
            }
            const Vector3 middle = (a + b) * 0.5;
            if (length(middle - a) == 0.0 || length(middle - b) == 0.0) {
                // Far from the origin a small grid asks for more than the coordinates can tell.
                addCell(t, middle, normal);
                continue;
            }
            m_open.push_back({middle, b, c});
            m_open.push_back({a, middle, c});
        }
    }

    /// Cuts a needle across, between its short edge and its tip; halving would give three needles
    /// of half the length again and again. A flat triangle is cut at its height into two needles
    /// first.
    void slice(const Triangle& needle, double count, const Vector3& normal) {
        const auto [left, right, tip] = needle;
        Vector3 l0 = left;
        Vector3 r0 = right;
        for (double i = 1.0; i <= count; i += 1.0) {
            const Vector3 l1 = left + (tip - left) * (i / count);
            const Vector3 r1 = right + (tip - right) * (i / count);
            if (i < count) {
                addCell(std::array{l0, r0, r1, l1}, (l0 + r0 + r1 + l1) * 0.25, normal);
            } else {
                addCell(std::array{l0, r0, tip}, (l0 + r0 + tip) * (1.0 / 3.0), normal);
            }
            l0 = l1;
            r0 = r1;
        }
    }

    void cutQuad(std::span<const Vector3> quad, const Vector3& normal, const QuadCells& cells) {
        const double columns = cells.columns;
        const double rows = cells.rows;
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
    CellOrigin m_origin; ///< of the face that is being cut
    std::vector<Triangle> m_open;
};

/// What cutTriangle gives, within a factor of two and a half; the factors are found by trial.
double estimatedCells(const Triangle& triangle, double spacing) {
    const double area = 0.5 * length(areaVector(triangle)) / (spacing * spacing);
    const double longest = longestEdge(triangle) / spacing;
    if (!(area > 0.0)) {
        return 0.0;
    }
    if (area <= slack && longest <= 2.0 * slack) {
        return 1.0;
    }
    const double width = 2.0 * area / longest;
    const double loss = width <= 0.5 ? 1.0 : longest <= 4.0 * width ? 1.2 : 1.8; // by halving
    return loss * std::max({1.0, 1.3 * area, 0.75 * longest});
}

/// The face as it is cut. Corners on straight edges, and the corner that happens to be listed
/// first, decide nothing.
std::span<const Vector3> outlineOf(const Mesh& mesh, const Mesh::Face& face,
                                   std::vector<Vector3>& polygon) {
    mesh.polygonOf(face, polygon);
    if (polygon.size() > 4) {
        polygon = simplified(polygon);
    }
    return polygon;
}

} // namespace

double defaultSensorOffset(const Vector3& extent) {
    constexpr double usual = SensorGridOptions().offset;
    const double longest = std::max({extent.x, extent.y, extent.z});
    return longest > 0.0 && longest < smallScene ? usual / smallScene * longest : usual;
}

double estimatedSensorCount(const Mesh& mesh, std::span<const std::uint32_t> faces,
                            const SensorGridOptions& options) {
    double count = 0.0;
    std::vector<Vector3> polygon;
    for (const std::uint32_t index : faces) {
        outlineOf(mesh, mesh.faces[index], polygon);
        const Vector3 whole = areaVector(polygon);
        if (!(length(whole) > 0.0)) {
            continue;
        }
        if (const QuadCells cells(polygon, whole, options.spacing); cells.any()) {
            count += cells.columns * cells.rows;
            continue;
        }
        for (const auto& corners : triangulate(polygon)) {
            const Triangle triangle = {polygon[corners[0]], polygon[corners[1]],
                                       polygon[corners[2]]};
            count += estimatedCells(triangle, options.spacing);
        }
    }
    return count;
}

SensorGrid cutIntoSensors(const Mesh& mesh, std::span<const std::uint32_t> faces,
                          const SensorGridOptions& options, const std::stop_token& stop) {
    Cutter cutter(options);
    std::vector<Vector3> polygon;
    for (const std::uint32_t index : faces) {
        throwIfStopped(stop);
        const Mesh::Face& face = mesh.faces[index];
        const std::uint32_t object = face.object != Mesh::unnamed ? face.object : face.group;
        cutter.addFace(outlineOf(mesh, face, polygon),
                       {.face = index, .object = object, .material = face.material});
    }
    return std::move(cutter).result(mesh);
}

std::vector<float> cellAreas(const SensorField& field) {
    std::vector<float> areas = field.areas;
    const std::span<const Vector3> corners = field.corners;
    for (std::size_t i = 0; field.hasCells() && i < field.size(); ++i) {
        const std::size_t first = field.cellStart[i];
        const Vector3 twice = areaVector(corners.subspan(first, field.cellStart[i + 1] - first));
        areas.push_back(static_cast<float>(0.5 * length(twice)));
    }
    return areas;
}

} // namespace insolate::study
