#include "tests/study/output/output_support.h"

#include "study/output/summary.h"

#include <csignal>
#include <limits>

#include <sys/wait.h>

namespace insolate::study {
namespace {

using test::messageOf;
using test::readFile;
using testing::AllOf;
using testing::HasSubstr;

using OutputFolderTest = OutputTest;

TEST_F(OutputFolderTest, resultsAppearTogetherAtCommitAndNotBefore) {
    own.write("a.txt", "old a");
    own.write("gone.txt", "contradicts the new results");
    own.write("summary.json", "old summary");
    const std::filesystem::path fresh = folder / "new" / "deeper";
    try {
        OutputFolder out(folder);
        OutputFolder made(fresh);
        out.retire("gone.txt");
        out.stage("a.txt").write("half");
        made.stage("b.txt").write("half");
        throw std::runtime_error("interrupted");
    } catch (const std::runtime_error&) {
    }
    EXPECT_EQ(fileCount(), 3) << "partial files or folders made by a failed run are left";
    {
        OutputFolder out(folder);
        out.retire("gone.txt");
        out.stage("a.txt").write("new a");
        out.stage("summary.json").write("new summary");
        EXPECT_EQ(readFile(folder / "a.txt"), "old a");
        EXPECT_THAT(messageOf([&] { OutputFolder second(folder); }),
                    AllOf(HasSubstr(folder.string()), HasSubstr("another run")));
        out.commit();
        EXPECT_EQ(readFile(folder / "a.txt"), "new a");
    }
    EXPECT_EQ(readFile(folder / "summary.json"), "new summary");
    EXPECT_EQ(fileCount(), 2) << "lock, partial or retired files are left";
}

TEST_F(OutputFolderTest, leftoversOfAKilledRunGoAndItsLockDoesNotHold) {
    if (const pid_t child = fork(); child == 0) {
        OutputFolder out(folder);
        out.stage("a.txt").write("half");
        raise(SIGKILL);
    } else {
        waitpid(child, nullptr, 0);
    }
    EXPECT_TRUE(std::filesystem::exists(folder / "a.txt.insolate-partial"));
    own.write("film.partial", "of another program");
    { OutputFolder out(folder); }
    EXPECT_EQ(fileCount(), 1);
    EXPECT_EQ(readFile(folder / "film.partial"), "of another program");
}

TEST_F(OutputFolderTest, saysBeforeTheWorkWhatCannotBeWritten) {
    own.write("file", "");
    std::filesystem::create_directory(folder / "sensors.csv");
    for (const auto& [target, message] :
         {std::pair{folder / "file", "not a folder"},
          std::pair{folder / "file" / "below", "cannot be created"},
          std::pair{std::filesystem::path("/proc/insolate_results"), "/proc/insolate_results"},
          std::pair{folder, "sensors.csv: is a folder; "}}) {
        EXPECT_THAT(messageOf([&, name = target] { OutputFolder(name).stage("sensors.csv"); }),
                    HasSubstr(message));
    }
}

TEST_F(OutputFolderTest, aFullDiskIsAnErrorWithNameAndMend) {
    OutputFile full("/dev/full", "results/sensors.csv");
    EXPECT_THAT(messageOf([&] {
                    full.write("x"); // only buffered, so the end must tell
                    full.finish();
                }),
                AllOf(HasSubstr("results/sensors.csv"), HasSubstr("No space"), HasSubstr("free")));
}

TEST_F(OutputFolderTest, writesAcrossItsBufferInOrder) {
    std::string expected;
    const auto file = written("long", [&](OutputFile& out) {
        for (int i = 0; i < 300'000; ++i) {
            const std::string filling(i % 100'000 == 0 ? std::size_t{1} << 21U : 1U, '\n');
            out.writeNumber(i + 0.5);
            out.write(filling);
            expected += std::to_string(i) + ".5" + filling;
        }
    });
    EXPECT_TRUE(readFile(file) == expected);
}

TEST_F(OutputFolderTest, summaryHoldsRangesOfFiniteValuesAndMendsText) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const std::vector<ResultColumn> columns = {{"total", "Wh/m2", "Total", {3.0F, nan, -1.0F}},
                                               {"none", "h", "None", {nan}}};
    const nlohmann::ordered_json summary = {{"scene", "bad \xFF byte \"quoted\""},
                                            {"results", rangesOf(columns)}};
    const auto read = nlohmann::json::parse(readFile(
        written("summary.json", [&](OutputFile& file) { writeSummaryJson(file, summary); })));
    EXPECT_EQ(read["results"]["total"]["lowest"], -1.0);
    EXPECT_EQ(read["results"]["total"]["highest"], 3.0);
    EXPECT_EQ(read["results"]["total"]["mean"], 1.0);
    EXPECT_EQ(read["results"]["none"]["count"], 0);
    EXPECT_EQ(read["scene"], "bad \uFFFD byte \"quoted\"");
}

} // namespace
} // namespace insolate::study
