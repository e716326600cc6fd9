/// A picture of the results in the model: what people look at first.
#pragma once

#include "study/export.h"
#include "study/files/output_folder.h"
#include "study/model/scene.h"
#include "study/output/color_map.h"
#include "study/output/picture_format.h"
#include "study/output/picture_view.h"
#include "study/results/result_column.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <stop_token>
#include <string>

namespace insolate::study {

/// What stands before the coloured cells.
enum class InFront {
    automatic, ///< solid, unless it hides more than half of what is coloured
    solid,
    outline ///< only its edges are drawn, over the cells
};

struct PictureOptions {
    std::string title;    ///< large, at the top: what is shown; the column's title when empty
    std::string subtitle; ///< small, below it: weather, period, method
    double north = 0.0;   ///< from the model's +Y clockwise to true north [degrees]
    /// From where; absent: from above and, unless another bearing shows clearly more, the south.
    std::optional<PictureView> view;
    InFront inFront = InFront::automatic;
    /// Ends of the colour scale in the column's unit; absent: the column's own.
    std::optional<double> scaleLowest;
    std::optional<double> scaleHighest;
    ColorScheme colors = ColorScheme::sequential; ///< diverging for differences
    std::span<const float> areas = {};            ///< of the cells, for the mean; empty: all alike
    /// By sensor and by triangle of the scene: 0 leaves it out; empty: all are shown. Who knows the
    /// objects' names selects by them here.
    std::span<const std::uint8_t> shownSensors = {};
    std::span<const std::uint8_t> shownTriangles = {};
    int width = 1600;  ///< pixels, 400..8000
    int height = 1000; ///< pixels, 300..8000
    PictureFormat format = PictureFormat::png;
};

/// Draws the sensor cells coloured by one column, the scene around them in grey, in a parallel
/// projection with colour bar, unit, mean, title, north arrow and scale bar. The frame lies around
/// what is coloured. Sensors without cells are discs; where cells make up less than a fiftieth of
/// the picture, each place too small to be seen gets a disc in the mean colour of its cells, and
/// the picture says so.
///
/// The time is bounded by pixels and faces, about 3 s for 2 million cells at the default size: a
/// picture of very many faces above one another is drawn with less smooth edges, and beyond that
/// without the rearmost ones.
/// @return how many faces were left out for that; the picture says it as well
/// @throws UsageError for a scale whose ends are not in order, OutputError, and Stopped soon after
///         the token asks to stop
INSOLATE_STUDY_EXPORT std::size_t drawPicture(OutputFile& out, const Scene& scene,
                                              const SensorField& field, const ResultColumn& column,
                                              const PictureOptions& options,
                                              const std::stop_token& stop = {});

} // namespace insolate::study
