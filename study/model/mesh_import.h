/// Model files in: OBJ in full double precision, everything else as assimp reads it.
#pragma once

#include "study/export.h"

#include "study/model/mesh.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace insolate::study {

enum class LengthUnit { millimetre, centimetre, metre, foot, inch };
enum class UpAxis { y, z };

/// Metres in one unit.
INSOLATE_STUDY_EXPORT double metresIn(LengthUnit unit);

struct MeshImportOptions {
    LengthUnit unit = LengthUnit::metre;
    /// Absent: what the format says (glTF and Collada arrive y up), else z.
    std::optional<UpAxis> up;
    std::string lod; ///< level of detail of a CityJSON model, "" for the highest (cityjson_reader.h)
};

/// The up axis that holds for a file when the user says nothing.
INSOLATE_STUDY_EXPORT UpAxis defaultUpAxis(const std::filesystem::path& file);

/// A point of a file in metres, z up. A y-up model is turned so that its -Z becomes +Y.
INSOLATE_STUDY_EXPORT Vector3 toModelAxes(const Vector3& point, double scale, UpAxis up);

/// Reads a model: node transforms applied, names kept, lines and points left out.
/// @throws DataError when it cannot be opened or read, has no faces, or holds coordinates that are
///         not finite numbers
INSOLATE_STUDY_EXPORT Mesh importMesh(const std::filesystem::path& file,
                                      const MeshImportOptions& options);

/// The second half of the import: metres, z up, every coordinate checked.
Mesh placedMesh(Mesh mesh, const std::filesystem::path& file, const MeshImportOptions& options);

/// Reads Wavefront OBJ in double precision: map coordinates of some thousand kilometres keep their
/// millimetres. Coordinates as in the file.
Mesh readObj(const std::filesystem::path& file);

/// Reads any format that assimp knows. Its coordinates are single precision.
Mesh readWithAssimp(const std::filesystem::path& file);

} // namespace insolate::study
