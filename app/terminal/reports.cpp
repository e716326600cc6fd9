#include "app/terminal/reports.h"

#include "app/terminal/json_progress.h"
#include "app/terminal/progress.h"

#include <cstdio>

namespace insolate::app {

void addProgressOption(CLI::App& command, std::string& value) {
    value = "text";
    command
        .add_option("--progress", value,
                    "How the work reports on standard error: text, or json for programs, an object "
                    "a line")
        ->check(CLI::IsMember({"text", "json"}))
        ->type_name("NAME")
        ->capture_default_str();
}

std::unique_ptr<study::Progress> progressOf(const std::string& value, bool quiet,
                                            Interruption& interruption) {
    if (value == "json") {
        return std::make_unique<JsonProgress>(stderr, quiet, &interruption);
    }
    return std::make_unique<TerminalProgress>(stderr, TerminalProgress::styleOf(stderr, quiet),
                                              &interruption);
}

} // namespace insolate::app
