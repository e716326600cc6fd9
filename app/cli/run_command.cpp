#include "app/cli/commands.h"
#include "app/cli/table_arguments.h"
#include "app/terminal/progress.h"
#include "study/run/run_option_table.h"
#include "study/run/run_study.h"

#include <memory>

namespace insolate::app {

namespace {

struct RunArguments {
    study::RunOptions options;
    bool quiet = false;
    study::OptionTable table;
};

} // namespace

void addRunCommand(CLI::App& app, Interruption& interruption) {
    CLI::App* command = app.add_subcommand(
        "run", "Calculate the solar radiation on sensors of a model.\n"
               "Writes sensors.csv, groups.csv, sensors.vtp (ParaView), heatmap.png and "
               "summary.json.");
    auto run = std::make_shared<RunArguments>();
    study::addRunOptions(run->table, run->options);
    run->table.flag("quiet", run->quiet, "Say nothing but warnings and errors");
    auto arguments = std::make_shared<TableArguments>(*command, run->table);
    command->callback([run, arguments, &interruption] {
        arguments->run(interruption.token(), [&] {
            TerminalProgress progress(stderr, TerminalProgress::styleOf(stderr, run->quiet),
                                      &interruption);
            study::runStudy(run->options, progress, interruption.token());
        });
    });
}

} // namespace insolate::app
