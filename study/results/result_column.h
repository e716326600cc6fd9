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

/// How values of a unit are shown to people: energy in kWh/m2, minutes in hours.
struct ShownUnit {
    double divisor = 1.0;
    std::string name;
};

inline ShownUnit shownUnit(const std::string& unit) {
    return unit == "Wh/m2" ? ShownUnit{1000.0, "kWh/m2"}
           : unit == "min" ? ShownUnit{60.0, "h"}
                           : ShownUnit{1.0, unit};
}

/// The same in tables of groups, which keep minutes.
inline ShownUnit tableUnit(const std::string& unit) {
    return unit == "min" ? ShownUnit{1.0, unit} : shownUnit(unit);
}

/// A column in the unit that is shown.
inline ResultColumn inShownUnit(ResultColumn column) {
    const ShownUnit shown = shownUnit(column.unit);
    if (shown.divisor != 1.0) {
        for (float& value : column.values) {
            value /= static_cast<float>(shown.divisor);
        }
        column.unit = shown.name;
    }
    return column;
}

} // namespace insolate::study
