/// City models in: CityJSON 1.0, 1.1 and 2.0, and sequences of CityJSON features, by content.
///
/// Each face's object is the building (or bridge, or tunnel) that it belongs to, with all its parts
/// and installations; its group the CityObjectGroup that names it, or else the type of its city
/// object; its material the semantics of its surface, "RoofSurface".
#pragma once

#include "study/model/mesh.h"

#include <filesystem>
#include <stop_token>
#include <string>
#include <string_view>

namespace insolate::study {

/// How many bytes of a file isCityJson wants to see.
inline constexpr std::size_t cityJsonHead = 65536;

/// Whether a file that begins so is meant to be CityJSON.
bool isCityJson(std::string_view head);

/// Reads a city model in its own coordinates, which are metres; what was left out stands in the
/// mesh's notes.
///
/// Of several levels of detail each object has one: the highest, or the one asked for ("2" takes
/// the highest of 2.0 to 2.3), or where it is missing the next lower one, else the next higher. A
/// building and its parts are not both taken in different levels. Points, lines, closure surfaces,
/// rooms, furniture, storeys, and objects of unknown types are left out.
///
/// One document may have half a gigabyte; a sequence has no such bound, as it is read feature by
/// feature.
/// @param lod "" for the highest, else one or two numbers: "1", "2.2"
/// @throws UsageError when lod is no level; DataError with the place in the file when it is not
///         CityJSON of these versions, damaged, or in geographic degrees; Stopped
Mesh readCityJson(const std::filesystem::path& file, const std::string& lod,
                  const std::stop_token& stop = {});

} // namespace insolate::study
