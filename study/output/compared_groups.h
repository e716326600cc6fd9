/// groups.csv of a comparison: what an object, a material or an orientation gets in both studies.
#pragma once

#include "study/files/output_folder.h"
#include "study/results/result_column.h"
#include "study/results/sensor_groups.h"

#include <span>

namespace insolate::study {

/// A line for each group that one of the studies has, with the sensors and areas of both, then of
/// each quantity the means by area, their difference, B less A, and B in percent of A; of the first
/// quantity, where it is an energy, the sums in MWh, too. What a study has not is left empty. All
/// cells of each study count, with or without a partner.
/// @param a, b the same groupings of both
/// @param columns of the groups' values, the same in both
/// @throws OutputError
void writeComparedGroupsCsv(OutputFile& out, std::span<const SensorGroups> a,
                            std::span<const SensorGroups> b, std::span<const ResultColumn> columns);

} // namespace insolate::study
