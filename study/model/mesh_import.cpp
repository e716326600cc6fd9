#include "study/model/mesh_import.h"

#include "study/files/input_file.h"
#include "study/model/cityjson_reader.h"
#include "study/support/errors.h"
#include "study/support/file_name.h"

#include <cmath>
#include <fstream>
#include <system_error>

#include <fmt/format.h>

namespace insolate::study {

double metresIn(LengthUnit unit) {
    switch (unit) {
    case LengthUnit::millimetre:
        return 0.001;
    case LengthUnit::centimetre:
        return 0.01;
    case LengthUnit::metre:
        break;
    case LengthUnit::foot:
        return 0.3048;
    case LengthUnit::inch:
        return 0.0254;
    }
    return 1.0;
}

UpAxis defaultUpAxis(const std::filesystem::path& file) {
    return hasExtension(file, {".gltf", ".glb", ".dae"}) ? UpAxis::y : UpAxis::z;
}

Vector3 toModelAxes(const Vector3& point, double scale, UpAxis up) {
    if (up == UpAxis::y) {
        return {point.x * scale, -point.z * scale, point.y * scale};
    }
    return {point.x * scale, point.y * scale, point.z * scale};
}

Mesh importMesh(const std::filesystem::path& file, const MeshImportOptions& options) {
    std::error_code ignored;
    if (!std::filesystem::exists(file, ignored)) {
        throw DataError(fmt::format("{}: no such file; check the name of the model", place(file)));
    }
    if (!std::filesystem::is_regular_file(file, ignored) || !std::ifstream(file)) {
        throw DataError(
            fmt::format("{}: cannot be read; give a model file that you may open", place(file)));
    }
    openInput(file, "model"); // tells what no importer does
    if (isCityJson(file)) {
        return placedMesh(readCityJson(file, options.lod), file, options);
    }
    return placedMesh(hasExtension(file, {".obj"}) ? readObj(file) : readWithAssimp(file), file,
                      options);
}

Mesh placedMesh(Mesh mesh, const std::filesystem::path& file, const MeshImportOptions& options) {
    if (mesh.faces.empty()) {
        throw DataError(fmt::format(
            "{}: the model has no faces; export it with surfaces, not only lines or points, "
            "or whole if the file is cut off",
            place(file)));
    }
    const double scale = metresIn(options.unit);
    const UpAxis up = options.up.value_or(defaultUpAxis(file));
    // Beyond this single precision would not hold even a recentred model.
    constexpr double farthest = 1.0e12;
    for (std::size_t i = 0; i < mesh.vertices.size(); ++i) {
        const Vector3& v = mesh.vertices[i];
        if (!(std::abs(v.x) < farthest && std::abs(v.y) < farthest && std::abs(v.z) < farthest)) {
            throw DataError(fmt::format("{}: vertex {} is at ({}, {}, {}), which is not a usable "
                                        "place; mend the model and export it again",
                                        place(file), i + 1, v.x, v.y, v.z));
        }
        mesh.vertices[i] = toModelAxes(v, scale, up);
    }
    return mesh;
}

} // namespace insolate::study
