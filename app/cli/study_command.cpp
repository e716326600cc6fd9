#include "app/cli/arguments.h"
#include "app/cli/commands.h"
#include "app/terminal/reports.h"
#include "app/terminal/standard_output.h"
#include "study/run/study_batch.h"
#include "study/support/errors.h"
#include "study/support/readable.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>

namespace insolate::app {

namespace {

struct StudyArguments {
    std::string file;
    std::string progress;
    bool quiet = false;
};

CLI::App* addPart(CLI::App& command, const std::string& name, const std::string& help,
                  StudyArguments& arguments) {
    CLI::App* part = command.add_subcommand(name, help);
    part->add_option("FILE", arguments.file, "Study file (TOML)")->required();
    part->add_flag("--quiet", arguments.quiet, "Say nothing but warnings and errors");
    addProgressOption(*part, arguments.progress);
    return part;
}

} // namespace

void addStudyCommand(CLI::App& app, Interruption& interruption) {
    CLI::App* command = app.add_subcommand("study", "Run or check a study file.");
    command->require_subcommand(1);
    auto arguments = std::make_shared<StudyArguments>();
    addPart(*command, "run", "Run all analyses of the file over its scene, which is read once.",
            *arguments)
        ->callback([arguments, &interruption] {
            const std::vector<study::StudyTask> tasks =
                study::readStudyTasks(arguments->file, interruption.token());
            const bool quiet =
                arguments->quiet || std::ranges::any_of(tasks, &study::StudyTask::quiet);
            const auto progress = progressOf(arguments->progress, quiet, interruption);
            study::runStudyTasks(
                tasks, *progress,
                [](const std::string& name, const study::StudyEstimate& estimate) {
                    printResult((name.empty() ? "" : name + "\n") + estimate.text());
                },
                interruption.token());
        });
    addPart(*command, "check",
            "Check the file without a calculation: keys and values, weather, scene and sensors.\n"
            "Prints what is wrong, a line each, and fails then.",
            *arguments)
        ->callback([arguments, &interruption] {
            const auto progress = progressOf(arguments->progress, arguments->quiet, interruption);
            const std::vector<std::string> faults =
                study::checkStudyFile(arguments->file, *progress, interruption.token());
            for (const std::string& fault : faults) {
                printResult(fault + "\n");
            }
            if (!faults.empty()) {
                throw study::DataError(fmt::format(
                    "{}: {} {}; correct what is printed above", study::place(arguments->file),
                    faults.size(), study::counted(faults.size(), "fault", "faults")));
            }
            printResult(fmt::format("{}: in order\n", study::place(arguments->file)));
        });
}

} // namespace insolate::app
