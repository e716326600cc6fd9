#include "app/cli/command_line.h"

#include "app/cli/arguments.h"
#include "app/cli/commands.h"
#include "app/terminal/interrupt.h"
#include "app/terminal/json_progress.h"
#include "app/terminal/standard_output.h"
#include "study/support/errors.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <new>
#include <span>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>

#include <fmt/format.h>
#include <insolate/insolate.h>

namespace insolate::app {

using namespace study;

namespace {

/// Exit codes that a script can act on; a stop by signal N gives 128 + N.
constexpr int exitData = 1;
constexpr int exitUsage = 2;

/// Whether the arguments ask for reports as JSON, however wrong the rest of them is.
bool asksForJson(std::span<const char* const> arguments) {
    for (std::size_t i = 1; i < arguments.size(); ++i) {
        const std::string_view one = arguments[i];
        if (one == "--progress=json" || (one == "--progress" && i + 1 < arguments.size() &&
                                         std::string_view(arguments[i + 1]) == "json")) {
            return true;
        }
    }
    return false;
}

} // namespace

int runCommandLine(int argc, const char* const* argv) {
    const bool asJson = asksForJson(std::span(argv, static_cast<std::size_t>(std::max(argc, 0))));
    const auto errorLine = [asJson](int exitCode, const std::string& message) {
        return asJson ? errorAsJson(message, exitCode)
                      : fmt::format("insolate: error: {}\n", message);
    };
    // After half a bar, perhaps. Which analyses of a study file have their results is not known
    // here.
    Interruption interruption([=](int exitCode) {
        return (asJson ? "" : "\n") +
               errorLine(exitCode, "stopped at once; no result is half written");
    });
    const auto report = [&](int exitCode, const std::string& message) {
        // Where standard error is closed or full, the exit code must do.
        std::fputs(errorLine(exitCode, message).c_str(), stderr);
        return exitCode;
    };
    CLI::App app("Solar radiation on the surfaces of a model, with shade and incidence.",
                 "insolate");
    app.set_version_flag("--version", std::string("insolate ") + INSOLATE_VERSION);
    app.require_subcommand(1);
    addRunCommand(app, interruption);
    addSkyCommand(app, interruption);
    addCompareCommand(app, interruption);
    addModelCommand(app, interruption);
    addPictureCommand(app, interruption);
    addStudyCommand(app, interruption);
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
    } catch (const std::filesystem::filesystem_error& error) {
        std::error_code isGone;
        if (std::filesystem::current_path(isGone).empty()) {
            return report(exitData, "the working folder is no longer there; change to one that is");
        }
        return report(exitData, fmt::format("{}: {}; choose another name", place(error.path1()),
                                            error.code().message()));
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
