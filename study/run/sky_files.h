/// The files of `insolate sky`; result_files.h has them in its list.
#pragma once

#include "study/files/output_folder.h"
#include "study/results/sky_pages.h"
#include "study/run/radiation_method.h"
#include "study/run/result_files.h"
#include "study/run/run_options.h"
#include "study/run/stopwatch.h"

#include <stop_token>

namespace insolate::study {

struct SkyAnswer {
    using Options = SkyOptions;
    static constexpr ResultSet set = ResultSet::sky;

    const SkyOptions& options;
    Stopwatch& watch;
    const RadiationMethod& method;
    const SkyPages& pages;
};

void writeTable(OutputFile& out, const SkyAnswer& answer, Progress& progress,
                const std::stop_token& stop);
void writePicture(OutputFile& out, const SkyAnswer& answer, Progress& progress,
                  const std::stop_token& stop);
void writeSummary(OutputFile& out, const SkyAnswer& answer, Progress& progress,
                  const std::stop_token& stop);

} // namespace insolate::study
