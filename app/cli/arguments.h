/// Checks of single arguments, and what is said about arguments that cannot be read.
#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace insolate::app {

/// Takes decimal numbers, "nan" and "inf" among them: their range is for the options to check.
/// @param wanted what to give instead of something else, "degrees"
CLI::Validator numberCheck(const std::string& wanted);
/// Takes names that are not empty: a shell's unset variable is no wish for the default.
CLI::Validator fileNameCheck();
/// What is wrong with the arguments, and the fix.
/// @param command the one that was being parsed, or that the arguments are for
std::string parseFailure(const CLI::App& command, const CLI::ParseError& error);

/// The long names of the command's options, without dashes.
std::vector<std::string> optionNames(const CLI::App& command);

/// The command as it is called: "insolate weather info".
std::string callOf(const CLI::App& command);

} // namespace insolate::app
