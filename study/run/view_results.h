/// `insolate view`: a page of results that earlier studies have left.
#pragma once

#include "study/export.h"
#include "study/model/scene.h"
#include "study/results/result_folder.h"
#include "study/support/progress.h"

#include <filesystem>
#include <optional>
#include <stop_token>
#include <vector>

namespace insolate::study {

struct ViewOptions {
    /// As `insolate run`, `sunhours` or `compare` left them; several are compared on the page.
    std::vector<std::filesystem::path> folders;
    std::optional<std::filesystem::path> out; ///< the page; absent: page.html in the first folder
    double limit = 25.0;                      ///< as PageOptions::limit [MB]
};

/// Reads the results, and the models where they are still there, and writes the page.
/// @throws Error; no file is left then
INSOLATE_STUDY_EXPORT void viewResults(const ViewOptions& options, Progress& progress,
                                       const std::stop_token& stop = {});

/// Writes the page of results in memory and their surroundings as that file; it bears the name of
/// its folder.
/// @param limit as PageOptions::limit [MB]
/// @throws OutputError, Stopped; no file is left then
INSOLATE_STUDY_EXPORT void saveResultsPage(const std::filesystem::path& file, ResultFolder results,
                                           const Scene& scene, double limit, Progress& progress,
                                           const std::stop_token& stop = {});

} // namespace insolate::study
