// Which files stand in a folder after one question was asked, and then another.
#include "study/run/run_compare.h"
#include "study/run/run_sky.h"
#include "study/run/run_study.h"
#include "study/run/sun_hours.h"
#include "tests/study/support/study_fixture.h"

#include <set>

#include <gmock/gmock.h>

namespace insolate::study {
namespace {

using Folder = std::filesystem::path;
using Names = std::set<std::string>;

class ResultFiles : public testing::Test {
public:
    ResultFiles() {
        m_options.weather = m_folder.write("a.epw", test::clearYear());
        m_options.scenes = {m_folder.write("court.obj", test::courtModel())};
        m_options.grid = 5.0;
        m_options.period = {.startDay = 152, .endDay = 152};
        run(m_folder.path() / "a");
        m_options.selection.patterns = {"floor"};
        run(m_folder.path() / "b");
        m_options.selection.patterns.clear();
        m_options.page = true;
        m_options.hourly.hoursOf.sensors = {0};
    }

    void run(const Folder& out) {
        m_options.out = out;
        runStudy(m_options, m_silent);
    }
    void sunHours(const Folder& out) {
        SunHoursOptions options;
        static_cast<ModelOptions&>(options.model) = m_options;
        options.site.latitude = 45.0;
        options.site.longitude = 0.0;
        options.rule.days = parseDays("3/21");
        options.spans = true;
        options.page = true;
        options.out = out;
        runSunHours(options, m_silent);
    }
    void compare(const Folder& out) {
        CompareRunOptions options;
        options.a = m_folder.path() / "a";
        options.b = m_folder.path() / "b";
        options.out = out;
        runCompare(options, m_silent);
    }
    void sky(const Folder& out) {
        SkyOptions options = m_options;
        options.hourly = {};
        options.out = out;
        runSky(options, m_silent);
    }
    static Names namesIn(const Folder& folder) {
        Names names;
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            names.insert(entry.path().filename().string());
        }
        return names;
    }

    test::StudyFolder m_folder;
    RunOptions m_options;
    Progress m_silent;
};

TEST_F(ResultFiles, AreThoseOfTheLastQuestionAlone) {
    struct Question {
        const char* name;
        void (ResultFiles::*ask)(const Folder& out);
        Names own;
    };
    const Question asRun = {"run", &ResultFiles::run, {"hours.nc", "hours.csv", "page.html"}};
    const Question asSunHours = {"sunhours", &ResultFiles::sunHours, {"page.html", "spans.csv"}};
    const Question asCompare = {"compare", &ResultFiles::compare, {"only_a.csv"}};
    const Folder out = m_folder.path() / "out";
    sky(out); // stands beside whatever else
    // Each after each of the others.
    for (const Question* question :
         {&asRun, &asSunHours, &asRun, &asCompare, &asSunHours, &asCompare, &asRun}) {
        (this->*question->ask)(out);
        Names expected = {"sensors.csv", "sensors.vtp",  "groups.csv", "heatmap.png",
                          "sky.csv",     "summary.json", "sky.png",    "sky.json"};
        expected.insert(question->own.begin(), question->own.end());
        EXPECT_EQ(namesIn(out), expected) << question->name;
        // Earlier versions wrote it.
        m_folder.write("out/series.csv", "hour_of_year,month,day,hour\n");
    }
    sky(out);
    EXPECT_TRUE(namesIn(out).contains("hours.csv"));
}

TEST_F(ResultFiles, LeaveWhatOthersWroteAndWhatIsBeingRead) {
    const Folder out = m_folder.path() / "out";
    compare(out);
    for (const char* const name : {"out/page.html", "out/spans.csv", "out/hours.nc"}) {
        m_folder.write(name, "of the user");
    }
    m_options.sensors = out / "only_a.csv"; // the cells that one side has not, asked again
    m_options.grid.reset();
    m_options.page = false;
    m_options.hourly.hoursOf = {};
    run(out);
    EXPECT_THAT(namesIn(out), testing::IsSupersetOf({"page.html", "spans.csv", "hours.nc",
                                                     "only_a.csv", "summary.json"}));
    m_options.sensors.reset();
    m_options.grid = 5.0;
    m_options.method = "cumulative-sky";
    m_options.saveMasks = true;
    run(out);
    EXPECT_FALSE(namesIn(out).contains("only_a.csv"));
    std::filesystem::remove(out / "spans.csv");
    std::filesystem::remove(out / "page.html");
    sunHours(out);
    EXPECT_TRUE(namesIn(out).contains("sensors.masks")) << "they are expensive";
}

} // namespace
} // namespace insolate::study
