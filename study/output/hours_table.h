/// hours.csv: the hours of a few sensors or of groups as a table, and the table read back.
#pragma once

#include "study/export.h"
#include "study/files/output_folder.h"
#include "study/results/hour_rows.h"

#include <filesystem>
#include <span>
#include <stop_token>
#include <vector>

namespace insolate::study {

/// A line for each hour: its number in the year, counted by its end from 1, and when it begins;
/// then beam, sky and ground of each row.
/// @param hours of the year, 0..8,759
/// @param timeZone of the site, hours from UTC
INSOLATE_STUDY_EXPORT void writeHoursCsv(OutputFile& out, std::span<const int> hours,
                                         double timeZone, std::span<const HourRow> rows);

/// The rows of such a table; hours that it does not have are 0.
/// @throws DataError, which names the line, when it is damaged; Stopped
INSOLATE_STUDY_EXPORT std::vector<HourRow> readHoursCsv(const std::filesystem::path& file,
                                                        const std::stop_token& stop = {});

/// Whether the file begins as such a table does.
INSOLATE_STUDY_EXPORT bool isOurHoursCsv(const std::filesystem::path& file);
/// Whether it begins as series.csv did, which earlier versions wrote in its place.
INSOLATE_STUDY_EXPORT bool isOurSeriesCsv(const std::filesystem::path& file);

} // namespace insolate::study
