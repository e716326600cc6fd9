#include "app/cli/commands.h"
#include "app/cli/table_arguments.h"
#include "study/run/run_picture.h"

#include <filesystem>
#include <memory>

namespace insolate::app {

namespace {

struct PictureArguments {
    std::filesystem::path folder; ///< given by its place
    study::PictureRunOptions options;
    study::OptionTable table;
};

} // namespace

void addPictureCommand(CLI::App& app, Interruption& interruption) {
    CLI::App* command = app.add_subcommand(
        "picture", "Draw results of an earlier study: another quantity, view, part or size.\n"
                   "Writes one PNG, SVG or PDF.");
    auto picture = std::make_shared<PictureArguments>();
    command->add_option("FOLDER", picture->folder, "Folder of results")->required();
    study::addPictureOptions(picture->table, picture->options);
    auto arguments = std::make_shared<TableArguments>(
        *command, picture->table,
        [picture, usual = picture->options] { picture->options = usual; });
    command->callback([picture, arguments, &interruption] {
        arguments->run(interruption, [&](study::StudyBatch& batch, const std::string&) {
            picture->options.folder = picture->folder;
            batch.run(picture->options);
        });
    });
}

} // namespace insolate::app
