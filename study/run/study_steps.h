/// The steps of a study: prepare -> calculate; writing and reporting follow in run_study.cpp.
#pragma once

#include "study/results/result_column.h"
#include "study/results/sensor_series.h"
#include "study/run/mask_source.h"
#include "study/run/partial_results.h"
#include "study/run/radiation_method.h"
#include "study/run/run_options.h"
#include "study/run/sky_visibility_store.h"
#include "study/run/stopwatch.h"
#include "study/run/study_inputs.h"
#include "study/support/progress.h"

#include <cstddef>
#include <memory>
#include <stop_token>
#include <string>
#include <vector>

namespace insolate::study {

/// A study whose files are read and whose rays can be cast.
struct PreparedStudy {
    RunOptions options;
    std::unique_ptr<RadiationMethod> method; ///< with weather and sky
    StudyInputs inputs;
    std::unique_ptr<Recentring> recentring;
    VisibilityKey visibility;
    std::unique_ptr<SkyVisibilityStore> stored; ///< masks of an earlier run, where asked for
    std::unique_ptr<MaskSource> masks;
    Stopwatch watch;

    [[nodiscard]] SensorWork work(SkyVisibilityStore* saved = nullptr) const {
        return {inputs.field, *recentring, *masks, saved};
    }
};

/// What came out, by sensor.
struct StudyResults {
    std::vector<ResultColumn> columns; ///< the method's, the one to look at first
    std::vector<float> areas;          ///< of the cells [m2]; empty for sensors without cells
    std::size_t enclosed = 0;          ///< sensors that look into closed geometry
    SkyVisibilityStore seen;           ///< what each sensor sees, where it is to be saved
    std::vector<SensorSeries> series;  ///< hours of the sensors that were asked for
    std::vector<std::string> warnings; ///< that were given on the way
};

/// Reads weather and models, builds the sky and the index of the rays.
/// @throws Error
PreparedStudy prepareStudy(const RunOptions& options, Progress& progress,
                           const std::stop_token& stop = {});

/// Calculates all sensors.
/// @param kept as for calculateSensors()
/// @throws Stopped
StudyResults calculateStudy(PreparedStudy& study, PartialResults* kept, Progress& progress,
                            const std::stop_token& stop = {});

} // namespace insolate::study
