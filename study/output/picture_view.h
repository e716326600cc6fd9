/// From where a picture is seen.
#pragma once

#include "study/export.h"

#include <string_view>

namespace insolate::study {

/// Where the viewer stands, seen from the model.
struct PictureView {
    double azimuth = 155.0; ///< degrees clockwise from true north
    double altitude = 42.0; ///< degrees above the horizon, -90..90
};

/// "top", "north", "east", "south", "west" (the elevation of that side, seen from there), or two
/// numbers "AZIMUTH,ALTITUDE" in degrees. A plan ("top") has north up.
/// @throws UsageError for anything else
INSOLATE_STUDY_EXPORT PictureView pictureView(std::string_view text);

} // namespace insolate::study
