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

} // namespace insolate::study
