#include <insolate/weather/epw_text.h>
#include <insolate/weather/hour_means.h>
#include <insolate/weather/text_lines.h>
#include <insolate/weather/weather_series.h>

#include <algorithm>
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
constexpr std::size_t mostRecords = std::size_t{2} * 60 * 8784;

/// More than the sun gives anywhere on the ground, reflecting clouds included [W/m2].
constexpr double plausibleRadiation = 2000.0;

/// "1 record", "2 records".
std::string counted(std::size_t count, const char* one, const char* many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

class Findings {
public:
    explicit Findings(std::string_view name) : m_name(name) {}

    /// Counts an occurrence where there was one of the kind and field before; false where not, and
    /// the sentence is yet to be made: files may have the same fault in each of a million lines.
    bool countAgain(WeatherFindingKind kind, int field) {
        const auto place = m_places.find({static_cast<int>(kind), field});
        if (place == m_places.end()) {
            return false;
        }
        ++m_list[place->second].count;
        return true;
    }

    /// Counts an occurrence; what and fix make the sentence of the first one.
    /// @param column of the file, counted from 1
    void add(WeatherFindingKind kind, int line, int field, const std::string& what,
             std::string_view fix, int column = 0) {
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
        if (!fix.empty()) {
            text.append("; ").append(fix);
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
    Reader(std::string_view epwText, std::string_view name) : text(epwText), findings(name) {}

    std::string_view text;
    Findings findings;
    WeatherReading reading;
    int line = 0;
    bool located = false;
    int recordsAnHour = 0; // from the header, 0 when it does not say

    struct Record {
        int slot;
        int line;
        std::int16_t year;
        std::array<float, epwFieldCount> values;
    };
    std::vector<Record> records;
    int leapRecords = 0;
    int leapLine = 0;

    bool fail(WeatherFindingKind kind, int atLine, const std::string& what, std::string_view fix,
              int column = 0) {
        findings.add(kind, atLine, 0, what, fix, column);
        return false;
    }

    bool readLocation(const EpwFields& fields) {
        EpwLocation location;
        if (const auto fault = readEpwLocation(fields, location)) {
            return fail(WeatherFindingKind::BadLocation, line, fault->what, fault->fix,
                        fault->column);
        }
        reading.series.place = location.city;
        reading.series.site = location.site;
        located = true;
        return true;
    }

    void readRecord(const EpwFields& fields) {
        EpwDate date;
        if (const auto fault = readEpwDate(fields, date)) {
            findings.add(WeatherFindingKind::BadLine, line, 0, fault->what, "the line is left out");
            return;
        }
        if (date.isLeapDay()) {
            leapLine = leapRecords == 0 ? line : leapLine;
            ++leapRecords;
            return;
        }
        Record record{dayIndex(date.month, date.day) * 24 + date.hour - 1,
                      line,
                      static_cast<std::int16_t>(date.year),
                      {}};
        for (std::size_t f = 0; f < epwFieldCount; ++f) {
            record.values[f] = readValue(fields, static_cast<EpwField>(f));
        }
        records.push_back(record);
    }

    float readValue(const EpwFields& fields, EpwField field) {
        const EpwValue value = readEpwValue(fields, field);
        if (field == EpwField::Albedo) { // often absent, and 0 where nobody knew
            return value.state == EpwValue::Number && value.number > 0.0 && value.number <= 1.0
                       ? static_cast<float>(value.number)
                       : missing;
        }
        const auto report = [&](WeatherFindingKind kind, const char* what, const char* fix) {
            if (!findings.countAgain(kind, static_cast<int>(field))) {
                findings.add(kind, line, static_cast<int>(field),
                             epwFieldText(fields, field) + what, fix,
                             static_cast<int>(epwFieldInfo(field).column) + 1);
            }
        };
        if (value.state == EpwValue::NotANumber) {
            report(WeatherFindingKind::BadNumber, " is not a number",
                   "the value counts as missing");
            return missing;
        }
        if (value.state == EpwValue::Missing) {
            report(WeatherFindingKind::MissingValue, " marks a missing value", "");
            return missing;
        }
        if (epwFieldInfo(field).radiation && value.number < 0.0) {
            report(WeatherFindingKind::NegativeValue, " is negative", "taken as 0");
            return 0.0f;
        }
        if (epwFieldInfo(field).radiation && value.number > plausibleRadiation) {
            report(WeatherFindingKind::ImplausibleValue, " is more than the sun gives", "kept");
        }
        return static_cast<float>(value.number);
    }

    bool readLines() {
        if (const std::string_view encoding = foreignEncoding(text); !encoding.empty()) {
            return fail(WeatherFindingKind::NotEpw, 0, "the text is " + std::string(encoding),
                        "save it as UTF-8 or ASCII");
        }
        TextLines lines(text);
        TextLine next;
        while (lines.next(next)) {
            line = static_cast<int>(next.number);
            const EpwLineKind kind = epwLineKind(next.text);
            const EpwFields fields(next.text);
            if (kind == EpwLineKind::Location) {
                if (located) {
                    findings.add(WeatherFindingKind::SecondLocation, line, 0,
                                 "a second LOCATION line", "the first one holds");
                } else if (!readLocation(fields)) {
                    return false;
                }
            } else if (kind == EpwLineKind::DataPeriods) {
                recordsAnHour = std::max(epwWholeNumber(fields[2]).value_or(0), 0);
            } else if (kind == EpwLineKind::Record) {
                if (records.size() == mostRecords) {
                    return fail(WeatherFindingKind::TooLarge, line,
                                "more records than two years have minutes", "give one year");
                }
                readRecord(fields);
            } else if (kind == EpwLineKind::Unknown && !records.empty()) {
                findings.add(WeatherFindingKind::BadLine, line, 0,
                             epwQuoted(fields[0]) + " does not begin a data line",
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

        HourMeans means;
        // Of more records than belong to an hour the last ones hold, as where a correction is
        // appended; the readers of the store do the same.
        std::vector<int> left(hoursPerYear, 0);
        for (const Record& record : records) {
            ++left[static_cast<std::size_t>(record.slot)];
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
                             "the hour was given before", "the last record holds");
            }
            if (left[slot]-- > perHour) {
                continue;
            }
            lineOf[slot] = record.line;
            series.year[slot] = record.year;
            for (std::size_t f = 0; f < epwFieldCount; ++f) {
                means.add(static_cast<EpwField>(f), slot, record.values[f]);
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
        means.fill(series, perHour);
        return true;
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

std::array<float, 12> monthlyAlbedoOf(std::span<const double> albedo,
                                      std::span<const float> globalHorizontal) {
    std::array<double, 12> energy{};
    std::array<double, 12> reflected{};
    for (std::size_t k = 0; k < std::min(albedo.size(), globalHorizontal.size()); ++k) {
        if (albedo[k] > 0.0 && albedo[k] <= 1.0) {
            const auto month =
                static_cast<std::size_t>(monthAndDay(static_cast<int>(k / 24)).month - 1);
            const float global = globalHorizontal[k];
            // A thousandth keeps months of polar night defined.
            const double weight = 1e-3 + (global > 0.0f ? static_cast<double>(global) : 0.0);
            energy[month] += weight;
            reflected[month] += weight * albedo[k];
        }
    }
    std::array<float, 12> result{};
    for (std::size_t m = 0; m < 12; ++m) {
        result[m] = energy[m] > 0.0 ? static_cast<float>(reflected[m] / energy[m]) : missing;
    }
    return result;
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
    const auto take = [&](std::span<const float> from, std::vector<float>& to, EpwField field) {
        const EpwFieldInfo& info = epwFieldInfo(field);
        const auto report = [&](WeatherFindingKind kind, const char* what, const char* fix) {
            findings.add(kind, 0, static_cast<int>(field), std::string(info.name) + what, fix);
        };
        to.assign(from.begin(), from.end());
        to.resize(hoursPerYear, missing);
        for (float& value : to) {
            if (!std::isfinite(value)) {
                value = missing;
            } else if (value < 0.0f) {
                report(WeatherFindingKind::NegativeValue, " below zero", "taken as 0");
                value = 0.0f;
            } else if (static_cast<double>(value) >= info.missingFrom) {
                report(WeatherFindingKind::MissingValue, " of 9,999 W/m2 or more",
                       "the value counts as missing");
                value = missing;
            } else if (static_cast<double>(value) > plausibleRadiation) {
                report(WeatherFindingKind::ImplausibleValue, " of more than the sun gives", "kept");
            }
        }
    };
    take(directNormal, series.directNormal, EpwField::Direct);
    take(diffuseHorizontal, series.diffuseHorizontal, EpwField::Diffuse);
    take(globalHorizontal, series.globalHorizontal, EpwField::Global);
    countMissing(reading, !globalHorizontal.empty());
    reading.findings = findings.finished();
    reading.ok = true;
    return reading;
}

} // namespace insolate
