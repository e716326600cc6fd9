#include "app/cli/commands.h"
#include "app/cli/table_arguments.h"
#include "app/terminal/progress.h"
#include "study/run/radiation_method.h"
#include "study/run/run_option_table.h"
#include "study/run/run_sky.h"

#include <memory>

namespace insolate::app {

namespace {

struct SkyArguments {
    study::SkyOptions options;
    bool quiet = false;
    study::OptionTable table;
};

} // namespace

void addSkyCommand(CLI::App& app, Interruption& interruption) {
    CLI::App* command =
        app.add_subcommand("sky", "Spread the radiation of a period over the sky's 1,296 cells.\n"
                                  "Writes sky.csv, sky.png and sky.json.");
    auto sky = std::make_shared<SkyArguments>();
    study::addSkyOptions(sky->table, sky->options, study::methodNames(study::MethodsOf::aSky));
    sky->table.flag("quiet", sky->quiet, "Say nothing but warnings and errors");
    auto arguments = std::make_shared<TableArguments>(*command, sky->table);
    command->callback([sky, arguments, &interruption] {
        arguments->run(interruption.token(), [&] {
            TerminalProgress progress(stderr, TerminalProgress::styleOf(stderr, sky->quiet),
                                      &interruption);
            study::runSky(sky->options, progress, interruption.token());
        });
    });
}

} // namespace insolate::app
