// The commands that the documents show do what they say, in the order in which they stand there.
#include "tests/app/support/command_fixture.h"

#include <cstdlib>
#include <regex>
#include <set>
#include <sstream>

namespace insolate::app {
namespace {

using testing::HasSubstr;

class RecipesTest : public test::CommandFixture {};

TEST_F(RecipesTest, RunAsTheyStandInTheGuide) {
    const char* const source = std::getenv("INSOLATE_SOURCE_DIR");
    ASSERT_NE(source, nullptr);
    const std::filesystem::path root = source;
    std::filesystem::create_directory_symlink(root / "examples", path("examples"));
    std::string guide = test::readFile(root / "docs/getting-started.md");
    const std::size_t begin = guide.find("\n## Recipes\n");
    ASSERT_NE(begin, std::string::npos);
    guide = guide.substr(begin + 1, guide.find("\n## ", begin + 1) - begin);
    std::istringstream lines(guide);
    std::size_t commands = 0;
    std::set<std::string> folders;
    std::string words;
    for (std::string line; std::getline(lines, line);) {
        if (words.empty() && !line.starts_with("    insolate ")) {
            continue;
        }
        const bool goesOn = line.ends_with('\\');
        words += line.substr(words.empty() ? 13 : 4,
                             line.size() - (goesOn ? 1 : 0) - (words.empty() ? 13 : 4));
        if (goesOn) {
            continue;
        }
        const Outcome outcome = command(words);
        EXPECT_EQ(outcome.exitCode, 0) << words << "\n" << outcome.err;
        EXPECT_THAT(outcome.err, HasSubstr("insolate: wrote ")) << words;
        ++commands;
        words.clear();
    }
    EXPECT_GE(commands, 6U);
    // Each picture that the guide shows is there, and small.
    const std::regex image(R"(\]\((images/[^)]*\.png)\))");
    std::size_t pictures = 0;
    for (std::sregex_iterator i(guide.begin(), guide.end(), image), end; i != end; ++i) {
        const std::filesystem::path file = root / "docs" / (*i)[1].str();
        ASSERT_TRUE(std::filesystem::exists(file)) << file;
        EXPECT_LT(std::filesystem::file_size(file), 60'000U) << file;
        ++pictures;
    }
    EXPECT_EQ(pictures, 5U);
}

} // namespace
} // namespace insolate::app
