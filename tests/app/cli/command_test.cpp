// The built command as a user meets it: arguments in; exit code, one line and files out.
#include "tests/app/support/command_fixture.h"
#include "tests/support/test_data.h"

#include <csignal>
#include <fcntl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <gmock/gmock.h>

namespace insolate::app {
namespace {

using test::readFile;
using test::withLine;
using testing::HasSubstr;

using CommandTest = test::CommandFixture;

TEST_F(CommandTest, RunsAStudy) {
    const Outcome run =
        command("run --weather good.epw --scene court.obj --sensors court.obj --select floor "
                "--period 6/1-6/30 --hours 8-18 --step 0.5 --grid 1 --method perez-sky --out a/b");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, "");
    EXPECT_THAT(run.err, HasSubstr("sensors: 100\n"));
    for (const char* name : {"sensors.csv", "sensors.vtp", "heatmap.png", "summary.json"}) {
        EXPECT_GT(std::filesystem::file_size(path("a/b") / name), 100U) << name;
    }
    const std::string table = readFile(path("a/b/sensors.csv"));
    EXPECT_EQ(std::count(table.begin(), table.end(), '\n'), 101);
    EXPECT_THAT(readFile(path("a/b/summary.json")),
                HasSubstr("\"1 June to 30 June, 8:00 to 18:00\""));
    // What was printed may go; the results stay.
    const Outcome again =
        command("run --weather good.epw --scene court.obj --select floor --period 6/1-6/30 "
                "--hours 8-18 --step 0.5 --grid 1 --method perez-sky --out c --quiet --threads 2 "
                "--save-masks");
    EXPECT_EQ(again.exitCode, 0);
    EXPECT_EQ(again.err, "");
    const Outcome stored = command(
        "run --weather good.epw --scene court.obj --select floor --period 6/1-6/30 "
        "--hours 8-18 --step 0.5 --grid 1 --method perez-sky --out d --masks c/sensors.masks");
    EXPECT_EQ(stored.exitCode, 0) << stored.err;
    for (const char* name : {"sensors.csv", "sensors.vtp", "heatmap.png"}) {
        EXPECT_EQ(readFile(path("a/b") / name), readFile(path("c") / name)) << name;
        EXPECT_EQ(readFile(path("a/b") / name), readFile(path("d") / name)) << name;
    }
    // Masks stay beside the results of the sensors they were made for, and no others.
    const std::string next = "run --weather good.epw --scene court.obj --select floor --period 6/1 "
                             "--quiet --out c --grid ";
    EXPECT_EQ(command(next + "1").exitCode, 0);
    EXPECT_TRUE(std::filesystem::exists(path("c/sensors.masks")));
    EXPECT_EQ(command(next + "2").exitCode, 0);
    EXPECT_FALSE(std::filesystem::exists(path("c/sensors.masks")));
}

TEST_F(CommandTest, TellsTheHoursOfChosenSensors) {
    const Outcome run =
        command("run --weather good.epw --scene court.obj --select floor --period 12/30-1/2 "
                "--hours 8:30-18 --albedo 0.3 --sun-tolerance 1 --series 3,12 --out h");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_THAT(run.err, HasSubstr("kWh/m2\n"));
    EXPECT_THAT(run.err, HasSubstr("series.csv and summary.json"));
    const auto rows = [&](const std::string& name) {
        std::vector<std::vector<std::string>> result;
        std::istringstream lines(readFile(path(name)));
        for (std::string line; std::getline(lines, line);) {
            std::istringstream fields(line);
            result.emplace_back();
            for (std::string field; std::getline(fields, field, ',');) {
                result.back().push_back(field);
            }
        }
        return result;
    };
    const auto series = rows("h/series.csv");
    const auto sensors = rows("h/sensors.csv");
    ASSERT_EQ(series.size(), 1U + 4U * 10U);
    EXPECT_THAT(series[0],
                testing::ElementsAre("hour_of_year", "month", "day", "hour", "beam_3 [Wh/m2]",
                                     "sky_3 [Wh/m2]", "ground_3 [Wh/m2]", "beam_12 [Wh/m2]",
                                     "sky_12 [Wh/m2]", "ground_12 [Wh/m2]"));
    EXPECT_EQ(series[1][0] + " " + series[1][1] + "/" + series[1][2] + " " + series[1][3],
              "8721 12/30 9"); // half of it lies in the period
    EXPECT_EQ(series[21][0], "9");
    double sum = 0.0;
    for (std::size_t row = 1; row < series.size(); ++row) {
        sum += std::stod(series[row][7]) + std::stod(series[row][8]) + std::stod(series[row][9]);
    }
    EXPECT_EQ(sensors[0][6], "total [Wh/m2]");
    EXPECT_NEAR(sum / std::stod(sensors[13][6]), 1.0, 1e-5);
    const std::string summary = readFile(path("h/summary.json"));
    EXPECT_THAT(summary, HasSubstr("\"albedo\": 0.3"));
    EXPECT_THAT(summary, HasSubstr("\"while_the_sun_is_down\""));
    EXPECT_THAT(summary, HasSubstr("\"highest_peak\""));

    // A run without it takes the earlier run's series away, but no file that only has its name.
    const std::string without =
        "run --weather good.epw --scene court.obj --period 1/1 --quiet --out h";
    EXPECT_EQ(command(without + " --grid 0").exitCode, 2);
    EXPECT_TRUE(std::filesystem::exists(path("h/series.csv")));
    EXPECT_EQ(command(without).exitCode, 0);
    EXPECT_FALSE(std::filesystem::exists(path("h/series.csv")));
    write("h/series.csv", "hour,mine\n");
    EXPECT_EQ(command(without).exitCode, 0);
    EXPECT_EQ(readFile(path("h/series.csv")), "hour,mine\n");
}

TEST_F(CommandTest, TakesAStudyFileAndLetsTheCommandLineWin) {
    std::filesystem::create_directory(path("s"));
    write("s/points.csv", "5,5,0.1,0,0,1\n");
    write("s/a.toml",
          "weather = '../good.epw'\nscene = ['../court.obj']\nsensors = 'points.csv'\n"
          "period = '3/1-3/2'\nnorth = 30\nquiet = true\nmethod = 'perez-sky'\nout = 'r'\n");
    const Outcome run = command("run --study s/a.toml --period 3/1");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const std::string summary = readFile(path("s/r/summary.json"));
    EXPECT_THAT(summary, HasSubstr("\"text\": \"1 March\""));
    EXPECT_THAT(summary, HasSubstr("\"north_deg\": 30.0"));
    EXPECT_THAT(summary, HasSubstr("\"method\": \"perez-sky\""));

    write("bad.toml", "step = 0.1\nwether = 'a'\n");
    write("value.toml", "step = 'x'\n");
    write("nest.toml", "period = { a = 1 }\n");
    write("form.toml", "period = \n");
    EXPECT_THAT(command("run --study bad.toml").err,
                HasSubstr("bad.toml:2: there is no option 'wether'; did you mean 'weather'?"));
    EXPECT_THAT(command("run --study value.toml").err, HasSubstr("value.toml:1: "));
    EXPECT_THAT(command("run --study nest.toml").err, HasSubstr("nest.toml:1: 'period' must be"));
    EXPECT_THAT(command("run --study form.toml").err, HasSubstr("form.toml:1: "));
    EXPECT_THAT(command("run --study none.toml").err, HasSubstr("none.toml: cannot be read"));
}

TEST_F(CommandTest, AnswersBadInputWithOneLineAndNoFiles) {
    const std::string good = test::clearYear();
    write("gap.epw", withLine(good, test::weatherLine(3, 5, 12), "2001,3,5,12", "2001,3,5,13"));
    write("short.epw", good.substr(0, good.find("2001,12,1,1,")));
    write("noplace.epw", good.substr(good.find('\n') + 1));
    write("text.epw", "hello\n");
    write("points.obj", "v 0 0 0\n");
    write("nan.obj", "v 0 0 nan\n");
    write("bad.csv", "x,y,z,nx,ny,nz\n1,2,3,0,0,1\n1,2\n");
    write("zero.csv", "1,2,3,0,0,0\n");
    write("file", "");
    struct Case {
        std::string words;
        int exitCode;
        std::string message;
    };
    const std::string base = "run --scene court.obj --weather good.epw --out out ";
    const std::string scene = "run --scene court.obj --out out --weather ";
    for (const Case& c : std::vector<Case>{
             {"", 2, "subcommand"},
             {"fly", 2, "'fly'; choose from run, sky, sun, weather; see 'insolate --help'"},
             {"runn --out out", 2, "no subcommand 'runn'; did you mean 'run'?"},
             {"weather inof good.epw", 2, "did you mean 'info'?"},
             {base + "--gird=2", 2, "no option '--gird'; did you mean '--grid'?"},
             {base + "more", 2, "'more' was not expected; "},
             {base + "--method hourli", 2,
              "--method: there is no 'hourli'; did you mean 'hourly'?"},
             {base + "--method", 2, "--method: the value is missing; give --method NAME:{hourly"},
             {base + "--method --quiet", 2, "--method: the value is missing; "},
             {base + "--grid 1 --grid 2", 2, "--grid is given more than once; "},
             {base + "--north abc", 2, "--north: 'abc' is no number; give degrees"},
             {base + "--threads 1.5", 2, "--threads: '1.5' is no whole number; give"},
             {base + "--series=-1", 2, "--series: '-1' is no number from 0; give"},
             {base + "--series 1,x", 2, "--series: 'x' is no number from 0; give"},
             {base + "--period 6/1-", 2, "the second date is missing; "},
             {"run --out out --scene court.obj", 2, "--weather is missing"},
             {"run --weather good.epw --out out", 2, "--scene is missing"},
             {"run --weather good.epw --scene court.obj", 2, "--out is missing"},
             {base + "--colour red", 2, "insolate run --help"},
             {base + "--units yd", 2, "there is no 'yd'; choose from mm, cm"},
             {base + "--method magic", 2, "there is no 'magic'; choose from hourly, "},
             {base + "--step fast", 2, "--step"},
             {base + "--step 0", 2, "--step 0: "},
             {base + "--period 2/30-3/1", 2, "February has 28 days"},
             {base + "--hours 18-8", 2, "the range is empty"},
             {base + "--grid 0", 2, "--grid 0"},
             {base + "--grid 0.0005", 2, "choose a larger --grid"},
             {base + "--north nan", 2, "--north nan"},
             {base + "--threads -1", 2, "--threads -1"},
             {scene + "none.epw", 1, "none.epw: the file cannot be opened"},
             {scene + "court.obj", 1, "court.obj: not a weather file"},
             {scene + "text.epw", 1, "text.epw: there is no LOCATION line"},
             {scene + "text.epw --method perez-sky", 1, "text.epw:1: no LOCATION line"},
             {scene + "noplace.epw", 1, "no LOCATION line"},
             {base + "--step 0.3", 2, "--step 0.3: hours are walked"},
             {base + "--albedo 2", 2, "--albedo '2'"},
             {base + "--albedo epw --method perez-sky", 2, "does not belong to --method perez-sky"},
             {base + "--sun-tolerance -1", 2, "--sun-tolerance -1"},
             {base + "--series 0,100000", 2, "--series 100000: there is no such sensor"},
             {base + "--save-masks", 2, "does not belong to --method hourly"},
             {scene + "short.epw", 1, "744 of the year's 8760 hours are missing"},
             {scene + "gap.epw", 1, "--allow-gaps"},
             {base + "--sensors none.obj", 1, "none.obj: no such file"},
             {base + "--sensors points.obj", 1, "points.obj: the model has no faces"},
             {base + "--sensors nan.obj", 1, "nan.obj:1: 'nan' is not a coordinate"},
             {base + "--sensors bad.csv", 1, "bad.csv:3: 2 fields"},
             {base + "--sensors zero.csv", 1, "zero.csv:1: the normal is zero"},
             {base + "--sensors zero.csv --select floor", 2, "--select"},
             {base + "--method perez-sky --masks good.epw", 1, "good.epw: not a mask file"},
             {base + "--select tower", 1, "'tower'; choose from 'court', 'floor'"},
             {base + "--select walls,flor", 1, "'flor'; did you mean 'floor'?"},
             {"run --scene court.obj --weather good.epw --out file/out", 1, "file/out"},
             {"run --scene court.obj --weather none.epw --out /proc/out", 1, "/proc/out"},
             {"sky --weather good.epw --out out --method perez-point", 2,
              "there is no 'perez-point'; choose from "},
             {"weather", 2, "insolate weather --help"},
             {"weather info", 2, "insolate weather info --help"},
             {"weather info none.epw", 1, "none.epw"},
             {"weather convert good.epw out", 2, "out: only .wea"},
             {"sun", 2, "give --lat and --lon"},
             {"sun --lat 40 --lon 0 --date 2/30", 2, "February has 28 days"}}) {
        const Outcome bad = command(c.words);
        EXPECT_EQ(bad.exitCode, c.exitCode) << c.words << "\n" << bad.err;
        EXPECT_THAT(bad.err, HasSubstr(c.message)) << c.words;
        const std::size_t error = bad.err.find("insolate: error: ");
        ASSERT_NE(error, std::string::npos) << c.words << "\n" << bad.err;
        EXPECT_EQ(bad.err.find('\n', error), bad.err.size() - 1) << "more than a line: " << bad.err;
        EXPECT_THAT(bad.err.substr(error), HasSubstr("; ")) << "no mend";
        EXPECT_FALSE(std::filesystem::exists(path("out"))) << c.words;
    }
    EXPECT_EQ(command(scene + "gap.epw --allow-gaps --quiet").exitCode, 0);
}

TEST_F(CommandTest, OutlivesStreamsThatNobodyReads) {
    const auto exitCodeOf = [&](const std::string& words) {
        const std::string line =
            "cd " + path("").string() + " && " + INSOLATE_COMMAND + " " + words;
        const int status = std::system(line.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    };
    EXPECT_EQ(exitCodeOf("sky --weather good.epw --period 6/21 --out sky 2>/dev/full"), 0);
    EXPECT_EQ(exitCodeOf("sun 2>&-"), 2);
    for (const char* words : {"sun --lat 40 --lon 0 --step 0.01", "run --help"}) {
        EXPECT_EQ(exitCodeOf(std::string(words) + " >/dev/full 2>stderr"), 1);
        EXPECT_THAT(readFile(path("stderr")),
                    HasSubstr("error: standard output: cannot be written"));
    }
}

TEST_F(CommandTest, StopsAtASignalWithoutFiles) {
    for (const int signal : {SIGINT, SIGTERM}) {
        const pid_t child = start("run --scene court.obj --weather good.epw --grid 0.04 --out out");
        while (readFile(path("stderr")).find("sensors: ") == std::string::npos) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        kill(child, signal);
        const Outcome stopped = finish(child);
        EXPECT_EQ(stopped.exitCode, 128 + signal) << stopped.err;
        EXPECT_THAT(stopped.err, HasSubstr("stopped; no result was written"));
        EXPECT_FALSE(std::filesystem::exists(path("out")));
    }
}

TEST_F(CommandTest, ConvertsWeatherWithoutChangingResults) {
    const Outcome convert = command("weather convert good.epw w/good.wea");
    ASSERT_EQ(convert.exitCode, 0) << convert.err;
    EXPECT_THAT(convert.err, HasSubstr("keep good.epw"));
    EXPECT_EQ(std::filesystem::file_size(path("w/good.wea")), 141608U);
    const std::string study = "run --scene court.obj --select floor --period 12/20-1/10 --quiet "
                              "--method cumulative-sky --weather ";
    const Outcome whole = command(study + "good.epw --out a");
    EXPECT_EQ(whole.exitCode, 0);
    EXPECT_THAT(whole.err, HasSubstr("warning: good.epw: 31 December counts as dark"));
    const Outcome stored = command(study + "w/good.wea --out b");
    EXPECT_EQ(stored.exitCode, 0);
    EXPECT_THAT(stored.err, HasSubstr("give the .epw file with --method hourly"));
    EXPECT_EQ(readFile(path("a/sensors.csv")), readFile(path("b/sensors.csv")));

    // Per month the clear year gives days x 12 hours of a half sine of 800 W/m2 at noon.
    const Outcome info = command("weather info good.epw");
    EXPECT_EQ(info.exitCode, 0) << info.err;
    EXPECT_THAT(info.out, HasSubstr("40.00 N, 0.00 E, UTC+0, elevation 100 m"));
    EXPECT_THAT(info.out,
                testing::ContainsRegex("January +189\\.[0-9] +28\\.[0-9] +0\\.0 +10\\.0"));
    EXPECT_THAT(info.out, HasSubstr("usable by 'insolate run'"));
    EXPECT_THAT(command("weather info w/good.wea").out, HasSubstr("Testville"));
    write("gap.epw", withLine(test::clearYear(), 100, "2001", "what"));
    const Outcome gap = command("weather info gap.epw");
    EXPECT_EQ(gap.exitCode, 1);
    EXPECT_THAT(gap.out, HasSubstr("gap.epw:100"));
    EXPECT_THAT(gap.err, HasSubstr("gap.epw:99: 1 of the year's 8760 hours are missing"));
    write("zone.epw", withLine(test::clearYear(), 1, "40.0,0.0,0.0", "40.0,0.0,6.0"));
    EXPECT_THAT(command("weather info zone.epw").out, HasSubstr("while the sun is down: "));
    EXPECT_EQ(command("weather convert gap.epw gap.wea").exitCode, 1);
    EXPECT_FALSE(std::filesystem::exists(path("gap.wea")));
}

TEST_F(CommandTest, PrintsSunAndWritesSky) {
    const Outcome sun = command("sun --weather good.epw --date 3/21 --step 0.5");
    EXPECT_EQ(sun.exitCode, 0);
    EXPECT_THAT(sun.out, HasSubstr("Testville, TST, 40.00 N, 0.00 E, UTC+0, 21 March"));
    const Outcome sky = command("sky --weather good.epw --period 6/21 --out sky");
    ASSERT_EQ(sky.exitCode, 0) << sky.err;
    const std::string table = readFile(path("sky/sky.csv"));
    EXPECT_EQ(std::count(table.begin(), table.end(), '\n'), 1297);
    EXPECT_TRUE(std::filesystem::exists(path("sky/sky.png")));
    EXPECT_THAT(command("--version").out, HasSubstr("insolate "));
    EXPECT_THAT(command("run --help").out, HasSubstr("true north"));
}

} // namespace
} // namespace insolate::app
