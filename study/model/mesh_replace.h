/// Designs that change: one object of a model in another's place.
#pragma once

#include "study/export.h"
#include "study/model/mesh.h"

#include <string>

namespace insolate::study {

/// The mesh with the faces of another one in the place of an object's: behind all others, with the
/// object's name, and with materials of their own. Vertices that no face has any more are left out.
/// @param source what a message names as the origin of the mesh
/// @throws DataError when there is no such object, with the nearest name
INSOLATE_STUDY_EXPORT Mesh replaceObject(const Mesh& mesh, const std::string& object,
                                         const Mesh& by, const std::string& source);

} // namespace insolate::study
