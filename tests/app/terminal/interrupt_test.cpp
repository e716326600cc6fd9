// What a process answers that a signal ends in the middle of its work.
#include "app/terminal/interrupt.h"
#include "study/files/output_folder.h"
#include "tests/support/temporary_folder.h"

#include <csignal>
#include <string>

#include <gtest/gtest.h>
#include <sys/types.h>
#include <unistd.h>

namespace insolate::app {
namespace {

using study::OutputFolder;

/// Work that looks at no stop, with its result complete or begun.
[[noreturn]] void workOn(const std::filesystem::path& path, bool isComplete) {
    Interruption interruption([](int) { return std::string("stopped\n"); });
    OutputFolder folder(path, {});
    interruption.holdsFolder(&folder);
    folder.stage({"result", [](const std::filesystem::path&) { return true; }}).write("whole\n");
    if (isComplete) {
        folder.commit();
    }
    kill(getpid(), SIGTERM);
    while (true) {
        pause();
    }
}

TEST(Interruption, SaysThatNothingWasWrittenOnlyWhenItIsSo) {
    const test::TemporaryFolder folder;
    const auto out = folder.path() / "out";
    EXPECT_EXIT(workOn(out, false), testing::ExitedWithCode(128 + SIGTERM), "stopped");
    EXPECT_FALSE(std::filesystem::exists(out));
    // The results got their names before the request came through.
    EXPECT_EXIT(workOn(out, true), testing::ExitedWithCode(128 + SIGTERM), "^$");
    EXPECT_TRUE(std::filesystem::exists(out / "result"));
}

} // namespace
} // namespace insolate::app
