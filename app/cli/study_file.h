/// Options from a study file.
#pragma once

#include "study/support/errors.h"

#include <CLI/CLI.hpp>

#include <filesystem>
#include <map>
#include <string>

namespace insolate::app {

/// The options that a study file has given, "--grid", each with its place, "FILE:LINE".
using StudyKeys = std::map<std::string, std::string>;

/// Gives the command every key of the TOML file as the option of the same name, unless the command
/// line has given it. File names are relative to the study file's folder.
/// @throws DataError with file and line when the file cannot be read or a key or value is wrong
StudyKeys applyStudyFile(CLI::App& command, const std::filesystem::path& file);

/// Throws the error again: with the place of the option that it begins with, when a study file has
/// given that one.
[[noreturn]] void failInStudy(const StudyKeys& keys, const study::UsageError& error);

/// Does the work with the options that the study file, if there is one, has completed.
template <typename Work>
void withStudyFile(CLI::App& command, const std::string& study, Work&& work) {
    const StudyKeys keys = study.empty() ? StudyKeys() : applyStudyFile(command, study);
    try {
        work();
    } catch (const study::UsageError& error) {
        failInStudy(keys, error);
    }
}

} // namespace insolate::app
