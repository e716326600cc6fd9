/// What is in a model: its parts, its size, its bodies, and what may be wrong with it.
#pragma once

#include "study/export.h"

#include "study/model/materials.h"
#include "study/model/mesh.h"
#include "study/model/mesh_import.h"

#include <cstddef>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace insolate::study {

/// The faces of one object, group or material.
struct PartInfo {
    std::string name; ///< "" for the faces that have none
    std::size_t faces = 0;
    double area = 0.0; ///< [m2]
    /// Mean of the unit normals, weighted by area: as long as 1 for one flat face, 0 for what looks
    /// to all sides, as a closed body does.
    Vector3 meanNormal;
};

struct ModelInfo {
    std::string source;                               ///< the file, as messages name it
    std::size_t faces = 0;                            ///< polygons
    std::size_t triangles = 0;                        ///< that rays meet
    std::size_t vertices = 0;                         ///< places of corners, each once
    double area = 0.0;                                ///< [m2]
    std::vector<PartInfo> objects, groups, materials; ///< those of the largest area first
    Vector3 low, high;                                ///< corners of the box around the faces [m]
    LengthUnit unit = LengthUnit::metre;              ///< in which the file was read
    /// The unit by which edges and extent are those of buildings or terrain: `unit` when that will
    /// do, nothing when none does.
    std::optional<LengthUnit> likelyUnit;
    /// Closed bodies by their winding (winding.h), and surfaces that are not closed.
    std::size_t outward = 0, inward = 0, mixed = 0, open = 0;
    std::size_t hollows = 0; ///< of the closed bodies: hollows of others
    double volume = 0.0;     ///< of the closed bodies, hollows taken off [m3]
    std::size_t facesWithoutArea = 0;
    std::size_t doubles = 0;    ///< faces with the corners of an earlier one
    std::size_t backToBack = 0; ///< of these: those that look the other way
    /// From one coordinate to the next that the file can hold where the model stands [m]; 0 for
    /// formats in double precision.
    double coordinateStep = 0.0;
    std::vector<std::string> notes; ///< of the reading of the file
    /// What the faces are taken for in the hourly method; filled by whoever knows the materials.
    std::vector<MaterialUse> uses;
};

/// @param unit in which the file was read
/// @throws Stopped
INSOLATE_STUDY_EXPORT ModelInfo modelInfo(const Mesh& mesh, const std::string& source,
                                          LengthUnit unit, const std::stop_token& stop = {});

/// A page for a person: the largest parts, and what may be wrong, with the option that helps.
/// @param north from the model's +Y clockwise to true north [degrees]
INSOLATE_STUDY_EXPORT std::string modelInfoText(const ModelInfo& info, double north);

/// The same as JSON, with all parts. Azimuths are clockwise from true north.
INSOLATE_STUDY_EXPORT std::string modelInfoJson(const ModelInfo& info, double north);

} // namespace insolate::study
