/// A page of the results: one HTML file that opens without a server, a network or an installation,
/// where the model can be turned, cells asked for their values and the sun moved.
///
/// The page carries the results as packed bytes (page_model.h), compressed, as base64 text: no name
/// of a model is ever part of its markup. What draws it is the script of viewer/, whose built form
/// lies in the library.
#pragma once

#include "study/export.h"
#include "study/files/output_folder.h"
#include "study/model/scene.h"
#include "study/results/result_column.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <utility>
#include <vector>

namespace insolate::study {

/// Where the sun of a page is seen from.
struct PageSite {
    double latitude = 0.0;  ///< degrees, north positive
    double longitude = 0.0; ///< degrees, east positive
    double timeZone = 0.0;  ///< hours from UTC
    int year = 2025;        ///< of the sun's course
};

/// The hours of a year of one sensor or of a group.
struct PageSeries {
    std::string label;                 ///< of a group; empty for a sensor
    std::optional<std::size_t> sensor; ///< absent: a group's mean
    std::vector<float> hours;          ///< total of each hour of the year [Wh/m2], 8,760 values
};

/// One result of a page. What it points to must outlive the writing.
struct PageResult {
    std::string name;                      ///< short, for people: "courtyard"
    const Scene* scene = nullptr;          ///< what stands around; nullptr: nothing
    const SensorField* field = nullptr;    ///< cells or points, with their names
    std::span<const ResultColumn> columns; ///< as in sensors.csv; the first one is shown first
    /// Of the period, month by month. A million values or fewer are as exact as the columns; more
    /// are rounded to a hundredth of the highest, and of more than 24 million some are left out.
    std::span<const ResultColumn> steps = {};
    /// By sensor: 0 for one that is enclosed, which the page shows grey and leaves out of its sums;
    /// empty: all count.
    std::span<const std::uint8_t> included = {};
    std::vector<PageSeries> series = {};
    int days = 365;     ///< of the period, over which the hours' mean day is taken
    double north = 0.0; ///< from the model's +Y clockwise to true north [degrees]
    std::optional<PageSite> site;
    std::vector<std::pair<std::string, std::string>> facts = {}; ///< what made it: label and text
    std::vector<std::string> warnings = {};
};

struct PageOptions {
    /// What the page may weigh [MB of 1,000,000 bytes], > 0. Beyond it values lose digits, then
    /// only a dozen of the steps of the period are kept, then none, then the secondary columns go;
    /// the page says so. What is left then is written whatever it weighs.
    double limit = 25.0;
    /// A PNG for browsers that cannot draw the page; empty: only a sentence.
    std::string picture = {};
};

/// Writes the page of one or several results.
/// @throws OutputError, and Stopped soon after the token asks to stop
INSOLATE_STUDY_EXPORT void writePage(OutputFile& out, std::span<const PageResult> results,
                                     const PageOptions& options = {},
                                     const std::stop_token& stop = {});

/// By the comment that each page begins with.
INSOLATE_STUDY_EXPORT bool isOurPage(const std::filesystem::path& file);

} // namespace insolate::study
