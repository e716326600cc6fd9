#include "study/files/input_file.h"
#include "study/support/errors.h"
#include "tests/study/support/study_fixture.h"

#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>

namespace insolate::study {
namespace {

using test::messageOf;
using testing::AllOf;
using testing::HasSubstr;

class InputFileTest : public testing::Test {
protected:
    test::StudyFolder folder;
};

TEST_F(InputFileTest, GivesLinesBytesAndPlaces) {
    const std::string long_(300'000, 'x'); // longer than what is read at once
    const auto file = folder.write("a.obj", "one\n\n" + long_ + "\nlast");
    InputFile in(file, inputKinds::model);
    std::string line;
    for (const std::string& expected :
         {std::string("one"), std::string(), long_, std::string("last")}) {
        ASSERT_TRUE(in.readLine(line));
        EXPECT_EQ(line, expected);
    }
    EXPECT_FALSE(in.readLine(line));
    in.seek(300'006);
    EXPECT_EQ(in.readAll(), "last");
    in.seek(300'008);
    std::uint16_t value = 0;
    EXPECT_TRUE(in.readValue(value));
    EXPECT_FALSE(in.readValue(value));
    EXPECT_EQ(InputFile(file, inputKinds::model).readAll(), test::readFile(file));
    EXPECT_EQ(InputFile(folder.write("empty", ""), inputKinds::model).readAll(), "");
}

TEST_F(InputFileTest, RefusesWhatIsNoFileOfItsKindAtOnce) {
    std::filesystem::create_directory(folder.path() / "folder");
    std::filesystem::resize_file(folder.write("sparse", ""), 1ULL << 33U);
    const auto pipe = folder.path() / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const auto start = std::chrono::steady_clock::now();
    struct Case {
        std::filesystem::path file;
        const InputKind& kind;
        const char* message;
    };
    std::string line;
    for (const Case& c : std::initializer_list<Case>{
             {"/none", inputKinds::weather, "/none: no such file; check the name of the weather"},
             {"folder", inputKinds::study, "folder: cannot be read (it is a folder); give a study"},
             {"pipe", inputKinds::masks, "cannot be read (it is no regular file); write the mask"},
             {"/dev/zero", inputKinds::weather, "it is no regular file"},
             {"/dev/zero", inputKinds::study, "more than 4096 kB is too much for a study file; "},
             {"/dev/zero", inputKinds::sensorTable, ":1: the line has more than 63 kB"},
             {"sparse", inputKinds::weather,
              "8192 MB are too much for a weather file, which may "
              "have 256 MB; check"},
             {"sparse", inputKinds::sensorTable, "sparse:1: the line has more than 63 kB"}}) {
        EXPECT_THAT(messageOf([&] {
                        InputFile in(folder.path() / c.file, c.kind);
                        if (c.kind.name == inputKinds::study.name) {
                            in.readAll();
                        }
                        in.readLine(line);
                    }),
                    HasSubstr(c.message))
            << c.file;
    }
    using namespace std::string_literals;
    for (const auto& [mark, encoding] : {std::pair{"\xFF\xFEs"s, "UTF-16"},
                                         {"\xFE\xFFs"s, "UTF-16"},
                                         {"\xFF\xFE\0\0"s, "UTF-32"},
                                         {"\0\0\xFE\xFF"s, "UTF-32"}}) {
        const auto file = folder.write("wide", mark);
        EXPECT_THAT(
            messageOf([&] { InputFile(file, inputKinds::study); }),
            HasSubstr(std::string("the text is ") + encoding + "; save the study file as UTF-8"));
        EXPECT_EQ(InputFile(file, inputKinds::masks).readAll(), mark);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

TEST_F(InputFileTest, WaitsForAPipeUntilItIsStopped) {
    const auto pipe = folder.path() / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    {
        const std::jthread writer([&] {
            std::ofstream out(pipe);
            out << "1,2,3\n" << std::flush;
            std::this_thread::sleep_for(std::chrono::milliseconds(60));
            out << "4,5,6\n";
        });
        InputFile in(pipe, inputKinds::sensorTable);
        EXPECT_EQ(in.readAll(), "1,2,3\n4,5,6\n");
    }
    std::stop_source source; // nobody writes
    const std::jthread asker([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(60));
        source.request_stop();
    });
    EXPECT_THROW(InputFile(pipe, inputKinds::sensorTable, source.get_token()), Stopped);
}

TEST_F(InputFileTest, EndlessPipesReachTheirLimit) {
    const auto pipe = folder.path() / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const std::jthread writer([&] {
        std::signal(SIGPIPE, SIG_IGN);
        std::ofstream out(pipe);
        while (out << "1,2,3\n") {
        }
    });
    std::string line;
    EXPECT_THAT(
        messageOf([&] {
            InputFile in(pipe, inputKinds::sensorTable);
            while (in.readLine(line)) {
            }
        }),
        AllOf(HasSubstr("pipe: more than 64 MB is too much for a sensor table from a pipe")));
}

} // namespace
} // namespace insolate::study
