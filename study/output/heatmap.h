/// A picture of the results in the model: what people look at first.
#pragma once

#include "study/export.h"

#include "study/files/output_folder.h"
#include "study/model/scene.h"
#include "study/results/result_column.h"

#include <optional>
#include <span>
#include <string>

namespace insolate::study {

struct HeatmapOptions {
    std::string title;    ///< large, at the top: what is shown
    std::string subtitle; ///< small, below it: weather, period, method
    double north = 0.0;   ///< from the model's +Y clockwise to true north [degrees]
    /// Compass bearing from which the viewer looks at the model [degrees clockwise from true
    /// north].
    double viewFrom = 155.0;
    double elevation = 42.0; ///< height of the viewer above the horizon [degrees], 5..90
    int width = 1600;        ///< pixels, 400..8000
    int height = 1000;       ///< pixels, 300..8000
    /// Ends of the colour scale; the column's own range when absent.
    std::optional<double> scaleLowest;
    std::optional<double> scaleHighest;
    std::span<const float> areas = {}; ///< of the cells, for the mean; empty: all alike
};

/// Draws the sensor cells coloured by one column, the scene around them in grey, in an axonometric
/// view with colour bar, units, title and north arrow, as PNG. Sensors without cells are discs.
INSOLATE_STUDY_EXPORT void drawHeatmap(OutputFile& out, const Scene& scene, const SensorField& field,
                 const ResultColumn& column, const HeatmapOptions& options);

} // namespace insolate::study
