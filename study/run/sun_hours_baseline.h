/// The results of an earlier run that a later one is measured by.
#pragma once

#include "study/model/scene.h"

#include <filesystem>
#include <stop_token>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace insolate::study {

struct Baseline {
    std::vector<double> values; ///< of the first column: minutes of sun, or percent of the year
    std::vector<double> winter; ///< percent; of years of probable sun
    std::vector<bool> passes;
};

/// Refuses a baseline that answers another question: its summary.json must have the same site,
/// north, year, dates, window and way of counting.
/// @param record of this study, as sunRecord() gives it, and scene/north_deg
/// @throws DataError that names the first difference
void requireSameSun(const std::filesystem::path& folder, const nlohmann::ordered_json& record);

/// Reads FOLDER/sensors.csv of an earlier run.
/// @param probable whether it must hold shares of the year's probable sun
/// @throws Stopped; DataError with file and line when it is no such table or has other sensors
Baseline readBaseline(const std::filesystem::path& folder, const SensorField& field, bool probable,
                      const std::stop_token& stop = {});

} // namespace insolate::study
