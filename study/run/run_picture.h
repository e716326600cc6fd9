/// `insolate picture`: earlier results drawn once more, as a question needs them.
#pragma once

#include "study/export.h"
#include "study/output/picture_view.h"
#include "study/results/result_folder.h"
#include "study/results/result_scene.h"
#include "study/run/option_table.h"
#include "study/support/progress.h"

#include <filesystem>
#include <optional>
#include <stop_token>
#include <string>
#include <utility>
#include <vector>

namespace insolate::study {

struct PictureRunOptions {
    std::filesystem::path folder; ///< of results
    std::string value;            ///< a quantity by its name in sensors.csv; empty: the first
    std::optional<PictureView> view;
    std::vector<std::string> only = {}; ///< patterns as of FaceSelection: cells to colour
    std::vector<std::string> hide = {}; ///< patterns: what is not drawn at all
    /// Ends of the colours, in the unit that the picture shows.
    std::optional<std::pair<double, double>> scale = {};
    std::string title = {}; ///< empty: the quantity's
    int width = 1600;       ///< pixels
    int height = 1000;
    std::filesystem::path file; ///< .png, .svg or .pdf; empty: picture.png in the folder
};

/// The options of the command behind its folder, bound to the values that they set.
INSOLATE_STUDY_EXPORT void addPictureOptions(OptionTable& table, PictureRunOptions& options);

/// Draws the picture, in the scene of the results where its models are still what they were.
/// @throws Error; no file is left then
INSOLATE_STUDY_EXPORT void runPicture(const PictureRunOptions& options, Progress& progress,
                                      const std::stop_token& stop = {});

/// The same of results in memory and their surroundings. The options' file must be given.
/// @throws Error; no file is left then
INSOLATE_STUDY_EXPORT void drawResults(const PictureRunOptions& options,
                                       const ResultFolder& results, const ResultScene& scene,
                                       Progress& progress, const std::stop_token& stop = {});

} // namespace insolate::study
