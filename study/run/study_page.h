/// The page of a study's results.
#pragma once

#include "study/files/output_folder.h"
#include "study/output/page.h"
#include "study/results/hour_rows.h"
#include "study/results/result_column.h"
#include "study/results/result_folder.h"
#include "study/run/study_steps.h"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <utility>
#include <vector>

namespace insolate::study {

struct RunAnswer;

/// What a reader of results wants to know of their making: label and text.
std::vector<std::pair<std::string, std::string>> pageFactsOf(const ResultFolder& results,
                                                             std::size_t cells);

/// Where the sun of a study is seen from; nothing where the study does not say.
/// @throws DataError for a place that is none
std::optional<PageSite> pageSiteOf(const ResultFolder& results);

/// What a page shows of a result's columns: the parts of the period, or the days of a study of sun
/// hours, by their first quantity alone, as steps. With all quantities a year of months would weigh
/// five times as much as the whole.
struct PageColumns {
    std::vector<ResultColumn> whole;
    std::vector<ResultColumn> steps;
};
/// @param results whose summary names the parts
PageColumns pageColumnsOf(std::vector<ResultColumn> columns, const ResultFolder& results);

/// The hours of sensors, whose names are their numbers, and of groups.
/// @throws DataError when there is no such sensor
std::vector<PageSeries> pageSeriesOf(std::span<const HourRow> rows, std::size_t sensors);

/// Results as a page shows them.
/// @param folder whose columns go into `columns`; both, and the scene, must outlive what comes back
PageResult pageResultOf(ResultFolder& folder, PageColumns& columns, const Scene& scene,
                        std::string name);

/// Writes the page of results that are not those of a run, as of hours of sun or of a comparison.
void writeResultsPage(OutputFile& out, ResultFolder results, const Scene& scene, std::string name,
                      double limit, const std::stop_token& stop);

/// Of a page that lies there: "courtyard".
std::string pageNameIn(const std::filesystem::path& folder);

/// Writes page.html of a run.
void writeStudyPage(OutputFile& out, const RunAnswer& answer, Progress& progress,
                    const std::stop_token& stop);

/// The bytes of a picture, for browsers that draw no page.
std::string pictureBytes(const PageResult& result, const std::string& subtitle,
                         std::span<const float> areas, const std::stop_token& stop);

} // namespace insolate::study
