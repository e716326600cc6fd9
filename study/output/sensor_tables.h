/// The sensors and their results as tables for other programs: CSV and ParaView's XML PolyData.
#pragma once

#include "study/export.h"

#include "study/files/output_folder.h"
#include "study/model/scene.h"
#include "study/results/result_column.h"

#include <span>
#include <string_view>

namespace insolate::study {

/// One header line, then one line per sensor: x, y, z [m], nx, ny, nz, then the columns, whose
/// names carry their unit ("total [Wh/m2]"). Numbers are the shortest text that reads back as the
/// same value; lines end with LF.
INSOLATE_STUDY_EXPORT void writeSensorsCsv(OutputFile& out, const SensorField& field,
                     std::span<const ResultColumn> columns);

/// XML PolyData, raw appended, 64-bit sizes: the cells as polygons (vertices for sensors without
/// cells) with the columns as cell data, the first one active, and the normals.
/// @param provenance which weather, period, method and version made it; kept as field data
INSOLATE_STUDY_EXPORT void writeSensorsVtp(OutputFile& out, const SensorField& field,
                     std::span<const ResultColumn> columns, std::string_view provenance = {});

} // namespace insolate::study
