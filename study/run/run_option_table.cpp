#include "study/run/run_option_table.h"

#include "study/model/sensor_grid.h"
#include "study/run/radiation_method.h"
#include "study/support/numbers.h"
#include "study/weather/weather_input.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace insolate::study {

namespace {

void takeAlbedo(HourlyOptions& hourly, const std::string& text) {
    hourly.monthlyAlbedo = text == "epw";
    if (hourly.monthlyAlbedo) {
        hourly.albedo.reset();
        return;
    }
    const std::optional<double> number = parseNumber<double>(text);
    if (!number || !(*number >= 0.0 && *number <= 1.0)) {
        throw UsageError(fmt::format("--albedo {}: no reflectance; give 0 to 1, or epw for the "
                                     "weather file's own",
                                     quoteText(text)));
    }
    hourly.albedo = number;
}

/// Sensors are taken once each: a table has no two columns of one name.
void takeHoursOf(HoursOf& hoursOf, const std::string& text) {
    if (text == "all" || text == "groups") {
        (text == "all" ? hoursOf.all : hoursOf.groups) = true;
        return;
    }
    const std::size_t sensor =
        countOf("hours-of", text, "all, groups, or numbers of sensors as in sensors.csv: 0,17,4");
    if (std::find(hoursOf.sensors.begin(), hoursOf.sensors.end(), sensor) ==
        hoursOf.sensors.end()) {
        hoursOf.sensors.push_back(sensor);
    }
}

/// Numbers with commas between them.
std::vector<double> numbersOf(const std::string& name, std::string_view text,
                              const std::string& wanted) {
    std::vector<double> numbers;
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find(',', begin), text.size());
        numbers.push_back(numberOf(name, std::string(text.substr(begin, end - begin)), wanted));
        begin = end + 1;
    }
    return numbers;
}

void takeScene(std::vector<std::filesystem::path>& scenes, const std::string& text) {
    scenes.emplace_back(text);
}

} // namespace

void addSummerTimeOption(OptionTable& table, std::function<void(const std::string&)> take) {
    std::vector<std::string> names;
    for (const SummerTimeRule& rule : summerTimeRules()) {
        names.emplace_back(rule.name);
    }
    table.add({.name = "dst",
               .help = fmt::format("Summer time, so that --hours are those of watches: by law ({}) "
                                   "or from the first to the last day: 3/30-10/25",
                                   fmt::join(names, ", ")),
               .typeName = "RULE",
               .usual = "none",
               .take = [take = std::move(take)](const std::string& text) {
                   summerTimeOf(text, StudyPeriod::yearOfRules);
                   take(text);
               }});
}

void addOrientationOptions(OptionTable& table, OrientationClasses& classes) {
    table
        .number("flat", classes.flat, "DEG",
                "Surfaces as close to level as this, or closer, are in the groups up and down, "
                "whichever side they face",
                "degrees")
        .usual = fmt::format("{}", OrientationClasses().flat);
    table.add({.name = "sectors",
               .help = "Compass directions of --by orientation",
               .typeName = "NUMBER",
               .choices = {"4", "8", "16"},
               .usual = fmt::format("{}", OrientationClasses().sectors),
               .take = [&](const std::string& text) {
                   classes.sectors = static_cast<int>(countOf("sectors", text, "4, 8 or 16"));
               }});
}

void addEnclosedOption(OptionTable& table, bool& keep) {
    table.add({.name = "enclosed",
               .help = "Whether sensors that see neither sky nor ground, as inside of a body or "
                       "against one, count in means, groups and colours (keep) or not (drop)",
               .typeName = "NAME",
               .choices = {"keep", "drop"},
               .usual = "drop",
               .take = [&](const std::string& text) { keep = text == "keep"; }});
}

void addPageOptions(OptionTable& table, bool& page, double& limit) {
    table.flag("page", page,
               "Also write page.html: the results in 3-D, one file that every browser opens");
    table.number("page-limit", limit, "MB",
                 "What page.html may weigh; beyond it values lose digits and columns are left out",
                 "MB above 0");
}

LengthUnit lengthUnitOf(const std::string& option, const std::string& name) {
    const std::optional<LengthUnit> unit = lengthUnitNamed(name);
    if (!unit) {
        throw UsageError(fmt::format("--{}: there is no {}; choose from {}", option,
                                     quoteText(name), lengthUnitNames()));
    }
    return *unit;
}

void addSkyOptions(OptionTable& table, SkyOptions& options,
                   const std::vector<std::string>& methods) {
    table.file("weather", options.weather,
               fmt::format("Weather of a year: {}", weatherFormatsText()));
    table.add({.name = "period",
               .help = "Days, both included: 6/1-8/31, 2026-06-01 to 2026-08-31, 1 June - 31 "
                       "August, days of the year 152-243, 11/1-2/28 over the new year, or one day",
               .typeName = "DATES",
               .usual = "1/1-12/31",
               .take = [&](const std::string& text) { parseDates(text, options.period); }});
    table.add({.name = "hours",
               .help = "Hours of the day, the second not included: 8-18, 8:30-18",
               .typeName = "TIMES",
               .usual = "0-24",
               .take = [&](const std::string& text) { parseHours(text, options.period); }});
    addSummerTimeOption(table, [&](const std::string& text) {
        options.period.summerTime = summerTimeOf(text, StudyPeriod::yearOfRules);
    });
    table.number("step", options.period.step, "H",
                 "Time step [h], 0.01 to 1; minutes when --hours span less than one",
                 "hours from 0.01 to 1");
    table
        .text("method", options.method, "NAME",
              "How radiation is calculated: hourly closes with the weather's own sums; the others "
              "are for comparison")
        .choices = methods;
    table.add({.name = "albedo",
               .help = "hourly: reflectance of the ground, 0 to 1, or epw for the monthly values "
                       "of the weather file; 0.2 when absent",
               .typeName = "VALUE",
               .take = [&](const std::string& text) { takeAlbedo(options.hourly, text); }});
    table.flag("allow-gaps", options.allowGaps,
               "Count hours without weather data as hours without radiation");
    Option& out = table.file("out", options.out, "Folder for the results; made when missing");
    out.typeName = "FOLDER";
    out.path = Option::Path::output;
}

void addModelOptions(OptionTable& table, ModelOptions& options) {
    table.add(
        {.name = "scene",
         .kind = Option::Kind::list,
         .help =
             "Models that cast shadows: OBJ, STL, PLY, glTF, CityJSON and others (docs/files.md)",
         .typeName = "FILE",
         .path = Option::Path::input,
         .take = [&](const std::string& text) { takeScene(options.scenes, text); }});
    table.add({.name = "sensors",
               .help = "Where radiation is asked for: a model, whose faces are cut into cells, or "
                       "a table (.csv) with columns x,y,z[,nx,ny,nz], or a level plane as "
                       "plane:z=1.5,grid=1; by "
                       "default the first scene file",
               .typeName = "FILE",
               .path = Option::Path::input,
               .isNoPath = [](const std::string& text) { return text.starts_with("plane:"); },
               .take = [&](const std::string& text) { options.sensors = text; }});
    std::vector<std::string> unitNames;
    for (const NamedUnit& one : lengthUnits()) {
        unitNames.emplace_back(one.name);
    }
    table.add({.name = "units",
               .help = "Length unit of the models and the table",
               .typeName = "NAME",
               .choices = unitNames,
               .usual = "m",
               .take = [&](const std::string& text) {
                   options.import.unit = lengthUnitOf("units", text);
               }});
    table.add(
        {.name = "up",
         .help = fmt::format("Axis that points up in the files of the models and the table; "
                             "by default {}. With y, the file's -Z is taken as +Y of the plan",
                             upAxisText()),
         .typeName = "AXIS",
         .choices = {"y", "z"},
         .take = [&](const std::string& text) {
             options.import.up = text == "y" ? UpAxis::y : UpAxis::z;
         }});
    table.text("lod", options.import.lod, "LEVEL",
               "Level of detail of CityJSON models: 1 or 2.2, for each object or, where it has not "
               "got it, the next lower one; by default the highest");
    table.number("north", options.north, "DEG",
                 "Where true north lies in plan: degrees clockwise, seen from above, from the "
                 "model's +Y. 0: +Y is north; 90: +X is north and a wall that faces +Y looks west",
                 "degrees clockwise from the model's +Y");
    table
        .number("grid", options.grid, "M",
                "Largest edge of a square sensor cell [m]; smaller faces are one cell each",
                "metres")
        .usual = fmt::format("{}", RunOptions::usualGrid);
    table
        .number("offset", options.offset, "M",
                "Distance of a sensor from its face [m]; in a scene smaller than 5 m by default a "
                "hundredth of its longest edge",
                "metres")
        .usual = fmt::format("{}", SensorGridOptions().offset);
    table.add(
        {.name = "select",
         .kind = Option::Kind::list,
         .help = "Take only faces of these objects, groups or materials of the sensor model: "
                 "roof, roof,wall, house_*, or object:material",
         .typeName = "NAME,...",
         .take = [&](const std::string& text) { options.selection.patterns.push_back(text); }});
    table.add(
        {.name = "exclude",
         .kind = Option::Kind::list,
         .help = "Leave these objects, groups or materials out, written as for --select",
         .typeName = "NAME,...",
         .take = [&](const std::string& text) { options.selection.exclude.push_back(text); }});
    table.add(
        {.name = "facing",
         .help = "Take only faces that look up, down, north, east, south or west; several "
                 "with commas",
         .typeName = "SIDE,...",
         .take = [&](const std::string& text) { options.selection.facing = parseFacing(text); }});
    table.add(
        {.name = "tilt",
         .help = "Take only faces of this slope: 0-30 degrees from level and facing up; 90 "
                 "is a wall, 180 looks down",
         .typeName = "DEGREES",
         .take = [&](const std::string& text) { options.selection.tilt = parseTiltRange(text); }});
    table.add({.name = "orient",
               .help =
                   "What becomes of faces that look into their closed body: outward turns them, "
                   "flip turns every face of the models, keep leaves all as they are",
               .typeName = "NAME",
               .choices = {"outward", "flip", "keep"},
               .usual = "outward",
               .take = [&](const std::string& text) { options.orient = parseOrient(text); }});
    table.add({.name = "merge-faces",
               .help = "Whether neighbouring triangles of one object and material that lie in one "
                       "plane are cut as one face",
               .typeName = "NAME",
               .choices = {"yes", "no"},
               .usual = "yes",
               .take = [&](const std::string& text) { options.mergeFaces = text == "yes"; }});
    table.wholeNumber("threads", options.threads, "N", "Processors to use; 0: all",
                      "the number of processors, or 0 for all");
    table.flag("force", options.force,
               "Go on with more than 5 million sensors, 10 million triangles or four fifths of the "
               "machine's memory; up to 1,000 million sensors. Earlier results in the folder are "
               "replaced with or without it");
}

void addRunOptions(OptionTable& table, RunOptions& options) {
    addSkyOptions(table, options, methodNames());
    addModelOptions(table, options);
    table.add({.name = "rays",
               .help = "How rays find what is in their way: fast, or octree, the plain way with "
                       "the same answers",
               .typeName = "NAME",
               .choices = {"fast", "octree"},
               .usual = "fast",
               .take = [&](const std::string& text) {
                   options.rays = text == "octree" ? RayMethod::octree : RayMethod::fast;
               }});
    table.flag("save-masks", options.saveMasks,
               "Also write sensors.masks: what each sensor sees of the sky; for the methods other "
               "than hourly");
    table.add({.name = "masks",
               .help = "Take what the sensors see from the sensors.masks of an earlier run with "
                       "the same scene, sensors and north; for the methods other than hourly",
               .typeName = "FILE",
               .path = Option::Path::input,
               .take = [&](const std::string& text) { options.masks = text; }});
    table.number("tolerance", options.hourly.tolerance, "PERCENT",
                 "hourly: error that a sensor's total may have, sky, sun, ground and reflected "
                 "light together, in percent of it. Direct light keeps it by further rays at the "
                 "edges of shadows; reflected light aims at it, by many more rays below 1 and "
                 "fewer above. 1 unless given; 0: the first rays alone, reflected light as by 1; "
                 "else at least 0.1",
                 "percent of the sensor's total");
    table.number("sky-tolerance", options.hourly.skyTolerance, "PERCENT",
                 "hourly, for experts: the same for the diffuse sky by itself, in percent of it. 0 "
                 "asks for nothing beside --tolerance; else at least 0.05",
                 "percent of the diffuse sky");
    table.number("sun-tolerance", options.hourly.sunTolerance, "PERCENT",
                 "hourly, for experts: the same for the direct sun; 0.25 keeps 2 % of a single "
                 "day's in practically all places. 0, or at least 0.02",
                 "percent of the direct sun");
    table.flag("open-ground", options.hourly.openGround,
               "hourly: the scene does not hide the open ground, whose light then stands for that "
               "of all surfaces below the horizon; with --reflectance 0, for a scene that models "
               "its own ground, which would else only be in the way of the open ground's light");
    table.number("reflectance", options.hourly.reflectance, "VALUE",
                 "hourly: what surfaces reflect that --materials does not name, 0 to 1, evenly to "
                 "all sides; 0.2 unless given, as a usual city does. 0: all surfaces are black, "
                 "those of --materials too; then there is no column reflected, and the open ground "
                 "lies in no shadow",
                 "reflectance");
    table.file("materials", options.hourly.materials,
               "hourly: what surfaces reflect and let through, by names of objects and materials: "
               "tables [material.\"glass*\"] of a TOML file, which may be the study file");
    table.wholeNumber(
        "bounces", options.hourly.bounces, "N",
        "hourly: reflections that light may take on its way to a sensor; 0: until what is "
        "left is below a thousandth of the reflected light",
        "number of reflections");
    table.add(
        {.name = "hours-of",
         .kind = Option::Kind::list,
         .help = "hourly: also write the hours of all sensors (hours.nc), of the groups of "
                 "--by, or of these sensors, numbered from 0 as in sensors.csv: 0,17,4 "
                 "(hours.nc and hours.csv)",
         .typeName = "all|groups|N,...",
         .separator = ',',
         .take = [&](const std::string& text) { takeHoursOf(options.hourly.hoursOf, text); }});
    table.add({.name = "split",
               .help = "hourly: also give the results of each month, season or day of the period, "
                       "by the same rays",
               .typeName = "NAME",
               .choices = {"month", "season", "day"},
               .take = [&](const std::string& text) { options.hourly.split = parseSplit(text); }});
    table.add({.name = "periods",
               .kind = Option::Kind::list,
               .help =
                   "hourly: the same for these parts of the period, which may overlap: dates as "
                   "for --period, and hours: 3/21,6/1-8/31:9-17",
               .typeName = "DATES[:TIMES],...",
               .separator = ',',
               .take = [&](const std::string& text) {
                   options.hourly.periods.push_back(parseAskedPeriod(text));
               }});
    table.add({.name = "by",
               .kind = Option::Kind::list,
               .help =
                   "What groups.csv puts together: all, object, material, orientation, tilt, or "
                   "combinations such as object,orientation; given several times, one after "
                   "the other. By default all, object, material and orientation",
               .typeName = "KEY,...",
               .take = [&](const std::string& text) {
                   const auto keys = parseGroupBy(text);
                   auto& by = options.groups.by;
                   if (std::find(by.begin(), by.end(), keys) == by.end()) {
                       by.push_back(keys);
                   }
               }});
    table.add({.name = "tilt-classes",
               .help = "Bounds between the slopes of --by tilt [degrees]",
               .typeName = "DEGREES,...",
               .usual = "10,20,40,60,80,100",
               .take = [&](const std::string& text) {
                   options.groups.classes.tilts =
                       numbersOf("tilt-classes", text, "degrees, as in 10,30,60");
               }});
    addOrientationOptions(table, options.groups.classes);
    addPageOptions(table, options.page, options.pageLimit);
    addEnclosedOption(table, options.keepEnclosed);
    table.flag("dry-run", options.dryRun,
               "Print sensors, area, memory and time that the run would take, and write nothing");
    table.add({.name = "classes",
               .help = "Totals [kWh/m2] for which groups.csv says how much area reaches them",
               .typeName = "KWH,...",
               .usual = "800,900,1000,1200",
               .take = [&](const std::string& text) {
                   options.groups.thresholds = numbersOf("classes", text, "kWh/m2, as in 800,1000");
               }});
    table.number("best", options.groups.bestArea, "M2",
                 "Also find in each group the best area of this size that hangs together [m2]",
                 "square metres");
    table.flag("unshaded", options.hourly.unshaded,
               "hourly: also give what each sensor would get if nothing stood around it, and the "
               "groups' share of it");
    table.flag("resume", options.resume,
               "Go on where a run of the same study into the same folder was stopped; from the "
               "start if there is none, refused if it was of another study");
    // An option of whatever kind counts for --resume unless it is known to leave finished sensors
    // as they are; of files the content counts, not the name.
    constexpr std::array leavesSensorsAlone = {
        "threads", "force", "resume",     "hours-of", "by",      "tilt-classes", "flat",
        "sectors", "page",  "page-limit", "enclosed", "dry-run", "classes",      "best"};
    for (const std::string& name : table.names()) {
        if (table.find(name)->path == Option::Path::none &&
            std::find(leavesSensorsAlone.begin(), leavesSensorsAlone.end(), name) ==
                leavesSensorsAlone.end()) {
            table.noteTexts(name, options.asked);
        }
    }
}

} // namespace insolate::study
