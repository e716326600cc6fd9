// Study files with several analyses over one scene.
#include "study/run/run_study.h"
#include "study/run/study_batch.h"
#include "study/support/errors.h"
#include "tests/study/support/study_fixture.h"

#include <algorithm>

#include <gmock/gmock.h>

namespace insolate::study {
namespace {

using test::Heard;
using test::messageOf;
using test::readFile;
using testing::ElementsAre;
using testing::HasSubstr;

class StudyBatchTest : public testing::Test {
protected:
    StudyBatchTest() {
        // Noon of 5 March is missing, of which every run warns.
        m_folder.write("a.epw", test::withLine(test::clearYear(), test::weatherLine(3, 5, 12),
                                               "3,5,12", "3,5,11"));
        m_folder.write("court.obj", test::courtModel());
    }
    std::filesystem::path study(const std::string& more) const {
        return m_folder.write("s.toml",
                              "weather = 'a.epw'\nallow-gaps = true\nscene = 'court.obj'\n"
                              "select = 'floor'\nout = 'r'\nperiod = '6/1'\n" +
                                  more);
    }
    [[nodiscard]] std::filesystem::path path(const std::string& name) const {
        return m_folder.path() / name;
    }

private:
    test::StudyFolder m_folder;
};

const std::string fourAnalyses =
    "[[analysis]]\nname = 'june'\n"
    "[[analysis]]\nname = 'march'\nperiod = '3/1-3/9'\nhours = '8-10'\n"
    "[[analysis]]\nname = 'sun'\ncommand = 'sunhours'\ndates = '3/21'\n"
    "[[analysis]]\nname = 'dome'\ncommand = 'sky'\n";

TEST_F(StudyBatchTest, GivesWhatSingleRunsGiveFromOneReadingOfTheScene) {
    Heard heard;
    runStudyTasks(readStudyTasks(study(fourAnalyses)), heard, {});
    const auto count = [](const std::vector<std::string>& texts, const char* part) {
        return std::count_if(texts.begin(), texts.end(), [&](const std::string& text) {
            return text.find(part) != std::string::npos;
        });
    };
    EXPECT_EQ(count(heard.notes, "scene: "), 1);
    EXPECT_EQ(count(heard.notes, "analysis "), 4);
    EXPECT_EQ(count(heard.warnings, "repeats an hour"), 1);
    EXPECT_EQ(count(heard.warnings, "without data"), 1);

    for (const StudyTask& task : readStudyTasks(path("s.toml"))) {
        const auto* run = std::get_if<RunOptions>(&task.options);
        if (run == nullptr) {
            continue;
        }
        RunOptions alone = *run;
        alone.out = path("alone");
        Heard silent;
        runStudy(alone, silent);
        EXPECT_EQ(readFile(path("alone/sensors.csv")),
                  readFile(path("r/" + task.name + "/sensors.csv")));
    }
    EXPECT_NE(readFile(path("r/june/sensors.csv")), readFile(path("r/march/sensors.csv")));
    EXPECT_THAT(readFile(path("r/march/summary.json")),
                HasSubstr("\"1 March to 9 March, 8:00 to 10:00\""));
    EXPECT_THAT(readFile(path("r/sun/summary.json")), HasSubstr("hours of direct sun"));
    EXPECT_THAT(readFile(path("r/dome/sky.json")), HasSubstr("\"1 June\""));
}

TEST_F(StudyBatchTest, NamesTheLineOfAFault) {
    const std::string first = "[[analysis]]\nname = 'a'\n"; // lines 7 and 8
    for (const auto& [more, message] :
         {std::pair{"[[analysis]]\nperiod = '6/2'\n", "s.toml:7: the analysis has no name; add"},
          {"[[analysis]]\nname = '.insolate.lock'\n", "is no name of a folder; "},
          {"[[analysis]]\nname = '../a'\n", "s.toml:8: '../a' is no name of a folder; "},
          {"[[analysis]]\nname = 'a'\ncommand = 'fly'\n",
           "s.toml:9: there is no command 'fly'; choose from run, sky, sunhours"},
          {"[[analysis]]\nname = 3\n", "s.toml:8: 'name' is a text; "},
          {"[[analysis]]\nname = 'a'\ngrid = 1\n",
           "s.toml:9: 'grid' holds for all analyses, which share one scene; write it above"},
          {"[[analysis]]\nname = 'a'\nout = 'b'\n", "s.toml:9: 'out' holds for all analyses"},
          {"[[analysis]]\nname = 'a'\nperoid = '6/2'\n",
           "s.toml:9: there is no option 'peroid'; did you mean 'period'?; the keys are the "
           "options "
           "of 'insolate run --help'"},
          {"[[analysis]]\nname = 'a'\ndates = '6/2'\n", "s.toml:9: there is no option 'dates'"},
          {"[[analysis]]\nname = 'a'\n[[analysis]]\nname = 'a'\n",
           "s.toml:9: there is an analysis 'a' already; "},
          {"analysis = 3\n", "s.toml:7: analyses are tables; begin each with a line [[analysis]]"},
          {"graid = 3\n", "s.toml:7: there is no option 'graid'; did you mean 'grid'?"}}) {
        EXPECT_THAT(messageOf([&, text = std::string(more)] { readStudyTasks(study(text)); }),
                    HasSubstr(message));
    }
}

TEST_F(StudyBatchTest, SaysWhatIsWrittenWhenALaterAnalysisFails) {
    const std::vector<StudyTask> tasks = readStudyTasks(study(
        "quiet = true\ntolerance = 1\nvalue = 'total'\n[[analysis]]\nname = 'a'\ndry-run = true\n"
        "[[analysis]]\nname = 'b'\n[[analysis]]\nname = 'c'\nhours-of = 99\n"));
    EXPECT_TRUE(tasks.front().quiet);
    EXPECT_FALSE(readStudyTasks(study("")).front().quiet);
    Heard heard;
    std::vector<std::string> estimated;
    EXPECT_THAT(messageOf([&] {
                    runStudyTasks(tasks, heard,
                                  [&](const std::string& name, const StudyEstimate& estimate) {
                                      EXPECT_THAT(estimate.text(), HasSubstr("sensors "));
                                      estimated.push_back(name);
                                  });
                }),
                testing::AllOf(HasSubstr("s.toml:17: --hours-of 99: there is no such sensor"),
                               testing::EndsWith("; the results of b are written")));
    EXPECT_THAT(estimated, ElementsAre("a"));
    EXPECT_FALSE(std::filesystem::exists(path("r/a")));
    // A stop: its source asks for it once the first analysis is written.
    struct Stopping final : Progress {
        void note(const std::string& text) override {
            if (text.starts_with("analysis d")) {
                source.request_stop();
            }
        }
        std::stop_source source;
    } stopping;
    EXPECT_THAT(messageOf([&] {
                    runStudyTasks(readStudyTasks(study("[[analysis]]\nname = 'b'\n"
                                                       "[[analysis]]\nname = 'd'\n")),
                                  stopping, {}, stopping.source.get_token());
                }),
                HasSubstr("stopped; no result of d was written, but those of b"));
}

TEST_F(StudyBatchTest, ChecksAllAnalysesAndWritesNothing) {
    Heard heard;
    EXPECT_THAT(checkStudyFile(study(fourAnalyses), heard), ElementsAre());
    EXPECT_THAT(checkStudyFile(study("[[analysis]]\nname = 'a'\nstep = 2\n"
                                     "[[analysis]]\nname = 'b'\n"
                                     "[[analysis]]\nname = 'c'\nhours-of = 99\n"
                                     "[[analysis]]\nname = 'd'\ncommand = 'sunhours'\nmin = 2\n"),
                               heard),
                ElementsAre(HasSubstr("s.toml:9: --step 2: no usable step"),
                            HasSubstr("s.toml:14: --hours-of 99: there is no such sensor"),
                            HasSubstr("--dates is missing")));
    EXPECT_THAT(checkStudyFile(study("lod = '1'\n"), heard),
                ElementsAre(HasSubstr("s.toml:7: --lod 1: chooses among levels")));
    EXPECT_FALSE(std::filesystem::exists(path("r")));
}

} // namespace
} // namespace insolate::study
