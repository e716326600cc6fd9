#include "app/cli/commands.h"
#include "app/cli/table_arguments.h"
#include "app/terminal/standard_output.h"
#include "study/run/sun_hours.h"

#include <memory>
#include <string>

#include <fmt/format.h>

namespace insolate::app {

namespace {

struct SunHoursArguments {
    study::SunHoursOptions options;
    bool listRules = false;
    study::OptionTable table;
};

std::string rulesText() {
    std::string text;
    for (const study::SunlightPreset& preset : study::sunlightPresets()) {
        text += fmt::format("{}\n    {}, {} ({})\n    {}\n", preset.name, preset.title,
                            preset.country, preset.edition, study::ruleText(preset.rule));
        if (!preset.needed.empty()) {
            text += fmt::format("    to be given: --{}\n", fmt::join(preset.needed, ", --"));
        }
        if (!preset.note.empty()) {
            text += fmt::format("    {}\n", preset.note);
        }
    }
    return text;
}

} // namespace

void addSunHoursCommand(CLI::App& app, Interruption& interruption) {
    CLI::App* command = app.add_subcommand(
        "sunhours",
        "Calculate how long the sun shines on sensors of a model, to 0.1 minute, and judge it by a "
        "rule. Needs no weather.\n"
        "Writes sensors.csv, sensors.vtp (ParaView), groups.csv, heatmap.png and summary.json; "
        "with --page also page.html.");
    auto sunHours = std::make_shared<SunHoursArguments>();
    study::addSunHoursOptions(sunHours->table, sunHours->options);
    auto arguments = std::make_shared<TableArguments>(
        *command, sunHours->table,
        [sunHours, usual = sunHours->options] { sunHours->options = usual; });
    command->add_flag("--list-rules", sunHours->listRules, "Print the published rules and end");
    command->callback([sunHours, arguments, &interruption] {
        if (sunHours->listRules) {
            printResult(rulesText());
            return;
        }
        arguments->run(interruption, [&](study::StudyBatch& batch, const std::string& analysis) {
            sunHours->options.out = study::folderOf(sunHours->options.out, analysis);
            batch.run(sunHours->options);
        });
    });
}

} // namespace insolate::app
