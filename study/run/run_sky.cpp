#include "study/run/run_sky.h"

#include "study/files/folder_hold.h"
#include "study/output/sky_output.h"
#include "study/output/summary.h"
#include "study/run/radiation_method.h"
#include "study/run/result_files.h"
#include "study/run/sky_files.h"
#include "study/run/study_record.h"

#include <memory>

#include <nlohmann/json.hpp>

namespace insolate::study {

void writeTable(OutputFile& out, const SkyAnswer& answer, Progress&, const std::stop_token&) {
    writeSkyCsv(out, answer.pages.parts);
}

void writePicture(OutputFile& out, const SkyAnswer& answer, Progress&,
                  const std::stop_token& stop) {
    SkyDomeOptions picture;
    picture.title = answer.pages.whole.title;
    picture.subtitle = studySubtitle(answer.options, answer.method.weather());
    picture.paths = answer.pages.paths;
    drawSkyDome(out, answer.pages.whole, picture, stop);
}

void writeSummary(OutputFile& out, const SkyAnswer& answer, Progress&, const std::stop_token&) {
    nlohmann::ordered_json record = studyRecord(answer.options, answer.method.weather());
    answer.method.describeSky(record);
    record["results"] = rangesOf(answer.pages.parts);
    writeSummaryJson(out, record);
}

void runSky(const SkyOptions& options, Progress& progress, const std::stop_token& stop) {
    checkSkyOptions(options);
    checkOutFolder(options.out);
    Stopwatch watch;
    OutputFolder folder(options.out, {options.weather});
    const FolderHold hold(progress, folder);
    requireFreeFolder<SkyAnswer>(folder, options);
    const std::unique_ptr<RadiationMethod> method = makeRadiationMethod(options, 0.0);
    reportStudy(options, method->weather(), progress);
    const SkyPages pages = method->skyPages();
    writeResults(folder, SkyAnswer{options, watch, *method, pages}, progress, stop);
}

} // namespace insolate::study
