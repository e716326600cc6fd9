// The built command as a user meets it: arguments in; exit code, one line and files out.
#include "tests/app/support/command_fixture.h"

#include <map>
#include <sstream>

#include <nlohmann/json.hpp>

namespace insolate::app {

using namespace study;
namespace {

using std::filesystem::exists;
using test::readFile;
using test::rowsOf;
using test::withLine;
using testing::HasSubstr;

class CommandTest : public test::CommandFixture {
protected:
    /// The command without an error.
    Outcome done(const std::string& words) const {
        Outcome outcome = command(words);
        EXPECT_EQ(outcome.exitCode, 0) << words << "\n" << outcome.err;
        return outcome;
    }
    void expectAll(const std::string& text, std::initializer_list<const char*> parts) const {
        for (const char* part : parts) {
            EXPECT_THAT(text, HasSubstr(part));
        }
    }
};

TEST_F(CommandTest, RunsAStudy) {
    const std::string study =
        "run --weather good.epw --scene court.obj --select floor --period 6/1-6/30 --hours 8-18 "
        "--step 0.5 --grid 1 --method perez-sky ";
    const Outcome run = done(study + "--sensors court.obj --out a/b");
    EXPECT_EQ(run.out, "");
    expectAll(run.err, {"perez-sky method, 1 June to 30 June, 8:00 to 18:00\n",
                        "scene: 10 triangles, 10 x 10 x 10 m\n", "sensors: 100\n"});
    EXPECT_EQ(rowsOf(path("a/b/sensors.csv")).size(), 101U);
    EXPECT_THAT(readFile(path("a/b/summary.json")),
                HasSubstr("\"1 June to 30 June, 8:00 to 18:00\""));
    EXPECT_EQ(done(study + "--out c --quiet --threads 2 --save-masks").err, "");
    done(study + "--out d --masks c/sensors.masks");
    for (const char* name : {"sensors.csv", "sensors.vtp", "heatmap.png"}) {
        EXPECT_GT(std::filesystem::file_size(path("a/b") / name), 100U) << name;
        EXPECT_EQ(readFile(path("a/b") / name), readFile(path("c") / name)) << name;
        EXPECT_EQ(readFile(path("a/b") / name), readFile(path("d") / name)) << name;
    }
    done(study + "--north 3 --out c");
    EXPECT_TRUE(exists(path("c/sensors.masks"))) << "masks may have taken hours";
}

TEST_F(CommandTest, WeighsTheMeanByTheCellsAreas) {
    write("two.obj", "v 0 0 20\nv 9 0 20\nv 9 7 20\nv 0 7 20\nf 1 2 3 4\n"
                     "v 20 0 9\nv 23 0 9\nv 20 2 9\nf 5 7 6\n");
    write("two.csv", "4.5,3.5,20.05,0,0,1\n21,0.5,8.95,0,0,-1\n");
    const std::string study =
        "run --weather good.epw --period 6/1 --reflectance 0 --quiet --out o --scene two.obj ";
    const auto meanOf = [&] {
        const std::string summary = readFile(path("o/summary.json"));
        return std::stod(summary.substr(summary.find("\"mean\": ") + 8));
    };
    done(study + "--grid 20");
    const auto rows = rowsOf(path("o/sensors.csv"));
    ASSERT_EQ(rows.size(), 3U);
    constexpr std::size_t area = 19;
    EXPECT_EQ(rows[0][area], "area [m2]");
    EXPECT_EQ(rows[1][area] + " " + rows[2][area], "63 3");
    const double up = std::stod(rows[1][6]);
    const double down = std::stod(rows[2][6]);
    EXPECT_NEAR(meanOf(), (63.0 * up + 3.0 * down) / 66.0, 1e-6 * up);
    expectAll(readFile(path("o/summary.json")),
              {"\"area_m2\": 66.0", "\"means_weighted_by\": \"area\""});
    EXPECT_THAT(readFile(path("o/sensors.vtp")), HasSubstr("Name=\"area\""));
    EXPECT_THAT(done("run --weather good.epw --period 6/1 --grid 20 --albedo epw --tolerance 0 "
                     "--out o --scene two.obj")
                    .err,
                testing::AllOf(HasSubstr("of them faces down: "), HasSubstr("--tolerance 1 ")));
    expectAll(readFile(path("o/summary.json")), {"\"albedo\": [\n      0.2,\n"});
    done(study + "--sensors two.csv");
    EXPECT_EQ(rowsOf(path("o/sensors.csv"))[0].back(), "enclosed [0 or 1]");
    EXPECT_NEAR(meanOf(), (up + down) / 2.0, 1e-6 * up);
}

TEST_F(CommandTest, WritesTheHoursOfChosenSensors) {
    const Outcome run = done(
        "run --weather good.epw --scene court.obj --select floor --period 12/30-1/2 --hours "
        "8:30-18 --albedo 0.3 --tolerance 0.5 --sun-tolerance 1 --sky-tolerance 3 --open-ground "
        "--hours-of 3,12,3 --out h");
    expectAll(run.err, {"kWh/m2\n", "hours.nc, hours.csv and summary.json"});
    const auto series = rowsOf(path("h/hours.csv"));
    const auto sensors = rowsOf(path("h/sensors.csv"));
    double highest = 0.0;
    for (std::size_t row = 1; row < sensors.size(); ++row) {
        highest = std::max(highest, std::stod(sensors[row][6]));
    }
    const std::string said = run.err.substr(run.err.find(" to ", run.err.find("total radiation")));
    EXPECT_NEAR(std::stod(said.substr(4)), highest / 1000.0, 1e-3 * highest / 1000.0);
    ASSERT_EQ(series.size(), 1U + 4U * 10U);
    EXPECT_THAT(series[0], testing::ElementsAre(
                               "hour_of_year", "start", "beam_3 [Wh/m2]", "sky_3 [Wh/m2]",
                               "ground_3 [Wh/m2]", "reflected_3 [Wh/m2]", "beam_12 [Wh/m2]",
                               "sky_12 [Wh/m2]", "ground_12 [Wh/m2]", "reflected_12 [Wh/m2]"));
    EXPECT_EQ(series[1][0] + " " + series[1][1], "9 2001-01-01T08:00+00:00"); // half of it counts
    EXPECT_EQ(series[21][0] + " " + series[21][1], "8721 2001-12-30T08:00+00:00");
    double sum = 0.0;
    for (std::size_t row = 1; row < series.size(); ++row) {
        for (std::size_t column = 6; column < 10; ++column) {
            sum += std::stod(series[row][column]);
        }
    }
    EXPECT_EQ(sensors[0][6], "total [Wh/m2]");
    EXPECT_NEAR(sum / std::stod(sensors[13][6]), 1.0, 1e-5);
    expectAll(readFile(path("h/summary.json")),
              {"\"albedo\": 0.3", "\"reflectance\": 0.2", "\"ground\": \"open\"",
               "\"tolerance_percent\": 0.5", "\"sun_tolerance_percent\": 1.0",
               "\"sky_tolerance_percent\": 3.0", "\"while_the_sun_is_down\"", "\"highest_peak\""});
}

TEST_F(CommandTest, TakesAStudyFileAndLetsTheCommandLineWin) {
    std::filesystem::create_directory(path("s"));
    write("s/points.csv", "5,5,0.1,0,0,1\n");
    write("s/a.toml",
          "weather = '../good.epw'\nscene = ['../court.obj']\nsensors = 'points.csv'\n"
          "period = '2/30'\nnorth = 30\nquiet = true\nmethod = 'perez-sky'\nout = 'r'\n");
    EXPECT_EQ(done("run --study s/a.toml --period 3/1").err, "");
    expectAll(readFile(path("s/r/summary.json")), {"\"text\": \"1 March\"", "\"north_deg\": 30.0",
                                                   "\"method\": \"perez-sky\"", "points.csv"});
    // What chooses among faces goes with the sensors of the file.
    write("faces.toml", "weather = 'good.epw'\nscene = 'court.obj'\nselect = 'no*'\ngrid = 0.1\n"
                        "period = '3/1'\nout = 'p'\n");
    done("run --study faces.toml --sensors plane:z=20,grid=5");
    EXPECT_THAT(command("run --study faces.toml --sensors s/points.csv --facing up").err,
                HasSubstr("--facing chooses the faces"));
    std::string deep = "1";
    for (int i = 0; i < 50'000; ++i) {
        deep += ".1";
    }
    std::string quotes;
    for (int i = 0; i < 500'000; ++i) {
        quotes += "\\\"";
    }
    using Case = std::pair<std::string, const char*>;
    for (const auto& [content, message] :
         {Case{"step = 0.1\nwether = 'a'\n",
               "bad.toml:2: there is no option 'wether'; did you mean 'weather'?"},
          {"study = 'a'\n", "bad.toml:1: there is no option 'study'; the keys"},
          {"step = 'x'\n", "bad.toml:1: --step: 'x' is no number; give hours"},
          {"# " + deep + "\nout = 'o'\n" + deep + " = 1\n",
           "bad.toml:3: a name has more than 16 parts; put names that hold dots in quotes"},
          {"a = { [" + deep + "]\n", "bad.toml:1: a name has more than 16 parts"},
          {"x = { a = \"\"\"\n # \"\"\", " + deep + " = 1 }\n", "bad.toml:2: a name has more than"},
          {"x = '''\n" + deep + "\n# '''\n" + deep + " = 1\n", "bad.toml:4: a name has more than"},
          {"title = \"\"\"\n" + deep + "\\\"\"\"\"\n\ngird = 1\n",
           "bad.toml:4: there is no option 'gird'"},
          {"title = \"" + quotes, "bad.toml:1:"}, // at once, however many
          {"'" + deep + "' = 1\n", "bad.toml:1: there is no option '1.1"},
          {"period = { a = 1 }\n", "bad.toml:1: 'period' cannot be a table; write"},
          {"select = [\n'a',\n[1],\n]\n", "bad.toml:3: 'select' cannot be a list of lists; "},
          {"hours-of = [\n1,\n'x']\n", "bad.toml:3: --hours-of: 'x'"},
          {"period = []\n", "bad.toml:1: 'period' takes one value, not a list"},
          {"grid = [1, 2]\n", "bad.toml:1: 'grid' takes one value"},
          {"quiet = 1\n", "bad.toml:1: 'quiet' is on or off; write quiet = true"},
          {"grid = true\n", "bad.toml:1: 'grid' cannot be true"},
          {"weather = 'good.epw'\nout = 'o'\nscene = 'court.obj'\nhours = '9'\n",
           "bad.toml:4: --hours '9': "},
          {"quiet = true\nperiod = 6/1\n", "bad.toml:2:11: 'period = 6/1' cannot be read; write"},
          {"quiet = true\nweather = 'none.epw'\n", "bad.toml:2: weather: none.epw: no such file; "},
          {"grid = 2\ngrid = 3\n", "bad.toml:2:8: 'grid' is given a second time; "}}) {
        write("bad.toml", content);
        EXPECT_THAT(command("run --study bad.toml").err, HasSubstr(message));
    }
    EXPECT_THAT(command("run --study none.toml").err, HasSubstr("none.toml: no such file"));
}

TEST_F(CommandTest, RunsAndChecksTheAnalysesOfAStudyFile) {
    write("s.toml", "weather = 'good.epw'\nscene = 'court.obj'\nselect = 'floor'\nout = 'r'\n"
                    "dates = '3/21'\n[[analysis]]\nname = 'a'\nperiod = '6/1'\n"
                    "[[analysis]]\nname = 'b'\nperiod = '6/2'\nmethod = 'perez-sky'\n"
                    "[[analysis]]\nname = 'c'\ncommand = 'sunhours'\n");
    EXPECT_EQ(done("study check s.toml --quiet").out, "s.toml: in order\n");
    EXPECT_FALSE(exists(path("r")));
    done("run --study s.toml --period 7/1"); // the command line wins
    EXPECT_THAT(readFile(path("r/a/summary.json")), HasSubstr("\"1 July\""));
    EXPECT_THAT(readFile(path("r/b/summary.json")), HasSubstr("\"1 July\""));
    EXPECT_FALSE(exists(path("r/c")));
    done("study run s.toml --quiet");
    EXPECT_THAT(readFile(path("r/b/summary.json")), HasSubstr("\"2 June\""));
    EXPECT_THAT(readFile(path("r/b/summary.json")), HasSubstr("perez-sky"));
    EXPECT_TRUE(exists(path("r/c/groups.csv")));
    EXPECT_THAT(command("sky --study s.toml").err,
                HasSubstr("s.toml: none of the analyses has command = \"sky\"; "));
    write("q.toml", "quiet = true\ndry-run = true\n" + readFile(path("s.toml")));
    const Outcome quiet = done("study run q.toml");
    expectAll(quiet.out, {"a\nsensors    ", "b\nsensors    "});
    EXPECT_EQ(quiet.err, "");
    write("t.toml",
          readFile(path("s.toml")) + "count = 'x'\n[[analysis]]\nname = 'd'\nalbedo = 7\n");
    const Outcome faults = command("study check t.toml --quiet");
    EXPECT_EQ(faults.exitCode, 1);
    expectAll(faults.out, {"t.toml:16: --count: there is no 'x'", "t.toml:19: --albedo '7': "});
    EXPECT_THAT(faults.err, HasSubstr("t.toml: 2 faults; "));
}

TEST_F(CommandTest, SaysWhatARunWouldTakeAndStops) {
    const std::string words = "run --weather good.epw --scene court.obj --select floor --grid 0.5 ";
    const Outcome dry = done(words + "--dry-run --threads 1 --out r");
    expectAll(dry.out, {"sensors    400\n", "area       100 m2\n", "triangles  10\n",
                        "memory     about 0.", " GB\n", "time       about ", " on 1 processor\n"});
    EXPECT_FALSE(exists(path("r")));
    EXPECT_EQ(done(words + "--dry-run --method perez-sky --quiet").out.substr(0, 15),
              "sensors    400\n");
}

TEST_F(CommandTest, ReportsToProgramsInJson) {
    const std::string words = "run --weather good.epw --scene court.obj --period 6/1 --out r ";
    std::istringstream lines(done(words + "--progress json").err);
    std::map<std::string, int> events;
    for (std::string line; std::getline(lines, line);) {
        const nlohmann::json object = nlohmann::json::parse(line);
        ++events[object.at("event")];
        if (object["event"] == "end") {
            EXPECT_EQ(object["done"], object["total"]);
            EXPECT_EQ(object["total"], 500 / 4);
        }
    }
    EXPECT_EQ(events["begin"], 2); // the sensors, and what reaches them by reflection
    EXPECT_EQ(events["end"], 2);
    EXPECT_GT(events["note"], 3);
    EXPECT_EQ(events["error"], 0);
    for (const char* other : {"view r", "weather convert good.epw a.wea"}) {
        std::istringstream said(done(std::string(other) + " --progress json").err);
        std::string line;
        std::getline(said, line);
        EXPECT_TRUE(nlohmann::json::parse(line).contains("event")) << other;
    }
    const nlohmann::json error =
        nlohmann::json::parse(command(words + "--grid 0 --quiet --progress=json").err);
    EXPECT_EQ(error["event"], "error");
    EXPECT_EQ(error["exit_code"], 2);
    EXPECT_THAT(std::string(error["text"]), HasSubstr("--grid 0: no edge of a cell"));
    EXPECT_THAT(command(words + "--progress xml").err, HasSubstr("{text,json}"));
}

TEST_F(CommandTest, AnswersBadInputWithOneLineAndNoFiles) {
    write("gap.epw", withLine(test::clearYear(), test::weatherLine(3, 5, 12), "3,5,12", "3,5,13"));
    write("bad.csv", "x,y,z,nx,ny,nz\n1,2,3,0,0,1\n1,2\n");
    write("far.obj", "v 0 0 0\nv 6e4 0 0\nv 6e4 4e4 0\nf 1 2 3\n");
    write("file", "");
    std::filesystem::create_directories(path("taken/hours.csv"));
    struct Case {
        std::string words;
        int exitCode;
        std::string message;
    };
    const std::string base = "run --scene court.obj --weather good.epw --out out ";
    const std::string scene = "run --scene court.obj --out out --weather ";
    const std::string sun = "sunhours --scene court.obj --lat 50 --lon 8 --tz 1 --out out ";
    for (const Case& c : std::vector<Case>{
             {"", 2, "a subcommand is missing; give one of run, sky, "},
             {"fly", 2, "'fly'; choose from run, sky, "},
             {"runn --out out", 2, "no subcommand 'runn'; did you mean 'run'?"},
             {"weather inof good.epw", 2, "did you mean 'info'?"},
             {"weather info none.epw", 1, "none.epw"},
             {"weather convert good.epw out", 2, "out: only .wea"},
             {"weather convert good.epw out/a.wea", 1,
              "out/a.wea: cannot be written: there is no "},
             {"weather convert good.epw /proc/a.wea", 1, "/proc/a.wea: cannot be written: "},
             {"weather convert good.epw file/a.wea", 1, "file/a.wea: cannot be written: file is"},
             {"run --out out --scene court.obj", 2, "--weather is missing"},
             {"run --weather good.epw --out out", 2, "--scene is missing"},
             {"run --weather good.epw --scene court.obj", 2, "--out is missing"},
             {base + "--colour red", 2, "'--colour'; see 'insolate run --help'"},
             {base + "--gird=2", 2, "no option '--gird'; did you mean '--grid'?"},
             {base + "more", 2, "'more' was not expected; "},
             {base + "--method hourli", 2, "--method: there is no 'hourli'; choose from hourly, "},
             {base + "--method", 2, "--method: the value is missing; give --method NAME:{hourly"},
             {base + "--method --quiet", 2, "--method: the value is missing; "},
             {base + "--grid 1 --grid 2", 2, "--grid is given more than once; "},
             {"run --scene far.obj --weather good.epw --out out", 2,
              "--units if the model does not measure 60,000 x 40,000 x 0 m, or give --force"},
             {base + "--study ''", 2, "--study: the name is empty; give one"},
             {"view somewhere --out ''", 2, "--out: the name is empty; give one"},
             {"picture somewhere --file ''", 2, "--file: the name is empty; give one"},
             {base + "--north abc", 2, "--north: 'abc' is no number; give degrees"},
             {base + "--step 0.3", 2, "--step 0.3: hours are walked"},
             {base + "--hours-of 0,100000", 2, "--hours-of 100000: there is no such sensor"},
             {base + "--method perez-sky --masks good.epw", 1, "good.epw: not a mask file"},
             {base + "--sensors none.obj", 1, "none.obj: no such file"},
             {base + "--sensors bad.csv --select floor", 2, "--select"},
             {base + "--sensors bad.csv --grid 2", 2, "--grid cuts"},
             {scene + "file --method perez-sky", 1, "file: not a weather file"},
             {scene + "gap.epw", 1, "--allow-gaps"},
             {"run --scene court.obj --weather good.epw --out file/out", 1, "file/out"},
             {"run --scene court.obj --weather none.epw --out /proc/out", 1, "/proc/out"},
             {"run --scene court.obj --weather none.epw --out taken --hours-of 0", 1,
              "taken/hours.csv: is a folder; "},
             {"sky --weather good.epw --out out --method perez-point", 2,
              "there is no 'perez-point'; choose from "},
             {"sun", 2, "give --lat and --lon"},
             {"sunhours --scene court.obj --dates 3/21 --out out", 2, "give --lat and --lon"},
             {sun, 2, "--dates is missing; "},
             {sun + "--dates 3/21,3/32", 2, "--dates '3/32': March has 31 days; "},
             {sun + "--rule nl-ligt", 2, "--rule: there is no 'nl-ligt'; did you mean 'nl-light'?"},
             {sun + "--rule en17037", 2,
              "--min-altitude is missing; en17037 (EN 17037:2018+A1:2021"},
             {sun + "--dates 3/21 --count most", 2,
              "--count: there is no 'most'; choose from sum, "},
             {sun + "--dates 3/21 --year 0", 2, "--year 0: the sun's place is known from 1950"},
             {sun + "--dates 3/21 --min 25", 2, "--min 25: out of range; give hours from 0 to 24"},
             {sun + "--dates 3/21 --min 2 --max-shadow 2", 2, "--max-shadow contradicts --min; "},
             {sun + "--dates 3/21 --min-with-gap 2", 2,
              "--min-with-gap belongs to --count one-gap"},
             {sun + "--dates 3/21 --hours 9-15 --after-sunrise 1", 2,
              "--hours contradicts --after"},
             {sun + "--dates 3/21 --pass area", 2, "--pass asks who must pass, but there is no "},
             {sun + "--dates 3/21 --min 2 --share 50", 2, "--share belongs to --pass area or"},
             {sun + "--dates 3/21 --min 2 --ratio 0.8", 2, "--baseline is missing; "},
             {sun + "--dates 3/21 --min 2 --baseline file", 2, "--ratio is missing; "},
             {sun + "--dates 3/21 --min 2 --ratio 1 --baseline none", 1,
              "none/summary.json: no such"},
             {sun + "--dates 3/21 --sunshine 1,2", 2, "--sunshine: 2 numbers, not twelve; "},
             {sun + "--dates 3/21 --year 1800", 2, "--year 1800: "},
             {sun + "--dates 3/21 --grid 0", 2, "--grid 0"},
             {"model info court.obj --up x", 2, "--up: there is no 'x'; choose from y, z"},
             {"sun --lat 4 --lon 4 --date 2049-13-01", 2, "--date '2049-13-01': "},
             {"sun --lat 4 --lon 4 --date 2/30", 2, "--date '2/30': February has 28"}}) {
        const Outcome bad = command(c.words);
        EXPECT_EQ(bad.exitCode, c.exitCode) << c.words << "\n" << bad.err;
        EXPECT_THAT(bad.err, HasSubstr(c.message)) << c.words;
        const std::size_t error = bad.err.find("insolate: error: ");
        ASSERT_NE(error, std::string::npos) << c.words << "\n" << bad.err;
        EXPECT_EQ(bad.err.find('\n', error), bad.err.size() - 1) << "more than a line: " << bad.err;
        EXPECT_THAT(bad.err.substr(error), HasSubstr("; ")) << "no fix";
        EXPECT_FALSE(exists(path("out"))) << c.words;
    }
    done(scene + "gap.epw --allow-gaps --period 3/5");
}

TEST_F(CommandTest, KeepsAnotherStudysFinishedSensorsUnderResume) {
    std::string left("INSOPART\1\0\0\0\1\0\0\0\7\0\0\0\0\0\0\0", 24);
    left += std::string(16, 'k') + std::string("\0\0\0\0\0\0\0\0\2\0\0\0\10\0\0\0", 16) +
            std::string(16, 'v');
    std::filesystem::create_directory(path("o"));
    write("o/.insolate-partial", left);
    const std::string study = "run --scene court.obj --weather good.epw --period 6/1 --quiet "
                              "--out o ";
    const Outcome refused = command(study + "--resume");
    EXPECT_EQ(refused.exitCode, 2);
    EXPECT_THAT(refused.err, HasSubstr("--resume: the 2 finished sensors in o belong to another "));
    EXPECT_EQ(readFile(path("o/.insolate-partial")), left);
    EXPECT_THAT(done(study).err, HasSubstr("2 finished sensors of an interrupted run are rep"));
    EXPECT_FALSE(exists(path("o/.insolate-partial")));
}

TEST_F(CommandTest, OutlivesStreamsThatNobodyReads) {
    EXPECT_EQ(command("sky --weather good.epw --period 6/21 --out sky 2>/dev/full").exitCode, 0);
    EXPECT_EQ(command("sun 2>&-").exitCode, 2);
    for (const char* words : {"sun --lat 40 --lon 0 --step 0.01", "run --help"}) {
        const Outcome full = command(std::string(words) + " >/dev/full");
        EXPECT_EQ(full.exitCode, 1);
        EXPECT_THAT(full.err, HasSubstr("error: standard output: cannot be written"));
    }
}

TEST_F(CommandTest, ConvertsWeatherWithoutChangingResultsAndWarnsOfTheLastDays) {
    std::filesystem::create_directory(path("w"));
    EXPECT_THAT(done("weather convert good.epw w/good.wea").err, HasSubstr("keep good.epw"));
    EXPECT_EQ(std::filesystem::file_size(path("w/good.wea")), 141608U);
    struct Case {
        std::string period, method;
        bool warnsOfEpw, warnsOfWea;
    };
    for (const Case& c :
         {Case{"12/20-1/10", "cumulative-sky", true, true}, Case{"12/30", "hourly", false, true},
          Case{"1/1-12/29", "perez-sky", false, false}}) {
        const std::string study = "run --scene court.obj --select floor --quiet --period " +
                                  c.period + " --method " + c.method;
        const std::string epw = done(study + " --weather good.epw --out a").err;
        const std::string wea = done(study + " --weather w/good.wea --out b").err;
        EXPECT_EQ(epw.find("warning: good.epw: 31 December") == 10, c.warnsOfEpw) << epw;
        EXPECT_EQ(wea.find("warning: w/good.wea: 31 December") == 10, c.warnsOfWea) << wea;
        EXPECT_EQ(readFile(path("a/sensors.csv")) == readFile(path("b/sensors.csv")),
                  c.method != "hourly");
    }
}

TEST_F(CommandTest, LooksIntoWeather) {
    // Per month the clear year gives days x 12 hours of a half sine of 800 W/m2 at noon.
    const std::string good = done("weather info good.epw").out;
    expectAll(good, {"40.00 N, 0.00 E, UTC+0, elevation 100 m", "usable by 'insolate run'"});
    EXPECT_THAT(good, testing::ContainsRegex("January +189\\.[0-9] +28\\.[0-9] +0\\.0 +10\\.0"));
    write("gap.epw", withLine(test::clearYear(), 100, "2001", "what"));
    const Outcome gap = command("weather info gap.epw");
    EXPECT_EQ(gap.exitCode, 1);
    EXPECT_THAT(gap.out, HasSubstr("gap.epw:100"));
    EXPECT_THAT(gap.err, HasSubstr("gap.epw:100: 'what' does not begin a data line; 1 of the "
                                   "year's 8760 hours is missing"));
    // What stands in a value's place is quoted, even where another hour's is marked as missing.
    write("text.epw", withLine(withLine(test::clearYear(), 50, ",300,0,", ",300,0,12x"), 40,
                               ",300,0,", ",300,0,9999"));
    EXPECT_THAT(command("weather info text.epw").err,
                testing::AllOf(HasSubstr("text.epw:50: field 15 "), HasSubstr("'12x"),
                               HasSubstr("missing in 2 hours, the first is 2 January, 13:00")));
    write("zone.epw", withLine(test::clearYear(), 1, "40.0,0.0,0.0", "40.0,0.0,6.0"));
    EXPECT_THAT(done("weather info zone.epw").out, HasSubstr("while the sun is down: "));
    for (const char* method : {"hourly", "perez-sky"}) {
        const std::string run = "run --weather zone.epw --scene court.obj --period 6/1 --out z "
                                "--quiet --method ";
        EXPECT_THAT(done(run + method).err,
                    HasSubstr("zone.epw: the time zone UTC+6 does not go with longitude 0.00 E"));
    }
}

TEST_F(CommandTest, CountsHoursOfSun) {
    write("sun.toml", "lat = 50\nlon = 15\ntz = 1\nscene = 'court.obj'\nselect = 'floor'\n"
                      "dates = ['6/21', '12/21']\nhours = '9-15'\nmin = 2\ndays = 'any'\n");
    const Outcome run = done("sunhours --study sun.toml --grid 1 --spans --out a");
    expectAll(run.err, {"50.00 N, 15.00 E, UTC+1, year 2025; centre of the sun's disc, without "
                        "refraction\n",
                        "21 June, 21 December, any one day; 9:00 to 15:00 clock time; all sun; at "
                        "least 2 h at every point\n",
                        "FAIL: "});
    expectAll(readFile(path("a/summary.json")),
              {"\"year\": 2025", "\"refraction\": false", "\"time_basis\": \"clock\""});
    expectAll(readFile(path("a/spans.csv")), {"2025-06-21T", "+01:00,"});
    done("sunhours --study sun.toml --grid 1 --threads 1 --quiet --out b");
    for (const char* name : {"sensors.csv", "sensors.vtp", "groups.csv", "heatmap.png"}) {
        EXPECT_EQ(readFile(path("a") / name), readFile(path("b") / name)) << name;
    }
    EXPECT_THAT(done("sunhours --list-rules").out, HasSubstr("to be given: --min-altitude\n"));
}

TEST_F(CommandTest, PrintsSunAndWritesSky) {
    EXPECT_THAT(done("sun --weather good.epw --date 3/21 --step 0.5").out,
                HasSubstr("Testville, TST, 40.00 N, 0.00 E, UTC+0, 21 March"));
    done("sky --weather good.epw --period 6/21 --out sky");
    EXPECT_EQ(rowsOf(path("sky/sky.csv")).size(), 1297U);
    EXPECT_TRUE(exists(path("sky/sky.png")));
    EXPECT_THAT(readFile(path("sky/sky.json")), // these belong to sensors in a scene
                testing::Not(testing::AnyOf(HasSubstr("the scene"), HasSubstr("tolerance"))));
    EXPECT_THAT(done("--version").out, HasSubstr("insolate "));
    EXPECT_THAT(done("run --help").out, HasSubstr("true north"));
}

} // namespace
} // namespace insolate::app
