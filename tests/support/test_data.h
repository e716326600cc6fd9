/// Where the tests find the real weather and city models, which the project does not ship.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

namespace insolate::test {

/// The checkout.
inline std::filesystem::path sourceFolder() {
    const char* folder = std::getenv("INSOLATE_SOURCE_DIR");
    return folder != nullptr ? folder : ".";
}

/// A file of the real data in the folder that INSOLATE_TEST_DATA names, or an empty path when it is
/// not there.
inline std::filesystem::path testDataFile(const std::string& name) {
    const char* folder = std::getenv("INSOLATE_TEST_DATA");
    if (folder == nullptr) {
        return {};
    }
    std::filesystem::path file = std::filesystem::path(folder) / name;
    return std::filesystem::exists(file) ? file : std::filesystem::path();
}

} // namespace insolate::test

/// Ends the test as skipped when a file of the real data is missing.
#define INSOLATE_REQUIRE_TEST_DATA(variable, name)                                                 \
    const std::filesystem::path variable = insolate::test::testDataFile(name);                     \
    if (variable.empty()) {                                                                        \
        GTEST_SKIP() << "real data not found: " << (name) << " (set INSOLATE_TEST_DATA)";          \
    }
