#include "study/run/view_results.h"

#include "study/files/folder_hold.h"
#include "study/files/output_folder.h"
#include "study/output/hours_table.h"
#include "study/output/page.h"
#include "study/results/result_folder.h"
#include "study/results/result_scene.h"
#include "study/run/study_page.h"
#include "study/support/errors.h"
#include "study/support/file_name.h"

#include <algorithm>
#include <deque>
#include <string>
#include <utility>

#include <fmt/format.h>

namespace insolate::study {

namespace {

/// What a page needs of a folder; stays where it is, as the page's result points into it.
struct Viewed {
    ResultFolder folder;
    ResultScene scene;
    PageColumns columns;
    PageResult page;
};

/// Each folder's own name; of folders of the same name as many of those above it as it takes to
/// know which is which.
/// @throws UsageError for a folder that is given twice
std::vector<std::string> namesOf(const std::vector<std::filesystem::path>& folders) {
    std::vector<std::vector<std::string>> parts; // from the folder upwards
    for (const std::filesystem::path& folder : folders) {
        if (folder.empty()) {
            throw UsageError("the name of a folder is empty; give one that insolate run, sunhours "
                             "or compare has left");
        }
        const auto whole = std::filesystem::weakly_canonical(std::filesystem::absolute(folder));
        std::vector<std::string> own;
        for (const std::filesystem::path& part : whole) {
            if (!part.empty() && part != whole.root_directory()) {
                own.insert(own.begin(), part.string());
            }
        }
        if (std::find(parts.begin(), parts.end(), own) != parts.end()) {
            throw UsageError(place(folder) + ": is given twice; give each folder once");
        }
        parts.push_back(std::move(own));
    }
    std::vector<std::string> names(parts.size());
    std::vector<std::size_t> taken(parts.size(), 0);
    for (bool isClear = false; !isClear;) {
        isClear = true;
        const std::vector<std::string> before = names;
        for (std::size_t i = 0; i < parts.size(); ++i) {
            if (std::count(before.begin(), before.end(), before[i]) > 1 || taken[i] == 0) {
                if (taken[i] < parts[i].size()) {
                    const std::string& above = parts[i][taken[i]++];
                    names[i] = names[i].empty() ? above : above + "/" + names[i];
                    isClear = false;
                }
            }
        }
    }
    return names;
}

void read(Viewed& viewed, const std::filesystem::path& folder, const std::string& name,
          Progress& progress, const std::stop_token& stop) {
    viewed.folder = readResultFolder(folder, stop);
    if (viewed.folder.columns.empty()) {
        throw DataError(place(folder) + ": the results hold no numbers; give a folder that "
                                        "insolate run, sunhours or compare has left");
    }
    viewed.scene = loadResultScene(viewed.folder, stop);
    if (!viewed.scene.problem.empty()) {
        progress.warn(fmt::format("{}; the page shows the cells of {} alone", viewed.scene.problem,
                                  place(folder)));
    }
    PageResult& page = viewed.page;
    page = pageResultOf(viewed.folder, viewed.columns, viewed.scene.scene, name);
    if (const std::filesystem::path hours = folder / "hours.csv"; isOurHoursCsv(hours)) {
        page.series = pageSeriesOf(readHoursCsv(hours, stop), viewed.folder.field.size());
    }
    if (!viewed.scene.problem.empty()) {
        page.warnings.push_back(viewed.scene.problem);
    }
}

} // namespace

void viewResults(const ViewOptions& options, Progress& progress, const std::stop_token& stop) {
    if (options.folders.empty()) {
        throw UsageError("no results; give one or several folders that insolate run, sunhours or "
                         "compare has left");
    }
    const std::vector<std::string> names = namesOf(options.folders);
    const std::filesystem::path to = options.out.value_or(options.folders.front() / "page.html");
    const std::string name = to.filename().string();
    if (name.empty()) {
        throw UsageError(place(to) +
                         " is a folder; give the name of the page: " + (to / "page.html").string());
    }
    if (!hasExtension(to, {".html", ".htm"})) {
        throw UsageError(place(to) + ": no page has this ending; give a name that ends in .html");
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
    for (std::size_t i = 0; i < options.folders.size(); ++i) {
        read(viewed.emplace_back(), options.folders[i], names[i], progress, stop);
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

void saveResultsPage(const std::filesystem::path& file, ResultFolder results, const Scene& scene,
                     double limit, Progress& progress, const std::stop_token& stop) {
    const std::filesystem::path parent =
        file.has_parent_path() ? file.parent_path() : std::filesystem::path(".");
    OutputFolder folder(parent, results.model.files, place(file));
    const FolderHold hold(progress, folder);
    writeResultsPage(folder.stage({file.filename().string(), isOurPage}), std::move(results), scene,
                     pageNameIn(parent), limit, stop);
    throwIfStopped(stop);
    folder.commit();
}

} // namespace insolate::study
