#include "study/run/study_page.h"

#include "study/output/picture.h"
#include "study/run/run_files.h"
#include "study/run/study_record.h"
#include "study/support/errors.h"
#include "study/support/numbers.h"
#include "study/support/readable.h"

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

/// The record's text at a path of names; empty where there is none.
std::string textAt(const nlohmann::ordered_json& record, const char* pointer) {
    const nlohmann::ordered_json::json_pointer path(pointer);
    if (!record.contains(path)) {
        return {};
    }
    const nlohmann::ordered_json& value = record.at(path);
    if (value.is_number_float()) {
        return fmt::format("{:.6g}", value.get<double>());
    }
    return value.is_string() ? value.get<std::string>() : value.dump();
}

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

std::vector<std::pair<std::string, std::string>> factsOf(const nlohmann::ordered_json& record) {
    std::vector<std::pair<std::string, std::string>> facts;
    const auto add = [&](const char* label, std::string text) {
        if (!text.empty()) {
            facts.emplace_back(label, std::move(text));
        }
    };
    const auto fileName = [&](const char* pointer) {
        return std::filesystem::path(textAt(record, pointer)).filename().string();
    };
    add("Site", textAt(record, "/weather/site"));
    if (const std::string latitude = textAt(record, "/weather/latitude_deg"); !latitude.empty()) {
        add("Position", fmt::format("{}°, {}°; UTC {:+g} h; {} m", latitude,
                                    textAt(record, "/weather/longitude_deg"),
                                    record["weather"].value("time_zone_h", 0.0),
                                    textAt(record, "/weather/elevation_m")));
    }
    add("Weather", fileName("/weather/file"));
    add("Period", textAt(record, "/period/text"));
    add("Method", textAt(record, "/method"));
    std::string scene;
    if (record.contains("scene")) {
        for (const auto& file : record["scene"].value("files", nlohmann::ordered_json::array())) {
            scene += (scene.empty() ? "" : ", ") +
                     (file.is_string()
                          ? std::filesystem::path(file.get<std::string>()).filename().string()
                          : std::string());
        }
        add("Model",
            fmt::format("{}; {} triangles", scene,
                        groupedDigits(record["scene"].value("triangles", std::size_t{0}))));
        if (const double north = record["scene"].value("north_deg", 0.0); north != 0.0) {
            add("North", fmt::format("{:g}° clockwise from the model's +Y", north));
        }
    }
    if (record.contains("sensors")) {
        const auto& sensors = record["sensors"];
        std::string text = groupedDigits(sensors.value("count", std::size_t{0}));
        if (sensors.contains("grid_m")) {
            text += fmt::format(", at most {:g} m", sensors.value("grid_m", 0.0));
        }
        add("Cells", text);
    }
    if (const std::string albedo = textAt(record, "/hourly/albedo"); !albedo.empty()) {
        add("Ground", fmt::format("reflects {}", albedo));
    }
    add("Version", "insolate " + textAt(record, "/versions/insolate"));
    return facts;
}

std::optional<PageSite> pageSiteOf(const nlohmann::ordered_json& record) {
    if (!record.contains("weather") || !record["weather"].contains("latitude_deg")) {
        return std::nullopt;
    }
    const auto& weather = record["weather"];
    PageSite site;
    site.latitude = weather.value("latitude_deg", 0.0);
    site.longitude = weather.value("longitude_deg", 0.0);
    site.timeZone = weather.value("time_zone_h", 0.0);
    return site;
}

int periodDaysOf(const nlohmann::ordered_json& record) {
    const nlohmann::ordered_json::json_pointer place("/period/days");
    const bool says = record.contains(place) && record[place].is_number_integer();
    return says ? std::max(record[place].get<int>(), 1) : 365;
}

PageColumns pageColumnsOf(std::vector<ResultColumn> columns, const nlohmann::ordered_json& record) {
    std::set<std::string> steps;
    std::set<std::string> left;
    if (const auto parts = record.find("periods"); parts != record.end() && parts->is_array()) {
        for (const nlohmann::ordered_json& part : *parts) {
            const std::string end = textAt(part, "/name");
            for (const ResultColumn& column : columns) {
                left.insert(column.name + "_" + end);
            }
            steps.insert(columns.front().name + "_" + end);
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
            one.hours[hour] = row.hours.beam[hour] + row.hours.sky[hour] + row.hours.ground[hour];
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
    drawPicture(out, result.scene != nullptr ? *result.scene : nothing, *result.field,
                inKilowattHours(result.columns.front()), picture, stop);
    if (!out.isFinished()) {
        out.finish();
    }
    return file.bytes();
}

void writeStudyPage(OutputFile& out, const PreparedStudy& study, const StudyResults& results,
                    Progress&, const std::stop_token& stop) {
    const RunOptions& options = study.options;
    const nlohmann::ordered_json record = summaryRecord(study, results);
    PageResult result;
    result.name = std::filesystem::absolute(options.out / ".").parent_path().filename().string();
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
    const PageColumns columns = pageColumnsOf(std::move(shown), record);
    result.columns = columns.whole;
    result.steps = columns.steps;
    result.days = periodDaysOf(record);
    result.north = options.north;
    result.facts = factsOf(record);
    result.site = pageSiteOf(record);
    result.warnings = results.warnings;
    result.series = pageSeriesOf(results.hours, study.inputs.field.size());
    PageOptions page;
    page.limit = options.pageLimit;
    page.picture =
        pictureBytes(result, studySubtitle(options, study.method->weather()), results.areas, stop);
    writePage(out, {&result, 1}, page, stop);
}

} // namespace insolate::study
