/// The cumulative sky as a table and as a picture.
#pragma once

#include "study/files/output_folder.h"
#include "study/output/picture_format.h"
#include "study/results/result_column.h"
#include "study/results/sky_pages.h"

#include <filesystem>
#include <span>
#include <stop_token>
#include <string>
#include <vector>

namespace insolate::study {

/// One line per sky cell: azimuth and altitude of its lower edges [degrees, 5 wide], its solid
/// angle [sr], then the columns. Each column has 1,296 values in the order of skyGrid::cellIndex.
void writeSkyCsv(OutputFile& out, std::span<const ResultColumn> columns);

struct SkyDomeOptions {
    std::string title;
    std::string subtitle;
    std::vector<SkyPath> paths;
    int width = 1100;  ///< pixels, 400..8000
    int height = 1000; ///< pixels, 400..8000
    PictureFormat format = PictureFormat::png;
};

/// The sky seen as on a plan: zenith in the centre, north up, east to the right.
/// The colour stands for the column's values as they are, one per cell.
/// @throws OutputError, Stopped
void drawSkyDome(OutputFile& out, const ResultColumn& column, const SkyDomeOptions& options,
                 const std::stop_token& stop = {});

/// By the first line of the table.
bool isOurSkyCsv(const std::filesystem::path& file);

} // namespace insolate::study
