// The example host as a user runs it, the guide that quotes it, and the demo's files.
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

std::filesystem::path sourceFolder() {
    const char* const folder = std::getenv("INSOLATE_SOURCE_DIR");
    return folder != nullptr ? folder : ".";
}

std::string contentOf(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    EXPECT_TRUE(stream) << file;
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

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

/// Global horizontal, direct normal and diffuse horizontal radiation of the demo's year [kWh/m2].
std::array<double, 3> demoYear() {
    std::istringstream weather(contentOf(sourceFolder() / "examples/courtyard/weather.epw"));
    std::array<double, 3> sums = {};
    int lines = 0;
    for (std::string line; std::getline(weather, line); ++lines) {
        std::istringstream fields(line);
        std::string field;
        for (int i = 0; lines >= 8 && std::getline(fields, field, ','); ++i) {
            if (i >= 13 && i <= 15) {
                sums[static_cast<std::size_t>(i - 13)] += std::stod(field) / 1000.0;
            }
        }
    }
    EXPECT_EQ(lines, 8 + 8760);
    return sums;
}

TEST(MinimalHost, shadesTheNorthSideAndStaysWithinTheWeather) {
    const std::string weather = (sourceFolder() / "examples/courtyard/weather.epw").string();
    std::istringstream lines(outputOf(std::string(MINIMAL_HOST) + " '" + weather + "'", 0));
    std::map<std::string, double> total;
    for (std::string line; std::getline(lines, line);) {
        const std::size_t number = line.find_first_of("0123456789");
        const std::size_t nameEnd = line.find_last_not_of(' ', number - 1);
        if (number != std::string::npos && number > 0 && line.find("peak") != std::string::npos) {
            total[line.substr(0, nameEnd + 1)] = std::stod(line.substr(number));
        }
    }
    ASSERT_EQ(total.size(), 3U);
    const double open = total["open ground"];
    EXPECT_LT(total["ground north of the wall"], 0.5 * open);
    EXPECT_GT(total["south face of the wall"], 1.3 * total["ground north of the wall"]);
    // Of the diffuse light the overcast distribution over cells gives an open horizontal surface
    // the share sum(w sin h) / sum(w) = 0.720; the beam arrives whole but for the cells' width.
    const auto [global, direct, diffuse] = demoYear();
    EXPECT_NEAR(open, global - diffuse + 0.720 * diffuse, 0.05 * global);
    EXPECT_GT(direct, global - diffuse);
}

TEST(MinimalHost, failsInWords) {
    EXPECT_THAT(outputOf(std::string(MINIMAL_HOST) + " nowhere.epw", 1),
                testing::HasSubstr("nowhere.epw"));
    EXPECT_THAT(outputOf(MINIMAL_HOST, 2), testing::HasSubstr("usage"));
}

TEST(HostIntegrationGuide, quotesTheExampleWordForWord) {
    const std::string guide = contentOf(sourceFolder() / "docs/host-integration.md");
    const std::string example = contentOf(sourceFolder() / "examples/minimal_host.cpp");
    int blocks = 0;
    for (std::size_t at = guide.find("```cpp\n"); at != std::string::npos;
         at = guide.find("```cpp\n", at)) {
        at += 7;
        const std::string block = guide.substr(at, guide.find("```", at) - at);
        EXPECT_NE(example.find(block), std::string::npos) << block;
        at += block.size() + 3;
        ++blocks;
    }
    EXPECT_GE(blocks, 5);
}

} // namespace
