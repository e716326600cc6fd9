/// The files of `insolate sunhours`; result_files.h has them in its list.
#pragma once

#include "study/files/output_folder.h"
#include "study/run/result_files.h"
#include "study/run/stopwatch.h"
#include "study/run/sun_hours_study.h"
#include "study/support/kept_warnings.h"

#include <filesystem>
#include <stop_token>

namespace insolate::study {

struct SunHoursAnswer {
    using Options = SunHoursOptions;
    static constexpr ResultSet set = ResultSet::sensors;

    const SunHoursOptions& options;
    Stopwatch& watch;
    const SunHoursStudy& study;
    const SunHoursResults& results;
    const KeptWarnings& warned;
};

void writeTable(OutputFile& out, const SunHoursAnswer& answer, Progress& progress,
                const std::stop_token& stop);
void writeGroups(OutputFile& out, const SunHoursAnswer& answer, Progress& progress,
                 const std::stop_token& stop);
void writeCells(OutputFile& out, const SunHoursAnswer& answer, Progress& progress,
                const std::stop_token& stop);
void writePicture(OutputFile& out, const SunHoursAnswer& answer, Progress& progress,
                  const std::stop_token& stop);
void writeSpans(OutputFile& out, const SunHoursAnswer& answer, Progress& progress,
                const std::stop_token& stop);
void writeSummary(OutputFile& out, const SunHoursAnswer& answer, Progress& progress,
                  const std::stop_token& stop);

void writePage(OutputFile& out, const SunHoursAnswer& answer, Progress& progress,
               const std::stop_token& stop);

bool wantsSpans(const SunHoursOptions& options);
bool wantsPage(const SunHoursOptions& options);

/// Whether a file is a spans.csv of ours, by its first line.
bool isOurSpans(const std::filesystem::path& file);

} // namespace insolate::study
