/// Where the numbers of a city model stand in the world, and whether they are metres.
#pragma once

#include "study/model/cityjson_document.h"
#include "study/model/mesh.h"

#include <filesystem>

namespace insolate::study::cityjson {

/// From the whole numbers of the vertices to metres.
struct CityTransform {
    Vector3 scale{1.0, 1.0, 1.0};
    Vector3 translate;

    [[nodiscard]] Vector3 operator()(const Vector3& p) const {
        return {p.x * scale.x + translate.x, p.y * scale.y + translate.y,
                p.z * scale.z + translate.z};
    }
};

/// The transform of a file's first document.
/// @throws DataError when it is not CityJSON of a version that is read, has no transform where one
///         must be, or names a reference system in degrees
CityTransform readHead(const Json& city, const CityDocuments& source);

/// Refuses degrees without a reference system: places on the globe, some hundred thousandths apart.
/// @throws DataError
void requireMetres(const Mesh& mesh, const std::filesystem::path& file);

} // namespace insolate::study::cityjson
