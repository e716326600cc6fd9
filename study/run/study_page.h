/// The page of a study's results.
#pragma once

#include "study/files/output_folder.h"
#include "study/output/page.h"
#include "study/results/hour_rows.h"
#include "study/results/result_column.h"
#include "study/run/study_steps.h"

#include <cstddef>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace insolate::study {

/// What a reader of results wants to know of their making, from a summary's record: label and text.
std::vector<std::pair<std::string, std::string>> factsOf(const nlohmann::ordered_json& record);

/// The site of a summary's record; nothing where it has none.
std::optional<PageSite> pageSiteOf(const nlohmann::ordered_json& record);

/// How many days the period of a summary's record has; a year where it does not say.
int periodDaysOf(const nlohmann::ordered_json& record);

/// What a page shows of a result's columns: the parts of the period by their first quantity alone,
/// as steps. With all quantities a year of months would weigh five times as much as the whole.
struct PageColumns {
    std::vector<ResultColumn> whole;
    std::vector<ResultColumn> steps;
};
/// @param record of the summary, which names the parts
PageColumns pageColumnsOf(std::vector<ResultColumn> columns, const nlohmann::ordered_json& record);

/// The hours of sensors, whose names are their numbers, and of groups.
/// @throws DataError when there is no such sensor
std::vector<PageSeries> pageSeriesOf(std::span<const HourRow> rows, std::size_t sensors);

/// Writes page.html of a run.
void writeStudyPage(OutputFile& out, const PreparedStudy& study, const StudyResults& results,
                    Progress& progress, const std::stop_token& stop);

/// The bytes of a picture, for browsers that draw no page.
std::string pictureBytes(const PageResult& result, const std::string& subtitle,
                         std::span<const float> areas, const std::stop_token& stop);

} // namespace insolate::study
