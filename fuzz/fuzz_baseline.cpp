// Any bytes as the sensors.csv of an earlier run that hours of sun are compared with, for two
// sensors; the first byte chooses the kind of threshold.
#include "memory_file.h"

#include "study/model/sensor_grid.h"
#include "study/run/sun_hours_baseline.h"
#include "study/support/errors.h"

#include <fstream>

INSOLATE_FUZZ_TARGET(baseline)(const std::uint8_t* bytes, std::size_t size) {
    using namespace insolate::study;
    using insolate::fuzz::require;
    static const insolate::fuzz::Folder folder;
    if (size == 0) {
        return 0;
    }
    SensorField field;
    field.positions = {{1, 2, 3}, {4, 5, 6}};
    field.normals = {{0, 0, 1}, {0, 0, 1}};
    std::ofstream(folder.path() / "sensors.csv", std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes) + 1, static_cast<std::streamsize>(size - 1));
    try {
        const Baseline baseline = readBaseline(folder.path(), field, bytes[0] % 2 == 1, {});
        require(baseline.values.size() == 2 && baseline.winter.size() == 2 &&
                    baseline.passes.size() == 2,
                "a baseline that is read has every sensor");
    } catch (const DataError& error) {
        insolate::fuzz::requireFix(error);
    }
    return 0;
}
