// A run as a program starts it: what it refuses, and what it says.
#include "study/run/reflected_sensors.h"
#include "study/run/run_option_table.h"
#include "study/run/run_study.h"
#include "study/run/study_batch.h"
#include "study/run/study_session.h"
#include "study/run/study_steps.h"
#include "study/support/errors.h"
#include "tests/study/support/study_fixture.h"

#include <algorithm>
#include <array>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace insolate::study {
namespace {

using test::messageOf;
using testing::HasSubstr;

/// The options with one more given.
RunOptions with(RunOptions options, const std::string& name, const std::string& value) {
    OptionTable table;
    addRunOptions(table, options);
    OptionTable::give(*table.find(name), std::array{value});
    return options;
}

TEST(RunOptions, AreRefusedByName) {
    RunOptions options;
    options.weather = options.out = "a";
    options.scenes = {"a.obj"};
    RunOptions perezSky = options;
    perezSky.method = "perez-sky";
    RunOptions june = options;
    june.period = {.startDay = 152, .endDay = 181};
    const std::string other = "does not belong to --method perez-sky";
    const struct {
        RunOptions options;
        const char *name, *value;
        std::string message;
    } cases[] = {
        {options, "units", "mmm", "--units: there is no 'mmm'; choose from mm, "},
        {options, "grid", "0", "--grid 0: no edge of a cell"},
        {options, "offset", "-1", "--offset -1: no distance"},
        {options, "north", "nan", "--north nan: no angle"},
        {options, "north", "999", "--north 999: no angle"},
        {options, "threads", "-1", "--threads -1: "},
        {options, "threads", "1.5", "--threads: '1.5' is no whole number; give"},
        {options, "threads", "99999999999", "'99999999999' is too large a whole number; give"},
        {options, "classes", "800,nan", "--classes nan: no total; give kWh/m2 above 0"},
        {options, "hours-of", "1,x", "--hours-of: 'x' is no number from 0; give"},
        {options, "hours-of", "all,3", "--hours-of: all, groups and numbers exclude each other"},
        {options, "by", "roof", "--by 'roof': cells are not grouped by 'roof'"},
        {options, "tilt-classes", "30,20", "--tilt-classes 30,20: bounds ascend"},
        {options, "flat", "91", "--flat 91: no slope of a flat surface"},
        {options, "sectors", "5", "--sectors: there is no '5'; choose from 4, 8, 16"},
        {options, "split", "week", "--split: there is no 'week'; choose from"},
        {options, "periods", "6/31", "--periods '6/31': "},
        {june, "periods", "6/30-7/1", "1 July does not lie in the study's 1 June to 30 June"},
        {options, "albedo", "2", "--albedo '2': "},
        {options, "sun-tolerance", "-1", "--sun-tolerance -1: "},
        {options, "sky-tolerance", "101", "--sky-tolerance 101: "},
        {options, "sky-tolerance", "0.01", "give 0.05 or more, or 0"},
        {options, "tolerance", "0.05", "--tolerance 0.05: below 0.1 % nothing gets better"},
        {options, "save-masks", "true", "does not belong to --method hourly"},
        {perezSky, "hours-of", "0", other},
        {perezSky, "split", "month", other},
        {options, "reflectance", "1.2", "--reflectance 1.2: no reflectance; give 0 to 1"},
        {with(options, "reflectance", "0"), "bounces", "2", "with --reflectance 0 there are none"},
        {options, "rays", "octree", "--rays octree knows no materials; leave it out, or give"},
        {with(options, "reflectance", "0.2"), "bounces", "-1", "--bounces -1: "},
        {perezSky, "reflectance", "0.2", other},
        {perezSky, "materials", "m.toml", other},
        {perezSky, "albedo", "epw", other},
        {perezSky, "open-ground", "true", other},
        {perezSky, "tolerance", "1", other},
    };
    for (const auto& c : cases) {
        EXPECT_THAT(messageOf([&] { checkRunOptions(with(c.options, c.name, c.value)); }),
                    HasSubstr(c.message));
    }
    EXPECT_EQ(usedThreads(1), 1);
    EXPECT_EQ(usedThreads(100'000), usedThreads(0));
}

TEST(RunStudy, WarnsOfWhatMakesResultsDoubtful) {
    const test::StudyFolder folder;
    RunOptions options;
    options.weather =
        folder.write("a.epw", test::withLine(test::clearYear(), test::weatherLine(3, 5, 12),
                                             "3,5,12", "3,5,11"));
    options.allowGaps = true;
    options.scenes = {folder.write("box.obj", test::courtModel() + "f 5 6 7 8\n")};
    options.sensors = folder.write("a.csv", "5,5,5,0,0,1\n-5,5,5,0,0,1\n-5,9,5,0,0,1\n");
    options.method = "perez-sky";
    options.period = {.startDay = 1, .endDay = 1, .startHour = 0.0, .endHour = 2.0, .step = 1.0};
    options.out = folder.path() / "out";
    test::Heard heard;
    runStudy(options, heard);
    EXPECT_THAT(heard.warnings,
                testing::UnorderedElementsAre(
                    HasSubstr("1 line repeats an hour; the last one stands"),
                    HasSubstr("1 hour without data counts as without"),
                    HasSubstr("1 of 1 closed body look partly inwards; 5 faces were turned"),
                    HasSubstr("no hour of the period has radiation"),
                    HasSubstr("1 of 3 sensors sees no sky and is left out of means and "
                              "colours; it may lie in")));
}

/// The column of that heading.
std::vector<double> columnOf(const std::filesystem::path& file, const std::string& heading) {
    const auto rows = test::rowsOf(file);
    const auto at = std::find(rows[0].begin(), rows[0].end(), heading) - rows[0].begin();
    std::vector<double> values;
    for (std::size_t row = 1; row < rows.size(); ++row) {
        values.push_back(std::stod(rows[row].at(static_cast<std::size_t>(at))));
    }
    return values;
}

TEST(RunStudy, CountsTheHoursByWatches) {
    const test::StudyFolder folder;
    RunOptions options;
    options.weather = folder.write("a.epw", test::clearYear());
    options.scenes = {folder.write("a.obj", test::courtModel())};
    options.sensors = folder.write("a.csv", "5,5,5,0,0,1\n");
    options.hourly.hoursOf.sensors = {0};
    options.out = folder.path() / "out";
    test::Heard heard;
    const auto resultsOf = [&](const std::string& method, const std::string& dates,
                               const std::string& hours, const std::string& dst) {
        options.method = method;
        options.hourly.hoursOf.sensors.resize(method == "hourly" ? 1 : 0);
        runStudy(with(with(with(options, "period", dates), "hours", hours), "dst", dst), heard);
        return test::readFile(options.out / "sensors.csv") +
               test::readFile(options.out / "hours.csv");
    };
    for (const char* method : {"hourly", "cumulative-sky", "perez-point"}) {
        const std::string watches = resultsOf(method, "6/1-6/30", "9:30-17", "eu");
        EXPECT_EQ(watches, resultsOf(method, "6/1-6/30", "8:30-16", "none")) << method;
        EXPECT_NE(watches, resultsOf(method, "6/1-6/30", "9:30-17", "7/1-8/1")) << method;
    }
    EXPECT_THAT(messageOf([&] { resultsOf("perez-sky", "3/1-3/31", "9-17", "eu"); }),
                HasSubstr("--dst: watches change within the period (summer time 30 March to"));
    // From the 30th on the hours of the series are those of one hour earlier.
    resultsOf("hourly", "3/29-3/30", "9-10", "eu");
    EXPECT_EQ(columnOf(options.out / "hours.csv", "hour_of_year"),
              (std::vector<double>{2098, 2121}));
    EXPECT_THAT(test::readFile(options.out / "summary.json"),
                testing::AllOf(HasSubstr("9:00 to 10:00 by watches, summer time 30 March"),
                               HasSubstr("\"clock\": \"watches: ")));
}

TEST(RunStudy, LeavesWhatStandsAgainstAnotherBodyOutOfMeansAndColours) {
    // Two blocks of 4 by 4 m that touch, one twice as high: half of the high one's side is hidden.
    const auto block = [](double x, double height) {
        std::string text;
        for (const double z : {0.0, height}) {
            text +=
                fmt::format("v {0} 0 {2}\nv {1} 0 {2}\nv {1} 4 {2}\nv {0} 4 {2}\n", x, x + 4, z);
        }
        return text;
    };
    const test::StudyFolder folder;
    RunOptions options;
    options.weather = folder.write("a.epw", test::clearYear());
    options.scenes = {folder.write("a.obj", block(0, 8) + block(4, 4) +
                                                "o high\nf 4 3 2 1\nf 5 6 7 8\nf 1 2 6 5\n"
                                                "f 2 3 7 6\nf 3 4 8 7\nf 4 1 5 8\n"
                                                "o low\nf 12 11 10 9\nf 13 14 15 16\nf 9 10 14 13\n"
                                                "f 10 11 15 14\nf 11 12 16 15\nf 12 9 13 16\n")};
    options.selection.patterns = {"high"};
    options.selection.facing = {Facing::east};
    options.period = {.startDay = 172, .endDay = 172};
    options.grid = 2.0;
    options.out = folder.path() / "out";
    test::Heard heard;
    runStudy(options, heard);
    EXPECT_THAT(heard.warnings, testing::Contains(HasSubstr(
                                    "4 of 8 sensors see neither sky nor ground and are left out")));
    const std::vector<double> height = columnOf(options.out / "sensors.csv", "z [m]");
    const std::vector<double> total = columnOf(options.out / "sensors.csv", "total [Wh/m2]");
    const std::vector<double> enclosed = columnOf(options.out / "sensors.csv", "enclosed [0 or 1]");
    double seen = 0.0;
    ASSERT_EQ(height.size(), 8U);
    for (std::size_t i = 0; i < height.size(); ++i) {
        EXPECT_EQ(enclosed[i], height[i] < 4.0 ? 1.0 : 0.0);
        seen += total[i];
    }
    const auto summaryOf = [&] {
        return nlohmann::json::parse(test::readFile(options.out / "summary.json"));
    };
    const nlohmann::json dropped = summaryOf();
    EXPECT_NEAR(dropped["results"]["total"]["mean"], seen / 4.0, 1e-5 * seen);
    EXPECT_GT(dropped["results"]["total"]["lowest"], 1000.0);
    EXPECT_EQ(dropped["results"]["total"]["count"], 4);
    EXPECT_EQ(dropped["sensors"]["enclosed"], 4);
    EXPECT_NEAR(dropped["sensors"]["area_m2"], 32.0, 1e-3);
    const std::string picture = test::readFile(options.out / "heatmap.png");

    runStudy(with(options, "enclosed", "keep"), heard);
    EXPECT_NEAR(summaryOf()["results"]["total"]["mean"], seen / 8.0, 1e-5 * seen);
    EXPECT_EQ(summaryOf()["results"]["total"]["lowest"], 0.0);
    EXPECT_NE(test::readFile(options.out / "heatmap.png"), picture);
}

// What a kept session has of the process must not stand in the way of the next study.
TEST(StudySession, HoldsNothingOfTheProcessWhenItIsKept) {
    const test::StudyFolder folder;
    RunOptions fast;
    fast.weather = folder.write("a.epw", test::clearYear());
    fast.scenes = {folder.write("a.obj", test::courtModel())};
    fast.period = {.startDay = 152, .endDay = 152};
    fast.hourly.reflectance = 0.0;
    RunOptions octree = fast;
    octree.rays = RayMethod::octree;
    RunOptions other = octree;
    other.method = "perez-sky";
    other.hourly.reflectance.reset();
    Progress silent;
    StudySession kept(octree, {}, silent);
    kept.calculate(silent);
    StudySession second(other, {}, silent);
    second.calculate(silent);
    StudySession third(other, {}, silent);
    third.calculate(silent);
    EXPECT_EQ(second.columns().front().values, third.columns().front().values);
    StudySession same(fast, {}, silent);
    same.calculate(silent);
    EXPECT_EQ(kept.columns().front().values, same.columns().front().values);
    EXPECT_EQ(kept.hoursOf(0).beam, same.hoursOf(0).beam);
}

TEST(RunStudy, PartsOfAStudyGetTheReflectedLightOfTheWhole) {
    const test::StudyFolder folder;
    constexpr std::size_t block = ReflectedSensors::blockSize;
    SensorField all;
    for (std::size_t i = 0; i < block + 50; ++i) {
        const double place = static_cast<double>(i) / (block + 50);
        all.positions.push_back({1.0 + 8.0 * place, 5.0, 1.0 + 3.0 * place});
        all.normals.push_back({1, 0, 0});
    }
    SensorField part;
    part.positions.assign(all.positions.begin() + block, all.positions.end());
    part.normals.assign(all.normals.begin() + block, all.normals.end());
    RunOptions options;
    options.weather = folder.write("a.epw", test::clearYear());
    options.scenes = {folder.write("box.obj", test::courtModel())};
    options.sensors = folder.write("a.csv", "5,5,1,1,0,0\n");
    options.period = {
        .startDay = 170, .endDay = 171, .startHour = 0.0, .endHour = 24.0, .step = 1.0};
    test::Heard heard;
    const StudySession session(options, {}, heard);
    const OtherSensors whole = session.calculateOthers(all, heard);
    const OtherSensors rest = session.calculateOthers(part, heard);
    for (std::size_t c = 0; c < rest.columns().size(); ++c) {
        const std::vector<float>& values = whole.columns()[c].values;
        EXPECT_EQ(rest.columns()[c].values,
                  std::vector<float>(values.begin() + block, values.end()))
            << whole.columns()[c].name;
    }
    const auto hourOf = [&](const OtherSensors& from, std::size_t at) {
        float light = 0.0f;
        from.hoursOf(
            at, at + 1,
            [&](std::size_t, std::span<const SensorHours> hours) {
                light = hours[0].reflected[170 * 24 + 12];
            },
            heard);
        return light;
    };
    EXPECT_GT(hourOf(rest, 49), 0.0f);
    EXPECT_EQ(hourOf(rest, 49), hourOf(whole, block + 49));
}

TEST(RunStudy, AddsWhatTheSceneReflects) {
    // A place between walls; the other looks away from everything.
    const test::StudyFolder folder;
    RunOptions options;
    options.weather = folder.write("a.epw", test::clearYear());
    options.scenes = {folder.write("box.obj", test::courtModel())};
    options.sensors = folder.write("a.csv", "5,5,1,1,0,0\n5,5,50,0,0,1\n");
    options.period = {
        .startDay = 170, .endDay = 175, .startHour = 0.0, .endHour = 24.0, .step = 1.0};
    options.hourly.hoursOf.sensors = {0, 1};
    options.out = folder.path() / "out";
    // Half of the days have parts of their own, or only totals of many parts.
    const std::vector<std::string> parts = {"6/19-6/21", "6/22-6/24"};
    const auto resultsOf = [&](std::optional<double> reflectance, std::size_t repeat) {
        RunOptions run = options;
        run.hourly.reflectance = reflectance;
        for (std::size_t i = 0; i < repeat; ++i) {
            run = with(with(run, "periods", parts[0]), "periods", parts[1]);
        }
        test::Heard heard;
        PreparedStudy study = prepareStudy(run, {}, heard);
        return calculateStudy(study, nullptr, heard);
    };
    const auto valueOf = [](const StudyResults& results, const std::string& name, std::size_t at) {
        for (const ResultColumn& column : results.columns) {
            if (column.name == name) {
                return static_cast<double>(column.values[at]);
            }
        }
        return 0.0;
    };
    const StudyResults black = resultsOf(0.0, 1);
    const StudyResults grey = resultsOf(0.4, 1);
    for (std::size_t at = 0; at < 2; ++at) {
        for (const StudyResults* one : {&black, &grey}) {
            const double total = valueOf(*one, "total", at);
            double sum = 0.0;
            double hours = 0.0;
            double ofParts = 0.0;
            for (const HourPart& part : everyHourPart) {
                const double value = valueOf(*one, part.name, at);
                double partSum = 0.0;
                for (const ResultColumn& column : one->columns) {
                    partSum += column.name.starts_with(std::string(part.name) + "_") &&
                                       column.unit == "Wh/m2"
                                   ? static_cast<double>(column.values[at])
                                   : 0.0;
                }
                EXPECT_NEAR(partSum, value, 1e-4 * total) << part.name << at;
                sum += value;
                ofParts += partSum;
                for (const float hour : one->hours[at].hours.*part.values) {
                    hours += static_cast<double>(hour);
                }
            }
            EXPECT_NEAR(sum, total, 1e-5 * total);
            EXPECT_NEAR(ofParts, total, 1e-4 * total);
            EXPECT_NEAR(hours, total, 1e-3 * total);
        }
        EXPECT_EQ(valueOf(black, "beam", at), valueOf(grey, "beam", at));
        EXPECT_EQ(valueOf(black, "sky", at), valueOf(grey, "sky", at));
    }
    EXPECT_GT(valueOf(grey, "reflected", 0), 0.1 * valueOf(black, "total", 0));
    EXPECT_NEAR(valueOf(grey, "total", 1) / valueOf(black, "total", 1), 1.0, 1e-6);
    EXPECT_EQ(valueOf(resultsOf({}, 1), "total", 0), valueOf(resultsOf(0.2, 1), "total", 0));
    // The one tolerance reaches reflected light.
    const auto raysBy = [&](const char* tolerance) {
        RunOptions run = with(options, "tolerance", tolerance);
        test::Heard heard;
        PreparedStudy study = prepareStudy(run, {}, heard);
        calculateStudy(study, nullptr, heard);
        return study.reflected->report().rays;
    };
    EXPECT_GT(raysBy("0.5"), 8 * raysBy("1"));
    EXPECT_EQ(valueOf(black, "reflected", 0), 0.0);
}

TEST(RunStudy, TakesMaterialsFromTheStudyFile) {
    // A pane lies over a level sensor; its own ground reflects three tenths in the study file.
    const test::StudyFolder folder;
    folder.write("a.epw", test::clearYear());
    folder.write("pane.obj", "v -50 -50 3\nv 50 -50 3\nv 50 50 3\nv -50 50 3\nusemtl skylight\n"
                             "f 1 2 3 4\n");
    folder.write("a.csv", "0,0,1,0,0,1\n");
    const std::string head = "weather = \"a.epw\"\nscene = \"pane.obj\"\nsensors = \"a.csv\"\n"
                             "period = \"6/21\"\nreflectance = 0\nout = \"out\"\n";
    const auto totalOf = [&](const std::string& tables) {
        test::Heard heard;
        runStudyTasks(readStudyTasks(folder.write("study.toml", head + tables)), heard, {});
        return columnOf(folder.path() / "out" / "sensors.csv", "total [Wh/m2]").front();
    };
    const double open = totalOf("[material.\"sky*\"]\ntransmittance = 1\nindex = 1\n");
    const double half = totalOf("[material.skylight]\ntransmittance = { leaf = 0.5 }\n");
    const double blocked = totalOf("");
    EXPECT_NEAR(half / open, 0.5, 0.005);
    EXPECT_LT(blocked, 0.05 * open);
    const auto hourly = [&] {
        return nlohmann::json::parse(
            test::readFile(folder.path() / "out" / "summary.json"))["hourly"];
    };
    EXPECT_FALSE(hourly().contains("materials"));
    // In a black world glass reflects nothing either.
    EXPECT_EQ(totalOf("[material.skylight]\ntransmittance = { leaf = 0.5 }\nreflectance = 0.4\n"),
              half);
    EXPECT_EQ(hourly()["materials"][0]["taken_for"], "leaves, 0.5 passes at each crossing, "
                                                     "reflects 0");
    EXPECT_FALSE(hourly().contains("reflected"));
    EXPECT_EQ(hourly()["reflectance"], 0.0);
    // Analyses share the materials, and what one says of the ground holds before the file's.
    (void)totalOf("[ground]\nalbedo = 0.5\n[[analysis]]\nname = \"a\"\nalbedo = 0.3\n");
    EXPECT_EQ(nlohmann::json::parse(
                  test::readFile(folder.path() / "out" / "a" / "summary.json"))["hourly"]["albedo"],
              0.3);
    for (const auto& [tables, message] : std::vector<std::pair<std::string, std::string>>{
             {"[material.skyligth]\nreflectance = 0.1\n", "study.toml:7: no object, group or "
                                                          "material is called 'skyligth'; did you "
                                                          "mean 'skylight'?"},
             {"materials = \"a.csv\"\n[ground]\nalbedo = 0.3\n", "keep one of them"},
             {"albedo = 0.2\n[ground]\nalbedo = 0.3\n", "albedo and [ground]; keep one"},
             {"[materail.a]\n", "did you mean 'material'?"}}) {
        EXPECT_THAT(messageOf([&, &given = tables] { totalOf(given); }), HasSubstr(message))
            << tables;
    }
}

} // namespace
} // namespace insolate::study
