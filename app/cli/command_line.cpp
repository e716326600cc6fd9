#include "app/cli/command_line.h"

#include "app/cli/arguments.h"
#include "app/cli/commands.h"
#include "app/terminal/interrupt.h"
#include "app/terminal/standard_output.h"
#include "study/support/errors.h"

#include <cstdio>
#include <exception>
#include <new>
#include <sstream>
#include <string>

#include <fmt/format.h>
#include <insolate/insolate.h>

namespace insolate::app {

using namespace study;

namespace {

/// Exit codes that a script can act on; a stop by signal N gives 128 + N.
constexpr int exitData = 1;
constexpr int exitUsage = 2;

int report(int exitCode, std::string_view message) {
    // Where standard error is closed or full, the exit code must do.
    std::fputs(fmt::format("insolate: error: {}\n", message).c_str(), stderr);
    return exitCode;
}

} // namespace

int runCommandLine(int argc, const char* const* argv) {
    Interruption interruption;
    CLI::App app("Solar radiation on the surfaces of a model, with shade and incidence.",
                 "insolate");
    app.set_version_flag("--version", std::string("insolate ") + INSOLATE_VERSION);
    app.require_subcommand(1);
    addRunCommand(app, interruption);
    addSkyCommand(app, interruption);
    addModelCommand(app, interruption);
    addSunCommand(app);
    addSunHoursCommand(app, interruption);
    addViewCommand(app, interruption);
    addWeatherCommand(app, interruption);
    try {
        app.parse(argc, argv);
        return 0;
    } catch (const CLI::Success& wanted) {
        std::ostringstream text; // help or version
        const int exitCode = app.exit(wanted, text, text);
        try {
            printResult(text.str());
        } catch (const DataError& error) {
            return report(exitData, error.what());
        }
        return exitCode;
    } catch (const CLI::ParseError& error) {
        const CLI::App* command = &app;
        while (!command->get_subcommands().empty()) {
            command = command->get_subcommands().front();
        }
        return report(exitUsage, parseFailure(*command, error));
    } catch (const Stopped& error) {
        return report(128 + interruption.signal(), error.what());
    } catch (const UsageError& error) {
        return report(exitUsage, error.what());
    } catch (const Error& error) {
        return report(exitData, error.what());
    } catch (const std::bad_alloc&) {
        return report(exitData, "not enough memory; choose a larger --grid, a smaller model or a "
                                "machine with more memory");
    } catch (const std::exception& error) {
        return report(exitData, fmt::format("unexpected: {}; please report this with the command "
                                            "that caused it",
                                            printable(error.what())));
    }
}

} // namespace insolate::app
