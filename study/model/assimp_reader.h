/// Models as assimp reads them, in the process that calls: insolate-import's, or a test's.
#pragma once

#include "study/model/mesh.h"

#include <filesystem>

struct aiScene;

namespace insolate::study {

/// Reads a model of one of the formats in model_formats.h. Coordinates are single precision, as in
/// the file. What else the model names is opened in its own folder and below only.
/// @param descriptor the open model, a regular file; the name says its format and folder
/// @throws DataError when it cannot be read; std::bad_alloc
Mesh readWithAssimp(const std::filesystem::path& file, int descriptor);

/// Places every part by the nodes that name it. Nothing about the scene is taken for granted.
/// @param file what a message names as the origin
/// @throws DataError when a face names a vertex that is not there
Mesh meshFromAssimp(const aiScene& scene, const std::filesystem::path& file);

} // namespace insolate::study
