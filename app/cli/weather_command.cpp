#include "app/cli/commands.h"
#include "app/terminal/reports.h"
#include "app/terminal/standard_output.h"
#include "study/run/run_weather.h"
#include "study/support/errors.h"

#include <memory>
#include <string>

namespace insolate::app {

using namespace study;

void addWeatherCommand(CLI::App& app, Interruption& interruption) {
    CLI::App* command = app.add_subcommand("weather", "Look into a weather file, or convert it.");
    command->require_subcommand(1);

    struct Arguments {
        std::string from;
        std::string to;
        std::string progress;
        bool allowGaps = false;
    };
    auto arguments = std::make_shared<Arguments>();
    CLI::App* info = command->add_subcommand(
        "info", "Print site, monthly and annual sums, and what looks wrong in the file.\n"
                "Fails when 'insolate run' would not take the file.");
    info->add_option("FILE", arguments->from, "Weather file of any format that is read")
        ->required();
    info->callback([arguments, &interruption] {
        const WeatherInfo found = weatherInfo(arguments->from, interruption.token());
        printResult(found.text);
        if (!found.refusal.empty()) {
            throw DataError(found.refusal);
        }
    });

    CLI::App* convert = command->add_subcommand(
        "convert", "Write a weather file as .wea of this program, which loads faster.");
    convert->add_option("FROM", arguments->from, "Weather file of any format that is read")
        ->required();
    convert->add_option("TO", arguments->to, "File to write: .wea")->required();
    convert->add_flag("--allow-gaps", arguments->allowGaps,
                      "Store hours without weather data as hours without radiation");
    addProgressOption(*convert, arguments->progress);
    convert->callback([arguments, &interruption] {
        const auto progress = progressOf(arguments->progress, false, interruption);
        convertWeather(arguments->from, arguments->to, arguments->allowGaps, *progress,
                       interruption.token());
    });
}

} // namespace insolate::app
