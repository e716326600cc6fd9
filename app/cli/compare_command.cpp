#include "app/cli/commands.h"
#include "app/cli/table_arguments.h"
#include "study/run/run_compare.h"

#include <filesystem>
#include <memory>

namespace insolate::app {

namespace {

struct CompareArguments {
    std::filesystem::path a, b; ///< given by their places
    study::CompareRunOptions options;
    study::OptionTable table;
};

} // namespace

void addCompareCommand(CLI::App& app, Interruption& interruption) {
    CLI::App* command = app.add_subcommand(
        "compare", "Say what differs between the results of two studies: B less A.\n"
                   "Writes sensors.csv, sensors.vtp (ParaView), groups.csv, heatmap.png and "
                   "summary.json.");
    auto compare = std::make_shared<CompareArguments>();
    command->add_option("A", compare->a, "Folder of results, as they were")->required();
    command->add_option("B", compare->b, "Folder of results, as they are now")->required();
    study::addCompareOptions(compare->table, compare->options);
    auto arguments = std::make_shared<TableArguments>(
        *command, compare->table,
        [compare, usual = compare->options] { compare->options = usual; });
    command->callback([compare, arguments, &interruption] {
        arguments->run(interruption, [&](study::StudyBatch& batch, const std::string&) {
            compare->options.a = compare->a;
            compare->options.b = compare->b;
            batch.run(compare->options);
        });
    });
}

} // namespace insolate::app
