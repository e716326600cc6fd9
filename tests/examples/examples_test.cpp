// The example host as a user runs it, the guide that quotes it, and the demo's files.
#include "../support/temporary_folder.h"
#include "../support/test_data.h"

#include <cstdio>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include <fmt/format.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using insolate::test::readFile;
using insolate::test::sourceFolder;

std::string outputOf(const std::string& command, int expectedStatus) {
    std::string output;
    FILE* const pipe = popen((command + " 2>&1").c_str(), "r");
    for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe)) {
        output += static_cast<char>(c);
    }
    const int status = pclose(pipe);
    EXPECT_EQ(status / 256, expectedStatus) << output;
    return output;
}

TEST(MinimalHost, shadesTheNorthSideAndStaysWithinTheWeather) {
    const std::string weather = (sourceFolder() / "examples/courtyard/weather.epw").string();
    const std::string output = outputOf(std::string(MINIMAL_HOST) + " '" + weather + "'", 0);
    const auto totalOf = [&](const std::string& name) {
        const std::size_t at = output.find(name);
        return at == std::string::npos ? 0.0 : std::stod(output.substr(at + name.size()));
    };
    const double north = totalOf("ground north of the wall");
    EXPECT_LT(north, 0.5 * totalOf("open ground"));
    EXPECT_GT(totalOf("south face of the wall"), 1.3 * north);
    // The beam and what the overcast distribution over cells gives an open horizontal surface of
    // the diffuse light, sum(w sin h) / sum(w) = 0.720:
    //   awk -F, 'NR > 8 {g += $14; d += $16} END {print (g - 0.28 * d) / 1000}' weather.epw
    EXPECT_NEAR(totalOf("open ground"), 1066.0, 55.0);
}

TEST(MinimalHost, failsInWords) {
    EXPECT_THAT(outputOf(std::string(MINIMAL_HOST) + " nowhere.epw", 1),
                testing::HasSubstr("nowhere.epw"));
    EXPECT_THAT(outputOf(MINIMAL_HOST, 2), testing::HasSubstr("usage"));
}

TEST(HourlyHost, givesTheNumbersOfTheCommand) {
    const insolate::test::TemporaryFolder folder;
    const std::filesystem::path demo = sourceFolder() / "examples/courtyard";
    const std::string files = fmt::format("'{}' '{}'", (demo / "weather.epw").string(),
                                          (demo / "courtyard.obj").string());
    outputOf(fmt::format("cd '{}' && {} {}", folder.path().string(), HOURLY_HOST, files), 0);
    outputOf(fmt::format("cd '{}' && {} run --quiet --out out --weather '{}' --scene '{}'",
                         folder.path().string(), COMMAND, (demo / "weather.epw").string(),
                         (demo / "courtyard.obj").string()),
             0);
    // Place and normal of every sensor, and its total.
    struct Line {
        std::string place;
        double total = 0.0;
    };
    const auto linesOf = [](const std::filesystem::path& file) {
        std::istringstream text(readFile(file));
        std::vector<Line> lines;
        std::string line;
        std::getline(text, line);
        while (std::getline(text, line)) {
            std::size_t end = 0;
            for (int column = 0; column < 6; ++column) {
                end = line.find(',', end) + 1;
            }
            lines.push_back({line.substr(0, end), std::stod(line.substr(end))});
        }
        return lines;
    };
    const std::vector<Line> host = linesOf(folder.path() / "radiation/sensors.csv");
    const std::vector<Line> command = linesOf(folder.path() / "out/sensors.csv");
    EXPECT_GT(host.size(), 1000U);
    ASSERT_EQ(host.size(), command.size());
    for (std::size_t i = 0; i < host.size(); ++i) {
        EXPECT_EQ(host[i].place, command[i].place);
        // The command keeps single precision between direct and reflected light.
        EXPECT_NEAR(host[i].total, command[i].total, 1e-6 * command[i].total);
    }
    EXPECT_THAT(outputOf(fmt::format("{} nowhere.epw none.obj", HOURLY_HOST), 1),
                testing::HasSubstr("nowhere.epw"));
}

TEST(HostIntegrationGuide, quotesTheExampleWordForWord) {
    const std::string guide = readFile(sourceFolder() / "docs/host-integration.md");
    const std::string example = readFile(sourceFolder() / "examples/hourly_host.cpp") +
                                readFile(sourceFolder() / "examples/minimal_host.cpp");
    int blocks = 0;
    for (std::size_t at = guide.find("```cpp\n"); at != std::string::npos;
         at = guide.find("```cpp\n", at)) {
        at += 7;
        const std::string block = guide.substr(at, guide.find("```", at) - at);
        EXPECT_NE(example.find(block), std::string::npos) << block;
        at += block.size() + 3;
        ++blocks;
    }
    EXPECT_GE(blocks, 9);
}

} // namespace
