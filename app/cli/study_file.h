/// Options from a study file.
#pragma once

#include <CLI/CLI.hpp>

#include <filesystem>

namespace insolate::app {

/// Gives the command every key of the TOML file as the option of the same name, unless the command
/// line has given it. File names are relative to the study file's folder.
/// @throws DataError with file and line when the file cannot be read or a key or value is wrong
void applyStudyFile(CLI::App& command, const std::filesystem::path& file);

} // namespace insolate::app
