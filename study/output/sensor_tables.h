/// The sensors and their results as tables for other programs: CSV and ParaView's XML PolyData.
#pragma once

#include "study/export.h"

#include "study/files/output_folder.h"
#include "study/model/scene.h"
#include "study/results/label_column.h"
#include "study/results/result_column.h"

#include <filesystem>
#include <span>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace insolate::study {

/// One header line, then one line per sensor: x, y, z [m], nx, ny, nz, then the columns, whose
/// names carry their unit ("total [Wh/m2]"), then the field's given columns under the names of
/// namesOfGiven() or, for cells of a mesh, the face's number from 0 and the names of its object and
/// material. Numbers are the shortest text that reads
/// back as the same value; lines end with LF.
/// @param labels further texts, behind the columns that they explain
/// @throws OutputError, and Stopped soon after the token asks to stop, as all writers here
INSOLATE_STUDY_EXPORT void writeSensorsCsv(OutputFile& out, const SensorField& field,
                                           std::span<const ResultColumn> columns,
                                           std::span<const LabelColumn> labels = {},
                                           const std::stop_token& stop = {});

/// What the field's given columns are called in sensors.csv: as in their table, but "NAME of the
/// table" where the name, whatever the unit behind it, is one that sensors.csv has for results,
/// places and parts of the model, or stands there twice. So no reader takes one for a result.
INSOLATE_STUDY_EXPORT std::vector<std::string> namesOfGiven(const SensorField& field,
                                                            std::span<const ResultColumn> columns,
                                                            std::span<const LabelColumn> labels);
/// Says which of them are called otherwise; empty when none is.
INSOLATE_STUDY_EXPORT std::string renamedText(const SensorField& field,
                                              std::span<const ResultColumn> columns,
                                              std::span<const LabelColumn> labels = {});

/// XML PolyData, raw appended, 64-bit sizes: the cells as polygons (vertices for sensors without
/// cells) with the columns as cell data, the first one active, and the normals. Cells of a mesh
/// have the face's number and, as numbers into the texts of the field data object_names and
/// material_names, what they belong to; -1 stands for nothing.
/// @param provenance which weather, period, method and version made it; kept as field data
INSOLATE_STUDY_EXPORT void writeSensorsVtp(OutputFile& out, const SensorField& field,
                                           std::span<const ResultColumn> columns,
                                           std::string_view provenance = {},
                                           const std::stop_token& stop = {});

/// By the first line of the table: our coordinates and at least one result with its unit.
INSOLATE_STUDY_EXPORT bool isOurSensorsCsv(const std::filesystem::path& file);
/// By the field data "made_by".
INSOLATE_STUDY_EXPORT bool isOurSensorsVtp(const std::filesystem::path& file);

} // namespace insolate::study
