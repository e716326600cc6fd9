#include "app/cli/commands.h"
#include "app/cli/table_arguments.h"
#include "app/terminal/standard_output.h"
#include "study/run/run_option_table.h"

#include <memory>

namespace insolate::app {

namespace {

struct RunArguments {
    study::RunOptions options;
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
    auto arguments = std::make_shared<TableArguments>(
        *command, run->table, [run, usual = run->options] { run->options = usual; });
    command->callback([run, arguments, &interruption] {
        arguments->run(interruption, [&](study::StudyBatch& batch, const std::string& analysis) {
            if (run->options.dryRun) {
                printResult(batch.estimate(run->options).text());
                return;
            }
            run->options.out = study::folderOf(run->options.out, analysis);
            batch.run(run->options);
        });
    });
}

} // namespace insolate::app
