#include "app/cli/arguments.h"
#include "app/cli/commands.h"
#include "app/cli/sky_arguments.h"
#include "app/cli/study_file.h"
#include "app/terminal/progress.h"
#include "study/run/run_study.h"
#include "study/support/errors.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>

#include <fmt/format.h>

namespace insolate::app {

using namespace study;

namespace {

const std::map<std::string, LengthUnit> unitNames = {{"mm", LengthUnit::millimetre},
                                                     {"cm", LengthUnit::centimetre},
                                                     {"m", LengthUnit::metre},
                                                     {"ft", LengthUnit::foot},
                                                     {"in", LengthUnit::inch}};

struct RunArguments {
    SkyArguments sky;
    std::vector<std::string> scenes;
    std::string sensors;
    std::string units = "m";
    std::string up;
    double north = 0.0;
    double grid = RunOptions().grid;
    double offset = RunOptions().offset;
    std::vector<std::string> select;
    int threads = 0;
    std::string rays = "fast";
    bool saveMasks = false;
    std::string masks;
    double skyTolerance = HourlyOptions().skyTolerance;
    double sunTolerance = HourlyOptions().sunTolerance;
    bool openGround = false;
    std::vector<std::size_t> series;
    bool resume = false;
    bool force = false;

    void addTo(CLI::App& command) {
        sky.addTo(command, {allMethods.begin(), allMethods.end()});
        command
            .add_option("--scene", scenes,
                        "Models that cast shadows: OBJ, STL, PLY, glTF and what else assimp reads")
            ->type_name("FILE");
        command
            .add_option("--sensors", sensors,
                        "Where radiation is asked for: a model, whose faces are cut into cells, or "
                        "a table (.csv) of x,y,z[,nx,ny,nz]; by default the first scene file")
            ->type_name("FILE");
        command.add_option("--units", units, "Length unit of the models and the table")
            ->check(wordCheck({"mm", "cm", "m", "ft", "in"}))
            ->type_name("NAME")
            ->capture_default_str();
        command
            .add_option("--up", up,
                        "Axis that points up in the models; by default y for glTF and Collada, z "
                        "for all others. With y, the model's -Z is taken as +Y of the plan")
            ->check(wordCheck({"y", "z"}))
            ->type_name("AXIS");
        command
            .add_option("--north", north,
                        "Where true north lies in plan: degrees clockwise, seen from above, from "
                        "the model's +Y. 0: +Y is north; 90: +X is north and a wall that faces +Y "
                        "looks west")
            ->check(numberCheck("degrees clockwise from the model's +Y"))
            ->type_name("DEG")
            ->capture_default_str();
        command
            .add_option("--grid", grid,
                        "Largest edge of a square sensor cell [m]; smaller faces are one cell each")
            ->check(numberCheck("metres"))
            ->type_name("M")
            ->capture_default_str();
        command.add_option("--offset", offset, "Distance of a sensor from its face [m]")
            ->check(numberCheck("metres"))
            ->type_name("M")
            ->capture_default_str();
        command
            .add_option(
                "--select", select,
                "Take only faces of these objects, groups or materials of the sensor model: "
                "roof or roof,wall")
            ->type_name("NAME,...");
        command.add_option("--threads", threads, "Processors to use; 0: all")
            ->check(wholeNumberCheck("the number of processors, or 0 for all"))
            ->type_name("N")
            ->capture_default_str();
        command
            .add_option("--rays", rays,
                        "How rays find what is in their way: fast, or octree, the plain way with "
                        "the same answers")
            ->check(wordCheck({"fast", "octree"}))
            ->type_name("NAME")
            ->capture_default_str();
        command.add_flag("--save-masks", saveMasks,
                         "Also write sensors.masks: what each sensor sees of the sky; for the "
                         "methods other than hourly");
        command
            .add_option("--masks", masks,
                        "Take what the sensors see from the sensors.masks of an earlier run with "
                        "the same scene, sensors and north; for the methods other than hourly")
            ->type_name("FILE");
        command
            .add_option("--sky-tolerance", skyTolerance,
                        "hourly: error that shadow edges may leave in a sensor's diffuse sky, in "
                        "percent of it; splits the sky's cells at edges where needed, which takes "
                        "up to three times as long. 0: two rays for each cell; else at least 0.05, "
                        "where the smallest splits end")
            ->check(numberCheck("percent of the diffuse sky"))
            ->type_name("PERCENT")
            ->capture_default_str();
        command
            .add_option(
                "--sun-tolerance", sunTolerance,
                "hourly: the same for the direct sun; 0.25 keeps half a percent in "
                "practically all places of a year's sum, and 2 % of a single day's; without it "
                "a day may be off by 20 % at the edges of shadows. 0, or at least 0.02")
            ->check(numberCheck("percent of the direct sun"))
            ->type_name("PERCENT")
            ->capture_default_str();
        command.add_flag("--open-ground", openGround,
                         "hourly: the scene does not hide the ground; for a scene that models its "
                         "own ground, which would else count as in the way of the ground's light");
        command
            .add_option("--series", series,
                        "hourly: also write series.csv, the hours of these sensors, numbered from "
                        "0 as in sensors.csv: 0,17,4")
            ->delimiter(',')
            ->check(countCheck("numbers of sensors as in sensors.csv: 0,17,4"))
            ->type_name("N,...");
        command.add_flag("--resume", resume,
                         "Go on where a run of the same study into the same folder was stopped; "
                         "from the start if there is none, refused if it was of another study");
        command.add_flag(
            "--force", force,
            "Go on with more than 5 million sensors, 10 million triangles or four fifths of "
            "the machine's memory; up to 1,000 million sensors. Earlier results in the "
            "folder are replaced with or without it");
    }

    [[nodiscard]] RunOptions options() const {
        RunOptions result;
        static_cast<SkyOptions&>(result) = sky.options();
        if (scenes.empty()) {
            throw UsageError("--scene is missing; give the model that casts shadows");
        }
        result.scenes.assign(scenes.begin(), scenes.end());
        if (!sensors.empty()) {
            result.sensors = sensors;
        }
        result.import.unit = unitNames.at(units);
        if (!up.empty()) {
            result.import.up = up == "y" ? UpAxis::y : UpAxis::z;
        }
        if (!(std::abs(north) <= 360.0)) {
            throw UsageError(
                fmt::format("--north {}: no angle; give degrees from -360 to 360", north));
        }
        if (!(grid >= 1.0e-4 && grid <= 1.0e6)) {
            throw UsageError(
                fmt::format("--grid {}: no edge of a cell; give metres from 0.0001 to 1e6", grid));
        }
        if (!(offset >= 0.0 && offset <= 1.0e3)) {
            throw UsageError(
                fmt::format("--offset {}: no distance; give metres from 0 to 1000", offset));
        }
        if (threads < 0) {
            throw UsageError(fmt::format(
                "--threads {}: no number of processors; give 1 or more, or 0 for all", threads));
        }
        result.north = north;
        result.grid = grid;
        result.offset = offset;
        result.select = select;
        result.threads = threads;
        result.rays = rays == "octree" ? RayMethod::octree : RayMethod::fast;
        result.saveMasks = saveMasks;
        if (!masks.empty()) {
            result.masks = masks;
        }
        result.resume = resume;
        result.force = force;
        const auto checkTolerance = [&](const char* option, double percent, double least,
                                        double usual) {
            if (!(percent >= 0.0 && percent <= 100.0)) {
                throw UsageError(
                    fmt::format("{} {}: no share; give percent from 0 to 100", option, percent));
            }
            requireHourly(result.method, option, percent != usual);
            if (percent > 0.0 && percent < least) {
                throw UsageError(fmt::format(
                    "{} {}: below {} % nothing gets better; give {} or more, or 0 for two rays a "
                    "cell",
                    option, percent, least, least));
            }
        };
        // Below these the errors on walls and in courts no longer fall (docs/hourly-method.md).
        checkTolerance("--sky-tolerance", skyTolerance, 0.05, HourlyOptions().skyTolerance);
        checkTolerance("--sun-tolerance", sunTolerance, 0.02, HourlyOptions().sunTolerance);
        requireHourly(result.method, "--open-ground", openGround);
        requireHourly(result.method, "--series", !series.empty());
        if (result.method == Method::hourly && (saveMasks || !masks.empty())) {
            throw UsageError(fmt::format(
                "--{} does not belong to --method hourly: masks say what is seen of the middles of "
                "the sky's cells, and the hourly method also looks at the sun's own places, which "
                "change with the weather and the period; leave it out (--resume goes on with a "
                "stopped run), or take one of the other methods",
                saveMasks ? "save-masks" : "masks"));
        }
        result.hourly.skyTolerance = skyTolerance;
        result.hourly.sunTolerance = sunTolerance;
        result.hourly.openGround = openGround;
        for (const std::size_t sensor : series) { // a table has no two columns of one name
            std::vector<std::size_t>& asked = result.hourly.series;
            if (std::find(asked.begin(), asked.end(), sensor) == asked.end()) {
                asked.push_back(sensor);
            }
        }
        return result;
    }
};

} // namespace

void addRunCommand(CLI::App& app, const Interruption& interruption) {
    CLI::App* command = app.add_subcommand(
        "run", "Calculate the solar radiation on sensors of a model.\n"
               "Writes sensors.csv, sensors.vtp (ParaView), heatmap.png and summary.json.");
    auto arguments = std::make_shared<RunArguments>();
    arguments->addTo(*command);
    command->callback([command, arguments, &interruption] {
        withStudyFile(*command, arguments->sky.study, [&] {
            RunOptions options = arguments->options();
            options.gridGiven = command->count("--grid") > 0;
            TerminalProgress progress(stderr, TerminalProgress::styleOf(stderr, options.quiet));
            runStudy(options, progress, interruption.token());
        });
    });
}

} // namespace insolate::app
