/// Sensors from a table of points.
#pragma once

#include "study/export.h"

#include "study/model/mesh_import.h"
#include "study/model/scene.h"

#include <filesystem>
#include <stop_token>

namespace insolate::study {

/// Reads x,y,z or x,y,z,nx,ny,nz per line, in the unit and axes of the model; every line has as
/// many fields as the first. A first line without any number is a header; empty lines and lines
/// that begin with # are passed over. Normals need not have unit length.
/// The table may come through a pipe.
/// @throws DataError with file and line on anything else; Stopped
INSOLATE_STUDY_EXPORT SensorField readSensorCsv(const std::filesystem::path& file, LengthUnit unit,
                                                UpAxis up, const std::stop_token& stop = {});

} // namespace insolate::study
