/// A folder of its own for each test, and small fields of sensors.
#pragma once

#include "study/files/output_folder.h"
#include "study/model/scene.h"
#include "tests/study/support/study_fixture.h"

#include <gmock/gmock.h>

namespace insolate::study {

class OutputTest : public testing::Test {
protected:
    [[nodiscard]] int fileCount() const {
        return static_cast<int>(std::distance(std::filesystem::directory_iterator(folder),
                                              std::filesystem::directory_iterator()));
    }
    /// What `write` makes of a file.
    template <typename Write>
    [[nodiscard]] std::filesystem::path written(const char* name, Write&& write) const {
        OutputFile file(folder / name, name);
        write(file);
        file.finish();
        return folder / name;
    }

    test::StudyFolder own;
    const std::filesystem::path folder = own.path();
};

/// Adds a sensor above the middle of a parallelogram.
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

} // namespace insolate::study
