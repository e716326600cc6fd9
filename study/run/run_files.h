/// The files of `insolate run`; result_files.h has them in its list.
#pragma once

#include "study/files/output_folder.h"
#include "study/run/result_files.h"
#include "study/run/study_steps.h"

#include <stop_token>

#include <nlohmann/json_fwd.hpp>

namespace insolate::study {

struct RunAnswer {
    using Options = RunOptions;
    static constexpr ResultSet set = ResultSet::sensors;

    const RunOptions& options; ///< the study's, with the folder of these files
    Stopwatch& watch;
    const PreparedStudy& study;
    const StudyResults& results;
};

/// What made the results, and their ranges.
nlohmann::ordered_json summaryRecord(const RunAnswer& answer);

void writeTable(OutputFile& out, const RunAnswer& answer, Progress& progress,
                const std::stop_token& stop);
void writeGroups(OutputFile& out, const RunAnswer& answer, Progress& progress,
                 const std::stop_token& stop);
void writeCells(OutputFile& out, const RunAnswer& answer, Progress& progress,
                const std::stop_token& stop);
void writePicture(OutputFile& out, const RunAnswer& answer, Progress& progress,
                  const std::stop_token& stop);
void writeMasks(OutputFile& out, const RunAnswer& answer, Progress& progress,
                const std::stop_token& stop);
void writeHours(OutputFile& out, const RunAnswer& answer, Progress& progress,
                const std::stop_token& stop);
void writeHoursTable(OutputFile& out, const RunAnswer& answer, Progress& progress,
                     const std::stop_token& stop);
void writePage(OutputFile& out, const RunAnswer& answer, Progress& progress,
               const std::stop_token& stop);
void writeSummary(OutputFile& out, const RunAnswer& answer, Progress& progress,
                  const std::stop_token& stop);

bool wantsMasks(const RunOptions& options);
bool wantsHours(const RunOptions& options);
bool wantsHoursTable(const RunOptions& options);
bool wantsPage(const RunOptions& options);

} // namespace insolate::study
