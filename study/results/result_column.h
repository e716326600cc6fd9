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

/// A column in the unit that people read: energy in kWh/m2, minutes in hours.
inline ResultColumn inShownUnit(ResultColumn column) {
    const float divisor = column.unit == "Wh/m2" ? 1000.0f : column.unit == "min" ? 60.0f : 1.0f;
    if (divisor != 1.0f) {
        for (float& value : column.values) {
            value /= divisor;
        }
        column.unit = column.unit == "min" ? "h" : "kWh/m2";
    }
    return column;
}

/// A column in Wh/m2, in the unit that people read.
inline ResultColumn inKilowattHours(ResultColumn column) {
    for (float& value : column.values) {
        value /= 1000.0f;
    }
    column.unit = "kWh/m2";
    return column;
}

} // namespace insolate::study
