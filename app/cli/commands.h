/// The subcommands and their options. Each function adds one; its work runs while the arguments are
/// parsed, and its errors come out of the parsing.
#pragma once

#include "app/terminal/interrupt.h"

#include <CLI/CLI.hpp>

namespace insolate::app {

void addCompareCommand(CLI::App& app, Interruption& interruption);
void addPictureCommand(CLI::App& app, Interruption& interruption);
void addRunCommand(CLI::App& app, Interruption& interruption);
void addSkyCommand(CLI::App& app, Interruption& interruption);
void addModelCommand(CLI::App& app, Interruption& interruption);
void addStudyCommand(CLI::App& app, Interruption& interruption);
void addSunCommand(CLI::App& app);
void addSunHoursCommand(CLI::App& app, Interruption& interruption);
void addViewCommand(CLI::App& app, Interruption& interruption);
void addWeatherCommand(CLI::App& app, Interruption& interruption);

} // namespace insolate::app
