#include "app/cli/arguments.h"
#include "app/cli/commands.h"
#include "app/terminal/reports.h"
#include "study/run/view_results.h"

#include <memory>
#include <string>
#include <vector>

namespace insolate::app {

void addViewCommand(CLI::App& app, Interruption& interruption) {
    CLI::App* command = app.add_subcommand(
        "view", "Make a page of results: one HTML file that every browser opens.\n"
                "Several folders are compared on it, side by side and as differences.");
    struct Arguments {
        std::vector<std::string> folders;
        std::string out;
        double limit = study::ViewOptions().limit;
        bool quiet = false;
        std::string progress;
    };
    auto arguments = std::make_shared<Arguments>();
    command
        ->add_option("FOLDER", arguments->folders,
                     "What insolate run, sunhours or compare has left")
        ->required();
    command
        ->add_option("--out", arguments->out,
                     "The page to write: .html; page.html in the first folder when absent")
        ->check(fileNameCheck())
        ->type_name("FILE");
    command
        ->add_option("--page-limit", arguments->limit,
                     "What the page may weigh; beyond it values lose digits and columns are left "
                     "out")
        ->check(numberCheck("MB above 0"))
        ->type_name("MB")
        ->capture_default_str();
    command->add_flag("--quiet", arguments->quiet, "Say nothing but warnings and errors");
    addProgressOption(*command, arguments->progress);
    command->callback([arguments, &interruption] {
        study::ViewOptions options;
        options.folders.assign(arguments->folders.begin(), arguments->folders.end());
        if (!arguments->out.empty()) {
            options.out = arguments->out;
        }
        options.limit = arguments->limit;
        const auto progress = progressOf(arguments->progress, arguments->quiet, interruption);
        study::viewResults(options, *progress, interruption.token());
    });
}

} // namespace insolate::app
