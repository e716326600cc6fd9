#include "output_support.h"

#include "app/output/summary.h"

#include <csignal>
#include <limits>

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/wait.h>

namespace insolate::app {

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using OutputFolderTest = OutputTest;

std::string messageOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const OutputError& error) {
        return error.what();
    }
    return "no error";
}

TEST_F(OutputFolderTest, resultsAppearTogetherAtCommitAndNotBefore) {
    put("a.txt", "old a");
    put("summary.json", "old summary");
    {
        OutputFolder out(folder);
        out.stage("a.txt").write("new a");
        out.stage("summary.json").write("new summary");
        EXPECT_EQ(contentOf(folder / "a.txt"), "old a");
        out.commit();
        EXPECT_EQ(contentOf(folder / "a.txt"), "new a");
    }
    EXPECT_EQ(contentOf(folder / "summary.json"), "new summary");
    EXPECT_EQ(fileCount(), 2) << "lock or partial files are left";
}

TEST_F(OutputFolderTest, aFailedRunLeavesWhatWasThere) {
    put("a.txt", "old a");
    const std::filesystem::path fresh = folder / "new" / "deeper";
    try {
        OutputFolder out(folder);
        OutputFolder made(fresh);
        out.stage("a.txt").write("half");
        made.stage("b.txt").write("half");
        throw std::runtime_error("interrupted");
    } catch (const std::runtime_error&) {
    }
    EXPECT_EQ(contentOf(folder / "a.txt"), "old a");
    EXPECT_EQ(fileCount(), 1) << "partial files or folders made by the run are left";
}

TEST_F(OutputFolderTest, leftoversOfAKilledRunGoAndItsLockDoesNotHold) {
    const pid_t child = fork();
    if (child == 0) {
        OutputFolder out(folder);
        out.stage("a.txt").write("half");
        raise(SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_TRUE(std::filesystem::exists(folder / "a.txt.insolate-partial"));
    put("film.partial", "of another program");
    EXPECT_FALSE(std::filesystem::exists(folder / "a.txt"));
    { OutputFolder out(folder); }
    EXPECT_EQ(fileCount(), 1);
    EXPECT_EQ(contentOf(folder / "film.partial"), "of another program");
}

TEST_F(OutputFolderTest, refusesASecondRunInTheSameFolder) {
    {
        OutputFolder first(folder);
        EXPECT_THAT(messageOf([&] { OutputFolder second(folder); }),
                    AllOf(HasSubstr(folder.string()), HasSubstr("another run")));
        first.stage("a.txt").write("of the first");
        first.commit();
    }
    EXPECT_EQ(contentOf(folder / "a.txt"), "of the first");
    EXPECT_EQ(messageOf([&] { OutputFolder later(folder); }), "no error");
}

TEST_F(OutputFolderTest, saysBeforeTheWorkWhatCannotBeWritten) {
    put("file", "");
    std::filesystem::create_directory(folder / "sensors.csv");
    EXPECT_THAT(messageOf([&] { OutputFolder out(folder / "file"); }), HasSubstr("not a folder"));
    EXPECT_THAT(messageOf([&] { OutputFolder out(folder / "file" / "below"); }),
                HasSubstr("cannot be created"));
    EXPECT_THAT(messageOf([&] {
                    OutputFolder out(folder);
                    out.stage("sensors.csv");
                }),
                AllOf(HasSubstr("sensors.csv"), HasSubstr("is a folder")));
    EXPECT_THAT(messageOf([] { OutputFolder out("/proc/insolate_results"); }),
                HasSubstr("/proc/insolate_results"));
}

TEST_F(OutputFolderTest, aFullDiskIsAnErrorWithNameAndMend) {
    const std::string big(std::size_t{3} << 20U, 'x');
    OutputFile full("/dev/full", "results/sensors.csv");
    EXPECT_THAT(messageOf([&] {
                    full.write("x"); // only buffered, so the end must tell
                    full.finish();
                }),
                AllOf(HasSubstr("results/sensors.csv"), HasSubstr("No space"), HasSubstr("free")));
    OutputFile alsoFull("/dev/full", "sensors.vtp");
    EXPECT_THAT(messageOf([&] { alsoFull.write(big); }), HasSubstr("sensors.vtp"));
}

TEST_F(OutputFolderTest, whenTheSpaceEndsNothingIsRenamed) {
    put("a.txt", "old a");
    put("b.txt", "old b");
    const pid_t child = fork();
    if (child == 0) {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit = {100'000, 100'000};
        setrlimit(RLIMIT_FSIZE, &limit);
        int outcome = 1;
        try {
            OutputFolder out(folder);
            out.stage("a.txt").write("fits");
            out.stage("b.txt").write(std::string(200'000, 'x'));
            out.commit();
        } catch (const OutputError& error) {
            outcome = std::string(error.what()).find("b.txt") != std::string::npos ? 0 : 2;
        }
        _exit(outcome);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(contentOf(folder / "a.txt"), "old a");
    EXPECT_EQ(contentOf(folder / "b.txt"), "old b");
    EXPECT_EQ(fileCount(), 2);
}

TEST_F(OutputFolderTest, writesAcrossItsBufferInOrder) {
    std::string expected;
    {
        OutputFile file(folder / "long", "long");
        for (int i = 0; i < 300'000; ++i) {
            file.writeNumber(i + 0.5);
            file.write("\n");
            expected += std::to_string(i) + ".5";
            if (i % 100'000 == 0) {
                const std::string block(std::size_t{1} << 21U,
                                        static_cast<char>('a' + i / 100'000));
                file.write(block);
                // The number's line ends after the block.
                expected += "\n" + block;
            } else {
                expected += "\n";
            }
        }
        file.finish();
    }
    const std::string written = contentOf(folder / "long");
    ASSERT_EQ(written.size(), expected.size());
    EXPECT_TRUE(written == expected);
}

TEST_F(OutputFolderTest, summaryHoldsRangesOfFiniteValuesAndMendsText) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const std::vector<ResultColumn> columns = {{"total", "Wh/m2", "Total", {3.0F, nan, -1.0F}},
                                               {"none", "h", "None", {nan}}};
    nlohmann::ordered_json summary;
    summary["scene"] = "bad \xFF byte \"quoted\"";
    summary["results"] = rangesOf(columns);
    OutputFile file(folder / "summary.json", "summary.json");
    writeSummaryJson(file, summary);
    file.finish();
    const auto read = nlohmann::json::parse(contentOf(folder / "summary.json"));
    EXPECT_EQ(read["results"]["total"]["lowest"], -1.0);
    EXPECT_EQ(read["results"]["total"]["highest"], 3.0);
    EXPECT_EQ(read["results"]["total"]["mean"], 1.0);
    EXPECT_EQ(read["results"]["none"]["count"], 0);
    EXPECT_EQ(read["scene"], "bad \uFFFD byte \"quoted\"");
}

} // namespace

} // namespace insolate::app
