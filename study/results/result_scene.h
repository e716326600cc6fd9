/// The surroundings of earlier results, from the models that they were calculated with.
#pragma once

#include "study/export.h"
#include "study/model/mesh.h"
#include "study/model/scene.h"
#include "study/results/result_folder.h"

#include <stop_token>
#include <string>
#include <vector>

namespace insolate::study {

struct ResultScene {
    Scene scene; ///< the triangles of the meshes' faces, in their order
    std::vector<Mesh> meshes;
    /// Why the scene is empty: "city.obj: no longer there", "city.obj: has changed since"; empty
    /// when it is the scene of the results.
    std::string problem;
};

/// Reads the models again where they are found, from the results' folder or as the study named
/// them, and are still those of the study. Without them the scene is empty, which is no error: a
/// picture of the cells alone says much.
/// @throws Stopped
INSOLATE_STUDY_EXPORT ResultScene loadResultScene(const ResultFolder& results,
                                                  const std::stop_token& stop = {});

/// A hash of all triangles as 32 hexadecimal digits: equal ones come from the same models, read in
/// the same way.
INSOLATE_STUDY_EXPORT std::string sceneFingerprint(const Scene& scene);

} // namespace insolate::study
