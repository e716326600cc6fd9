#include "study/results/result_scene.h"

#include "study/support/errors.h"

#include <system_error>
#include <utility>

#include <fmt/format.h>
#include <xxhash.h>

namespace insolate::study {

namespace {

/// The file where it is now; empty when it is gone.
std::filesystem::path currentPlace(const ResultFolder& results, std::size_t i) {
    std::error_code problem;
    const ResultModel& model = results.model;
    if (i < model.filesFromFolder.size()) {
        std::filesystem::path file = (results.folder / model.filesFromFolder[i]).lexically_normal();
        if (std::filesystem::is_regular_file(file, problem)) {
            return file;
        }
    }
    return std::filesystem::is_regular_file(model.files[i], problem) ? model.files[i]
                                                                     : std::filesystem::path();
}

} // namespace

ResultScene loadResultScene(const ResultFolder& results, const std::stop_token& stop) {
    const ResultModel& model = results.model;
    ResultScene loaded;
    const auto without = [](std::string problem) {
        ResultScene empty;
        empty.problem = std::move(problem);
        return empty;
    };
    if (model.files.empty()) {
        return without(
            fmt::format("{}: does not say of which model", place(results.folder / "summary.json")));
    }
    for (std::size_t i = 0; i < model.files.size(); ++i) {
        const std::filesystem::path file = currentPlace(results, i);
        if (file.empty()) {
            return without(fmt::format("{}: no longer there", place(model.files[i])));
        }
        try {
            Mesh mesh = importMesh(file, model.readings[i].import, stop);
            orientFaces(mesh, model.readings[i].orient, stop);
            appendTriangles(mesh, loaded.scene);
            loaded.meshes.push_back(std::move(mesh));
        } catch (const DataError& error) {
            return without(error.what());
        }
    }
    const bool isSame = model.fingerprint.empty()
                            ? loaded.scene.triangleCount() == model.triangles
                            : sceneFingerprint(loaded.scene) == model.fingerprint;
    if (!isSame) {
        return without(fmt::format("{}: has changed since", place(model.files.front())));
    }
    return loaded;
}

std::string sceneFingerprint(const Scene& scene) {
    const XXH128_hash_t hash =
        XXH3_128bits(scene.vertices.data(), scene.vertices.size() * sizeof(Vector3));
    return fmt::format("{:016x}{:016x}", hash.high64, hash.low64);
}

} // namespace insolate::study
