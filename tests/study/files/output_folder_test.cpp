#include "tests/study/output/output_support.h"

#include "study/output/summary.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <limits>
#include <memory>
#include <thread>

#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

/// What was asked of the disk, in order: "sync NAME", "rename NAME", "unlink NAME".
std::vector<std::string> diskLog; // NOLINT
std::atomic<bool> logsDisk = false;

void logDisk(const char* what, const std::filesystem::path& path) {
    if (logsDisk) {
        diskLog.push_back(std::string(what) + " " + path.filename().string());
    }
}

} // namespace

// These stand before those of the C library, in this program alone.
extern "C" int fsync(int descriptor) {
    std::error_code ignored;
    logDisk("sync",
            std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), ignored));
    return static_cast<int>(syscall(SYS_fsync, descriptor));
}
extern "C" int rename(const char* from, const char* to) noexcept {
    logDisk("rename", to);
    return renameat(AT_FDCWD, from, AT_FDCWD, to);
}
extern "C" int unlink(const char* path) noexcept {
    logDisk("unlink", path);
    return unlinkat(AT_FDCWD, path, 0);
}

namespace insolate::study {
namespace {

using test::messageOf;
using test::readFile;
using testing::AllOf;
using testing::HasSubstr;

using OutputFolderTest = OutputTest;
namespace fs = std::filesystem;

/// A name under which every file counts as an earlier result.
ResultName result(std::string_view name) {
    return {name, [](const fs::path& file) { return fs::exists(file); }};
}

bool beginsWithOurs(const fs::path& file) {
    return readFile(file).starts_with("ours");
}

TEST_F(OutputFolderTest, resultsAppearTogetherAtCommitAndNotBefore) {
    own.write("a.txt", "old a");
    own.write("gone.txt", "contradicts the new results");
    own.write("summary.json", "old summary");
    const fs::path fresh = folder / "new" / "deeper";
    try {
        OutputFolder out(folder, {});
        OutputFolder made(fresh, {});
        out.retire(result("gone.txt"));
        out.stage(result("a.txt")).write("half");
        made.stage(result("b.txt")).write("half");
        throw std::runtime_error("interrupted");
    } catch (const std::runtime_error&) {
    }
    EXPECT_EQ(fileCount(), 3) << "partial files or folders made by a failed run are left";
    {
        OutputFolder out(folder, {});
        out.retire(result("gone.txt"));
        out.stage(result("a.txt")).write("new a");
        out.stage(result("summary.json")).write("new summary");
        EXPECT_EQ(readFile(folder / "a.txt"), "old a");
        EXPECT_THAT(messageOf([&] { OutputFolder second(folder, {}); }),
                    AllOf(HasSubstr(folder.string()), HasSubstr("another run")));
        out.commit();
        EXPECT_EQ(readFile(folder / "a.txt"), "new a");
        EXPECT_TRUE(out.notes().empty());
    }
    EXPECT_EQ(readFile(folder / "summary.json"), "new summary");
    EXPECT_EQ(fileCount(), 2) << "lock, partial or retired files are left";
}

TEST_F(OutputFolderTest, contentsReachTheDiskBeforeNamesAndTheSummaryComesLast) {
    own.write("gone.txt", "");
    const fs::path results = folder / "results";
    OutputFolder out(results, {});
    out.retire(result("../gone.txt"));
    out.stage(result("a.txt")).write("a");
    out.stage(result("b.txt")).write("b");
    out.stage(result("summary.json")).write("{}");
    diskLog.clear();
    logsDisk = true;
    out.commit();
    logsDisk = false;
    EXPECT_THAT(diskLog,
                testing::ElementsAre("sync a.txt.insolate-partial", "sync b.txt.insolate-partial",
                                     "sync summary.json.insolate-partial", "unlink summary.json",
                                     "sync results", "unlink gone.txt", "rename a.txt",
                                     "rename b.txt", "sync results", "rename summary.json",
                                     "sync results", "sync " + folder.filename().string()));
    // One file alone takes the place of the old one in a single step.
    own.write("picture.png", "old");
    OutputFolder alone(folder, {});
    alone.stage(result("picture.png")).write("new");
    diskLog.clear();
    logsDisk = true;
    alone.commit();
    logsDisk = false;
    EXPECT_THAT(diskLog,
                testing::ElementsAre("sync picture.png.insolate-partial", "rename picture.png",
                                     "sync " + folder.filename().string()));
}

TEST_F(OutputFolderTest, takesOverADeadRunAndNothingElse) {
    const auto killedRun = [&] {
        if (const pid_t child = fork(); child == 0) {
            OutputFolder out(folder, {});
            out.stage(result("a.txt")).write("half");
            raise(SIGKILL);
        } else {
            waitpid(child, nullptr, 0);
        }
    };
    own.write("film.insolate-partial", "of the user");
    own.write("film.partial", "of another program");
    killedRun();
    EXPECT_TRUE(fs::exists(folder / "a.txt.insolate-partial"));
    own.write(".insolate.lock.insolate-partial", "writable\n"); // the dead run's trial
    {
        OutputFolder out(folder, {});
        ASSERT_EQ(out.notes().size(), 1U);
        EXPECT_THAT(out.notes()[0], AllOf(HasSubstr("took over"), HasSubstr("2 unfinished files")));
        EXPECT_THAT(readFile(folder / ".insolate.lock"),
                    HasSubstr("process " + std::to_string(getpid())));
        EXPECT_FALSE(fs::exists(folder / "a.txt.insolate-partial"));
    }
    EXPECT_EQ(readFile(folder / "film.insolate-partial"), "of the user");
    EXPECT_EQ(fileCount(), 2);
    // A lock file made by hand reaches no other folder.
    own.write("victim.insolate-partial", "of the user");
    fs::create_directory(folder / "out");
    own.write("out/.insolate.lock", "process 1\nwrites ../victim\n");
    { OutputFolder out(folder / "out", {}); }
    EXPECT_EQ(readFile(folder / "victim.insolate-partial"), "of the user");
    own.write("out/.insolate.lock.insolate-partial", "of the user");
    EXPECT_THAT(messageOf([&] { OutputFolder(folder / "out", {}); }), HasSubstr("in the way"));
    EXPECT_EQ(readFile(folder / "out/.insolate.lock.insolate-partial"), "of the user");
}

TEST_F(OutputFolderTest, replacesItsOwnResultsAndNothingElse) {
    const fs::path input = own.write("input.csv", "ours, but read by this run");
    own.write("ours.csv", "ours, of an earlier run");
    own.write("empty.csv", "");
    own.write("users.csv", "x,y\n1,2\n");
    own.write("half.csv.insolate-partial", "of the user");
    fs::create_directory(folder / "folder.csv");
    fs::create_symlink("users.csv", folder / "link.csv");
    fs::create_symlink("nowhere", folder / "dangling.csv");
    fs::create_hard_link(input, folder / "hard.csv");
    fs::create_symlink(input, folder / "soft.csv");
    ASSERT_EQ(mkfifo((folder / "pipe.csv").c_str(), 0600), 0);
    const auto isOurs = [](const fs::path& file) {
        return fs::is_regular_file(file) && beginsWithOurs(file);
    };
    OutputFolder out(folder, {folder / "none.csv", folder / "." / "input.csv"});
    for (const auto& [name, message] :
         {std::pair{"ours.csv", "nothing is wrong"},
          {"new.csv", "nothing is wrong"},
          {"empty.csv", "nothing is wrong"},
          {"users.csv", "users.csv: was not written by insolate"},
          {"link.csv", "link.csv: was not written by insolate"},
          {"dangling.csv", "dangling.csv: was not written by insolate"},
          {"pipe.csv", "pipe.csv: was not written by insolate"},
          {"half.csv", "half.csv.insolate-partial: stands in the way"},
          {"folder.csv", "folder.csv: is a folder; move it away or choose another --out"},
          {"input.csv", "input.csv: is read by this run"},
          {"hard.csv", "hard.csv: is read by this run"},
          {"soft.csv", "soft.csv: is read by this run"}}) {
        EXPECT_THAT(messageOf([&, file = name] {
                        out.requireFree({file, isOurs});
                    }),
                    HasSubstr(message));
        EXPECT_THAT(messageOf([&, file = name] { out.stage({file, isOurs}); }), HasSubstr(message));
    }
    EXPECT_TRUE(out.retire({"ours.csv", isOurs}));
    EXPECT_FALSE(out.retire({"users.csv", isOurs}));
    EXPECT_EQ(readFile(folder / "half.csv.insolate-partial"), "of the user");
}

TEST_F(OutputFolderTest, followsNoLinkThatSomebodyPlanted) {
    const fs::path victim = own.write("victim", "of the user");
    const fs::path out = folder / "out";
    fs::create_directory(out);
    fs::create_symlink(victim, out / ".insolate.lock");
    const auto refused = AllOf(HasSubstr("out/.insolate.lock: was not written by insolate"),
                               HasSubstr("; remove or rename it"));
    EXPECT_THAT(messageOf([&] { OutputFolder locked(out, {}); }), refused);
    fs::remove(out / ".insolate.lock");
    ASSERT_EQ(mkfifo((out / ".insolate.lock").c_str(), 0600), 0);
    EXPECT_THAT(messageOf([&] { OutputFolder locked(out, {}); }), refused);
    fs::remove(out / ".insolate.lock");
    for (const char* foreign : {"of the user\nwrites victim\n", "process 12\nof the user\n",
                                "process of the user\n", "proc\n"}) {
        own.write("out/.insolate.lock", foreign);
        EXPECT_THAT(messageOf([&] { OutputFolder locked(out, {}); }), refused);
        EXPECT_EQ(readFile(out / ".insolate.lock"), foreign);
    }
    // What a full disk took of a run's lines, and what a loss of power left.
    using namespace std::string_literals;
    for (const std::string& cut :
         {"proc"s, "process 12\nwri"s, "process 1"s, "\0\0\0"s, "process 12\n\0\0"s}) {
        own.write("out/.insolate.lock", cut);
        { OutputFolder taken(out, {}); }
        EXPECT_FALSE(fs::exists(out / ".insolate.lock")) << cut;
    }
    fs::create_symlink(victim, out / "result");
    EXPECT_THAT(messageOf([&] { OutputFile(out / "result", "result"); }),
                HasSubstr("cannot be written"));
    EXPECT_EQ(readFile(victim), "of the user");
}

TEST_F(OutputFolderTest, anotherThreadMayGiveTheFolderUpAtAnyMoment) {
    const fs::path made = folder / "made";
    const auto write = [](OutputFolder& out) {
        for (const char* name : {"a.txt", "b.txt", "summary.json"}) {
            out.stage(result(name)).write(std::string(100'000, 'x'));
        }
        out.commit();
    };
    const auto start = std::chrono::steady_clock::now();
    {
        OutputFolder whole(made, {});
        write(whole);
    }
    const auto whole = std::chrono::steady_clock::now() - start;
    fs::remove_all(made);
    int kept = 0;
    constexpr int rounds = 40;
    for (int round = 0; round < rounds; ++round) {
        OutputFolder out(made, {});
        std::atomic<bool> stopped = false;
        std::thread writer([&] {
            try {
                write(out);
            } catch (const Stopped&) {
                stopped = true;
            }
        });
        std::this_thread::sleep_for(whole * round / (rounds / 2));
        const bool complete = out.abandon();
        EXPECT_FALSE(fs::exists(made / ".insolate.lock"));
        writer.join();
        EXPECT_EQ(complete, !stopped);
        EXPECT_EQ(fs::exists(made), complete) << "something is left";
        if (complete) {
            ++kept;
            EXPECT_EQ(std::distance(fs::directory_iterator(made), {}), 3);
            fs::remove_all(made);
        }
    }
    auto out = std::make_unique<OutputFolder>(made, std::vector<fs::path>());
    out->stage(result("a.txt"));
    out->abandon();
    OutputFolder next(made, {});
    next.stage(result("a.txt"));
    EXPECT_THROW(out->stage(result("b.txt")), Stopped);
    EXPECT_THROW(out->commit(), Stopped);
    out.reset();
    EXPECT_TRUE(fs::exists(made / "a.txt.insolate-partial")) << "of the run that came after";
    EXPECT_TRUE(fs::exists(made / ".insolate.lock"));
    EXPECT_GT(kept, 0) << "no moment was late";
    EXPECT_LT(kept, rounds) << "no moment was early";
}

TEST_F(OutputFolderTest, saysBeforeTheWorkWhatCannotBeWritten) {
    own.write("file", "");
    fs::create_directory(folder / "sensors.csv");
    for (const auto& [target, message] :
         {std::pair{folder / "file", "not a folder"},
          std::pair{folder / "file" / "below", "cannot be created"},
          std::pair{fs::path("/proc/insolate_results"), "/proc/insolate_results"},
          std::pair{folder, "sensors.csv: is a folder; "}}) {
        EXPECT_THAT(
            messageOf([&, name = target] { OutputFolder(name, {}).stage(result("sensors.csv")); }),
            HasSubstr(message));
    }
}

TEST_F(OutputFolderTest, aFullDiskIsAnErrorWithNameAndRemedy) {
    OutputFile full("/dev/full", "results/sensors.csv");
    EXPECT_THAT(messageOf([&] {
                    full.write("x"); // only buffered, so the end must say it
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

TEST_F(OutputFolderTest, summaryHoldsRangesOfFiniteValuesAndRepairsText) {
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
