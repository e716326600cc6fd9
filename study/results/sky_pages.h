/// A sky by its cells, as table and picture show it.
#pragma once

#include "study/results/result_column.h"

#include <string>
#include <vector>

namespace insolate::study {

/// A line over the dome, e.g. the sun's way on one day.
struct SkyPath {
    struct Point {
        double azimuth = 0.0;  ///< degrees clockwise from true north
        double altitude = 0.0; ///< degrees; points below the horizon end the line
    };
    std::string label; ///< written at its highest point; may be empty
    std::vector<Point> points;
};

/// Columns have 1,296 values each, in the order of skyGrid::cellIndex.
struct SkyPages {
    std::vector<ResultColumn> parts; ///< of the table
    ResultColumn whole;              ///< of the picture
    std::vector<SkyPath> paths;      ///< the sun's way on some days, for orientation
};

} // namespace insolate::study
