/// How a subcommand reports: for people or for programs.
#pragma once

#include "app/terminal/interrupt.h"
#include "study/support/progress.h"

#include <CLI/CLI.hpp>

#include <memory>
#include <string>

namespace insolate::app {

/// Adds --progress, which chooses between text and JSON.
void addProgressOption(CLI::App& command, std::string& value);

/// The reports on standard error that --progress and --quiet ask for.
std::unique_ptr<study::Progress> progressOf(const std::string& value, bool quiet,
                                            Interruption& interruption);

} // namespace insolate::app
