#include "app/cli/sky_arguments.h"

#include "app/cli/arguments.h"
#include "study/support/errors.h"
#include "study/support/numbers.h"

#include <fmt/format.h>

namespace insolate::app {

using namespace study;

void SkyArguments::addTo(CLI::App& command, const std::vector<Method>& methods) {
    std::vector<std::string> names;
    names.reserve(methods.size());
    for (const Method known : methods) {
        names.push_back(methodName(known));
    }
    command
        .add_option("--study", study,
                    "Study file (TOML) with any of these options as keys; the command line wins")
        ->type_name("FILE");
    command.add_option("--weather", weather, "Weather of a year: .epw, .wea or .mra")
        ->type_name("FILE");
    command
        .add_option("--period", period,
                    "Days, both included: month/day or day of the year, e.g. 6/1-8/31, 152-243, "
                    "11/1-2/28 over the new year, or one day")
        ->type_name("DATES")
        ->capture_default_str();
    command
        .add_option("--hours", hours, "Hours of the day, the second not included: 8-18, 8:30-18")
        ->type_name("TIMES")
        ->capture_default_str();
    command
        .add_option("--step", step,
                    "Time step [h], 0.01 to 1; minutes when --hours span less "
                    "than one")
        ->check(numberCheck("hours from 0.01 to 1"))
        ->type_name("H")
        ->capture_default_str();
    command
        .add_option("--method", method,
                    "How radiation is calculated: hourly closes with the weather's own sums; the "
                    "others are for comparison")
        ->check(wordCheck(names))
        ->type_name("NAME")
        ->capture_default_str();
    command
        .add_option("--albedo", albedo,
                    "hourly: reflectance of the ground, 0 to 1, or epw for the monthly values of "
                    "the weather file; 0.2 when absent")
        ->type_name("VALUE");
    command.add_flag("--allow-gaps", allowGaps,
                     "Count hours without weather data as hours without radiation");
    command.add_option("--out", out, "Folder for the results; made when missing")
        ->type_name("FOLDER");
    command.add_flag("--quiet", quiet, "Say nothing but warnings and errors");
}

SkyOptions SkyArguments::options() const {
    requireOption(weather, "--weather", "give the weather file of the site (.epw, .wea, .mra)");
    requireOption(out, "--out", "give the folder for the results");
    SkyOptions result;
    result.weather = weather;
    parseDates(period, result.period);
    parseHours(hours, result.period);
    checkStep(step);
    result.period.step = step;
    for (const Method known : allMethods) {
        if (method == methodName(known)) {
            result.method = known;
        }
    }
    if (albedo == "epw") {
        result.hourly.monthlyAlbedo = true;
    } else if (!albedo.empty()) {
        const auto number = parseNumber<double>(albedo);
        if (!number || !(*number >= 0.0 && *number <= 1.0)) {
            throw UsageError(fmt::format("--albedo {}: no reflectance; give 0 to 1, or epw for the "
                                         "weather file's own",
                                         quoteText(albedo)));
        }
        result.hourly.albedo = *number;
    }
    requireHourly(result.method, "--albedo", !albedo.empty());
    result.allowGaps = allowGaps;
    result.out = out;
    result.quiet = quiet;
    return result;
}

void requireHourly(Method method, const std::string& name, bool given) {
    if (given && method != Method::hourly) {
        throw UsageError(fmt::format("{} does not belong to --method {}; leave it out or take "
                                     "--method hourly",
                                     name, methodName(method)));
    }
}

void requireOption(const std::string& value, const std::string& name, const std::string& mend) {
    if (value.empty()) {
        throw UsageError(fmt::format("{} is missing; {}", name, mend));
    }
}

} // namespace insolate::app
