#include "app/cli/commands.h"
#include "app/cli/table_arguments.h"
#include "app/terminal/progress.h"
#include "study/run/run_compare.h"

#include <memory>

namespace insolate::app {

namespace {

struct CompareArguments {
    study::CompareRunOptions options;
    bool quiet = false;
    study::OptionTable table;
};

} // namespace

void addCompareCommand(CLI::App& app, Interruption& interruption) {
    CLI::App* command = app.add_subcommand(
        "compare", "Say what differs between the results of two studies: B less A.\n"
                   "Writes sensors.csv, sensors.vtp (ParaView), groups.csv, heatmap.png and "
                   "summary.json.");
    auto compare = std::make_shared<CompareArguments>();
    command->add_option("A", compare->options.a, "Folder of results, as they were")->required();
    command->add_option("B", compare->options.b, "Folder of results, as they are now")->required();
    study::addCompareOptions(compare->table, compare->options);
    compare->table.flag("quiet", compare->quiet, "Say nothing but warnings and errors");
    auto arguments = std::make_shared<TableArguments>(*command, compare->table);
    command->callback([compare, arguments, &interruption] {
        arguments->run(interruption.token(), [&] {
            TerminalProgress progress(stderr, TerminalProgress::styleOf(stderr, compare->quiet),
                                      &interruption);
            study::runCompare(compare->options, progress, interruption.token());
        });
    });
}

} // namespace insolate::app
