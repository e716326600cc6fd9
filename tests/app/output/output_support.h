/// A folder of its own for each test, and small fields of sensors.
#pragma once

#include "app/output/output_folder.h"
#include "app/study_data.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

namespace insolate::app {

class OutputTest : public ::testing::Test {
protected:
    OutputTest()
        : folder(std::filesystem::temp_directory_path() /
                 ("insolate_output_" + std::to_string(getpid()) + "_" +
                  ::testing::UnitTest::GetInstance()->current_test_info()->name())) {
        std::filesystem::remove_all(folder);
        std::filesystem::create_directories(folder);
    }
    ~OutputTest() override { std::filesystem::remove_all(folder); }

    static std::string contentOf(const std::filesystem::path& file) {
        std::ifstream stream(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    }
    void put(const std::string& name, const std::string& content) const {
        std::ofstream(folder / name, std::ios::binary) << content;
    }
    [[nodiscard]] int fileCount() const {
        return static_cast<int>(std::distance(std::filesystem::directory_iterator(folder),
                                              std::filesystem::directory_iterator()));
    }

    std::filesystem::path folder;
};

/// Adds a sensor above the middle of a quadrilateral.
inline void addCell(SensorField& field, const Vector3& a, const Vector3& b, const Vector3& c,
                    const Vector3& d, const Vector3& normal) {
    if (field.cellStart.empty()) {
        field.cellStart.push_back(0);
    }
    field.corners.insert(field.corners.end(), {a, b, c, d});
    field.cellStart.push_back(static_cast<std::uint32_t>(field.corners.size()));
    field.positions.push_back({0.5 * (a.x + c.x) + 0.05 * normal.x,
                               0.5 * (a.y + c.y) + 0.05 * normal.y,
                               0.5 * (a.z + c.z) + 0.05 * normal.z});
    field.normals.push_back(normal);
}

} // namespace insolate::app
