#include "study/run/view_results.h"

#include "study/files/folder_hold.h"
#include "study/files/output_folder.h"
#include "study/output/hours_table.h"
#include "study/output/page.h"
#include "study/results/result_folder.h"
#include "study/results/result_scene.h"
#include "study/run/study_page.h"
#include "study/support/errors.h"

#include <algorithm>
#include <deque>
#include <string>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace insolate::study {

namespace {

/// What a page needs of a folder; stays where it is, as the page's result points into it.
struct Viewed {
    ResultFolder folder;
    ResultScene scene;
    PageColumns columns;
    PageResult page;
};

/// The name of the folder itself, without those above it.
std::string nameOf(const std::filesystem::path& folder) {
    const std::filesystem::path whole =
        std::filesystem::weakly_canonical(std::filesystem::absolute(folder));
    return whole.filename().empty() ? whole.parent_path().filename().string()
                                    : whole.filename().string();
}

void read(Viewed& viewed, const std::filesystem::path& folder, Progress& progress,
          const std::stop_token& stop) {
    viewed.folder = readResultFolder(folder, stop);
    if (viewed.folder.columns.empty()) {
        throw DataError(place(folder) + ": the results hold no numbers; give a folder that "
                                        "insolate run or sunhours has left");
    }
    viewed.scene = loadResultScene(viewed.folder, stop);
    if (!viewed.scene.problem.empty()) {
        progress.warn(fmt::format("{}; the page shows the cells of {} alone", viewed.scene.problem,
                                  place(folder)));
    }
    const auto record = nlohmann::ordered_json::parse(viewed.folder.summary, nullptr, false);
    PageResult& page = viewed.page;
    page.name = nameOf(folder);
    page.scene = &viewed.scene.scene;
    page.field = &viewed.folder.field;
    viewed.columns = pageColumnsOf(std::move(viewed.folder.columns), record);
    page.columns = viewed.columns.whole;
    page.steps = viewed.columns.steps;
    if (const std::filesystem::path hours = folder / "hours.csv"; isOurHoursCsv(hours)) {
        page.series = pageSeriesOf(readHoursCsv(hours, stop), viewed.folder.field.size());
    }
    page.north = viewed.folder.model.north;
    page.days = periodDaysOf(record);
    page.facts = factsOf(record);
    page.site = pageSiteOf(record);
    page.warnings = viewed.folder.facts.warnings;
    if (!viewed.scene.problem.empty()) {
        page.warnings.push_back(viewed.scene.problem);
    }
}

} // namespace

void viewResults(const ViewOptions& options, Progress& progress, const std::stop_token& stop) {
    if (options.folders.empty()) {
        throw UsageError("no results; give one or several folders that insolate run has left");
    }
    const std::filesystem::path to = options.out.value_or(options.folders.front() / "page.html");
    const std::string name = to.filename().string();
    if (name.empty()) {
        throw UsageError(place(to) +
                         " is a folder; give the name of the page: " + (to / "page.html").string());
    }
    std::vector<std::filesystem::path> inputs;
    for (const std::filesystem::path& earlier : options.folders) {
        for (std::filesystem::path& file : resultFilesRead(earlier)) {
            inputs.push_back(std::move(file));
        }
    }
    const std::filesystem::path parent = to.parent_path();
    OutputFolder folder(parent.empty() ? std::filesystem::path(".") : parent, inputs, place(to));
    const FolderHold hold(progress, folder);
    const ResultName result = {name, isOurPage};
    folder.requireFree(result);
    std::deque<Viewed> viewed;
    std::vector<PageResult> pages;
    pages.reserve(options.folders.size());
    for (const std::filesystem::path& one : options.folders) {
        read(viewed.emplace_back(), one, progress, stop);
    }
    for (const Viewed& one : viewed) {
        pages.push_back(one.page);
    }
    PageOptions page;
    page.limit = options.limit;
    page.picture = pictureBytes(pages.front(), viewed.front().folder.facts.madeBy,
                                viewed.front().folder.areas, stop);
    writePage(folder.stage(result), pages, page, stop);
    folder.commit();
    progress.note("wrote " + to.string());
}

} // namespace insolate::study
