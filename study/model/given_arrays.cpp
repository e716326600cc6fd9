#include "study/model/given_arrays.h"

#include "study/support/errors.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace insolate::study {

namespace {

constexpr double largestCoordinate = 1.0e12; // as of tables

void requireEqual(std::size_t given, std::size_t wanted, const std::string& name,
                  const char* what) {
    if (given != 0 && given != wanted) {
        throw DataError(
            fmt::format("{}: {} {} for {}; give one for each", name, given, what, wanted));
    }
}

/// The place in the mesh's names of a face's name, as the arrays have it.
std::uint32_t nameOf(const MeshArrays& arrays, std::span<const std::int32_t> indices,
                     std::size_t face, Mesh& mesh, const std::string& name) {
    if (indices.empty() || indices[face] == -1) {
        return Mesh::unnamed;
    }
    const std::int32_t index = indices[face];
    if (index < 0 || static_cast<std::size_t>(index) >= arrays.names.size()) {
        throw DataError(fmt::format("{}: face {} has name {}, but there are {} names", name, face,
                                    index, arrays.names.size()));
    }
    return mesh.nameIndex(arrays.names[static_cast<std::size_t>(index)]);
}

Vector3 pointOf(std::span<const double> numbers, std::size_t index) {
    return {numbers[3 * index], numbers[3 * index + 1], numbers[3 * index + 2]};
}

} // namespace

Mesh meshFromArrays(const MeshArrays& arrays, const std::string& name,
                    const MeshImportOptions& options) {
    const std::size_t faces = arrays.cornerCounts.size();
    requireEqual(arrays.objects.size(), faces, name, "objects");
    requireEqual(arrays.materials.size(), faces, name, "materials");
    requireEqual(arrays.groups.size(), faces, name, "groups");
    Mesh mesh;
    const std::size_t vertices = arrays.coordinates.size() / 3;
    const double scale = metresIn(options.unit);
    mesh.vertices.reserve(vertices);
    for (std::size_t i = 0; i < vertices; ++i) {
        const Vector3 place =
            toModelAxes(pointOf(arrays.coordinates, i), scale, options.up.value_or(UpAxis::z));
        if (!isFinite(place)) {
            throw DataError(fmt::format("{}: vertex {} has a coordinate that is no finite number; "
                                        "correct it",
                                        name, i));
        }
        mesh.vertices.push_back(place);
    }
    std::size_t first = 0;
    mesh.corners.assign(arrays.corners.begin(), arrays.corners.end());
    mesh.faces.reserve(faces);
    for (std::size_t i = 0; i < faces; ++i) {
        const std::uint32_t count = arrays.cornerCounts[i];
        if (count < 3 || count > mesh.corners.size() - first) {
            throw DataError(fmt::format("{}: face {} has {} corners; give 3 or more for each, and "
                                        "as many as there are",
                                        name, i, count));
        }
        for (std::size_t corner = first; corner < first + count; ++corner) {
            if (mesh.corners[corner] >= vertices) {
                throw DataError(fmt::format("{}: face {} names vertex {}, but they are numbered "
                                            "from 0 to {}",
                                            name, i, mesh.corners[corner], vertices - 1));
            }
        }
        Mesh::Face face;
        face.firstCorner = static_cast<std::uint32_t>(first);
        face.cornerCount = count;
        face.object = nameOf(arrays, arrays.objects, i, mesh, name);
        face.material = nameOf(arrays, arrays.materials, i, mesh, name);
        face.group = nameOf(arrays, arrays.groups, i, mesh, name);
        mesh.faces.push_back(face);
        first += count;
    }
    if (mesh.faces.empty()) {
        throw DataError(fmt::format("{}: the model has no faces; give some", name));
    }
    return mesh;
}

SensorField sensorsFromArrays(std::span<const double> positions, std::span<const double> normals,
                              std::span<const double> areas, const std::string& name) {
    const std::size_t count = positions.size() / 3;
    requireEqual(normals.size() / 3, count, name, "normals");
    requireEqual(areas.size(), count, name, "areas");
    if (count == 0) {
        throw DataError(fmt::format("{}: there are no sensors; give some", name));
    }
    SensorField field;
    field.positions.reserve(count);
    field.normals.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        const Vector3 place = pointOf(positions, i);
        const auto isUsable = [](double number) { return std::abs(number) < largestCoordinate; };
        if (!isUsable(place.x) || !isUsable(place.y) || !isUsable(place.z)) {
            throw DataError(fmt::format("{}: sensor {} has a coordinate that is no usable number; "
                                        "correct it or leave the sensor out",
                                        name, i));
        }
        Vector3 normal;
        if (!normals.empty()) {
            normal = pointOf(normals, i);
            const double size = length(normal);
            if (!(size > 1.0e-9 && size < largestCoordinate)) {
                throw DataError(fmt::format("{}: the normal of sensor {} is no direction; give "
                                            "the one in which the sensor faces, or leave all "
                                            "normals out",
                                            name, i));
            }
            normal = normal * (1.0 / size);
        }
        field.positions.push_back(place);
        field.normals.push_back(normal);
        if (!areas.empty()) {
            if (!(areas[i] >= 0.0 && isUsable(areas[i]))) {
                throw DataError(
                    fmt::format("{}: the area of sensor {} is {}; give m2", name, i, areas[i]));
            }
            field.areas.push_back(static_cast<float>(areas[i]));
        }
    }
    return field;
}

} // namespace insolate::study
