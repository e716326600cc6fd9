/// groups.csv: what the sensors of an object, a material, an orientation or a slope get.
#pragma once

#include "study/export.h"
#include "study/files/output_folder.h"
#include "study/results/result_column.h"
#include "study/results/sensor_groups.h"

#include <filesystem>
#include <span>
#include <string_view>

namespace insolate::study {

/// A line for each group of each grouping: the grouping, the group's object, material, orientation
/// and tilt, sensors and area, then
/// - of the first column its sum over the area (Wh/m2 become MWh) and its mean, least and greatest
///   value;
/// - of `peak` the greatest value and, from `peak_hour`, the beginning of its hour;
/// - of every other column its mean. Energies are in kWh/m2;
/// - of `unshaded` also the share that the first column has of it;
/// - the areas that reach the thresholds, and the best area.
/// @param columns those of the groups' values
/// @param thresholds, bestArea as the groups were made with
/// @param timeZone of the site, hours from UTC
/// @throws OutputError
INSOLATE_STUDY_EXPORT void writeGroupsCsv(OutputFile& out, std::span<const SensorGroups> groupings,
                                          std::span<const ResultColumn> columns, double timeZone,
                                          std::span<const double> thresholds = {},
                                          double bestArea = 0.0);

/// What the table of groups of `insolate sunhours` begins with.
inline constexpr std::string_view sunGroupHeadings = "group,sensors,";

/// Whether the file begins as such a table, of radiation or of hours of sun.
INSOLATE_STUDY_EXPORT bool isOurGroupsCsv(const std::filesystem::path& file);

} // namespace insolate::study
