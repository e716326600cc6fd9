/// Options from a study file (TOML): one key for each option, named as on the command line.
#pragma once

#include "study/export.h"

#include "study/run/option_table.h"

#include <filesystem>
#include <map>
#include <set>
#include <stop_token>
#include <string>

namespace insolate::study {

/// The options that a study file has given, "--grid", each with its place, "FILE:LINE".
using StudyKeys = std::map<std::string, std::string>;

/// Gives every key of the file to the option of the same name, unless it is given already: what is
/// said beside the study file wins. File names are relative to the study file's folder.
/// @param given names of options that have their values
/// @param help where the options are listed, "'insolate run --help'"
/// @throws DataError with file and line when the file cannot be read or a key or value is wrong;
///         Stopped
INSOLATE_STUDY_EXPORT StudyKeys applyStudyFile(const OptionTable& table,
                                               const std::filesystem::path& file,
                                               const std::set<std::string>& given,
                                               const std::string& help,
                                               const std::stop_token& stop = {});

/// Throws the error again: with the place of the option that it begins with, when a study file has
/// given that one.
[[noreturn]] INSOLATE_STUDY_EXPORT void failInStudy(const StudyKeys& keys, const UsageError& error);

} // namespace insolate::study
