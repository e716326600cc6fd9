// What becomes of the results when the disk, the memory, the folder or the process goes away.
#include "study/files/output_folder.h"
#include "tests/app/support/command_fixture.h"

#include <chrono>
#include <csignal>
#include <cstring>
#include <random>
#include <thread>

#include <fcntl.h>
#include <sys/resource.h>

namespace insolate::app {

using namespace study;
namespace {

using test::readFile;
using testing::AnyOf;
using testing::HasSubstr;
namespace fs = std::filesystem;

/// Limits what the process may take; not its addresses where a sanitizer reserves terabytes.
void limitTo(decltype(RLIMIT_AS) resource, rlim_t most) {
#ifdef INSOLATE_SANITIZED
    if (resource == RLIMIT_AS) {
        return;
    }
#endif
    const rlimit limit = {most, most};
    setrlimit(resource, &limit);
}

class FaultsTest : public test::CommandFixture {
protected:
#ifdef INSOLATE_SANITIZED
    const std::string grid = "0.3";
#else
    const std::string grid = "0.11";
#endif
    const std::string spoken =
        "run --scene court.obj --weather good.epw --period 6/1-6/3 --grid " + grid;
    const std::string study = spoken + " --quiet";

    /// Every file is whole and right, or named as partial.
    void expectWholeOrPartial(const fs::path& folder) {
        std::error_code none;
        for (const fs::directory_entry& entry : fs::directory_iterator(folder, none)) {
            const std::string name = entry.path().filename().string();
            if (name == "summary.json") { // it has times, and comes last
                EXPECT_EQ(readFile(entry.path()).back(), '\n');
                EXPECT_TRUE(fs::exists(folder / "sensors.csv"));
            } else if (fs::exists(m_reference / name)) {
                EXPECT_TRUE(readFile(entry.path()) == readFile(m_reference / name)) << name;
            } else {
                EXPECT_TRUE(name.ends_with(".insolate-partial") || name == ".insolate.lock")
                    << name;
            }
        }
    }

    /// What a run has not finished, but for the sensors that --resume takes up.
    static std::vector<std::string> unfinishedFiles(const fs::path& folder) {
        std::vector<std::string> names;
        std::error_code none;
        for (const fs::directory_entry& entry : fs::directory_iterator(folder, none)) {
            const std::string name = entry.path().filename().string();
            if (name == ".insolate.lock" ||
                (name.ends_with(".insolate-partial") && name != ".insolate-partial")) {
                names.push_back(name);
            }
        }
        return names;
    }

    void makeReference() {
        const auto begin = std::chrono::steady_clock::now();
        const Outcome run = command(study + " --out reference");
        ASSERT_EQ(run.exitCode, 0) << run.err;
        m_duration = std::chrono::steady_clock::now() - begin;
        m_reference = path("reference");
    }

    fs::path m_reference;
    std::chrono::duration<double> m_duration{};
};

TEST_F(FaultsTest, KilledAtAnyMomentLeavesNothingHalf) {
    makeReference();
    const char* wanted = std::getenv("INSOLATE_KILLS");
    const int kills = wanted != nullptr ? std::atoi(wanted) : 5;
    std::mt19937 random(7);
    std::uniform_real_distribution<double> moment(0.0, 1.05 * m_duration.count());
    for (int i = 0; i < kills; ++i) {
        const int signal = std::array<int, 3>{SIGKILL, SIGINT, SIGTERM}[random() % 3];
        const std::chrono::duration<double> delay(moment(random));
        SCOPED_TRACE(fmt::format("kill {} with signal {} after {} s", i, signal, delay.count()));
        const std::vector<std::string> ofKilled = unfinishedFiles(path("out"));
        const pid_t child = start(spoken + " --resume --out out");
        std::this_thread::sleep_for(delay);
        kill(child, signal);
        const Outcome ended = finish(child);
        if (signal != SIGKILL) {
            EXPECT_THAT(unfinishedFiles(path("out")), testing::IsSubsetOf(ofKilled));
        }
        // Only before its first line may the program not have taken the signals over yet.
        const bool endsRaw = signal == SIGKILL || ended.err.empty();
        EXPECT_THAT(ended.exitCode, testing::AnyOf(0, endsRaw ? -signal : 128 + signal))
            << ended.err;
        expectWholeOrPartial(path("out"));
    }
    const Outcome last = command(study + " --resume --out out");
    EXPECT_EQ(last.exitCode, 0) << last.err;
    EXPECT_TRUE(fs::exists(path("out/summary.json")));
    expectWholeOrPartial(path("out"));
    EXPECT_FALSE(fs::exists(path("out/.insolate-partial")));
}

TEST_F(FaultsTest, EndsWithinASecondOfASignalInEveryStep) {
    std::string claims(84, '\0');
    const std::uint32_t claimed = 3'000'000;
    std::memcpy(claims.data() + 80, &claimed, sizeof claimed);
    write("large.stl", claims);
    fs::resize_file(path("large.stl"), 84 + std::uintmax_t{50} * claimed);
    const std::string picture = "out/heatmap.png" + std::string(OutputFolder::partialSuffix);
    const auto hasSaid = [&](const char* text) {
        return readFile(path("stderr")).find(text) != std::string::npos;
    };
    const struct {
        std::string words;
        int signal;
        std::function<bool()> hasBegun;
    } cases[] = {{"--scene large.stl", SIGTERM, [&] { return hasSaid("method, "); }},
                 {"--scene court.obj --grid 0.04", SIGINT, [&] { return hasSaid("sensors: "); }},
                 {"--scene court.obj --method perez-sky --grid 0.07", SIGTERM,
                  [&] { return fs::exists(path(picture)); }}};
    for (const auto& c : cases) {
        const pid_t child = start("run --weather good.epw --period 6/1 --out out " + c.words);
        while (!c.hasBegun()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        const auto asked = std::chrono::steady_clock::now();
        kill(child, c.signal);
        const Outcome stopped = finish(child);
        EXPECT_LT(std::chrono::steady_clock::now() - asked, std::chrono::seconds(1)) << c.words;
        EXPECT_EQ(stopped.exitCode, 128 + c.signal) << c.words << "\n" << stopped.err;
        EXPECT_THAT(stopped.err, AnyOf(HasSubstr("stopped; no result was written"),
                                       HasSubstr("stopped at once; no result is half written")));
        fs::remove(path("out/.insolate-partial")); // finished sensors of a long calculation
        EXPECT_TRUE(!fs::exists(path("out")) || fs::is_empty(path("out"))) << c.words;
    }
}

TEST_F(FaultsTest, EndsThoughNobodyReadsWhatItSays) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_NONBLOCK), 0);
    while (::write(ends[1], "x", 1) == 1) {
    }
    fcntl(ends[1], F_SETFL, 0);
    const pid_t child =
        start("run --weather good.epw --scene court.obj --out out --progress json 2>&9",
              [&] { dup2(ends[1], 9); });
    while (!fs::exists(path("out"))) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    kill(child, SIGTERM);
    int status = 0;
    for (int i = 0; i < 1000 && waitpid(child, &status, WNOHANG) == 0; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    kill(child, SIGKILL);
    EXPECT_EQ(WEXITSTATUS(status), 128 + SIGTERM);
    EXPECT_FALSE(fs::exists(path("out")));
    close(ends[0]);
    close(ends[1]);
}

TEST_F(FaultsTest, FullDiskAndVanishingFolderEndWithTheFileNamed) {
    makeReference();
    for (const rlim_t most : {rlim_t{1}, rlim_t{1000}, rlim_t{500'000}}) {
        const Outcome full =
            command(study + " --out full", [most] { limitTo(RLIMIT_FSIZE, most); });
        // Even the message may not fit.
        EXPECT_EQ(full.exitCode, 1) << full.err;
        if (most >= 1000) {
            EXPECT_THAT(full.err, testing::AllOf(HasSubstr("full"), HasSubstr("; ")));
        }
        EXPECT_FALSE(fs::exists(path("full/sensors.csv"))) << most;
        expectWholeOrPartial(path("full"));
    }
    const Outcome again = command(study + " --resume --out full");
    EXPECT_EQ(again.exitCode, 0) << again.err;
    expectWholeOrPartial(path("full"));
    const pid_t child = start(study + " --out gone");
    while (!fs::exists(path("gone"))) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    fs::rename(path("gone"), path("elsewhere"));
    const Outcome gone = finish(child);
    EXPECT_EQ(gone.exitCode, 1) << gone.err;
    EXPECT_THAT(gone.err, testing::AllOf(HasSubstr("gone"), HasSubstr("; ")));
    expectWholeOrPartial(path("elsewhere"));
}

TEST_F(FaultsTest, HostileSizesAreRefusedBeforeMemoryIsTaken) {
    // A header alone that claims 20 million triangles, and a file as long as they are.
    std::string header(84, '\0');
    const std::uint32_t claimed = 20'000'000;
    std::memcpy(header.data() + 80, &claimed, sizeof claimed);
    write("claims.stl", header);
    write("long.stl", header);
    fs::resize_file(path("long.stl"), 84 + std::uintmax_t{50} * claimed);
    write("empty.stl", std::string(84, '\0'));
    write("far.csv", "1e11,0,0\n");
    const std::string base = "run --weather good.epw --out out --period 6/1 ";
    struct Case {
        std::string words;
        int exitCode;
        std::vector<std::string> messages;
    };
    for (const Case& c : std::vector<Case>{
             {"--scene long.stl", 2, {"long.stl", "2e+07 triangles", "GB of memory", "--force"}},
             {"--scene claims.stl", 1, {"claims.stl", "; "}},
             {"--scene empty.stl", 1, {"empty.stl", "; "}},
             {"--scene court.obj --grid 0.0022", 2, {"sensors", "GB of memory and ", "--force"}},
             {"--scene court.obj --grid 0.0001 --force", 2, {"sensors", "larger --grid"}}}) {
        const Outcome refused =
            command(base + c.words, [] { limitTo(RLIMIT_AS, rlim_t{1} << 30U); });
        EXPECT_EQ(refused.exitCode, c.exitCode) << c.words << "\n" << refused.err;
        for (const std::string& message : c.messages) {
            EXPECT_THAT(refused.err, HasSubstr(message)) << c.words;
        }
        EXPECT_THAT(refused.err, testing::Not(testing::AnyOf(HasSubstr("not enough memory"),
                                                             HasSubstr("insolate-import"))));
        EXPECT_FALSE(fs::exists(path("out"))) << c.words;
    }
}

#ifndef INSOLATE_SANITIZED
TEST_F(FaultsTest, TooLittleMemoryIsSaid) {
    for (const rlim_t megabytes : {200U, 300U, 400U, 600U}) {
        const Outcome run = command("run --scene court.obj --weather good.epw --out out --period "
                                    "6/1 --grid 0.012 --threads 1",
                                    [megabytes] { limitTo(RLIMIT_AS, megabytes << 20U); });
        EXPECT_EQ(run.exitCode, 1) << megabytes << " MB: " << run.err;
        EXPECT_THAT(run.err, HasSubstr("not enough memory; ")) << megabytes;
        EXPECT_FALSE(fs::exists(path("out")));
    }
}
#endif

} // namespace
} // namespace insolate::app
