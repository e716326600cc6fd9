/// The steps of a study: prepare -> calculate; writing and reporting follow in run_study.cpp.
#pragma once

#include "study/files/output_folder.h"
#include "study/results/hour_rows.h"
#include "study/results/result_column.h"
#include "study/results/sensor_groups.h"
#include "study/run/mask_source.h"
#include "study/run/partial_results.h"
#include "study/run/radiation_method.h"
#include "study/run/run_options.h"
#include "study/run/sky_visibility_store.h"
#include "study/run/stopwatch.h"
#include "study/run/study_estimate.h"
#include "study/run/study_inputs.h"
#include "study/support/progress.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
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
    std::vector<MaterialUse> materials; ///< of the scene; empty where surfaces have none
    /// On the sensors, once they are calculated.
    std::shared_ptr<const ReflectedSensors> reflected;
    bool mayAskHours = true;    ///< of single sensors or all, after they are calculated
    bool mayBeFollowed = false; ///< by a study of a changed scene: calculateStudySince()
    Stopwatch watch;

    [[nodiscard]] SensorWork work(SkyVisibilityStore* saved = nullptr) const {
        return {inputs.field, *recentring, *masks, saved, reflected.get()};
    }
};

/// What came out, by sensor.
struct StudyResults {
    std::vector<ResultColumn> columns; ///< the method's, the one to look at first
    /// The same before light that surfaces reflect was added, for a study that follows; else empty.
    std::vector<ResultColumn> direct;
    std::vector<float> areas;         ///< of the cells [m2]; empty for sensors without cells
    std::vector<SensorGroups> groups; ///< by each of the groupings asked for
    /// By sensor: 1 when it looks into closed geometry.
    std::vector<float> enclosed;
    std::size_t enclosedCount = 0;
    /// By sensor: 0 leaves it out of means and colours; empty: all count.
    std::vector<std::uint8_t> included;
    SkyVisibilityStore seen;           ///< what each sensor sees, where it is to be saved
    std::vector<HourRow> hours;        ///< of the sensors or groups that were asked for
    std::vector<std::string> warnings; ///< that were given on the way
};

/// Reads weather and models as far as they are not given, builds the sky and the index of the rays.
/// @param options that checkRunOptions() takes
/// @param earlier a study whose sky is taken where it is the same, or null
/// @throws Error
PreparedStudy prepareStudy(const RunOptions& options, GivenInputs given, Progress& progress,
                           const std::stop_token& stop = {},
                           const PreparedStudy* earlier = nullptr);

/// What the rest of the study would take: by calculating a few of its sensors, and by the memory
/// that the process has used.
/// @throws Stopped
StudyEstimate estimateStudy(PreparedStudy& study, const std::stop_token& stop = {});

/// The whole study as runStudy() does it.
/// @param shared inputs of a study before with the same options of the model, where there is one;
///        left there for the next
void runStudy(const RunOptions& options, Progress& progress, const std::stop_token& stop,
              std::optional<StudyInputs>& shared);

/// Calculates all sensors.
/// @param kept as for calculateSensors()
/// @throws Stopped
StudyResults calculateStudy(PreparedStudy& study, PartialResults* kept, Progress& progress,
                            const std::stop_token& stop = {});

/// Adds what surfaces reflect to the columns of the sun, sky and ground, where they reflect.
/// @throws Stopped
void addReflected(PreparedStudy& study, StudyResults& results, Progress& progress,
                  const std::stop_token& stop);

/// What follows from the columns.
void completeResults(PreparedStudy& study, StudyResults& results, Progress& progress,
                     const std::stop_token& stop);

/// Calculates all sensors, with the sun, sky and ground of those that a change of the scene cannot
/// touch taken from an earlier study: the same bytes. What surfaces reflect is found anew for all.
/// Where the studies differ in more than scene and sensors, all sensors are calculated, and a note
/// says so.
StudyResults calculateStudySince(PreparedStudy& study, const PreparedStudy& earlier,
                                 const StudyResults& known, Progress& progress,
                                 const std::stop_token& stop = {});

/// How groups are made of the results, but for the best areas; holds as long as the results.
GroupingOptions groupingOf(const PreparedStudy& study, const StudyResults& results);

/// The inputs, which the results must not replace.
std::vector<std::filesystem::path> filesRead(const RunOptions& options);

/// Reports what a person should know of the results.
void reportResults(const PreparedStudy& study, const StudyResults& results, Progress& progress);

} // namespace insolate::study
