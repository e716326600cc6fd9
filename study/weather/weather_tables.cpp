// Weather as comma-separated tables with the names of their columns: TMY3, PSM3 and PSM4, PVGIS.
// Each has its own header and its own meaning of a record's time.
#include "study/support/errors.h"
#include "study/support/numbers.h"
#include "study/weather/sampled_weather.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <map>
#include <optional>

#include <fmt/format.h>
#include <insolate/weather/epw_text.h>

namespace insolate::study {

namespace {

/// A file line by line, with the fields of the current line.
class Table {
public:
    explicit Table(const WeatherInput& input) : m_file(input.file), m_lines(input.content) {}

    /// False at the end. Empty lines are passed over.
    bool next() {
        EpwLine line;
        while (m_lines.next(line)) {
            m_text = trimmed(line.text);
            m_line = line.number;
            if (m_text.find_first_not_of(',') != std::string_view::npos) {
                m_fields.clear();
                EpwFieldSplitter splitter(m_text);
                for (std::string_view field; splitter.next(field);) {
                    m_fields.push_back(unquoted(field));
                }
                return true;
            }
        }
        return false;
    }

    /// @throws DataError when the file ends here
    void need(std::string_view what) {
        if (!next()) {
            throw DataError(
                fmt::format("{}: the file ends before {}; download it again", place(m_file), what));
        }
    }

    [[nodiscard]] std::string_view text() const { return m_text; }
    [[nodiscard]] std::size_t line() const { return m_line; }
    [[nodiscard]] const std::filesystem::path& file() const { return m_file; }
    [[nodiscard]] bool beginsWithDigit() const {
        return std::isdigit(static_cast<unsigned char>(m_text.front())) != 0;
    }
    [[nodiscard]] std::string_view field(std::size_t index) const {
        return index < m_fields.size() ? m_fields[index] : std::string_view();
    }

    [[nodiscard]] DataError fault(std::string_view what) const {
        return DataError(fmt::format("{}: {}; correct the line or download the file again",
                                     place(m_file, m_line), what));
    }

    /// Names of the current line's fields, without the unit in parentheses: "ghi" of "GHI (W/m^2)".
    [[nodiscard]] std::map<std::string, std::size_t> names() const {
        std::map<std::string, std::size_t> result;
        for (std::size_t i = 0; i < m_fields.size(); ++i) {
            std::string name(trimmed(m_fields[i].substr(0, m_fields[i].find(" ("))));
            std::transform(name.begin(), name.end(), name.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
            result.try_emplace(std::move(name), i);
        }
        return result;
    }

    /// Takes the current line for the names of the columns.
    void takeColumns(std::initializer_list<std::string_view> required) {
        m_columns = names();
        for (const std::string_view name : required) {
            if (!m_columns.contains(std::string(name))) {
                throw fault(fmt::format("there is no column {}", quoteText(name)));
            }
        }
    }

    [[nodiscard]] std::string_view operator[](const std::string& column) const {
        const auto found = m_columns.find(column);
        return found == m_columns.end() ? std::string_view() : field(found->second);
    }

    double number(std::string_view text, std::string_view what) const {
        const auto value = parseNumber<double>(text);
        if (!value || !std::isfinite(*value)) {
            throw fault(fmt::format("{}: {} is not a number", what, quoteText(text)));
        }
        return *value;
    }

    int whole(std::string_view text, std::string_view what, int lowest, int highest) const {
        const double value = number(text, what);
        if (!(value >= lowest && value <= highest) || value != std::floor(value)) {
            throw fault(fmt::format("{}: {} is not a whole number from {} to {}", what,
                                    quoteText(text), lowest, highest));
        }
        return static_cast<int>(value);
    }

    /// A value of the record, NaN where the file has none or marks it as missing: -9900, -9999 and
    /// -999 are in use.
    float value(const std::string& column) const {
        constexpr double missingUpTo = -900.0;
        const std::string_view text = (*this)[column];
        if (text.empty()) {
            return unknownValue;
        }
        const double read = number(text, column);
        return read <= missingUpTo ? unknownValue : static_cast<float>(read);
    }

private:
    static std::string_view unquoted(std::string_view text) {
        text = trimmed(text);
        if (text.size() > 1 && text.front() == '"' && text.back() == '"') {
            text = trimmed(text.substr(1, text.size() - 2));
        }
        return text;
    }

    const std::filesystem::path& m_file;
    EpwLines m_lines;
    std::string_view m_text;
    std::size_t m_line = 0;
    std::vector<std::string_view> m_fields;
    std::map<std::string, std::size_t> m_columns;
};

/// Files of the world's data often keep universal time wherever the site is.
void noteUniversalTime(WeatherReport& report, const std::filesystem::path& file) {
    constexpr double farFromGreenwich = 7.5; // its clock is another
    if (report.site.timeZone == 0.0 && std::abs(report.site.longitude) > farFromGreenwich) {
        report.notes.push_back(fmt::format(
            "{}: the file's clock is UTC, and so are the days and hours of a period", place(file)));
    }
}

} // namespace

/// Wilcox and Marion (2008), Users manual for TMY3 data sets, NREL/TP-581-43156: records hold the
/// hour that ends at their time, in local standard time.
SampledWeather readTmy3(const WeatherInput& input) {
    Table table(input);
    SampledWeather weather;
    WeatherReport& report = weather.report;
    report.format = WeatherFormat::Tmy3;
    table.need("the site");
    report.site = {.city = printable(table.field(1)),
                   .region = printable(table.field(2)),
                   .country = {},
                   .latitude = table.number(table.field(4), "field 5 (latitude)"),
                   .longitude = table.number(table.field(5), "field 6 (longitude)"),
                   .timeZone = table.number(table.field(3), "field 4 (time zone)"),
                   .elevation = table.number(table.field(6), "field 7 (elevation)")};
    checkSite(report.site, input.file, table.line());
    table.need("the names of the columns");
    table.takeColumns({"date", "time", "dni", "dhi"});
    while (table.next()) {
        WeatherSample sample;
        sample.line = table.line();
        const std::string_view date = table["date"];
        const std::string_view time = table["time"];
        if (date.size() != 10 || date[2] != '/' || date[5] != '/' || time.size() != 5 ||
            time[2] != ':') {
            throw table.fault(fmt::format("{} {} is no date and time as 01/31/1999 and 24:00",
                                          quoteText(date), quoteText(time)));
        }
        sample.month = table.whole(date.substr(0, 2), "month", 1, 12);
        sample.day = table.whole(date.substr(3, 2), "day", 1, 31);
        sample.year = table.whole(date.substr(6), "year", 1, 9999);
        sample.hour = table.whole(time.substr(0, 2), "hour", 0, 24) +
                      table.whole(time.substr(3), "minute", 0, 59) / 60.0 - 0.5;
        sample.direct = table.value("dni");
        sample.diffuse = table.value("dhi");
        sample.global = table.value("ghi");
        sample.dryBulb = table.value("dry-bulb");
        sample.dewPoint = table.value("dew-point");
        sample.pressure = table.value("pressure") * 100.0f; // mbar
        sample.albedo = table.value("alb");
        addSample(weather, sample, input.file);
    }
    return weather;
}

/// NSRDB files of the physical solar model, versions 3 and 4: two lines of names and values, then
/// records that hold the moment of their time, in the zone that "Time Zone" says.
SampledWeather readNsrdb(const WeatherInput& input) {
    Table table(input);
    SampledWeather weather;
    WeatherReport& report = weather.report;
    report.format = WeatherFormat::Nsrdb;
    table.need("the site");
    const std::map<std::string, std::size_t> names = table.names();
    if (!names.contains("latitude") || !names.contains("longitude") ||
        !names.contains("time zone")) {
        throw table.fault("the two lines with Latitude, Longitude and Time Zone are missing");
    }
    table.need("the values of the site");
    const auto entry = [&](const char* name) {
        const auto found = names.find(name);
        return found == names.end() ? std::string_view() : table.field(found->second);
    };
    const auto known = [&](const char* name) { // "-" and nothing stand for unknown
        const std::string_view text = entry(name);
        return text.empty() || text == "-" || text == "None" ? std::string() : printable(text);
    };
    report.site = {.city = known("city"),
                   .region = known("state"),
                   .country = known("country"),
                   .latitude = table.number(entry("latitude"), "Latitude"),
                   .longitude = table.number(entry("longitude"), "Longitude"),
                   .timeZone = table.number(entry("time zone"), "Time Zone"),
                   .elevation = known("elevation").empty()
                                    ? 0.0
                                    : table.number(entry("elevation"), "Elevation")};
    checkSite(report.site, input.file, table.line());
    if (!known("local time zone").empty() &&
        table.number(entry("local time zone"), "Local Time Zone") != report.site.timeZone) {
        report.notes.push_back(fmt::format(
            "{}: the file's clock is UTC{:+}, the site's UTC{}: the days and hours of a period are "
            "those of the file",
            place(input.file, table.line()), report.site.timeZone, entry("local time zone")));
    }
    table.need("the names of the columns");
    table.takeColumns({"month", "day", "hour", "dni", "dhi"});
    while (table.next()) {
        WeatherSample sample;
        sample.line = table.line();
        sample.year = table["year"].empty() ? 0 : table.whole(table["year"], "year", 0, 9999);
        sample.month = table.whole(table["month"], "month", 1, 12);
        sample.day = table.whole(table["day"], "day", 1, 31);
        sample.hour = table.whole(table["hour"], "hour", 0, 23);
        sample.hour +=
            table["minute"].empty() ? 0.5 : table.whole(table["minute"], "minute", 0, 59) / 60.0;
        sample.direct = table.value("dni");
        sample.diffuse = table.value("dhi");
        sample.global = table.value("ghi");
        sample.dryBulb = table.value("temperature");
        sample.dewPoint = table.value("dew point");
        sample.pressure = table.value("pressure") * 100.0f; // mbar
        sample.albedo = table.value("surface albedo");
        addSample(weather, sample, input.file);
    }
    return weather;
}

/// Typical years of PVGIS (European Commission, Joint Research Centre): records hold a moment in
/// universal time, later than their label by the offset that the header states.
SampledWeather readPvgis(const WeatherInput& input) {
    Table table(input);
    SampledWeather weather;
    WeatherReport& report = weather.report;
    report.format = WeatherFormat::Pvgis;
    report.site.latitude = report.site.longitude = unknownValue;
    std::optional<double> offset;
    while (true) {
        table.need("the records");
        if (table.text().starts_with("time(UTC)")) {
            break;
        }
        const std::size_t colon = table.text().find(':');
        const std::string_view key = table.text().substr(0, colon);
        const std::string_view text =
            colon == std::string_view::npos ? std::string_view() : table.text().substr(colon + 1);
        if (key.starts_with("Latitude")) {
            report.site.latitude = table.number(text, key);
        } else if (key.starts_with("Longitude")) {
            report.site.longitude = table.number(text, key);
        } else if (key.starts_with("Elevation")) {
            report.site.elevation = table.number(text, key);
        } else if (key.starts_with("Irradiance Time Offset")) {
            offset = table.number(text, key);
            if (!(std::abs(*offset) <= 1.0)) {
                throw table.fault("the offset is not a value from -1 to 1 h");
            }
        } else if (table.text().starts_with("time,")) {
            throw DataError(fmt::format("{}: this is a series, not a typical year; download the "
                                        "typical year (TMY) as CSV",
                                        place(input.file, table.line())));
        }
    }
    checkSite(report.site, input.file, 1);
    if (!offset) {
        report.notes.push_back(fmt::format(
            "{}: no 'Irradiance Time Offset (h)' is stated: the records are taken for the moment "
            "of their label, which may be half an hour off; download the file again",
            place(input.file)));
    }
    noteUniversalTime(report, input.file);
    table.takeColumns({"time(utc)", "gb(n)", "gd(h)"});
    while (table.next() && table.beginsWithDigit()) { // explanations follow
        WeatherSample sample;
        sample.line = table.line();
        const std::string_view time = table["time(utc)"];
        if (time.size() != 13 || time[8] != ':') {
            throw table.fault(fmt::format("{} is no time as 20050131:2300", quoteText(time)));
        }
        sample.year = table.whole(time.substr(0, 4), "year", 1, 9999);
        sample.month = table.whole(time.substr(4, 2), "month", 1, 12);
        sample.day = table.whole(time.substr(6, 2), "day", 1, 31);
        sample.hour = table.whole(time.substr(9, 2), "hour", 0, 23) +
                      table.whole(time.substr(11), "minute", 0, 59) / 60.0 + offset.value_or(0.0);
        sample.direct = table.value("gb(n)");
        sample.diffuse = table.value("gd(h)");
        sample.global = table.value("g(h)");
        sample.dryBulb = table.value("t2m");
        sample.pressure = table.value("sp");
        addSample(weather, sample, input.file);
    }
    return weather;
}

} // namespace insolate::study
