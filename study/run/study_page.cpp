#include "study/run/study_page.h"

#include "study/output/picture.h"
#include "study/results/comparison.h"
#include "study/run/run_files.h"
#include "study/run/study_record.h"
#include "study/support/errors.h"
#include "study/support/numbers.h"
#include "study/support/readable.h"

#include <cmath>
#include <filesystem>
#include <limits>
#include <set>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <stdlib.h>
#include <unistd.h>

namespace insolate::study {

namespace {

/// A file that goes with the object, for writers that know files alone.
class PassingFile {
public:
    PassingFile() : m_path((std::filesystem::temp_directory_path() / "insolate-XXXXXX").string()) {
        m_descriptor = mkstemp(m_path.data());
        if (m_descriptor < 0) {
            throw OutputError(fmt::format("{}: no file can be made there; set TMPDIR to a folder "
                                          "that takes one",
                                          m_path));
        }
    }
    ~PassingFile() {
        close(m_descriptor);
        loseName();
    }
    PassingFile(const PassingFile&) = delete;
    PassingFile& operator=(const PassingFile&) = delete;

    [[nodiscard]] const std::string& path() const { return m_path; }
    /// Once the writer has it open, so that a kill leaves nothing behind.
    void loseName() { unlink(std::exchange(m_path, {}).c_str()); }
    [[nodiscard]] std::string bytes() const {
        const off_t size = lseek(m_descriptor, 0, SEEK_END);
        std::string bytes(size > 0 ? static_cast<std::size_t>(size) : 0, '\0');
        const ssize_t got = pread(m_descriptor, bytes.data(), bytes.size(), 0);
        bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
        return bytes;
    }

private:
    std::string m_path;
    int m_descriptor = -1;
};

} // namespace

std::vector<std::pair<std::string, std::string>> pageFactsOf(const ResultFolder& results,
                                                             std::size_t cells) {
    const StudyFacts& facts = results.facts;
    const ResultModel& model = results.model;
    std::vector<std::pair<std::string, std::string>> list;
    const auto add = [&](const char* label, std::string text) {
        if (!text.empty()) {
            list.emplace_back(label, std::move(text));
        }
    };
    const auto fileName = [](const std::filesystem::path& file) {
        return file.filename().string();
    };
    add("A", facts.madeA);
    add("B", facts.madeB);
    add("Site", facts.site);
    if (std::isfinite(facts.latitude) && std::isfinite(facts.longitude)) {
        std::string position = fmt::format("{:.6g}°, {:.6g}°", facts.latitude, facts.longitude);
        if (std::isfinite(facts.timeZone)) {
            position += fmt::format("; UTC {:+g} h", facts.timeZone);
        }
        if (std::isfinite(facts.elevation)) {
            position += fmt::format("; {:.6g} m", facts.elevation);
        }
        add("Position", position);
    }
    add("Weather", fileName(facts.weather));
    add("Period", facts.period);
    add("Verdict", facts.verdict);
    add("Published as", facts.preset);
    add("Rule", facts.rule);
    add("Year", facts.year);
    add("Method", facts.method);
    std::string files;
    for (const std::filesystem::path& file : model.files) {
        files += fileName(file) + (&file == &model.files.back() ? "; " : ", ");
    }
    if (model.triangles > 0) {
        add("Model", fmt::format("{}{} {}", files, groupedDigits(model.triangles),
                                 counted(model.triangles, "triangle", "triangles")));
    }
    if (model.north != 0.0) {
        add("North", fmt::format("{:g}° clockwise from the model's +Y", model.north));
    }
    add("Cells", std::isfinite(facts.grid)
                     ? fmt::format("{}, at most {:g} m", groupedDigits(cells), facts.grid)
                     : groupedDigits(cells));
    add("Ground", facts.albedo.empty() ? "" : "reflects " + facts.albedo);
    add("Version", "insolate " + facts.version);
    return list;
}

std::optional<PageSite> pageSiteOf(const ResultFolder& results) {
    const StudyFacts& facts = results.facts;
    if (!std::isfinite(facts.latitude) || !std::isfinite(facts.longitude) ||
        !std::isfinite(facts.timeZone)) {
        return std::nullopt;
    }
    if (std::abs(facts.latitude) > 90.0 || std::abs(facts.longitude) > 180.0 ||
        std::abs(facts.timeZone) > 24.0) {
        throw DataError(fmt::format("{}: a site at {:g}°, {:g}°, UTC {:+g} h is no place on earth; "
                                    "write what was there, or calculate the results again",
                                    place(results.folder / "summary.json"), facts.latitude,
                                    facts.longitude, facts.timeZone));
    }
    PageSite site;
    site.latitude = facts.latitude;
    site.longitude = facts.longitude;
    site.timeZone = facts.timeZone;
    site.year = parseNumber<int>(facts.year).value_or(site.year);
    return site;
}

PageColumns pageColumnsOf(std::vector<ResultColumn> columns, const ResultFolder& results) {
    std::set<std::string> steps;
    std::set<std::string> left;
    const auto summary = nlohmann::ordered_json::parse(results.summary, nullptr, false);
    if (const auto parts = summary.find("periods"); parts != summary.end() && parts->is_array()) {
        for (const nlohmann::ordered_json& part : *parts) {
            if (!part.is_object() || !part.contains("name") || !part["name"].is_string()) {
                continue;
            }
            const std::string end = "_" + part["name"].get<std::string>();
            for (const ResultColumn& column : columns) {
                left.insert(column.name + end);
            }
            steps.insert(columns.front().name + end);
        }
    }
    if (results.facts.question == StudyFacts::Question::sunHours) {
        // "sun_2025_03_21": the hours of a day. One day alone is the whole.
        const std::string start = columns.front().name + "_" + results.facts.year + "_";
        for (const ResultColumn& column : columns) {
            if (column.name.starts_with(start)) {
                steps.insert(column.name);
            }
        }
        if (steps.size() == 1) {
            left.swap(steps);
        }
    }
    PageColumns page;
    for (ResultColumn& column : columns) {
        if (steps.contains(column.name)) {
            page.steps.push_back(std::move(column));
        } else if (!left.contains(column.name)) {
            page.whole.push_back(std::move(column));
        }
    }
    return page;
}

std::vector<PageSeries> pageSeriesOf(std::span<const HourRow> rows, std::size_t sensors) {
    std::vector<PageSeries> series;
    for (const HourRow& row : rows) {
        PageSeries one;
        one.label = row.name;
        // Names of groups begin with what makes them: "object 17".
        if (row.name.find_first_not_of("0123456789") == std::string::npos) {
            one.sensor = parseNumber<std::size_t>(row.name);
            if (!one.sensor || *one.sensor >= sensors) {
                throw DataError(fmt::format("hours of sensor {}: the results have {} sensors; "
                                            "calculate them again",
                                            row.name, groupedDigits(sensors)));
            }
        }
        one.hours.resize(row.hours.beam.size());
        for (std::size_t hour = 0; hour < one.hours.size(); ++hour) {
            for (const HourPart& part : hourParts(row.hours)) {
                one.hours[hour] += (row.hours.*part.values)[hour];
            }
        }
        series.push_back(std::move(one));
    }
    return series;
}

std::string pictureBytes(const PageResult& result, const std::string& subtitle,
                         std::span<const float> areas, const std::stop_token& stop) {
    PassingFile file;
    OutputFile out(file.path(), "the page's picture");
    file.loseName();
    PictureOptions picture;
    picture.subtitle = subtitle;
    picture.north = result.north;
    picture.areas = areas;
    picture.width = 800;
    picture.height = 500;
    const Scene nothing;
    const ResultColumn& first = result.columns.front();
    picture.colors = isDifference(first) ? ColorScheme::diverging : ColorScheme::sequential;
    drawPicture(out, result.scene != nullptr ? *result.scene : nothing, *result.field,
                inShownUnit(first), picture, stop);
    if (!out.isFinished()) {
        out.finish();
    }
    return file.bytes();
}

PageResult pageResultOf(ResultFolder& folder, PageColumns& columns, const Scene& scene,
                        std::string name) {
    PageResult page;
    page.name = std::move(name);
    page.scene = &scene;
    page.field = &folder.field;
    columns = pageColumnsOf(std::move(folder.columns), folder);
    page.columns = columns.whole;
    page.steps = columns.steps;
    page.north = folder.model.north;
    page.days = folder.facts.days;
    page.included = folder.included;
    page.facts = pageFactsOf(folder, folder.field.size());
    page.site = pageSiteOf(folder);
    page.warnings = folder.facts.warnings;
    return page;
}

void writeResultsPage(OutputFile& out, ResultFolder results, const Scene& scene, std::string name,
                      double limit, const std::stop_token& stop) {
    PageColumns columns;
    const PageResult result = pageResultOf(results, columns, scene, std::move(name));
    PageOptions page;
    page.limit = limit;
    page.picture = pictureBytes(result, results.facts.madeBy, results.areas, stop);
    writePage(out, {&result, 1}, page, stop);
}

std::string pageNameIn(const std::filesystem::path& folder) {
    return std::filesystem::absolute(folder / ".").parent_path().filename().string();
}

void writeStudyPage(OutputFile& out, const RunAnswer& answer, Progress&,
                    const std::stop_token& stop) {
    const RunOptions& options = answer.options;
    const PreparedStudy& study = answer.study;
    const StudyResults& results = answer.results;
    const ResultFolder made =
        resultsInMemory(summaryRecord(answer).dump(
                            -1, ' ', false, nlohmann::ordered_json::error_handler_t::replace),
                        {}, {}, {});
    PageResult result;
    result.name = pageNameIn(options.out);
    result.scene = &study.inputs.scene;
    result.field = &study.inputs.field;
    std::vector<ResultColumn> shown = results.columns;
    for (ResultColumn& column : shown) {
        for (std::size_t i = 0; i < results.included.size(); ++i) {
            if (results.included[i] == 0) {
                column.values[i] = std::numeric_limits<float>::quiet_NaN();
            }
        }
    }
    const PageColumns columns = pageColumnsOf(std::move(shown), made);
    result.columns = columns.whole;
    result.steps = columns.steps;
    result.days = made.facts.days;
    result.north = options.north;
    result.included = results.included;
    result.facts = pageFactsOf(made, study.inputs.field.size());
    result.site = pageSiteOf(made);
    result.warnings = results.warnings;
    result.series = pageSeriesOf(results.hours, study.inputs.field.size());
    PageOptions page;
    page.limit = options.pageLimit;
    page.picture =
        pictureBytes(result, studySubtitle(options, study.method->weather()), results.areas, stop);
    writePage(out, {&result, 1}, page, stop);
}

} // namespace insolate::study
