#include "study/run/run_options.h"

#include "study/run/radiation_method.h"
#include "study/support/errors.h"
#include "study/weather/weather_input.h"

#include <algorithm>
#include <cmath>
#include <thread>

#include <fmt/format.h>

namespace insolate::study {

namespace {

void require(bool given, std::string_view name, std::string_view fix) {
    if (!given) {
        throw UsageError(fmt::format("{} is missing; {}", name, fix));
    }
}

/// Refuses an option that the chosen method would ignore.
void requireHourly(const SkyOptions& options, const char* name, bool given) {
    if (given && !methodUse(options.method).takesHourlyOptions) {
        throw UsageError(fmt::format("{} does not belong to --method {}; leave it out or take "
                                     "--method hourly",
                                     name, options.method));
    }
}

void checkTolerance(const SkyOptions& options, const char* name, bool given, double percent,
                    double least) {
    if (!(percent >= 0.0 && percent <= 100.0)) {
        throw UsageError(fmt::format("{} {}: no share; give percent from 0 to 100", name, percent));
    }
    requireHourly(options, name, given);
    if (percent > 0.0 && percent < least) {
        throw UsageError(fmt::format("{} {}: below {} % nothing gets better; give {} or more, or 0 "
                                     "for the first rays alone",
                                     name, percent, least, least));
    }
}

void checkReflection(const RunOptions& options) {
    const HourlyOptions& hourly = options.hourly;
    if (hourly.reflectance && !(*hourly.reflectance >= 0.0 && *hourly.reflectance <= 1.0)) {
        throw UsageError(fmt::format("--reflectance {}: no reflectance; give 0 to 1, 0.2 for a "
                                     "usual city",
                                     *hourly.reflectance));
    }
    if (hourly.bounces < 0) {
        throw UsageError(fmt::format("--bounces {}: no number of reflections; give 1 or more, or 0 "
                                     "to follow them until hardly anything is left",
                                     hourly.bounces));
    }
    const bool hasFile = !hourly.materials.empty() || hourly.rules != nullptr;
    requireHourly(options, "--reflectance", hourly.reflectance.has_value());
    requireHourly(options, "--bounces", hourly.bounces != 0);
    requireHourly(options, "--materials", hasFile);
    if (hourly.bounces != 0 && !options.reflects()) {
        throw UsageError("--bounces counts reflections, and with --reflectance 0 there are none; "
                         "leave one of them out");
    }
    if (options.rays == RayMethod::octree && (hasFile || options.reflects())) {
        throw UsageError("--rays octree knows no materials; leave it out, or give --reflectance 0 "
                         "for black surfaces and no --materials");
    }
}

} // namespace

bool SkyOptions::reflects() const {
    return methodUse(method).takesHourlyOptions && hourly.otherReflectance() > 0.0;
}

std::vector<double> thresholdsOf(const GroupTableOptions& options) {
    std::vector<double> thresholds;
    for (const double kilowattHours : options.thresholds) {
        thresholds.push_back(1000.0 * kilowattHours);
    }
    return thresholds;
}

void checkSkyOptions(const SkyOptions& options) {
    require(!options.weather.empty(), "--weather",
            fmt::format("give the weather of the site: {}", weatherFormatsText()));
    checkStep(options.period.step);
    (void)methodUse(options.method);
    const HourlyOptions& hourly = options.hourly;
    if (hourly.albedo && !(*hourly.albedo >= 0.0 && *hourly.albedo <= 1.0)) {
        throw UsageError(fmt::format("--albedo '{}': no reflectance; give 0 to 1, or epw for the "
                                     "weather file's own",
                                     *hourly.albedo));
    }
    requireHourly(options, "--albedo", hourly.albedo || hourly.monthlyAlbedo);
}

void checkOutFolder(const std::filesystem::path& out) {
    require(!out.empty(), "--out", "give the folder for the results");
}

void checkModelOptions(const ModelOptions& options) {
    require(!options.scenes.empty(), "--scene", "give the model that casts shadows");
    if (!(std::abs(options.north) <= 360.0)) {
        throw UsageError(
            fmt::format("--north {}: no angle; give degrees from -360 to 360", options.north));
    }
    if (options.grid && !(*options.grid >= 1.0e-4 && *options.grid <= 1.0e6)) {
        throw UsageError(fmt::format("--grid {}: no edge of a cell; give metres from 0.0001 to 1e6",
                                     *options.grid));
    }
    if (options.offset && !(*options.offset >= 0.0 && *options.offset <= 1.0e3)) {
        throw UsageError(
            fmt::format("--offset {}: no distance; give metres from 0 to 1000", *options.offset));
    }
    if (options.threads < 0) {
        throw UsageError(
            fmt::format("--threads {}: no number of processors; give 1 or more, or 0 for all",
                        options.threads));
    }
}

void checkPageLimit(double limit) {
    if (!(limit > 0.0)) {
        throw UsageError(fmt::format("--page-limit {}: a page has a size; give MB above 0", limit));
    }
}

void checkRunOptions(const RunOptions& options) {
    checkSkyOptions(options);
    checkModelOptions(options);
    checkClasses(options.groups.classes);
    if (!(options.groups.bestArea >= 0.0 && std::isfinite(options.groups.bestArea))) {
        throw UsageError(fmt::format("--best {}: no area; give square metres, such as 20",
                                     options.groups.bestArea));
    }
    for (const double threshold : options.groups.thresholds) {
        if (!(threshold > 0.0 && threshold < 1.0e9)) {
            throw UsageError(fmt::format(
                "--classes {}: no total; give kWh/m2 above 0, as in 800,1000", threshold));
        }
    }
    checkPageLimit(options.pageLimit);
    requireHourly(options, "--unshaded", options.hourly.unshaded);
    // Below these the errors on walls and in courts no longer fall (docs/hourly-method.md).
    const HourlyOptions& hourly = options.hourly;
    checkTolerance(options, "--tolerance", hourly.tolerance.has_value(), hourly.toleranceOfTotal(),
                   0.1);
    checkTolerance(options, "--sky-tolerance", hourly.skyTolerance != 0.0, hourly.skyTolerance,
                   0.05);
    checkTolerance(options, "--sun-tolerance", hourly.sunTolerance != 0.0, hourly.sunTolerance,
                   0.02);
    requireHourly(options, "--split", options.hourly.split != PeriodSplit::none);
    requireHourly(options, "--periods", !options.hourly.periods.empty());
    partsOf(options.period, options.hourly.split, options.hourly.periods);
    requireHourly(options, "--open-ground", options.hourly.openGround);
    checkReflection(options);
    const HoursOf& hoursOf = options.hourly.hoursOf;
    requireHourly(options, "--hours-of", hoursOf.any());
    if ((hoursOf.all ? 1 : 0) + (hoursOf.groups ? 1 : 0) + (hoursOf.sensors.empty() ? 0 : 1) > 1) {
        throw UsageError("--hours-of: all, groups and numbers exclude each other; give one of "
                         "them");
    }
    if ((options.saveMasks || options.masks) && !methodUse(options.method).takesMasks) {
        throw UsageError(fmt::format(
            "--{} does not belong to --method {}: masks say what is seen of the middles of "
            "the sky's cells, and this method also looks at the sun's own places, which "
            "change with the weather and the period; leave it out (--resume goes on with a "
            "stopped run), or take one of the other methods",
            options.saveMasks ? "save-masks" : "masks", options.method));
    }
}

int usedThreads(int threads) {
    const int processors = std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
    return threads <= 0 ? processors : std::min(threads, processors);
}

} // namespace insolate::study
