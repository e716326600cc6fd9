/// What stands between the options of `insolate sunhours` and its files.
#pragma once

#include "study/export.h"
#include "study/results/result_column.h"
#include "study/results/result_folder.h"
#include "study/run/study_inputs.h"
#include "study/run/sun_hours.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace insolate::study {

/// What of a group satisfies the rule.
struct SunGroupResult {
    std::string name;
    std::size_t sensors = 0;
    std::size_t passing = 0;  ///< sensors
    double area = 0.0;        ///< [m2]; sensors without cells count as 1 m2 each
    double passingArea = 0.0; ///< [m2]
    double formerArea = 0.0;  ///< that passed in the baseline [m2]
    double least = 0.0;       ///< of the sensors' first column
    double greatest = 0.0;
    bool passes = true;
};

/// A span in which the sun shines on a sensor.
struct SensorSpan {
    std::size_t sensor = 0;
    std::size_t day = 0; ///< place in the rule's days
    TimeSpan time;       ///< minutes of the clock
};

struct SunHoursResults {
    /// The first is what decides: minutes of the deciding day, or a share of the year's probable
    /// sun.
    std::vector<ResultColumn> columns;
    std::vector<float> areas; ///< of the cells [m2]; empty for sensors without
    /// By sensor: 1 where neither sky nor ground lies before it, as inside of a body.
    std::vector<float> enclosed;
    std::size_t enclosedCount = 0;
    /// By sensor: 0 leaves it out of groups, verdict, means and colours; empty: all count. An
    /// enclosed sensor that passed in the baseline counts: what is built over it has taken its sun.
    std::vector<std::uint8_t> included;
    std::vector<SunGroupResult> groups; ///< those in which a sensor counts
    std::optional<bool> passes;         ///< nothing where the rule has no threshold
    /// Of all sensors, where the options ask for them: by sensor, day and time, in pieces.
    std::vector<std::vector<SensorSpan>> spans;
};

/// Everything that is known before the first sensor.
struct SunHoursStudy {
    SunHoursOptions options;
    SunlightRule rule;
    NamedSite site;
    StudyInputs inputs;
};

/// Checks the options and reads the models, unless they are given; their names stand in messages.
/// @throws Error
INSOLATE_STUDY_EXPORT SunHoursStudy prepareSunHours(const SunHoursOptions& options,
                                                    std::optional<StudyInputs> given,
                                                    Progress& progress,
                                                    const std::stop_token& stop = {});

/// Equal inputs give equal bytes for every number of threads.
/// @throws Stopped; DataError when the baseline does not fit
INSOLATE_STUDY_EXPORT SunHoursResults calculateSunHours(const SunHoursStudy& study,
                                                        Progress& progress,
                                                        const std::stop_token& stop = {});

/// Writes the files of `insolate sunhours` into the folder, which is made when it is missing.
/// @param warnings that were given on the way
/// @throws OutputError, Stopped; no file is left then
INSOLATE_STUDY_EXPORT void saveSunHours(const SunHoursStudy& study, const SunHoursResults& results,
                                        const std::vector<std::string>& warnings,
                                        const std::filesystem::path& out, Progress& progress,
                                        const std::stop_token& stop = {});

/// As what reads earlier results takes them: to draw them.
/// @param warnings that were given on the way
INSOLATE_STUDY_EXPORT ResultFolder sunHoursInMemory(const SunHoursStudy& study,
                                                    const SunHoursResults& results,
                                                    const std::vector<std::string>& warnings);

} // namespace insolate::study
