/// A result by sensor.
#pragma once

#include <string>
#include <vector>

namespace insolate::study {

/// One quantity by sensor, as every result file writes it.
struct ResultColumn {
    std::string name;  ///< lower_snake, the name in files: "total"
    std::string unit;  ///< plain ASCII: "Wh/m2", "W/m2", "%", "h"
    std::string title; ///< for people: "Total radiation"
    std::vector<float> values;
};

/// A column in Wh/m2, in the unit that people read.
inline ResultColumn inKilowattHours(ResultColumn column) {
    for (float& value : column.values) {
        value /= 1000.0f;
    }
    column.unit = "kWh/m2";
    return column;
}

} // namespace insolate::study
