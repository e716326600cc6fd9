/// A guess at the unit that a model's lengths are in.
#pragma once

#include "study/export.h"
#include "study/model/mesh_import.h"
#include "study/model/scene.h"

#include <optional>

namespace insolate::study {

/// What the guess goes by, as the model was read [m].
struct ModelLengths {
    Vector3 extent;          ///< of the box around it
    double medianEdge = 0.0; ///< of its faces
    /// A tenth of its area or more stands upright, as in all models of buildings. Terrain and
    /// ground, which may have faces of any size, have none.
    bool hasWalls = false;
};

INSOLATE_STUDY_EXPORT ModelLengths lengthsOf(const Scene& scene);

/// The unit by which the lengths are those of buildings, cities or terrain: the one in which they
/// were read when that will do, nothing when none does.
INSOLATE_STUDY_EXPORT std::optional<LengthUnit> likelyUnit(LengthUnit asRead,
                                                           const ModelLengths& lengths);

} // namespace insolate::study
