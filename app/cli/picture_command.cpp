#include "app/cli/commands.h"
#include "app/cli/table_arguments.h"
#include "app/terminal/progress.h"
#include "study/run/run_picture.h"

#include <memory>

namespace insolate::app {

namespace {

struct PictureArguments {
    study::PictureRunOptions options;
    bool quiet = false;
    study::OptionTable table;
};

} // namespace

void addPictureCommand(CLI::App& app, Interruption& interruption) {
    CLI::App* command = app.add_subcommand(
        "picture", "Draw results of an earlier study: another quantity, view, part or size.\n"
                   "Writes one PNG, SVG or PDF.");
    auto picture = std::make_shared<PictureArguments>();
    command->add_option("FOLDER", picture->options.folder, "Folder of results")->required();
    study::addPictureOptions(picture->table, picture->options);
    picture->table.flag("quiet", picture->quiet, "Say nothing but warnings and errors");
    auto arguments = std::make_shared<TableArguments>(*command, picture->table);
    command->callback([picture, arguments, &interruption] {
        arguments->run(interruption.token(), [&] {
            TerminalProgress progress(stderr, TerminalProgress::styleOf(stderr, picture->quiet),
                                      &interruption);
            study::runPicture(picture->options, progress, interruption.token());
        });
    });
}

} // namespace insolate::app
