/// Model files in: OBJ in full double precision, the other formats of model_formats.h as assimp
/// reads them, in a process of its own.
#pragma once

#include "study/export.h"

#include "study/model/mesh.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <string_view>

namespace insolate::study {

enum class LengthUnit { millimetre, centimetre, metre, foot, inch };
enum class UpAxis { y, z };

struct NamedUnit {
    LengthUnit unit;
    const char* name; ///< "mm"
    double metres;    ///< in one unit
};

/// All units, from the shortest metric one on.
INSOLATE_STUDY_EXPORT std::span<const NamedUnit> lengthUnits();

/// Their names: "mm, cm, m, ft, in".
INSOLATE_STUDY_EXPORT std::string lengthUnitNames();

/// The unit of that name; nothing when there is none.
INSOLATE_STUDY_EXPORT std::optional<LengthUnit> lengthUnitNamed(std::string_view name);

/// "mm", "cm", "m", "ft" or "in".
INSOLATE_STUDY_EXPORT const char* unitName(LengthUnit unit);

/// Metres in one unit.
INSOLATE_STUDY_EXPORT double metresIn(LengthUnit unit);

/// What a model of a format that assimp reads may cost before it is refused.
struct ImportLimits {
    double seconds = 0.0;
    std::uint64_t bytes = 0; ///< of memory
};

/// Far above what sound files of the size take, so that only a hostile or damaged one meets them.
ImportLimits defaultImportLimits(std::uintmax_t fileBytes);

struct MeshImportOptions {
    LengthUnit unit = LengthUnit::metre;
    /// The axis that points up in the file. Absent: defaultUpAxis().
    std::optional<UpAxis> up = {};
    std::string lod = {}; ///< of a CityJSON model, "" for the highest (cityjson_reader.h)
    std::optional<ImportLimits> limits = {}; ///< absent: the default ones
    /// The program insolate-import. Empty: what INSOLATE_IMPORT names in the environment, else the
    /// one beside this library or the program, or in their libexec.
    std::filesystem::path importProgram = {};
};

/// The up axis that holds for a file when the user says nothing: by the rule of its format or,
/// where the format leaves it to each file, as this one says.
INSOLATE_STUDY_EXPORT UpAxis defaultUpAxis(const std::filesystem::path& file);

/// Which formats have which axis up, for users: "y for glTF, what the file says for Collada, ...".
INSOLATE_STUDY_EXPORT std::string upAxisText();

/// A point of a file in metres, z up. A y-up model is turned so that its -Z becomes +Y.
INSOLATE_STUDY_EXPORT Vector3 toModelAxes(const Vector3& point, double scale, UpAxis up);

/// Reads a model: node transforms applied, names kept, lines and points left out.
/// @throws DataError when it cannot be opened or read, has no faces, holds coordinates that are not
///         finite numbers, or takes more time or memory than the limits; Stopped
INSOLATE_STUDY_EXPORT Mesh importMesh(const std::filesystem::path& file,
                                      const MeshImportOptions& options,
                                      const std::stop_token& stop = {});

/// Whether the file is a city model, in which MeshImportOptions::lod has a meaning; false for one
/// that cannot be read.
INSOLATE_STUDY_EXPORT bool hasLevelsOfDetail(const std::filesystem::path& file);

/// Faces whose corners lie in one point or one line, as happens where coordinates are too coarse.
std::size_t countFacesWithoutArea(const Mesh& mesh);

/// What a person should know of the precision that the file kept, "" when it is fine.
INSOLATE_STUDY_EXPORT std::string precisionText(const Mesh& mesh,
                                                const std::filesystem::path& file);

/// The last part of the import: metres, z up, every coordinate checked.
Mesh placedMesh(Mesh mesh, const std::filesystem::path& file, const MeshImportOptions& options);

/// Reads Wavefront OBJ in double precision: map coordinates of some thousand kilometres keep their
/// millimetres. Coordinates as in the file.
Mesh readObj(const std::filesystem::path& file, const std::stop_token& stop = {});

} // namespace insolate::study
