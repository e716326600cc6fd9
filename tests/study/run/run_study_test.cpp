// A run as a program starts it: what it refuses, and what it says.
#include "study/run/run_option_table.h"
#include "study/run/run_study.h"
#include "study/support/errors.h"
#include "tests/study/support/study_fixture.h"

#include <array>

#include <gmock/gmock.h>

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
        {options, "series", "1,x", "--series: 'x' is no number from 0; give"},
        {options, "albedo", "2", "--albedo '2': "},
        {options, "sun-tolerance", "-1", "--sun-tolerance -1: "},
        {options, "sky-tolerance", "101", "--sky-tolerance 101: "},
        {options, "sky-tolerance", "0.01", "give 0.05 or more, or 0"},
        {options, "save-masks", "true", "does not belong to --method hourly"},
        {perezSky, "series", "0", other},
        {perezSky, "albedo", "epw", other},
        {perezSky, "open-ground", "true", other},
        {perezSky, "sun-tolerance", "1", other},
    };
    for (const auto& c : cases) {
        EXPECT_THAT(messageOf([&] { checkRunOptions(with(c.options, c.name, c.value)); }),
                    HasSubstr(c.message));
    }
    EXPECT_EQ(usedThreads(1), 1);
    EXPECT_EQ(usedThreads(100'000), usedThreads(0));
}

TEST(RunStudy, WarnsOfWhatMakesResultsDoubtfulAndTurnsThePicture) {
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
    std::array<std::string, 2> pictures;
    for (const bool isTurned : {false, true}) { // in the dark nothing else changes
        options.out = folder.path() / "out";
        options.north = isTurned ? 90.0 : 0.0;
        test::Heard heard;
        runStudy(options, heard);
        EXPECT_THAT(heard.warnings,
                    testing::UnorderedElementsAre(
                        HasSubstr("1 line repeats an hour; the last one stands"),
                        HasSubstr("1 hour without data counts as without"),
                        HasSubstr("1 of 1 closed body look partly inwards; 5 faces were turned"),
                        HasSubstr("no hour of the period has radiation"),
                        HasSubstr("1 of 3 sensors sees no sky; it may lie in")));
        pictures[isTurned ? 1 : 0] = test::readFile(options.out / "heatmap.png");
    }
    EXPECT_NE(pictures[0], pictures[1]);
}

} // namespace
} // namespace insolate::study
