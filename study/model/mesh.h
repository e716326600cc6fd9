/// A model as it was read: polygons with the names of what they belong to.
#pragma once

#include "study/export.h"

#include "study/model/scene.h"

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

namespace insolate::study {

/// Polygons over shared vertices, in metres, z up.
struct INSOLATE_STUDY_EXPORT Mesh {
    static constexpr std::uint32_t unnamed = CellOrigin::unnamed;

    struct Face {
        std::uint32_t firstCorner = 0;    ///< into corners
        std::uint32_t cornerCount = 0;    ///< 3 or more
        std::uint32_t object = unnamed;   ///< into names
        std::uint32_t group = unnamed;    ///< into names
        std::uint32_t material = unnamed; ///< into names
    };

    std::vector<Vector3> vertices;
    std::vector<std::uint32_t> corners; ///< into vertices
    std::vector<Face> faces;
    std::vector<std::string> names; ///< of objects, groups and materials, each once
    std::vector<std::string> notes; ///< what a person should know of how the file was read
    /// From one coordinate to the next that the file could hold where its parts stand [m]; 0 for
    /// formats in double precision. Map coordinates of 5,000 km have steps of half a metre.
    double coordinateStep = 0.0;

    [[nodiscard]] std::span<const std::uint32_t> cornersOf(const Face& face) const {
        return {corners.data() + face.firstCorner, face.cornerCount};
    }
    /// The places of the face's corners; the vector holds them and may be used again.
    std::span<const Vector3> polygonOf(const Face& face, std::vector<Vector3>& polygon) const;
    /// The index of the name in names, appended when it is new; empty text is unnamed.
    std::uint32_t nameIndex(const std::string& name);

private:
    std::unordered_map<std::string, std::uint32_t> m_nameIndices;
};

inline Vector3 operator+(const Vector3& a, const Vector3& b) {
    return {a.x + b.x, a.y + b.y, a.z + b.z};
}
inline Vector3 operator-(const Vector3& a, const Vector3& b) {
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}
inline Vector3 operator*(const Vector3& a, double factor) {
    return {a.x * factor, a.y * factor, a.z * factor};
}
/// Whether the place is one: no infinity, no NaN.
inline bool isFinite(const Vector3& v) {
    return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}
INSOLATE_STUDY_EXPORT double dot(const Vector3& a, const Vector3& b);
INSOLATE_STUDY_EXPORT Vector3 cross(const Vector3& a, const Vector3& b);
INSOLATE_STUDY_EXPORT double length(const Vector3& a);

/// Twice the polygon's area along its normal (Newell's sum: right for concave and slightly warped
/// polygons); the zero vector for a degenerate one, of which twice the area is below the smallest
/// normal float.
INSOLATE_STUDY_EXPORT Vector3 areaVector(std::span<const Vector3> polygon);

/// Splits a simple polygon into triangles by cutting ears; corner numbers, three per triangle.
/// A polygon that winds into itself still gives its corner count less two triangles.
INSOLATE_STUDY_EXPORT std::vector<std::array<std::uint32_t, 3>>
triangulate(std::span<const Vector3> polygon);

/// Appends the mesh's triangles to the scene.
INSOLATE_STUDY_EXPORT void appendTriangles(const Mesh& mesh, Scene& scene);

} // namespace insolate::study
