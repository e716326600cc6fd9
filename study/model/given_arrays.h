/// Models and sensors from a host's arrays, checked as those of files are.
#pragma once

#include "study/export.h"
#include "study/model/mesh.h"
#include "study/model/mesh_import.h"
#include "study/model/scene.h"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace insolate::study {

/// A model's polygons. Arrays that are left empty name nothing.
struct MeshArrays {
    std::span<const double> coordinates;         ///< x, y, z of each vertex [the model's unit]
    std::span<const std::uint32_t> corners;      ///< of all faces, one after the other
    std::span<const std::uint32_t> cornerCounts; ///< by face, 3 or more
    std::span<const std::int32_t> objects;       ///< by face, into names; -1 for none
    std::span<const std::int32_t> materials;     ///< the same
    std::span<const std::int32_t> groups = {};   ///< the same
    std::vector<std::string> names;
};

/// @param name stands for the file in messages
/// @param options unit and up axis; z is up when they say nothing
/// @throws DataError when a coordinate is no finite number, or an index points beyond its array
INSOLATE_STUDY_EXPORT Mesh meshFromArrays(const MeshArrays& arrays, const std::string& name,
                                          const MeshImportOptions& options = {});

/// @param positions x, y, z of each sensor [m], z up
/// @param normals of any length, or empty for points without a surface
/// @param areas what each sensor stands for [m2], or empty
/// @param name stands for the file in messages, which count the sensors from 0
/// @throws DataError when a number cannot be used, a normal is zero, or the arrays differ in length
INSOLATE_STUDY_EXPORT SensorField sensorsFromArrays(std::span<const double> positions,
                                                    std::span<const double> normals,
                                                    std::span<const double> areas,
                                                    const std::string& name);

} // namespace insolate::study
