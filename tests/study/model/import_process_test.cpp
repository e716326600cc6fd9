#include "study/files/input_file.h"
#include "study/model/import_process.h"
#include "study/model/import_sandbox.h"
#include "study/model/mesh_wire.h"
#include "study/support/errors.h"
#include "tests/study/support/study_fixture.h"

#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <thread>

#include <fcntl.h>
#include <linux/landlock.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace insolate::study {
namespace {

using test::messageOf;
using test::StudyFolder;
using testing::AllOf;
using testing::HasSubstr;
using Clock = std::chrono::steady_clock;

/// A shell script in the place of the import program.
class ImportProcessTest : public testing::Test {
protected:
    std::filesystem::path program(const std::string& script) {
        auto file = folder.write("program", "#!/bin/sh\ncd '" + folder.path().string() + "'\n" +
                                                script + "\n");
        permissions(file, std::filesystem::perms::owner_all);
        return file;
    }
    MeshImportOptions with(const std::string& script, double seconds = 20.0) {
        return {.limits = ImportLimits{.seconds = seconds, .bytes = 1U << 30U},
                .importProgram = program(script)};
    }

    StudyFolder folder;
    std::filesystem::path model = folder.write("a.stl", "solid");
};

TEST_F(ImportProcessTest, SaysHowTheProgramFailed) {
    const auto message = [&](const MeshImportOptions& options) {
        return messageOf([&] { importMesh(model, options); });
    };
    for (const auto& [script, what] :
         {std::pair{"kill -SEGV $$", "failed (Segmentation fault); the file may be damaged: "},
          {"exit 1", "ended without a reply"},
          {"printf INSOMSH1", "ended without a reply"},
          {"printf '%080d' 0", "gave a wrong reply (it does not begin"},
          {"kill -XCPU $$", "did not finish within 20.0 s"}}) {
        EXPECT_THAT(message(with(script)),
                    HasSubstr(std::string("a.stl: the STL importer ") + what))
            << script;
    }
    const auto start = Clock::now();
    for (const char* endless : {"exec sleep 30", "exec sleep 30 >&-"}) {
        EXPECT_THAT(message(with(endless, 0.3)), HasSubstr("did not finish within 300 ms"));
    }
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(5));
    EXPECT_THAT(message({.importProgram = "/none/insolate-import"}),
                AllOf(HasSubstr("cannot be started (No such file"), HasSubstr("INSOLATE_IMPORT")));
}

TEST_F(ImportProcessTest, TakesAReplyThatCameWhileTheReaderWasSuspended) {
    const MeshImportOptions options = with(
        "kill -STOP $PPID; head -c 3000000 /dev/zero & sleep 1.5; kill -CONT $PPID; wait", 1.0);
    const pid_t child = fork();
    if (child == 0) {
        const std::string message = messageOf([&] { importMesh(model, options); });
        _exit(message.find("gave a wrong reply") != std::string::npos ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

#ifndef INSOLATE_SANITIZED
TEST(ImportSandbox, LeavesTheModelsFolderToBeReadAndNothingElse) {
    const StudyFolder folder;
    std::filesystem::create_directory(folder.path() / "in");
    const std::string model = folder.write("in/a.gltf", "{}");
    const std::string inside = folder.write("in/b.bin", "b");
    const std::string outside = folder.write("c.bin", "c");
    const std::string fresh = folder.path() / "in/d.bin";
    const pid_t child = fork();
    if (child == 0) {
        enterSandbox(model);
        const auto isRefused = [](long result) { return result < 0 && errno != ENOENT; };
        int wrong = open(inside.c_str(), O_RDONLY) < 0 ? 1 : 0;
        wrong |= isRefused(open(outside.c_str(), O_RDONLY)) ? 0 : 2;
        wrong |= isRefused(open(inside.c_str(), O_WRONLY)) ? 0 : 4;
        wrong |= isRefused(open(fresh.c_str(), O_RDONLY | O_CREAT, 0600)) ? 0 : 8;
        wrong |= isRefused(unlink(inside.c_str())) ? 0 : 16;
        wrong |= isRefused(socket(AF_UNIX, SOCK_STREAM, 0)) ? 0 : 32;
        wrong |= isRefused(fork()) ? 0 : 64;
        wrong |= isRefused(syscall(SYS_tgkill, getppid(), getppid(), 0)) ? 0 : 128;
        if (syscall(SYS_tgkill, getpid(), getpid(), 0) != 0) { // as abort() does
            wrong = 255;
        }
        _exit(wrong);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    const int wrong = WEXITSTATUS(status);
    if (syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION) < 0) {
        EXPECT_EQ(wrong & ~2, 0);
        GTEST_SKIP() << "this kernel has no Landlock, so that files outside can be read";
    }
    EXPECT_EQ(wrong, 0);
}
#endif

TEST_F(ImportProcessTest, EndsWithAStop) {
    const MeshImportOptions options = with("echo $$ > number; exec sleep 30");
    std::stop_source source;
    const std::jthread asker([&] {
        while (test::readFile(folder.path() / "number").find('\n') == std::string::npos) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        source.request_stop();
    });
    const auto start = Clock::now();
    EXPECT_THROW(importMesh(model, options, source.get_token()), Stopped);
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(5));
    const pid_t process = std::stoi(test::readFile(folder.path() / "number"));
    EXPECT_NE(kill(process, 0), 0) << "the program outlives the call";
}

TEST_F(ImportProcessTest, TakesNothingOfTheHostAlong) {
    const int leaked = dup(0); // a descriptor that a host has forgotten to close
    sigset_t blocked;
    sigset_t before;
    sigfillset(&blocked);
    pthread_sigmask(SIG_SETMASK, &blocked, &before);
    const auto handler = std::signal(SIGTERM, SIG_IGN);
    EXPECT_THAT(
        messageOf([&] { importMesh(model, with("ls /proc/self/fd > files; kill -TERM $$")); }),
        HasSubstr("failed (Terminated)"))
        << "signals are held back or ignored as in the host";
    std::signal(SIGTERM, handler);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    close(leaked);
    // The standard three, and the folder that is listed.
    EXPECT_EQ(test::readFile(folder.path() / "files"), "0\n1\n2\n3\n");
}

TEST_F(ImportProcessTest, BoundsWhatHangsNestsAndGrows) {
    // 20,000 nodes in one another, brackets, and a count without anything behind it.
    std::string nodes =
        R"({"asset":{"version":"2.0"},"scene":0,"scenes":[{"nodes":[0]}],"nodes":[)";
    for (int i = 1; i <= 20'000; ++i) {
        nodes += fmt::format("{{\"children\":[{}]}},", i);
    }
    for (const auto& [name, content] :
         {std::pair{"nodes.gltf", nodes + "{}]}"},
          {"json.gltf", "{\"asset\":" + std::string(200'000, '[')},
          {"counts.ply",
           "ply\nformat binary_little_endian 1.0\nelement vertex 4000000000\nproperty float x\n"
           "property float y\nproperty float z\nend_header\nabcdefgh"}}) {
        const auto file = folder.write(name, content);
        const auto start = Clock::now();
        EXPECT_THROW(importMesh(file, {}), DataError) << name;
        EXPECT_LT(Clock::now() - start, std::chrono::seconds(9)) << name;
    }
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) && !defined(__clang__)
    // Sanitizers need memory of their own, so that the program does without the limit there.
    std::string off = "OFF\n1000000 1 0\n";
    for (int i = 0; i < 1'000'000; ++i) {
        off += "1 2 3\n";
    }
    const auto large = folder.write("large.off", off + "3 0 1 2\n");
    const auto read = [&](std::uint64_t megabytes) {
        return messageOf([&] {
            importMesh(large, {.limits = ImportLimits{.seconds = 20.0, .bytes = megabytes << 20U}});
        });
    };
    EXPECT_THAT(read(30), HasSubstr("the OFF importer needs more than 30 MB of memory"));
    EXPECT_EQ(read(200), "nothing is wrong");
#endif
}

/// A mesh as its bytes, with one number written over.
struct Change {
    std::size_t at;
    std::uint64_t value;
    std::size_t size;
    const char* fault;
};

TEST(MeshWire, RefusesWhateverIsNoMesh) {
    Mesh mesh;
    mesh.vertices = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0.125}};
    mesh.corners = {0, 1, 2};
    mesh.faces = {{.firstCorner = 0,
                   .cornerCount = 3,
                   .object = mesh.nameIndex("wall"),
                   .material = mesh.nameIndex("red")}};
    mesh.coordinateStep = 0.25;
    std::string sent;
    sendMesh(mesh, [&](std::span<const char> bytes) { sent.append(bytes.begin(), bytes.end()); });
    const auto receive = [](const std::string& bytes, std::uintmax_t most = 1000) {
        std::size_t at = 0;
        return receiveReply(
            [&](std::span<char> to) {
                if (bytes.size() - at < to.size()) {
                    throw std::runtime_error("cut");
                }
                std::memcpy(to.data(), bytes.data() + at, to.size());
                at += to.size();
            },
            most);
    };
    const Mesh same = std::get<Mesh>(receive(sent));
    EXPECT_EQ(same.names, mesh.names);
    EXPECT_EQ(same.corners, mesh.corners);
    EXPECT_EQ(same.vertices[2].z, 0.125);
    EXPECT_EQ(same.faces[0].material, 1U);
    EXPECT_EQ(same.coordinateStep, 0.25);
    for (std::size_t length = 0; length < sent.size(); ++length) {
        EXPECT_THROW(receive(sent.substr(0, length)), std::runtime_error) << length;
    }
    constexpr std::size_t header = 56;
    constexpr std::size_t corners = header + 72;
    constexpr std::size_t face = corners + 12;
    constexpr std::size_t names = face + 20;
    for (const Change& change :
         std::initializer_list<Change>{{7, '0', 1, "does not begin"},
                                       {8, 9, 4, "no known kind"},
                                       {12, 3, 4, "a name is missing"},
                                       {12, 1, 4, "more names"},
                                       {16, 1ULL << 60U, 8, "a count is too large"},
                                       {24, 250, 8, "the mesh is too large"},
                                       {32, 2, 8, "cut"},
                                       {40, 1ULL << 60U, 8, "a count is too large"},
                                       {48, 0x7FF0ULL << 48U, 8, "the precision is no distance"},
                                       {corners + 8, 3, 4, "a corner is no vertex"},
                                       {face, 1, 4, "corners are not in order"},
                                       {face + 4, 2, 4, "corners are not in order"},
                                       {face + 4, 4, 4, "corners are left over or missing"},
                                       {face + 8, 2, 4, "a name that is not there"},
                                       {face + 16, 7, 4, "a name that is not there"},
                                       {names, 0, 1, "a name is empty or comes twice"}}) {
        std::string bytes = sent;
        std::memcpy(bytes.data() + change.at, &change.value, change.size);
        EXPECT_THAT(messageOf([&] { receive(bytes); }), HasSubstr(change.fault)) << change.at;
    }
    EXPECT_THAT(messageOf([&] { receive(sent, 100); }), HasSubstr("the mesh is too large"));
}

} // namespace
} // namespace insolate::study
