/// What made a result, as it stands in summaries, subtitles and on the screen.
#pragma once

#include "study/run/run_options.h"
#include "study/run/study_inputs.h"
#include "study/support/progress.h"
#include "study/weather/weather_check.h"

#include <filesystem>
#include <string>

#include <nlohmann/json_fwd.hpp>

namespace insolate::study {

/// Versions, weather, site, period and method.
nlohmann::ordered_json studyRecord(const SkyOptions& options, const WeatherReport& weather);

/// Adds the scene, with what it takes to read it again, and the sensors.
/// @param out where the record will lie: the models' places are also said from there
void describeModel(nlohmann::ordered_json& record, const ModelOptions& options,
                   const StudyInputs& inputs, const std::filesystem::path& out);

/// The record of a study with its scene and sensors.
nlohmann::ordered_json runRecord(const RunOptions& options, const WeatherReport& weather,
                                 const StudyInputs& inputs);

/// One line for pictures: site; period; method; version.
std::string studySubtitle(const SkyOptions& options, const WeatherReport& weather);

/// Names the site, the method and the period on the screen and warns of what is odd in the file.
void reportStudy(const SkyOptions& options, const WeatherReport& weather, Progress& progress);

} // namespace insolate::study
