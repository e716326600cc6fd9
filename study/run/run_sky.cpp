#include "study/run/run_sky.h"

#include "study/files/folder_hold.h"
#include "study/output/sky_output.h"
#include "study/output/summary.h"
#include "study/run/radiation_method.h"
#include "study/run/study_record.h"
#include "study/support/errors.h"

#include <memory>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace insolate::study {

void runSky(const SkyOptions& options, Progress& progress, const std::stop_token& stop) {
    checkSkyOptions(options);
    constexpr ResultName table{"sky.csv", isOurSkyCsv};
    constexpr ResultName drawing{"sky.png", isOurPicture};
    constexpr ResultName summary{"sky.json", isOurSummary};
    checkOutFolder(options.out);
    OutputFolder folder(options.out, {options.weather});
    const FolderHold hold(progress, folder);
    for (const ResultName& result : {table, drawing, summary}) {
        folder.requireFree(result);
    }
    for (const std::string& note : folder.notes()) {
        progress.note(note);
    }
    const std::unique_ptr<RadiationMethod> method = makeRadiationMethod(options, 0.0);
    reportStudy(options, method->weather(), progress);
    const SkyPages pages = method->skyPages();

    writeSkyCsv(folder.stage(table), pages.parts);
    SkyDomeOptions picture;
    picture.title = pages.whole.title;
    picture.subtitle = studySubtitle(options, method->weather());
    picture.paths = pages.paths;
    drawSkyDome(folder.stage(drawing), pages.whole, picture, stop);
    nlohmann::ordered_json record = studyRecord(options, method->weather());
    method->describeSky(record);
    record["results"] = rangesOf(pages.parts);
    writeSummaryJson(folder.stage(summary), record);
    throwIfStopped(stop);
    folder.commit();
    progress.note(fmt::format("wrote sky.csv, sky.png and sky.json in {}", options.out.string()));
}

} // namespace insolate::study
