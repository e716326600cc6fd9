#include "app/cli/commands.h"
#include "app/cli/sky_arguments.h"
#include "app/cli/study_file.h"
#include "app/terminal/progress.h"
#include "study/run/run_sky.h"

#include <memory>

namespace insolate::app {

using namespace study;

void addSkyCommand(CLI::App& app, const Interruption& interruption) {
    CLI::App* command =
        app.add_subcommand("sky", "Spread the radiation of a period over the sky's 1,296 cells.\n"
                                  "Writes sky.csv, sky.png and sky.json.");
    auto arguments = std::make_shared<SkyArguments>();
    arguments->addTo(*command, {Method::hourly, Method::cumulativeSky, Method::perezSky});
    command->callback([command, arguments, &interruption] {
        withStudyFile(*command, arguments->study, [&] {
            const SkyOptions options = arguments->options();
            TerminalProgress progress(stderr, TerminalProgress::styleOf(stderr, options.quiet));
            runSky(options, progress, interruption.token());
        });
    });
}

} // namespace insolate::app
