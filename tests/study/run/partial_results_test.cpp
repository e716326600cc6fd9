// The file that a stopped run leaves behind: taken over whole, in part, or not at all.
#include "study/run/partial_results.h"
#include "tests/study/support/study_fixture.h"

#include <array>
#include <csignal>
#include <thread>

#include <gtest/gtest.h>
#include <sys/resource.h>

namespace insolate::study {
namespace {

constexpr std::size_t sensors = 10;
constexpr std::size_t blockSize = 4;
constexpr PartialResults::Key studyKey = {1, 2};

/// Two columns, counting from the value, or zeros.
std::vector<ResultColumn> columnsOf(float first) {
    std::vector<ResultColumn> columns(2);
    for (ResultColumn& column : columns) {
        for (std::size_t i = 0; i < sensors; ++i) {
            column.values.push_back(first == 0.0f ? 0.0f : first++);
        }
    }
    return columns;
}

TEST(PartialResults, GoOnWithWhateverIsWholeAndTheirs) {
    const test::StudyFolder folder;
    const std::filesystem::path file = folder.path() / PartialResults::fileName;
    const std::vector<ResultColumn> expected = columnsOf(1.0f);
    for (const bool isLong : {false, true}) {
        std::vector<ResultColumn> columns = expected;
        PartialResults stopped(folder.path(), studyKey, false);
        EXPECT_EQ(stopped.attach(columns, nullptr, blockSize), 0U);
        std::this_thread::sleep_for(isLong ? PartialResults::interval
                                           : 0 * PartialResults::interval);
        stopped.finish(8);
        stopped.finish(0);
        stopped.detach();
        EXPECT_EQ(std::filesystem::exists(file), isLong) << "short runs leave nothing";
        EXPECT_EQ(stopped.sensorsKept(), isLong ? 6U : 0U);
    }
    const std::string whole = test::readFile(file);
    constexpr std::size_t firstBlock = 40 + 16 + 2 * 2 * 4 + 8;
    ASSERT_EQ(whole.size(), firstBlock + 16 + 4 * 2 * 4 + 8);

    struct Case {
        const char* what;
        std::string content;
        PartialResults::Key wanted;
        std::size_t taken;
        std::size_t left; ///< whole blocks by their sizes alone
    };
    const auto damaged = [&](std::size_t at) {
        return std::string(whole).replace(at, 1, 1, static_cast<char>(whole[at] ^ 1));
    };
    for (const Case& c : std::vector<Case>{
             {"as left", whole, studyKey, 6, 6},
             {"another study", whole, {1, 3}, 0, 6},
             {"cut within the second block", whole.substr(0, whole.size() - 1), studyKey, 2, 2},
             {"a value of the second block changed", damaged(firstBlock + 20), studyKey, 2, 6},
             {"a block twice", whole + whole.substr(firstBlock), studyKey, 6, 10},
             {"the first block's count changed", damaged(48), studyKey, 0, 7},
             {"cut header", whole.substr(0, 39), studyKey, 0, 0},
             {"nothing", "", studyKey, 0, 0}}) {
        SCOPED_TRACE(c.what);
        folder.write(PartialResults::fileName, c.content);
        std::vector<ResultColumn> columns = columnsOf(0.0f);
        PartialResults resumed(folder.path(), c.wanted, true);
        const PartialResults::Leftover left = resumed.leftover();
        EXPECT_EQ(left.ofThisStudy, c.wanted == studyKey && left.sensors > 0);
        EXPECT_EQ(left.sensors, c.left);
        EXPECT_EQ(resumed.attach(columns, nullptr, blockSize), c.taken);
        EXPECT_EQ(resumed.isFinished(8), c.taken >= 2);
        EXPECT_EQ(resumed.isFinished(0), c.taken == 6);
        EXPECT_FALSE(resumed.isFinished(4));
        for (std::size_t column = 0; column < 2; ++column) {
            for (std::size_t i = 0; i < sensors; ++i) {
                const bool finished = resumed.isFinished(i / blockSize * blockSize);
                EXPECT_EQ(columns[column].values[i], finished ? expected[column].values[i] : 0.0f);
            }
            columns[column].values = expected[column].values;
        }
        // What is finished next stands behind what was whole.
        std::this_thread::sleep_for(PartialResults::interval);
        for (std::size_t first = 0; first < sensors; first += blockSize) {
            if (!resumed.isFinished(first)) {
                resumed.finish(first);
            }
        }
        resumed.detach();
        std::vector<ResultColumn> all = columnsOf(0.0f);
        PartialResults last(folder.path(), c.wanted, true);
        EXPECT_EQ(last.attach(all, nullptr, blockSize), sensors);
        EXPECT_EQ(all[1].values, expected[1].values);
        last.remove();
        EXPECT_FALSE(std::filesystem::exists(file));
    }
}

TEST(PartialResults, LeaveAloneWhatIsNotTheirs) {
    const test::StudyFolder folder;
    for (const char* content : {"notes of the user", "INSOPART\2\0\0\0"}) {
        const auto file = folder.write(PartialResults::fileName, content);
        std::vector<ResultColumn> columns = columnsOf(1.0f);
        PartialResults run(folder.path(), studyKey, true);
        EXPECT_TRUE(run.leftover().isForeign);
        EXPECT_EQ(run.attach(columns, nullptr, blockSize), 0U);
        std::this_thread::sleep_for(PartialResults::interval);
        run.finish(0);
        run.detach();
        run.remove();
        EXPECT_EQ(test::readFile(file), content);
    }
}

TEST(PartialResults, KeyChangesWithTheFilesContents) {
    const test::StudyFolder folder;
    const auto keyOf = [&](const std::string& options, const std::string& weather) {
        const std::array files = {folder.write("a.epw", weather)};
        return PartialResults::keyOf(options, {}, files);
    };
    EXPECT_TRUE(keyOf("o", "100") == keyOf("o", "100"));
    EXPECT_FALSE(keyOf("o", "100") == keyOf("o", "101"));
    EXPECT_FALSE(keyOf("o", "100") == keyOf("p", "100"));
}

TEST(PartialResults, LeaveNoFileThatHoldsNothing) {
    const test::StudyFolder folder;
    std::vector<ResultColumn> columns = columnsOf(1.0f);
    PartialResults stopped(folder.path(), studyKey, false);
    stopped.attach(columns, nullptr, blockSize);
    std::this_thread::sleep_for(PartialResults::interval);
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit usual = {};
    getrlimit(RLIMIT_FSIZE, &usual);
    const rlimit tight = {50, usual.rlim_max};
    setrlimit(RLIMIT_FSIZE, &tight);
    stopped.finish(0);
    setrlimit(RLIMIT_FSIZE, &usual);
    stopped.detach();
    EXPECT_EQ(stopped.sensorsKept(), 0U);
    EXPECT_FALSE(std::filesystem::exists(folder.path() / PartialResults::fileName));
}

} // namespace
} // namespace insolate::study
