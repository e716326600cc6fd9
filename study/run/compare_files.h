/// The files of `insolate compare`; result_files.h has them in its list.
#pragma once

#include "study/files/output_folder.h"
#include "study/results/comparison.h"
#include "study/results/result_folder.h"
#include "study/run/result_files.h"
#include "study/run/run_compare.h"
#include "study/run/stopwatch.h"
#include "study/support/kept_warnings.h"

#include <stop_token>

namespace insolate::study {

struct CompareAnswer {
    using Options = CompareRunOptions;
    static constexpr ResultSet set = ResultSet::sensors;

    const CompareRunOptions& options;
    Stopwatch& watch;
    const ResultFolder& a;
    const ResultFolder& b;
    const Comparison& comparison;
    const KeptWarnings& warned;
    const Scene* scene = nullptr; ///< around B; null: of its files, where they are still there
};

void writeTable(OutputFile& out, const CompareAnswer& answer, Progress& progress,
                const std::stop_token& stop);
void writeGroups(OutputFile& out, const CompareAnswer& answer, Progress& progress,
                 const std::stop_token& stop);
void writeCells(OutputFile& out, const CompareAnswer& answer, Progress& progress,
                const std::stop_token& stop);
void writeOnlyA(OutputFile& out, const CompareAnswer& answer, Progress& progress,
                const std::stop_token& stop);
void writeOnlyB(OutputFile& out, const CompareAnswer& answer, Progress& progress,
                const std::stop_token& stop);
void writePicture(OutputFile& out, const CompareAnswer& answer, Progress& progress,
                  const std::stop_token& stop);
void writeSummary(OutputFile& out, const CompareAnswer& answer, Progress& progress,
                  const std::stop_token& stop);

bool hasOnlyA(const CompareAnswer& answer);
bool hasOnlyB(const CompareAnswer& answer);

} // namespace insolate::study
