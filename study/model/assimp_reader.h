/// A model as assimp holds it, turned into a mesh.
#pragma once

#include "study/model/mesh.h"

#include <filesystem>

struct aiScene;

namespace insolate::study {

/// Places every part by the nodes that name it. Nothing about the scene is taken for granted.
/// @param file what a message names as the origin
/// @throws DataError when a face names a vertex that is not there
Mesh meshFromAssimp(const aiScene& scene, const std::filesystem::path& file);

} // namespace insolate::study
