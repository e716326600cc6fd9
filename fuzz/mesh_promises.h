/// What holds of every mesh that the readers let through, and of what is made from it.
#pragma once

#include "memory_file.h"

#include "study/model/mesh_import.h"
#include "study/model/selection.h"
#include "study/model/sensor_grid.h"
#include "study/support/errors.h"

#include <cmath>

namespace insolate::fuzz {

inline bool isUsable(const study::Vector3& p) {
    return std::abs(p.x) < 1.0e13 && std::abs(p.y) < 1.0e13 && std::abs(p.z) < 1.0e13;
}

/// Refuses the mesh with a DataError as the import does, or keeps the promises.
inline void checkMesh(study::Mesh raw, study::UpAxis up) {
    const study::Mesh mesh =
        study::placedMesh(std::move(raw), "input", {.unit = study::LengthUnit::foot, .up = up});
    for (const study::Mesh::Face& face : mesh.faces) {
        require(face.cornerCount >= 3 &&
                    face.firstCorner + std::size_t{face.cornerCount} <= mesh.corners.size(),
                "faces have corners");
        for (const std::uint32_t corner : mesh.cornersOf(face)) {
            require(corner < mesh.vertices.size(), "corners are vertices");
        }
        for (const std::uint32_t name : {face.object, face.group, face.material}) {
            require(name == study::Mesh::unnamed || name < mesh.names.size(), "names are known");
        }
    }
    study::Scene scene;
    study::appendTriangles(mesh, scene);
    require(scene.triangleCount() == mesh.corners.size() - 2 * mesh.faces.size(),
            "a polygon gives its corner count less two triangles");
    const auto faces = study::selectFaces(mesh, {}, 0.0, "input").faces;
    const study::SensorGridOptions grid{.spacing = 5.0};
    if (const double estimate = study::estimatedSensorCount(mesh, faces, grid); estimate < 2.0e4) {
        const study::SensorGrid cut = study::cutIntoSensors(mesh, faces, grid);
        const auto count = static_cast<double>(cut.field.size());
        require(count < 3.0 * estimate + 3.0 && estimate < 3.0 * count + 3.0,
                "the estimate is of the right size");
        for (std::size_t i = 0; i < cut.field.size(); ++i) {
            require(isUsable(cut.field.positions[i]), "sensors have a place");
            require(std::abs(study::length(cut.field.normals[i]) - 1.0) < 1.0e-6,
                    "sensors have a normal");
        }
    }
}

} // namespace insolate::fuzz
