/// What sensors see of the sky and of the ground, whatever the weather.
#pragma once

#include "study/export.h"
#include "study/results/result_column.h"
#include "study/run/study_inputs.h"
#include "study/support/progress.h"

#include <stop_token>
#include <vector>

namespace insolate::study {

/// The columns sky_view and ground_view [%]: cosine-weighted shares of what lies before a sensor.
/// By the rays of the hourly method, two for each cell of the sky; those of a run with weather
/// stand where its sun does, so that its columns may differ by tenths of a percent.
/// @param north from the model's +Y clockwise to true north [degrees]
/// @param threads 0: all processors
/// @throws Stopped
INSOLATE_STUDY_EXPORT std::vector<ResultColumn> skyViews(const StudyInputs& inputs, double north,
                                                         int threads, Progress& progress,
                                                         const std::stop_token& stop = {});

} // namespace insolate::study
