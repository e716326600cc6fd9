// Any bytes as a table of sensors; the first chooses unit and axis.
#include "memory_file.h"

#include "study/model/sensor_csv.h"
#include "study/support/errors.h"

#include <cmath>

INSOLATE_FUZZ_TARGET(sensors)(const std::uint8_t* bytes, std::size_t size) {
    using namespace insolate::study;
    using insolate::fuzz::require;
    if (size == 0) {
        return 0;
    }
    const insolate::fuzz::MemoryFile file(bytes + 1, size - 1);
    try {
        const SensorField field = readSensorCsv(file.name(), static_cast<LengthUnit>(bytes[0] % 5),
                                                bytes[0] >= 128 ? UpAxis::y : UpAxis::z);
        require(field.size() > 0 && field.normals.size() == field.size(), "every sensor is whole");
        require(!field.hasCells(), "a table has no cells");
        for (std::size_t i = 0; i < field.size(); ++i) {
            const Vector3& p = field.positions[i];
            const Vector3& n = field.normals[i];
            require(std::abs(p.x) + std::abs(p.y) + std::abs(p.z) < 1.0e13, "places are usable");
            const double size2 = n.x * n.x + n.y * n.y + n.z * n.z;
            require(size2 == 0.0 || std::abs(size2 - 1.0) < 1.0e-9, "normals have length 1");
        }
    } catch (const DataError& error) {
        insolate::fuzz::requireFix(error);
    }
    return 0;
}
