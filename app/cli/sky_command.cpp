#include "app/cli/commands.h"
#include "app/cli/sky_arguments.h"
#include "app/cli/study_file.h"
#include "app/run/run_sky.h"

#include <memory>

namespace insolate::app {

void addSkyCommand(CLI::App& app) {
    CLI::App* command =
        app.add_subcommand("sky", "Spread the radiation of a period over the sky's 1,296 cells.\n"
                                  "Writes sky.csv, sky.png and sky.json.");
    auto arguments = std::make_shared<SkyArguments>();
    arguments->addTo(*command, {Method::hourly, Method::cumulativeSky, Method::perezSky});
    command->callback([command, arguments] {
        withStudyFile(*command, arguments->study, [&] {
            const SkyOptions options = arguments->options();
            Progress progress(stderr, Progress::styleOf(stderr, options.quiet));
            runSky(options, progress);
        });
    });
}

} // namespace insolate::app
