#include <insolate/weather/weather_series.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <limits>
#include <map>
#include <optional>
#include <utility>

namespace insolate {
namespace {

constexpr float missing = std::numeric_limits<float>::quiet_NaN();
constexpr std::array<int, 12> monthLengths{31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
constexpr std::size_t largestFile = std::size_t{512} << 20;

/// The fields of an EPW data line that are read, with their place, their mark for "missing" and the
/// name that findings use. Crawley, Hand, Lawrie (1999), Improving the weather information
/// available to simulation programs, table 1.
struct Field {
    std::size_t column; // counted from 0
    double missingFrom; // values from here up mean "missing"
    bool radiation;
    const char* name;
};
enum FieldIndex { DryBulb, DewPoint, Pressure, Global, Direct, Diffuse, Albedo, FieldCount };
constexpr std::array<Field, FieldCount> fields{{{6, 99.9, false, "dry bulb temperature"},
                                                {7, 99.9, false, "dew point temperature"},
                                                {9, 999999.0, false, "pressure"},
                                                {13, 9999.0, true, "global horizontal radiation"},
                                                {14, 9999.0, true, "direct normal radiation"},
                                                {15, 9999.0, true, "diffuse horizontal radiation"},
                                                {32, 2.0, false, "albedo"}}};
constexpr std::size_t requiredColumns = 16;

std::string_view trimmed(std::string_view text) {
    const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '"'; };
    while (!text.empty() && blank(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && blank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

std::optional<double> number(std::string_view text) {
    text = trimmed(text);
    if (!text.empty() && text.front() == '+') {
        text.remove_prefix(1);
    }
    double value = 0.0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size() || !std::isfinite(value)) {
        return std::nullopt;
    }
    return value;
}

/// A whole number as some writers give it, "1" or "1.0".
int wholeNumber(std::string_view text) {
    const std::optional<double> value = number(text);
    return value && std::abs(*value) < 1e6 && *value == std::floor(*value)
               ? static_cast<int>(*value)
               : std::numeric_limits<int>::min();
}

bool startsWith(std::string_view line, std::string_view key) {
    if (line.size() < key.size()) {
        return false;
    }
    for (std::size_t i = 0; i < key.size(); ++i) {
        const char c = line[i];
        if ((c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c) != key[i]) {
            return false;
        }
    }
    return true;
}

/// Splits a line at its commas, up to the given number of columns; gives how many there are.
template <std::size_t N>
std::size_t split(std::string_view line, std::array<std::string_view, N>& columns) {
    std::size_t count = 0;
    while (count < N) {
        const std::size_t comma = line.find(',');
        columns[count++] = line.substr(0, comma);
        if (comma == std::string_view::npos) {
            break;
        }
        line.remove_prefix(comma + 1);
    }
    return count;
}

/// "1 record", "2 records".
std::string counted(std::size_t count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

/// A place or value from the file, made safe to print.
std::string quoted(std::string_view text) {
    text = trimmed(text);
    std::string result = "'";
    for (const char c : text.substr(0, 40)) {
        result += c >= 0x20 && c != 0x7f ? c : '?';
    }
    return result + (text.size() > 40 ? "...'" : "'");
}

class Findings {
public:
    explicit Findings(std::string_view name) : m_name(name) {}

    /// Counts an occurrence; what and mend make the sentence of the first one.
    /// @param column of the file, counted from 1
    void add(WeatherFindingKind kind, int line, int field, const std::string& what,
             const char* mend, int column = 0) {
        const auto [place, fresh] =
            m_places.try_emplace({static_cast<int>(kind), field}, m_list.size());
        if (!fresh) {
            ++m_list[place->second].count;
            return;
        }
        std::string text = m_name;
        if (line > 0) {
            text += ":" + std::to_string(line);
        }
        text += ": " + what;
        if (*mend != '\0') {
            text += std::string("; ") + mend;
        }
        m_list.push_back({kind, line, 1, std::move(text), column, what});
    }

    std::vector<WeatherFinding> finished() {
        for (WeatherFinding& finding : m_list) {
            if (finding.count > 1) {
                finding.text += " (" + std::to_string(finding.count) + " times)";
            }
        }
        return std::move(m_list);
    }

private:
    std::string m_name;
    std::vector<WeatherFinding> m_list;
    std::map<std::pair<int, int>, std::size_t> m_places;
};

struct Reader {
    Reader(std::string_view text, std::string_view name) : rest(text), findings(name) {}

    std::string_view rest;
    Findings findings;
    WeatherReading reading;
    int line = 0;
    bool located = false;
    int recordsAnHour = 0; // from the header, 0 when it does not say

    struct Record {
        int slot;
        int line;
        std::int16_t year;
        std::array<float, FieldCount> values;
    };
    std::vector<Record> records;
    int leapRecords = 0;
    int leapLine = 0;

    bool next(std::string_view& text) {
        if (rest.empty()) {
            return false;
        }
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        text = trimmed(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
        ++line;
        return true;
    }

    bool fail(WeatherFindingKind kind, int at, const std::string& what, const char* mend = "") {
        findings.add(kind, at, 0, what, mend);
        return false;
    }

    bool readLocation(std::string_view text) {
        std::array<std::string_view, 10> columns;
        const std::size_t count = split(text, columns);
        if (columns[0].find(';') != std::string_view::npos) {
            return fail(WeatherFindingKind::BadLocation, line,
                        "the fields are separated by semicolons",
                        "save the file again with commas between them");
        }
        if (count < columns.size()) {
            return fail(WeatherFindingKind::BadLocation, line,
                        "the LOCATION line has fewer than 10 fields",
                        "give place, latitude, longitude, zone and elevation");
        }
        reading.series.place = trimmed(columns[1]);
        struct Entry {
            std::size_t column;
            double low, high;
            const char* name;
            double* value;
        };
        Site& site = reading.series.site;
        for (const Entry& entry : {Entry{6, -90.0, 90.0, "latitude", &site.latitude},
                                   Entry{7, -180.0, 180.0, "longitude", &site.longitude},
                                   Entry{8, -12.0, 14.0, "time zone", &site.timeZone},
                                   Entry{9, -1000.0, 9999.9, "elevation", &site.elevation}}) {
            const std::optional<double> value = number(columns[entry.column]);
            if (!value || *value < entry.low || *value > entry.high) {
                return fail(WeatherFindingKind::BadLocation, line,
                            "field " + std::to_string(entry.column + 1) + " (" + entry.name +
                                "): " + quoted(columns[entry.column]) + " is not a value from " +
                                std::to_string(static_cast<int>(entry.low)) + " to " +
                                std::to_string(static_cast<int>(std::ceil(entry.high))));
            }
            *entry.value = *value;
        }
        located = true;
        return true;
    }

    void readRecord(const std::array<std::string_view, 33>& columns, std::size_t count) {
        const int month = wholeNumber(columns[1]);
        const int day = wholeNumber(columns[2]);
        const int hour = wholeNumber(columns[3]);
        if (month == 2 && day == 29) {
            leapLine = leapRecords == 0 ? line : leapLine;
            ++leapRecords;
            return;
        }
        const int index = dayIndex(month, day);
        if (count < requiredColumns || index < 0 || hour < 1 || hour > 24) {
            findings.add(WeatherFindingKind::BadLine, line, 0,
                         count < requiredColumns
                             ? "only " + counted(count, "field", "fields") +
                                   " where at least 16 belong"
                             : "no such hour: month " + quoted(columns[1]) + ", day " +
                                   quoted(columns[2]) + ", hour " + quoted(columns[3]),
                         "the line is left out");
            return;
        }
        const int year = wholeNumber(columns[0]);
        Record record{index * 24 + hour - 1,
                      line,
                      static_cast<std::int16_t>(year > 0 && year < 10000 ? year : 0),
                      {}};
        for (int f = 0; f < FieldCount; ++f) {
            record.values[static_cast<std::size_t>(f)] = readValue(columns, count, f);
        }
        records.push_back(record);
    }

    float readValue(const std::array<std::string_view, 33>& columns, std::size_t count, int f) {
        const Field& field = fields[static_cast<std::size_t>(f)];
        if (f == Albedo) { // often absent, and 0 where nobody knew
            const std::optional<double> value =
                count > field.column ? number(columns[field.column]) : std::nullopt;
            return value && *value > 0.0 && *value <= 1.0 ? static_cast<float>(*value) : missing;
        }
        const std::string_view text = columns[field.column];
        const auto report = [&](WeatherFindingKind kind, const char* what, const char* mend) {
            findings.add(kind, line, f,
                         "field " + std::to_string(field.column + 1) + " (" + field.name +
                             "): " + quoted(text) + what,
                         mend, static_cast<int>(field.column) + 1);
        };
        const std::optional<double> value = number(text);
        if (!value) {
            report(WeatherFindingKind::BadNumber, " is not a number",
                   "the value counts as missing");
            return missing;
        }
        if (*value >= field.missingFrom || (f == Pressure && *value <= 0.0)) {
            report(WeatherFindingKind::MissingValue, " marks a missing value", "");
            return missing;
        }
        if (field.radiation && *value < 0.0) {
            report(WeatherFindingKind::NegativeValue, " is negative", "taken as 0");
            return 0.0f;
        }
        if (field.radiation && *value > 2000.0) {
            report(WeatherFindingKind::ImplausibleValue, " is more than the sun gives", "kept");
        }
        return static_cast<float>(*value);
    }

    bool readLines() {
        std::string_view text;
        std::array<std::string_view, 33> columns;
        if (rest.starts_with("\xFF\xFE") || rest.starts_with("\xFE\xFF")) {
            return fail(WeatherFindingKind::NotEpw, 0, "the text is UTF-16",
                        "save it as UTF-8 or ASCII");
        }
        while (next(text)) {
            if (line == 1 && text.substr(0, 3) == "\xEF\xBB\xBF") {
                text.remove_prefix(3);
            }
            if (text.empty()) {
                continue;
            }
            if (startsWith(text, "LOCATION")) {
                if (located) {
                    findings.add(WeatherFindingKind::SecondLocation, line, 0,
                                 "a second LOCATION line", "the first one holds");
                } else if (!readLocation(text)) {
                    return false;
                }
                continue;
            }
            const std::size_t count = split(text, columns);
            if (startsWith(text, "DATA PERIODS") && count > 2) {
                recordsAnHour = std::max(wholeNumber(columns[2]), 0);
            }
            const char first = text.front();
            if ((first >= '0' && first <= '9') || first == '-' || first == '+') {
                readRecord(columns, count);
            } else if (!records.empty()) {
                findings.add(WeatherFindingKind::BadLine, line, 0,
                             quoted(columns[0]) + " does not begin a data line",
                             "the line is left out");
            }
        }
        if (!located) {
            return fail(WeatherFindingKind::NotEpw, 0, "there is no LOCATION line",
                        "give an EPW weather file");
        }
        if (records.empty()) {
            return fail(WeatherFindingKind::NotEpw, 0, "there is no hour of weather in it",
                        "give an EPW weather file");
        }
        return true;
    }

    /// Records an hour as the rows themselves have it: the commonest count of neighbouring rows
    /// that share a slot. The header is often left at 1.
    int recordsAnHourOfRows() const {
        std::map<int, int> runs;
        for (std::size_t i = 0; i < records.size();) {
            std::size_t end = i + 1;
            while (end < records.size() && records[end].slot == records[i].slot) {
                ++end;
            }
            ++runs[static_cast<int>(end - i)];
            i = end;
        }
        return std::max_element(runs.begin(), runs.end(),
                                [](const auto& a, const auto& b) { return a.second < b.second; })
            ->first;
    }

    bool assemble() {
        const int perHour = recordsAnHourOfRows();
        if (60 % perHour != 0 || perHour > 60) {
            return fail(WeatherFindingKind::UnevenSteps, records.front().line,
                        std::to_string(perHour) + " records an hour do not divide it evenly",
                        "give a file with 1, 2, 4 or 6 records an hour");
        }
        if (recordsAnHour > 0 && recordsAnHour != perHour) {
            findings.add(WeatherFindingKind::Averaged, 0, 1,
                         "the header promises " +
                             counted(static_cast<std::size_t>(recordsAnHour), "record", "records") +
                             " an hour, the rows hold " + std::to_string(perHour),
                         "the rows decide");
        }
        if (perHour > 1) {
            findings.add(WeatherFindingKind::Averaged, records.front().line, 0,
                         std::to_string(perHour) + " records an hour", "averaged over the hour");
        }
        if (leapRecords > 0) {
            findings.add(WeatherFindingKind::LeapDayLeftOut, leapLine, 0,
                         "29 February with " +
                             counted(static_cast<std::size_t>(leapRecords), "record", "records"),
                         "left out: a year has 365 days");
        }

        std::array<std::vector<double>, FieldCount> sums;
        std::array<std::vector<int>, FieldCount> counts;
        for (int f = 0; f < FieldCount; ++f) {
            sums[static_cast<std::size_t>(f)].assign(hoursPerYear, 0.0);
            counts[static_cast<std::size_t>(f)].assign(hoursPerYear, 0);
        }
        std::vector<int> seen(hoursPerYear, 0);
        std::vector<int> lineOf(hoursPerYear, 0);
        WeatherSeries& series = reading.series;
        series.year.assign(hoursPerYear, 0);
        int previous = -1;
        for (const Record& record : records) {
            const auto slot = static_cast<std::size_t>(record.slot);
            if (record.slot < previous) {
                findings.add(WeatherFindingKind::OutOfOrder, record.line, 0,
                             "the record goes back in time", "it is put in its place");
            }
            previous = record.slot;
            if (++seen[slot] > perHour) {
                findings.add(WeatherFindingKind::DuplicateHour, record.line, 0,
                             "a second record for the same hour", "the first one is kept");
                continue;
            }
            lineOf[slot] = record.line;
            series.year[slot] = record.year;
            for (std::size_t f = 0; f < FieldCount; ++f) {
                if (!std::isnan(record.values[f])) {
                    sums[f][slot] += static_cast<double>(record.values[f]);
                    ++counts[f][slot];
                }
            }
        }
        int firstGap = -1;
        for (std::size_t k = 0; k < hoursPerYear; ++k) {
            if (seen[k] == 0 && firstGap < 0) {
                firstGap = static_cast<int>(k);
            }
        }
        if (firstGap >= 0) {
            const auto gaps = static_cast<std::size_t>(std::count(seen.begin(), seen.end(), 0));
            const MonthAndDay date = monthAndDay(firstGap / 24);
            const int before = firstGap == 0 ? 0 : lineOf[static_cast<std::size_t>(firstGap - 1)];
            findings.add(WeatherFindingKind::Gap, before, 0,
                         counted(gaps, "hour has no record: day ",
                                 "hours have no record, the first is day ") +
                             std::to_string(date.day) + " of month " + std::to_string(date.month) +
                             ", hour " + std::to_string(firstGap % 24 + 1) +
                             (before == 0 ? "" : ", after this line"),
                         "they count as missing");
        }
        const std::array<std::vector<float>*, FieldCount> targets{&series.dryBulb,
                                                                  &series.dewPoint,
                                                                  &series.pressure,
                                                                  &series.globalHorizontal,
                                                                  &series.directNormal,
                                                                  &series.diffuseHorizontal,
                                                                  nullptr};
        for (std::size_t f = 0; f < FieldCount; ++f) {
            if (targets[f] == nullptr) {
                continue;
            }
            targets[f]->assign(hoursPerYear, missing);
            for (std::size_t k = 0; k < hoursPerYear; ++k) {
                // A radiation mean over a part of the hour would change the hour's sum.
                const bool complete =
                    fields[f].radiation ? counts[f][k] == perHour : counts[f][k] > 0;
                if (complete) {
                    (*targets[f])[k] = static_cast<float>(sums[f][k] / counts[f][k]);
                }
            }
        }
        assembleAlbedo(sums[Albedo], counts[Albedo]);
        return true;
    }

    void assembleAlbedo(const std::vector<double>& sums, const std::vector<int>& counts) {
        WeatherSeries& series = reading.series;
        std::array<double, 12> energy{};
        std::array<double, 12> reflected{};
        for (std::size_t k = 0; k < hoursPerYear; ++k) {
            if (counts[k] > 0) {
                const auto month =
                    static_cast<std::size_t>(monthAndDay(static_cast<int>(k / 24)).month - 1);
                const float global = series.globalHorizontal[k];
                // A thousandth keeps months of polar night defined.
                const double weight = 1e-3 + (global > 0.0f ? static_cast<double>(global) : 0.0);
                energy[month] += weight;
                reflected[month] += weight * sums[k] / counts[k];
            }
        }
        for (std::size_t m = 0; m < 12; ++m) {
            series.monthlyAlbedo[m] =
                energy[m] > 0.0 ? static_cast<float>(reflected[m] / energy[m]) : missing;
        }
    }
};

void countMissing(WeatherReading& reading, bool hasGlobal) {
    const WeatherSeries& series = reading.series;
    for (std::size_t k = 0; k < hoursPerYear; ++k) {
        if (std::isnan(series.directNormal[k]) || std::isnan(series.diffuseHorizontal[k]) ||
            (hasGlobal && std::isnan(series.globalHorizontal[k]))) {
            ++reading.hoursWithoutRadiation;
        }
    }
}

} // namespace

MonthAndDay monthAndDay(int dayIndex) {
    int rest = std::clamp(dayIndex, 0, 364);
    int month = 1;
    for (const int length : monthLengths) {
        if (rest < length) {
            break;
        }
        rest -= length;
        ++month;
    }
    return {month, rest + 1};
}

int dayIndex(int month, int day) {
    if (month < 1 || month > 12 || day < 1 ||
        day > monthLengths[static_cast<std::size_t>(month - 1)]) {
        return -1;
    }
    int index = day - 1;
    for (int m = 1; m < month; ++m) {
        index += monthLengths[static_cast<std::size_t>(m - 1)];
    }
    return index;
}

WeatherReading parseWeatherSeries(std::string_view epwText, std::string_view name) {
    Reader reader(epwText, name);
    reader.reading.ok = reader.readLines() && reader.assemble();
    if (reader.reading.ok) {
        countMissing(reader.reading, true);
    }
    reader.reading.findings = reader.findings.finished();
    return std::move(reader.reading);
}

WeatherReading readWeatherSeries(const std::filesystem::path& epwFile) {
    const std::string name = epwFile.filename().string();
    WeatherReading failed;
    std::error_code error;
    const auto size = std::filesystem::file_size(epwFile, error);
    std::ifstream file(epwFile, std::ios::binary);
    if (error || !file) {
        failed.findings.push_back({WeatherFindingKind::CannotOpen, 0, 1,
                                   epwFile.string() + ": the file cannot be opened; check its name "
                                                      "and that you may read it"});
        return failed;
    }
    if (size > largestFile) {
        failed.findings.push_back(
            {WeatherFindingKind::TooLarge, 0, 1,
             name + ": larger than 512 MB; a year of minutes is a fifth of that"});
        return failed;
    }
    std::string text(static_cast<std::size_t>(size), '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(std::max<std::streamsize>(file.gcount(), 0)));
    return parseWeatherSeries(text, name);
}

WeatherReading makeWeatherSeries(const Site& site, std::span<const float> directNormal,
                                 std::span<const float> diffuseHorizontal,
                                 std::span<const float> globalHorizontal) {
    WeatherReading reading;
    Findings findings("weather arrays");
    const auto wrong = [](std::span<const float> values) { return values.size() != hoursPerYear; };
    if (wrong(directNormal) || wrong(diffuseHorizontal) ||
        (!globalHorizontal.empty() && wrong(globalHorizontal))) {
        findings.add(WeatherFindingKind::WrongLength, 0, 0, "an array does not hold 8,760 values",
                     "give one value for each hour of a year of 365 days");
        reading.findings = findings.finished();
        return reading;
    }
    WeatherSeries& series = reading.series;
    series.site = site;
    series.dryBulb.assign(hoursPerYear, missing);
    series.dewPoint.assign(hoursPerYear, missing);
    series.pressure.assign(hoursPerYear, missing);
    series.monthlyAlbedo.fill(missing);
    const auto take = [&](std::span<const float> from, std::vector<float>& to, int field) {
        to.assign(from.begin(), from.end());
        to.resize(hoursPerYear, missing);
        for (float& value : to) {
            if (!std::isfinite(value)) {
                value = missing;
            } else if (value < 0.0f) {
                findings.add(WeatherFindingKind::NegativeValue, 0, field, "radiation below zero",
                             "taken as 0");
                value = 0.0f;
            }
        }
    };
    take(directNormal, series.directNormal, Direct);
    take(diffuseHorizontal, series.diffuseHorizontal, Diffuse);
    take(globalHorizontal, series.globalHorizontal, Global);
    countMissing(reading, !globalHorizontal.empty());
    reading.findings = findings.finished();
    reading.ok = true;
    return reading;
}

} // namespace insolate
