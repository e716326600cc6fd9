#include "study/run/result_files.h"

#include "study/output/group_table.h"
#include "study/output/hours_file.h"
#include "study/output/hours_table.h"
#include "study/output/page.h"
#include "study/output/picture.h"
#include "study/output/sensor_tables.h"
#include "study/output/sky_output.h"
#include "study/output/summary.h"
#include "study/run/compare_files.h"
#include "study/run/run_files.h"
#include "study/run/sky_files.h"
#include "study/run/sun_hours_files.h"
#include "study/support/errors.h"
#include "study/support/readable.h"

#include <array>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include <fmt/format.h>

namespace insolate::study {

namespace {

struct ListedFile {
    ResultName name;
    ResultSet set = ResultSet::sensors;
    ResultWriter<RunAnswer> run = {};
    ResultWriter<SunHoursAnswer> sunHours = {};
    ResultWriter<CompareAnswer> compare = {};
    ResultWriter<SkyAnswer> sky = {};
};

// clang-format off
/// In the order in which they are written; the last one closes its set.
constexpr std::array listedFiles = {
    ListedFile{.name = {"sensors.csv", isOurSensorsCsv},
               .run = {writeTable}, .sunHours = {writeTable}, .compare = {writeTable}},
    ListedFile{.name = {"groups.csv", isOurGroupsCsv},
               .run = {writeGroups}, .sunHours = {writeGroups}, .compare = {writeGroups}},
    ListedFile{.name = {"sensors.vtp", isOurSensorsVtp},
               .run = {writeCells}, .sunHours = {writeCells}, .compare = {writeCells}},
    ListedFile{.name = {"only_a.csv", isOurSensorsCsv}, .compare = {writeOnlyA, nullptr, hasOnlyA}},
    ListedFile{.name = {"only_b.csv", isOurSensorsCsv}, .compare = {writeOnlyB, nullptr, hasOnlyB}},
    ListedFile{.name = {"heatmap.png", isOurPicture},
               .run = {writePicture}, .sunHours = {writePicture}, .compare = {writePicture}},
    ListedFile{.name = {"sensors.masks", SkyVisibilityStore::isStore}, .set = ResultSet::masks,
               .run = {writeMasks, wantsMasks}},
    ListedFile{.name = {"hours.nc", isOurHoursFile}, .run = {writeHours, wantsHours}},
    ListedFile{.name = {"hours.csv", isOurHoursCsv}, .run = {writeHoursTable, wantsHoursTable}},
    // Earlier versions wrote it where hours.csv stands now.
    ListedFile{.name = {"series.csv", isOurSeriesCsv}},
    ListedFile{.name = {"page.html", isOurPage}, .run = {writePage, wantsPage},
               .sunHours = {writePage, wantsPage}},
    ListedFile{.name = {"picture.png", isOurPicture}}, // of insolate picture
    ListedFile{.name = {"spans.csv", isOurSpans}, .sunHours = {writeSpans, wantsSpans}},
    ListedFile{.name = {"summary.json", isOurSummary},
               .run = {writeSummary}, .sunHours = {writeSummary}, .compare = {writeSummary}},
    ListedFile{.name = {"sky.csv", isOurSkyCsv}, .set = ResultSet::sky, .sky = {writeTable}},
    ListedFile{.name = {"sky.png", isOurPicture}, .set = ResultSet::sky, .sky = {writePicture}},
    ListedFile{.name = {"sky.json", isOurSummary}, .set = ResultSet::sky, .sky = {writeSummary}},
};
// clang-format on

template <typename Answer>
const ResultWriter<Answer>& writerOf(const ListedFile& file) {
    if constexpr (std::is_same_v<Answer, RunAnswer>) {
        return file.run;
    } else if constexpr (std::is_same_v<Answer, SunHoursAnswer>) {
        return file.sunHours;
    } else if constexpr (std::is_same_v<Answer, CompareAnswer>) {
        return file.compare;
    } else {
        return file.sky;
    }
}

template <typename Answer>
bool isWanted(const ResultWriter<Answer>& writer, const typename Answer::Options& options) {
    return writer.write != nullptr && (writer.isWanted == nullptr || writer.isWanted(options));
}

} // namespace

template <typename Answer>
void requireFreeFolder(const OutputFolder& folder, const typename Answer::Options& options) {
    for (const ListedFile& file : listedFiles) {
        if (isWanted(writerOf<Answer>(file), options)) {
            folder.requireFree(file.name);
        }
    }
}

template <typename Answer>
void writeResults(OutputFolder& folder, const Answer& answer, Progress& progress,
                  const std::stop_token& stop) {
    std::vector<const ListedFile*> files;
    std::vector<std::string_view> retired;
    for (const ListedFile& file : listedFiles) {
        const ResultWriter<Answer>& writer = writerOf<Answer>(file);
        if (isWanted(writer, answer.options) &&
            (writer.hasContent == nullptr || writer.hasContent(answer))) {
            files.push_back(&file);
        } else if (file.set == Answer::set && folder.retire(file.name)) {
            retired.push_back(file.name.name);
        }
    }
    std::string written;
    for (const ListedFile* const file : files) {
        const bool isLast = file == files.back();
        if (isLast) {
            answer.watch.lap("files_s"); // the summary has the times of all others
        }
        writerOf<Answer>(*file).write(folder.stage(file->name), answer, progress, stop);
        throwIfStopped(stop);
        written += written.empty() ? "" : isLast ? " and " : ", ";
        written += file->name.name;
    }
    folder.commit();
    for (const std::string_view name : retired) {
        progress.note(fmt::format("took away {}, which an earlier run had left", name));
    }
    answer.watch.lap("last_file_s");
    progress.note(fmt::format("wrote {} in {} ({})", written, answer.options.out.string(),
                              durationText(answer.watch.whole())));
}

// NOLINTBEGIN(bugprone-macro-parentheses): types
#define INSOLATE_RESULT_FILES_OF(Answer)                                                           \
    template void requireFreeFolder<Answer>(const OutputFolder&, const Answer::Options&);          \
    template void writeResults<Answer>(OutputFolder&, const Answer&, Progress&,                    \
                                       const std::stop_token&)
// NOLINTEND(bugprone-macro-parentheses)
INSOLATE_RESULT_FILES_OF(RunAnswer);
INSOLATE_RESULT_FILES_OF(SunHoursAnswer);
INSOLATE_RESULT_FILES_OF(CompareAnswer);
INSOLATE_RESULT_FILES_OF(SkyAnswer);

} // namespace insolate::study
