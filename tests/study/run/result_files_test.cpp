// Which files stand in a folder after one question was asked, and then another.
#include "study/run/run_compare.h"
#include "study/run/run_sky.h"
#include "study/run/run_study.h"
#include "study/run/sun_hours.h"
#include "tests/study/support/study_fixture.h"

#include <functional>
#include <map>
#include <set>

#include <gmock/gmock.h>

namespace insolate::study {
namespace {

using Folder = std::filesystem::path;
using Names = std::set<std::string>;

class ResultFiles : public testing::Test {
protected:
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
        m_options.saveMasks = true;
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
        options.spans = true;
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
    const std::map<std::string, std::function<void(const Folder&)>> questions = {
        {"run", [&](const Folder& out) { run(out); }},
        {"sunhours", [&](const Folder& out) { sunHours(out); }},
        {"compare", [&](const Folder& out) { compare(out); }}};
    std::map<std::string, Names> alone;
    for (const auto& [name, ask] : questions) {
        ask(m_folder.path() / name);
        alone[name] = namesIn(m_folder.path() / name);
    }
    const Names shared = {"sensors.csv", "sensors.vtp", "groups.csv", "heatmap.png",
                          "summary.json"};
    const auto with = [&](Names names) {
        names.insert(shared.begin(), shared.end());
        return names;
    };
    EXPECT_EQ(alone["run"], with({"hours.nc", "hours.csv", "page.html", "sensors.masks"}));
    EXPECT_EQ(alone["sunhours"], with({"spans.csv"}));
    EXPECT_EQ(alone["compare"], with({"only_a.csv"}));
    for (const auto& [first, askFirst] : questions) {
        for (const auto& [second, askSecond] : questions) {
            const Folder out = m_folder.path() / (first + "_" + second);
            askFirst(out);
            // Earlier versions wrote it.
            m_folder.write(out.filename() / "series.csv", "hour_of_year,month,day,hour\n");
            askSecond(out);
            Names expected = alone[second];
            if (first == "run") {
                expected.insert("sensors.masks"); // expensive, so they stay
            }
            EXPECT_EQ(namesIn(out), expected) << first << ", then " << second;
        }
    }
    // A sky stands beside them, whichever comes first.
    const Folder beside = m_folder.path() / "beside";
    sky(beside);
    run(beside);
    sky(beside);
    Names both = alone["run"];
    both.insert({"sky.csv", "sky.png", "sky.json"});
    EXPECT_EQ(namesIn(beside), both);
}

TEST_F(ResultFiles, LeaveWhatOthersWroteAndWhatIsBeingRead) {
    const Folder out = m_folder.path() / "out";
    compare(out);
    for (const char* const name : {"out/page.html", "out/spans.csv", "out/hours.nc"}) {
        m_folder.write(name, "of the user");
    }
    m_options.sensors = out / "only_a.csv"; // the cells that one side has not, asked again
    m_options.page = false;
    m_options.hourly.hoursOf = {};
    run(out);
    EXPECT_THAT(namesIn(out), testing::IsSupersetOf({"page.html", "spans.csv", "hours.nc",
                                                     "only_a.csv", "summary.json"}));
    m_options.sensors.reset();
    run(out);
    EXPECT_FALSE(namesIn(out).contains("only_a.csv"));
}

} // namespace
} // namespace insolate::study
