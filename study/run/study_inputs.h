/// Scene and sensors of a study, read from its files or given by a host that has them.
#pragma once

#include "study/export.h"

#include "study/model/mesh.h"
#include "study/model/recentring.h"
#include "study/model/scene.h"
#include "study/run/run_options.h"
#include "study/support/progress.h"
#include "study/weather/weather_year.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <stop_token>
#include <string_view>
#include <vector>

namespace insolate::study {

struct StudyInputs {
    Scene scene;
    SensorField field;
    /// Of the sensors from their faces [m]; absent for those that were not cut from faces.
    std::optional<double> offset = {};
    std::optional<double> spacing = {}; ///< largest edge of a cell [m]; absent for those of a table
};

/// What a host has already, in the place of files. What is left out is read from the files that the
/// options name; their names stand in records and messages in either case.
struct GivenInputs {
    std::shared_ptr<const WeatherYear> weather = {}; ///< for the hourly method
    std::optional<StudyInputs> models = {};          ///< scene and sensors, both or none
    /// Where the origin of rays is; absent: in the middle of scene and sensors.
    std::optional<Recentring> recentring = {};
};

/// The options that choose or cut the faces of a sensor model, which have no meaning for sensors of
/// a plane or a table; none where the sensors come from a model.
/// @param sensors as given to --sensors
INSOLATE_STUDY_EXPORT std::vector<std::string_view>
optionsWithoutMeaning(const std::filesystem::path& sensors);

/// Reads a model as a study does: with its notes reported and its faces turned as the options say.
/// Refuses what the machine cannot hold before memory is taken, unless the options force it.
/// @throws DataError, UsageError, Stopped
INSOLATE_STUDY_EXPORT Mesh readModel(const std::filesystem::path& file, const ModelOptions& options,
                                     Progress& progress, const std::stop_token& stop = {});

/// Reports what a person should know of a model, and turns its faces as the options say.
/// @throws Stopped
INSOLATE_STUDY_EXPORT void orientModel(Mesh& mesh, const std::filesystem::path& file,
                                       const ModelOptions& options, Progress& progress,
                                       const std::stop_token& stop = {});

/// Adds the sensors that the options ask for to the scene in the inputs: cut from a plane or from
/// the faces of a model, or read from a table.
/// @param mesh the sensors' model where it is read already
/// @throws DataError, UsageError, Stopped
INSOLATE_STUDY_EXPORT void addSensors(StudyInputs& inputs, std::optional<Mesh> mesh,
                                      const ModelOptions& options, Progress& progress,
                                      const std::stop_token& stop = {});

/// Reads the models and adds the sensors.
/// @throws DataError, UsageError, Stopped
StudyInputs readInputs(const ModelOptions& options, Progress& progress,
                       const std::stop_token& stop);

} // namespace insolate::study
