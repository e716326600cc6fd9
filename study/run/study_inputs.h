/// Scene and sensors of a study, read from its files.
#pragma once

#include "study/model/scene.h"
#include "study/run/run_options.h"
#include "study/support/progress.h"

#include <stop_token>

namespace insolate::study {

struct StudyInputs {
    Scene scene;
    SensorField field;
    double offset = 0.0; ///< of the sensors from their faces [m]; 0 for those of a table
};

/// Reads the models and cuts or reads the sensors. Refuses what the machine cannot hold before
/// memory is taken, unless the options force it.
/// @throws DataError, UsageError, Stopped
StudyInputs readInputs(const ModelOptions& options, Progress& progress,
                       const std::stop_token& stop);

} // namespace insolate::study
