#include "app/cli/arguments.h"
#include "app/cli/commands.h"
#include "app/terminal/standard_output.h"
#include "study/run/run_sun.h"
#include "study/support/errors.h"
#include "study/support/period.h"

#include <memory>

#include <fmt/format.h>

namespace insolate::app {

using namespace study;

namespace {

struct SunArguments {
    std::string weather;
    std::string date = "6/21";
    double step = SunOptions().step;
    SunOptions options;
};

} // namespace

void addSunCommand(CLI::App& app) {
    CLI::App* command = app.add_subcommand(
        "sun", "Print where the sun stands through a day: sunrise, sunset, altitude and azimuth "
               "(degrees clockwise from north) by clock time.");
    auto arguments = std::make_shared<SunArguments>();
    command->add_option("--lat", arguments->options.latitude, "Latitude, north positive")
        ->check(numberCheck("degrees, north positive"))
        ->type_name("DEG");
    command->add_option("--lon", arguments->options.longitude, "Longitude, east positive")
        ->check(numberCheck("degrees, east positive"))
        ->type_name("DEG");
    command
        ->add_option("--tz", arguments->options.timeZone,
                     "Time zone, hours from UTC, east positive; by default from the built-in map")
        ->check(numberCheck("hours from UTC"))
        ->type_name("H");
    command->add_option("--weather", arguments->weather, "Take the site from this weather file")
        ->type_name("FILE")
        ->excludes("--lat")
        ->excludes("--lon")
        ->excludes("--tz");
    command
        ->add_option("--date", arguments->date,
                     "6/21, 2026-06-21, 21 June or day of the year; without a year, of 2001")
        ->type_name("DATE")
        ->capture_default_str();
    command->add_option("--step", arguments->step, "Time step [h], 0.01 to 1")
        ->check(numberCheck("hours from 0.01 to 1"))
        ->type_name("H")
        ->capture_default_str();
    command->callback([arguments] {
        SunOptions options = arguments->options;
        if (!arguments->weather.empty()) {
            options.weather = arguments->weather;
        }
        try {
            const StudyDate date = parseDate(arguments->date);
            options.day = date.day;
            options.year = date.year.value_or(SunOptions::usualYear);
        } catch (const UsageError& error) {
            throw UsageError(inOption("--date", arguments->date, error.what()));
        }
        options.step = arguments->step;
        printResult(sunTable(options));
    });
}

} // namespace insolate::app
