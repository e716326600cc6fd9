/// The hours of single sensors as a table.
#pragma once

#include "study/files/output_folder.h"
#include "study/results/sensor_series.h"
#include "study/support/period.h"

#include <filesystem>
#include <span>

namespace insolate::study {

/// A line for each hour that touches the period, three columns for each sensor.
void writeSeriesCsv(OutputFile& out, const StudyPeriod& period,
                    std::span<const SensorSeries> series);

/// Whether the file begins as such a table does.
bool isOurSeriesCsv(const std::filesystem::path& file);

} // namespace insolate::study
