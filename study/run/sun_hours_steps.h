/// What `insolate sunhours` shares with studies of several analyses and with baselines.
#pragma once

#include "study/run/sun_hours_study.h"

#include <optional>
#include <stop_token>

#include <nlohmann/json_fwd.hpp>

namespace insolate::study {

/// Site, sun and rule as they stand in summary.json: all that minutes of sun and their verdict
/// depend on, beside model and sensors.
nlohmann::ordered_json sunRecord(const SunHoursStudy& study);

/// The whole as runSunHours() does it.
/// @param shared as for the runStudy() of study_steps.h
void runSunHours(const SunHoursOptions& options, Progress& progress, const std::stop_token& stop,
                 std::optional<StudyInputs>& shared);

} // namespace insolate::study
