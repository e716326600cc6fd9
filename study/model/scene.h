/// A scene and its sensors, as they pass between the parts of a study.
///
/// All coordinates are double precision, in metres, z up, in the axes and the origin of the user's
/// model; the calculation works on a recentred single-precision copy.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <vector>

namespace insolate::study {

struct Vector3 {
    double x = 0.0;
    double y = 0.0;
    double z = 0.0;

    bool operator==(const Vector3&) const = default;
};

/// The box around points, along the axes.
struct Bounds {
    static constexpr double farthest = std::numeric_limits<double>::infinity();

    Vector3 low = {farthest, farthest, farthest};
    Vector3 high = {-farthest, -farthest, -farthest};

    void add(const Vector3& point) {
        low = {std::min(low.x, point.x), std::min(low.y, point.y), std::min(low.z, point.z)};
        high = {std::max(high.x, point.x), std::max(high.y, point.y), std::max(high.z, point.z)};
    }
    void add(std::span<const Vector3> points) {
        for (const Vector3& point : points) {
            add(point);
        }
    }
    [[nodiscard]] bool isEmpty() const { return !(low.x <= high.x); }
    /// Lengths of the edges; 0 without points.
    [[nodiscard]] Vector3 extent() const {
        return isEmpty() ? Vector3() : Vector3{high.x - low.x, high.y - low.y, high.z - low.z};
    }
    /// The longest of them.
    [[nodiscard]] double longest() const {
        const Vector3 edges = extent();
        return std::max({edges.x, edges.y, edges.z});
    }
};

/// What a triangle belongs to: into Scene::names, or CellOrigin::unnamed.
struct TriangleNames {
    std::uint32_t object = 0;
    std::uint32_t group = 0;
    std::uint32_t material = 0;

    bool operator==(const TriangleNames&) const = default;
};

/// The obstructing triangles: three consecutive vertices each.
struct Scene {
    std::vector<Vector3> vertices;
    /// By triangle into kinds; shorter, or empty, where triangles have no names.
    std::vector<std::uint32_t> kindOf = {};
    std::vector<TriangleNames> kinds = {}; ///< each once for a model
    std::vector<std::string> names = {};   ///< of objects, groups and materials
    [[nodiscard]] std::size_t triangleCount() const { return vertices.size() / 3; }
};

/// Where a sensor's cell comes from.
struct CellOrigin {
    static constexpr std::uint32_t unnamed = 0xFFFFFFFFU;

    std::uint32_t face = 0;           ///< of the model; the first of several that were cut as one
    std::uint32_t object = unnamed;   ///< into SensorField::names; the group of a face in no object
    std::uint32_t material = unnamed; ///< into SensorField::names
};

/// A column of a table of sensors that nothing is calculated from: their names, for instance.
struct GivenColumn {
    std::string name;                ///< as in the table's header
    std::vector<std::string> values; ///< by sensor
};

/// Where radiation is asked for: a position and a unit normal each, and the polygon of the cell
/// that the sensor stands for.
struct SensorField {
    std::vector<Vector3> positions; ///< already moved off the face by the offset
    std::vector<Vector3> normals;   ///< unit vectors, or zero vectors for points without a surface
    /// Corners of all cells, one after the other; empty for sensors without cells.
    std::vector<Vector3> corners;
    /// cellStart[i]..cellStart[i + 1] are the corners of sensor i's cell; size() + 1 entries, or
    /// empty for sensors without cells.
    std::vector<std::uint32_t> cellStart;
    /// What each sensor stands for [m2], where that is known without a cell; empty otherwise.
    std::vector<float> areas;
    /// By sensor; empty for sensors that were not cut from a mesh.
    std::vector<CellOrigin> origins;
    /// What the origins point into: the names of the sensor mesh, used by a cell or not.
    std::vector<std::string> names;
    /// What else the table of the sensors held; results have it beside their own columns.
    std::vector<GivenColumn> given;
    [[nodiscard]] std::size_t size() const { return positions.size(); }
    [[nodiscard]] bool hasCells() const { return !cellStart.empty(); }
};

} // namespace insolate::study
