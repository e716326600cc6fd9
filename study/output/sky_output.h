/// The cumulative sky as a table and as a picture.
#pragma once

#include "study/files/output_folder.h"
#include "study/results/result_column.h"

#include <span>
#include <string>
#include <vector>

namespace insolate::study {

/// One line per sky cell: azimuth and altitude of its lower edges [degrees, 5 wide], its solid
/// angle [sr], then the columns. Each column has 1,296 values in the order of skyGrid::cellIndex.
void writeSkyCsv(OutputFile& out, std::span<const ResultColumn> columns);

/// A line over the dome, e.g. the sun's way on one day.
struct SkyPath {
    struct Point {
        double azimuth = 0.0;  ///< degrees clockwise from true north
        double altitude = 0.0; ///< degrees; points below the horizon end the line
    };
    std::string label; ///< written at its highest point; may be empty
    std::vector<Point> points;
};

struct SkyDomeOptions {
    std::string title;
    std::string subtitle;
    std::vector<SkyPath> paths;
    int width = 1100;  ///< pixels, 400..8000
    int height = 1000; ///< pixels, 400..8000
};

/// The sky seen as on a plan: zenith in the centre, north up, east to the right, as PNG.
/// The colour stands for the column's values as they are, one per cell.
void drawSkyDome(OutputFile& out, const ResultColumn& column, const SkyDomeOptions& options);

} // namespace insolate::study
