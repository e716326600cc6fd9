/// Which faces of a model are meant: by name, by what they face, by their slope.
#pragma once

#include "study/export.h"

#include "study/model/mesh.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace insolate::study {

/// What a face looks at.
///
/// up and down: a tilt of at most 60 degrees, or of at least 120; steeper roofs are taken by
/// --tilt. A compass direction: the face looks there within 45 degrees in plan, whatever its tilt,
/// unless it is flat (within 10 degrees of level), so that "south" has the south side of a pitched
/// roof too.
enum class Facing { up, down, north, east, south, west };

/// Angles between a face and the level plane [degrees]: 0 lies flat and looks up, 90 is a wall, 180
/// looks straight down.
struct TiltRange {
    double least = 0.0;
    double most = 180.0; ///< included
};

/// The faces that fulfil all of it.
///
/// A pattern is a name, in which * stands for any text, or none: it takes the faces whose object,
/// group or material has such a name. "object:material" takes those whose object or group has the
/// one name and whose material has the other. A text that is no name as it stands may be several
/// patterns, separated by commas.
struct FaceSelection {
    std::vector<std::string> patterns = {}; ///< none: every face
    std::vector<std::string> exclude = {};  ///< patterns of faces that are left out
    std::vector<Facing> facing = {};        ///< any of them; none: whatever a face looks at
    std::optional<TiltRange> tilt = {};
};

struct PatternCount {
    std::string pattern;
    std::size_t faces = 0;
    double area = 0.0; ///< [m2]
};

struct SelectedFaces {
    std::vector<std::uint32_t> faces; ///< into the mesh, ascending
    double area = 0.0;                ///< [m2]
    /// What each pattern takes by itself, before anything is left out; a face may count with
    /// several.
    std::vector<PatternCount> taken;
    /// What each pattern of exclude takes out of them, likewise.
    std::vector<PatternCount> excluded;
    std::size_t turnedAway = 0; ///< faces then left out by facing or tilt
};

/// @param north from the model's +Y clockwise to true north [degrees]
/// @param source what a message names as the origin of the mesh
/// @throws DataError when a pattern matches nothing, with the nearest name or a list of those there
///         are, and when no face is left
INSOLATE_STUDY_EXPORT SelectedFaces selectFaces(const Mesh& mesh, const FaceSelection& selection,
                                                double north, const std::string& source);

/// Marks the faces that a pattern, or a list of them, takes.
/// @param option what a message names as where the pattern stands
/// @throws DataError beginning with `source` when one matches nothing, with the nearest name
INSOLATE_STUDY_EXPORT std::vector<bool> facesTaken(const Mesh& mesh, std::string_view pattern,
                                                   std::string_view option,
                                                   const std::string& source);

/// Angle between a face and the level plane by its normal of any length [degrees], 0 to 180.
INSOLATE_STUDY_EXPORT double tiltOf(const Vector3& normal);

/// Where a normal looks in plan, clockwise from true north [degrees]; not brought into one turn.
/// @param north from the model's +Y clockwise to true north [degrees]
INSOLATE_STUDY_EXPORT double azimuthOf(const Vector3& normal, double north);

/// "north", "north-northeast", "northeast" and so on, clockwise by sixteenths of a turn: 0..15.
INSOLATE_STUDY_EXPORT const char* compassName(int sixteenth);

/// "up", "down", "north", "east", "south" or "west".
INSOLATE_STUDY_EXPORT const char* facingName(Facing facing);

/// Such names, several separated by commas.
/// @throws UsageError
INSOLATE_STUDY_EXPORT std::vector<Facing> parseFacing(std::string_view text);

/// "0-30", or one angle with a degree to either side.
/// @throws UsageError
INSOLATE_STUDY_EXPORT TiltRange parseTiltRange(std::string_view text);

} // namespace insolate::study
