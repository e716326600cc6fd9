/// Geometries that stand once in a city model and are placed many times.
#pragma once

#include "study/model/cityjson_document.h"

#include <array>
#include <string>
#include <vector>

namespace insolate::study::cityjson {

/// Moves template coordinates to their place.
struct TemplatePlacement {
    std::array<double, 12> matrix = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0};
    Vector3 at;

    [[nodiscard]] Vector3 operator()(const Vector3& p) const {
        const auto row = [&](std::size_t i) {
            return matrix[i] * p.x + matrix[i + 1] * p.y + matrix[i + 2] * p.z + matrix[i + 3];
        };
        return Vector3{row(0), row(4), row(8)} + at;
    }
    [[nodiscard]] bool mirrors() const {
        const Vector3 x{matrix[0], matrix[1], matrix[2]};
        const Vector3 y{matrix[4], matrix[5], matrix[6]};
        const Vector3 z{matrix[8], matrix[9], matrix[10]};
        return dot(x, cross(y, z)) < 0.0;
    }
};

/// @param at the place in the world
/// @param object that the instance belongs to, for messages
/// @throws DataError when the matrix is none
TemplatePlacement placementOf(const Json& instance, const Vector3& at, const CityDocuments& source,
                              const std::string& object);

class CityTemplates {
public:
    /// @throws DataError when a vertex is none
    void read(const Json& templates, const CityDocuments& source);

    /// The geometry itself, or the template that it is an instance of.
    [[nodiscard]] const Json& surfacesOf(const Json& geometry) const;
    [[nodiscard]] const std::vector<Vector3>& vertices() const { return m_vertices; }

private:
    Json m_templates = Json::array();
    std::vector<Vector3> m_vertices;
};

} // namespace insolate::study::cityjson
