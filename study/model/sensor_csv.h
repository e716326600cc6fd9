/// Sensors from a table of points.
#pragma once

#include "study/export.h"

#include "study/model/mesh_import.h"
#include "study/model/scene.h"

#include <filesystem>
#include <stop_token>

namespace insolate::study {

/// Reads a table of points in the unit and axes of the model.
///
/// With a header its columns stand in any order: x, y and z, which must be there, and nx, ny, nz,
/// all of them or none, in capital or small letters; all others go into SensorField::given. A unit
/// behind the name of a coordinate, "x [ft]", holds for that column in the place of `unit`. Without
/// a header the order is x,y,z or x,y,z,nx,ny,nz. The header is the first line, if it names one of
/// the coordinates or has no number.
///
/// Fields are separated by semicolons, commas, tabs or blanks, and may stand in double quotes;
/// every line has as many as the first. Empty lines and lines that begin with # are passed over.
/// Normals need not have unit length.
/// The table may come through a pipe.
/// @throws DataError with file and line on anything else; Stopped
INSOLATE_STUDY_EXPORT SensorField readSensorCsv(const std::filesystem::path& file, LengthUnit unit,
                                                UpAxis up, const std::stop_token& stop = {});

} // namespace insolate::study
