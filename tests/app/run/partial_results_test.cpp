// The file that a stopped run leaves behind: taken over whole, in part, or not at all.
#include "app/run/partial_results.h"
#include "tests/app/support/study_fixture.h"

#include <thread>

#include <gtest/gtest.h>

namespace insolate::app {
namespace {

constexpr std::size_t sensors = 10;
constexpr std::size_t blockSize = 4;
constexpr PartialResults::Key key = {1, 2};

std::vector<ResultColumn> columnsOf(float first) {
    std::vector<ResultColumn> columns = {{"a", "", "", {}}, {"b", "", "", {}}};
    for (ResultColumn& column : columns) {
        for (std::size_t i = 0; i < sensors; ++i) {
            column.values.push_back(first == 0.0f ? 0.0f : first++);
        }
    }
    return columns;
}

/// Leaves the blocks of sensors 8 and 0 in the folder.
void leaveTwoBlocks(const std::filesystem::path& folder) {
    std::vector<ResultColumn> columns = columnsOf(1.0f);
    PartialResults stopped(folder, key, false);
    EXPECT_EQ(stopped.attach(columns, nullptr, blockSize), 0U);
    std::this_thread::sleep_for(PartialResults::interval);
    stopped.finish(8);
    stopped.finish(0);
    stopped.detach();
    EXPECT_EQ(stopped.sensorsKept(), 6U);
}

TEST(PartialResults, GoOnWithWhateverIsWholeAndTheirs) {
    const test::StudyFolder folder;
    const std::filesystem::path file = folder.path() / PartialResults::fileName;
    leaveTwoBlocks(folder.path());
    const std::string whole = test::readFile(file);
    constexpr std::size_t firstBlock = 40 + 16 + 2 * 2 * 4 + 8;
    ASSERT_EQ(whole.size(), firstBlock + 16 + 4 * 2 * 4 + 8);

    struct Case {
        const char* what;
        std::string content;
        PartialResults::Key wanted;
        std::size_t taken;
    };
    const auto damaged = [&](std::size_t at) {
        std::string text = whole;
        text[at] = static_cast<char>(text[at] ^ 1);
        return text;
    };
    for (const Case& c : std::vector<Case>{
             {"as left", whole, key, 6},
             {"another study", whole, {1, 3}, 0},
             {"cut within the second block", whole.substr(0, whole.size() - 1), key, 2},
             {"a value of the second block changed", damaged(firstBlock + 20), key, 2},
             {"a block twice", whole + whole.substr(firstBlock), key, 6},
             {"the first block's count changed", damaged(48), key, 0},
             {"another version", damaged(8), key, 0},
             {"cut header", whole.substr(0, 39), key, 0},
             {"nothing", "", key, 0}}) {
        SCOPED_TRACE(c.what);
        folder.write(PartialResults::fileName, c.content);
        std::vector<ResultColumn> columns = columnsOf(0.0f);
        const std::vector<ResultColumn> expected = columnsOf(1.0f);
        PartialResults resumed(folder.path(), c.wanted, true);
        EXPECT_EQ(resumed.attach(columns, nullptr, blockSize), c.taken);
        EXPECT_EQ(resumed.isFinished(8), c.taken >= 2);
        EXPECT_EQ(resumed.isFinished(0), c.taken == 6);
        EXPECT_FALSE(resumed.isFinished(4));
        for (std::size_t i = 0; i < sensors; ++i) {
            for (std::size_t column = 0; column < 2; ++column) {
                EXPECT_EQ(columns[column].values[i],
                          resumed.isFinished(i / 4 * 4) ? expected[column].values[i] : 0.0f);
            }
        }
        // What is finished next stands behind what was whole.
        for (std::size_t column = 0; column < 2; ++column) {
            columns[column].values = expected[column].values;
        }
        std::this_thread::sleep_for(PartialResults::interval);
        for (const std::size_t first : {0U, 4U, 8U}) {
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

TEST(PartialResults, ShortRunsLeaveNothing) {
    const test::StudyFolder folder;
    std::vector<ResultColumn> columns = columnsOf(1.0f);
    PartialResults partial(folder.path(), key, false);
    partial.attach(columns, nullptr, blockSize);
    partial.finish(0);
    partial.detach();
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

} // namespace
} // namespace insolate::app
