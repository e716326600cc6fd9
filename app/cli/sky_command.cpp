#include "app/cli/commands.h"
#include "app/cli/table_arguments.h"
#include "study/run/radiation_method.h"
#include "study/run/run_option_table.h"

#include <memory>

namespace insolate::app {

namespace {

struct SkyArguments {
    study::SkyOptions options;
    study::OptionTable table;
};

} // namespace

void addSkyCommand(CLI::App& app, Interruption& interruption) {
    CLI::App* command =
        app.add_subcommand("sky", "Spread the radiation of a period over the sky's 1,296 cells.\n"
                                  "Writes sky.csv, sky.png and sky.json.");
    auto sky = std::make_shared<SkyArguments>();
    study::addSkyOptions(sky->table, sky->options, study::methodNames(study::MethodsOf::aSky));
    auto arguments = std::make_shared<TableArguments>(
        *command, sky->table, [sky, usual = sky->options] { sky->options = usual; });
    command->callback([sky, arguments, &interruption] {
        arguments->run(interruption, [&](study::StudyBatch& batch, const std::string& analysis) {
            sky->options.out = study::folderOf(sky->options.out, analysis);
            batch.run(sky->options);
        });
    });
}

} // namespace insolate::app
