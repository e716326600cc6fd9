// Folders of two runs compared and drawn: the files that come out, and what is refused.
#include "study/output/page.h"
#include "study/output/picture_format.h"
#include "study/results/result_folder.h"
#include "study/results/result_scene.h"
#include "study/run/run_compare.h"
#include "study/run/run_picture.h"
#include "study/run/run_study.h"
#include "study/run/view_results.h"
#include "study/support/errors.h"
#include "tests/study/support/study_fixture.h"

#include <algorithm>
#include <array>

#include <gmock/gmock.h>

namespace insolate::study {
namespace {

using test::messageOf;
using test::readFile;
using test::rowsOf;
using testing::Contains;
using testing::HasSubstr;

class CompareRunTest : public testing::Test {
protected:
    CompareRunTest() {
        m_run.weather = folder.write("a.epw", test::clearYear());
        m_run.scenes = {folder.write("court.obj", test::courtModel())};
        m_run.period = {
            .startDay = 152, .endDay = 152, .startHour = 8.0, .endHour = 18.0, .step = 0.5};
        compare.a = folder.path() / "before";
        compare.b = folder.path() / "after";
        compare.out = folder.path() / "diff";
        calculate(compare.a);
        // After: the same court with a roof over its eastern half.
        m_run.sensors = m_run.scenes.front();
        m_run.scenes.push_back(
            folder.write("roof.obj", "v 5 0 10\nv 10 0 10\nv 10 10 10\nv 5 10 10\nf 1 2 3 4\n"));
        calculate(compare.b);
    }

    void calculate(const std::filesystem::path& out) {
        m_run.out = out;
        Progress silent;
        runStudy(m_run, silent);
    }
    test::Heard compared() const {
        test::Heard heard;
        runCompare(compare, heard);
        return heard;
    }
    test::Heard drawn(const PictureRunOptions& options) const {
        test::Heard heard;
        runPicture(options, heard);
        return heard;
    }

    test::StudyFolder folder;
    RunOptions m_run;
    CompareRunOptions compare;
};

TEST_F(CompareRunTest, WritesWhatDiffersByCellAndByGroup) {
    EXPECT_THAT(compared().warnings, testing::IsEmpty());
    const ResultFolder before = readResultFolder(compare.a);
    const ResultFolder after = readResultFolder(compare.b);
    const ResultFolder difference = readResultFolder(compare.out);
    EXPECT_EQ(difference.facts.question, StudyFacts::Question::comparison);
    ASSERT_EQ(difference.field.size(), before.field.size());
    double sum = 0.0;
    double area = 0.0;
    for (std::size_t i = 0; i < before.field.size(); ++i) {
        const float own = after.find("total")->values[i] - before.find("total")->values[i];
        EXPECT_EQ(difference.find("total_difference")->values[i], own);
        sum += static_cast<double>(own * before.areas[i]);
        area += static_cast<double>(before.areas[i]);
    }
    EXPECT_LT(sum, -1.0e4 * area / 1.0e3); // the roof takes more than 10 Wh/m2 of some 7,000
    // The first line below the header is of all sensors.
    const auto rows = rowsOf(compare.out / "groups.csv");
    const auto at = [&](const char* heading) {
        const auto found = std::find(rows[0].begin(), rows[0].end(), heading);
        return std::stod(rows[1].at(static_cast<std::size_t>(found - rows[0].begin())));
    };
    EXPECT_EQ(rows[1][0], "all");
    EXPECT_NEAR(at("total_mean_difference [kWh/m2]"), 1.0e-3 * sum / area, 1.0e-5);
    EXPECT_NEAR(at("total_difference [MWh]"), 1.0e-6 * sum, 1.0e-6);
    EXPECT_NEAR(at("total_mean_ratio [%]"),
                100.0 * at("total_mean_b [kWh/m2]") / at("total_mean_a [kWh/m2]"), 1.0e-5);
    // The surroundings are those of B, found from the new folder.
    EXPECT_EQ(loadResultScene(difference).scene.triangleCount(), 12U);

    // A compared with a finer grid elsewhere lists what only one side has, and takes it back.
    m_run.grid = 1.0;
    m_run.selection.patterns = {"floor"};
    calculate(compare.b);
    compared();
    EXPECT_THAT(rowsOf(compare.out / "sensors.csv")[0], Contains("distance [m]"));
    EXPECT_EQ(rowsOf(compare.out / "only_a.csv").size(), 101U); // header and four walls of 25
    EXPECT_FALSE(std::filesystem::exists(compare.out / "only_b.csv"));
    compare.b = compare.a;
    compared();
    EXPECT_FALSE(std::filesystem::exists(compare.out / "only_a.csv"));
    EXPECT_THAT(rowsOf(compare.out / "sensors.csv")[0], testing::Not(Contains("distance [m]")));
}

TEST_F(CompareRunTest, ReplacesNoInputAndTakesNoOtherPeriod) {
    compare.out = compare.a;
    EXPECT_THAT(messageOf([&] { compared(); }), HasSubstr("sensors.csv"));
    compare.out = folder.path() / "diff";
    m_run.period.endDay = 153;
    calculate(compare.b);
    EXPECT_THAT(messageOf([&] { compared(); }), HasSubstr("cannot be compared: their periods are"));
    EXPECT_FALSE(std::filesystem::exists(compare.out));
}

TEST_F(CompareRunTest, DividesDirectionsAsAsked) {
    const auto rowsWith = [&](const char* orientation) {
        compared();
        const auto rows = test::rowsOf(compare.out / "groups.csv");
        return std::ranges::count_if(
            rows, [&](const auto& row) { return std::ranges::count(row, orientation) > 0; });
    };
    EXPECT_GT(rowsWith("north"), 0);
    const auto up = rowsWith("up");
    compare.classes.flat = 90.0;
    EXPECT_EQ(rowsWith("north"), 0);
    EXPECT_EQ(rowsWith("up"), up);
    compare.classes.sectors = 5;
    EXPECT_THAT(messageOf([&] { compared(); }), HasSubstr("--sectors 5: so many have no names"));
}

TEST_F(CompareRunTest, PicturesComeFromTheFolderAlone) {
    PictureRunOptions options;
    options.folder = compare.b;
    const auto file = [&](const char* name) { return folder.path() / name; };
    m_run.hourly.split = PeriodSplit::month;
    calculate(compare.b);
    EXPECT_THAT(drawn(options).notes, Contains(HasSubstr("total of 125 sensors")));
    options.value = "jun";
    EXPECT_THAT(drawn(options).notes, Contains(HasSubstr("total_jun of 125 sensors")));
    EXPECT_TRUE(isOurPicture(compare.b / "picture.png"));

    options.only = {"floor"};
    options.hide = {"brick"};
    options.value = "direct_sun_hours";
    options.view = pictureView("top");
    options.file = file("floor.svg");
    EXPECT_THAT(drawn(options).notes, Contains(HasSubstr("direct_sun_hours of 25 sensors")));
    const std::string plan = readFile(file("floor.svg"));
    options.scale = {0.0, 24.0};
    options.file = file("scaled.svg");
    drawn(options);
    EXPECT_NE(readFile(file("scaled.svg")), plan);

    const struct {
        const char *name, *value, *message;
    } cases[] = {
        {"value", "totl", "--value: there is no 'totl' in "},
        {"only", "flor", "is called 'flor'; did you mean 'floor'"},
        {"only", "roof.obj", "no object, group or material is called"},
        {"hide", "court", "--hide leaves no sensor to colour"},
        {"scale", "5", "--scale: '5' are no two numbers"},
        {"scale", "5,1", "--scale 5,1: the first must be below the second"},
        {"size", "10x10", "--size: '10x10' is no size"},
        {"view", "behind", "--view 'behind': there is no such view"},
        {"file", "a.jpg", "a.jpg"},
    };
    for (const auto& c : cases) {
        PictureRunOptions wrong;
        wrong.folder = compare.b;
        OptionTable table;
        addPictureOptions(table, wrong);
        EXPECT_THAT(messageOf([&] {
                        OptionTable::give(*table.find(c.name), std::array<std::string, 1>{c.value});
                        drawn(wrong);
                    }),
                    HasSubstr(c.message));
    }

    // Without its model the cells are drawn alone, and groups, which it alone knows, have no names.
    std::filesystem::remove(folder.path() / "roof.obj");
    EXPECT_THAT(messageOf([&] { drawn(options); }), HasSubstr("is called 'floor'; choose from"));
    options.only = {"stone"};
    EXPECT_THAT(drawn(options).warnings,
                testing::ElementsAre(HasSubstr("roof.obj: no longer there; the picture shows")));
}

TEST_F(CompareRunTest, ResultsAreViewedOnceAndOnEarth) {
    const auto viewed = [&](std::vector<std::filesystem::path> folders,
                            const char* name = "page.html") {
        ViewOptions options;
        options.folders = std::move(folders);
        options.out = folder.path() / name;
        Progress silent;
        viewResults(options, silent);
    };
    EXPECT_THAT(messageOf([&] {
                    viewed({compare.a, compare.b / ".." / "before"});
                }),
                HasSubstr("before: is given twice"));
    const std::string summary = readFile(compare.a / "summary.json");
    const std::string key = "\"latitude_deg\": ";
    std::string wrong = summary;
    wrong.insert(wrong.find(key) + key.size(), "9");
    folder.write("before/summary.json", wrong);
    EXPECT_THAT(messageOf([&] { viewed({compare.a}); }), HasSubstr("is no place on earth"));
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "page.html"));
    EXPECT_THAT(messageOf([&] { viewed({compare.a}, "page.txt"); }),
                HasSubstr("page.txt: no page has this ending; give a name that ends in .html"));
    folder.write("before/summary.json", summary);
    viewed({compare.a, compare.b});
    EXPECT_TRUE(isOurPage(folder.path() / "page.html"));
}

} // namespace
} // namespace insolate::study
