#include "study/weather/store_check.h"

#include "study/support/errors.h"
#include "study/support/readable.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <string_view>
#include <utility>

#include <fmt/format.h>
#include <insolate/insolate.h>
#include <insolate/solar/site_ranges.h>
#include <insolate/weather/epw_text.h>
#include <insolate/weather/text_lines.h>

namespace insolate::study {

namespace {

constexpr std::size_t hoursOfYear = hoursPerYear;
constexpr int hoursPerDay = 24;
constexpr float missingValue = std::numeric_limits<float>::quiet_NaN();

/// Above any irradiance on earth [W/m2]; the solar constant is 1,361.
constexpr double greatestRadiation = 1500.0;
/// The format's own mark for a missing radiation value.
constexpr double missingMark = 9999.0;

StoredWeather emptyYear(const WeatherFormat& format) {
    const std::vector<float> unknown(hoursOfYear, missingValue);
    StoredWeather year{{}, unknown, unknown, unknown};
    year.report.format = &format;
    return year;
}

/// Goes through an EPW file line by line, as the store's reader will.
class EpwInspector {
public:
    explicit EpwInspector(const WeatherInput& input) : m_file(input.file) { read(input.content); }

    StoredWeather finished() { return std::move(m_year); }

private:
    void read(std::string_view content) {
        if (content.find('\xFF') != std::string_view::npos) { // where the store's reader stops
            throw DataError(fmt::format("{}: {}", place(m_file), notWeatherText()));
        }
        TextLines lines(content);
        TextLine line;
        while (lines.next(line)) {
            m_line = line.number;
            take(line);
        }
        if (!m_hasLocation) {
            throw DataError(
                fmt::format("{}: no LOCATION line; {}", place(m_file), notWeatherText()));
        }
        if (m_dataLines == 0) {
            throw DataError(
                fmt::format("{}: the file holds no hourly data; download it again", place(m_file)));
        }
        WeatherReport& report = m_year.report;
        if (!line.ended) {
            report.notes.emplace_back(
                "the last line has no line end and is not read; add one in an editor");
        }
        if (m_leapLines > 0) {
            report.notes.push_back(fmt::format(
                "{} {} read as 28 February: the year has 365 days", m_leapLines,
                counted(m_leapLines, "line of 29 February is", "lines of 29 February are")));
        }
        std::size_t lineOfHour = 0;
        for (std::size_t hour = 0; hour < hoursOfYear; ++hour) {
            const auto index = static_cast<int>(hour);
            const HourOfYear when(index / hoursPerDay, index % hoursPerDay);
            const std::size_t lastLine = std::exchange(lineOfHour, m_lineOf[hour]);
            if (lineOfHour == 0) {
                if (report.hoursMissing.empty()) {
                    report.lineBeforeMissing = lastLine;
                }
                report.hoursMissing.push_back(when);
            }
            if (const std::size_t at = m_missingAt[hour]; at != 0) {
                report.radiationMissing.push_back(when);
                std::size_t& first = report.firstRadiationMissingLine;
                first = first == 0 ? at : std::min(first, at);
            }
        }
        report.hoursPresent = hoursOfYear - report.hoursMissing.size();
    }

    [[nodiscard]] DataError fault(std::string_view what, std::string_view fix) const {
        return DataError(printable(fmt::format("{}: {}; {}", place(m_file, m_line), what, fix)));
    }

    void take(const TextLine& line) {
        const EpwFields fields(line.text);
        const EpwLineKind kind = epwLineKind(line.text);
        if (kind == EpwLineKind::Blank) {
            return;
        }
        if (kind == EpwLineKind::Record) {
            if (line.text.find('"') != std::string_view::npos) {
                throw fault("the line of data holds quotes", "delete them");
            }
            takeData(fields, line.ended);
            return;
        }
        // Lines are known to the store by their first letter.
        const char first = line.text[line.text.find_first_not_of(" \t\r\n\v\f")];
        if (kind == EpwLineKind::Location && line.text.front() == 'L') {
            takeLocation(fields);
        } else if (m_line == 1 && kind == EpwLineKind::Unknown) {
            throw fault("no LOCATION line", notWeatherText());
        } else if (std::string_view("CDGHT").find(first) == std::string_view::npos ||
                   (kind == EpwLineKind::Unknown && m_dataLines > 0)) {
            throw fault(fmt::format("{} begins neither a header nor a data line",
                                    epwQuoted(line.text.substr(0, 20))),
                        kind == EpwLineKind::Unknown ? "correct or delete the line"
                                                     : "write its first word in capitals");
        } else if (kind == EpwLineKind::DataPeriods) {
            const std::optional<int> perHour = epwWholeNumber(fields[2]);
            if (perHour && *perHour != 1) {
                throw fault(fmt::format("the file has {} records an hour", *perHour),
                            "give a file with one record an hour, or take --method hourly");
            }
        }
    }

    void takeLocation(const EpwFields& fields) {
        if (std::exchange(m_hasLocation, true)) {
            throw fault("a second LOCATION line", "keep the one of your site");
        }
        EpwLocation location;
        if (const auto wrong = readEpwLocation(fields, location)) {
            throw fault(wrong->what, wrong->fix);
        }
        m_year.report.site = {.city = printable(location.city),
                              .region = printable(location.region),
                              .country = printable(location.country),
                              .latitude = location.site.latitude,
                              .longitude = location.site.longitude,
                              .timeZone = location.site.timeZone,
                              .elevation = location.site.elevation};
    }

    void takeData(const EpwFields& fields, bool ended) {
        ++m_dataLines;
        if (!m_hasLocation) {
            throw fault("no LOCATION line stands before the data", notWeatherText());
        }
        EpwDate date;
        if (const auto wrong = readEpwDate(fields, date)) {
            throw fault(wrong->what, wrong->fix);
        }
        // Both fields are looked at: a wrong diffuse value is reported even where direct is
        // missing.
        const float direct = radiation(fields, EpwField::Direct);
        const float diffuse = radiation(fields, EpwField::Diffuse);
        m_leapLines += date.isLeapDay() ? 1 : 0;
        if (!ended) {
            return;
        }
        // A leap day's lines take the place of the day before.
        const int day = dayIndex(date.month, date.isLeapDay() ? 28 : date.day);
        const auto index = static_cast<std::size_t>(day * hoursPerDay + date.hour - 1);
        // Of several lines for an hour the last one holds.
        m_missingAt[index] = std::isnan(direct) || std::isnan(diffuse) ? m_line : 0;
        const EpwValue global = readEpwValue(fields, EpwField::Global);
        m_year.global[index] =
            global.state == EpwValue::Number ? static_cast<float>(global.number) : missingValue;
        m_year.direct[index] = direct;
        m_year.diffuse[index] = diffuse;
        if (date.isLeapDay() && m_lineOf[index] != 0) {
            return;
        }
        WeatherReport& report = m_year.report;
        if (std::exchange(m_lineOf[index], m_line) != 0 && report.hoursRepeated++ == 0) {
            report.firstRepeatedLine = m_line;
        }
    }

    /// NaN where it is marked as missing.
    [[nodiscard]] float radiation(const EpwFields& fields, EpwField field) const {
        const EpwValue value = readEpwValue(fields, field);
        if (value.state == EpwValue::Missing) {
            return missingValue;
        }
        constexpr std::string_view fix = "correct the line or download the file again";
        if (value.state == EpwValue::NotANumber || value.number < 0.0 ||
            value.number > greatestRadiation) {
            throw fault(fmt::format("{} is not a value from 0 to {} W/m2",
                                    epwFieldText(fields, field), greatestRadiation),
                        fix);
        }
        if (fields[epwFieldInfo(field).column].find_first_of("eE") != std::string_view::npos) {
            throw fault(epwFieldText(fields, field) + " has an exponent",
                        "write it without, or take --method hourly");
        }
        return static_cast<float>(value.number);
    }

    const std::filesystem::path& m_file;
    std::size_t m_line = 0;
    std::size_t m_dataLines = 0;
    std::size_t m_leapLines = 0;
    bool m_hasLocation = false;
    /// The line that gives the hour, 0 for none.
    std::vector<std::size_t> m_lineOf = std::vector<std::size_t>(hoursOfYear, 0);
    /// The line that marks the hour's radiation as missing, 0 for none.
    std::vector<std::size_t> m_missingAt = std::vector<std::size_t>(hoursOfYear, 0);
    StoredWeather m_year = emptyYear(epwFormat);
};

StoredWeather inspectRecord(const WeatherInput& input) {
    using std::string_view_literals::operator""sv;
    constexpr std::string_view signature = "xqt_WEA_ver1.10\0"sv;
    const std::string& content = input.content;
    if (!content.starts_with(signature)) {
        throw DataError(fmt::format("{}: {}", place(input.file), notWeatherText()));
    }
    EWeaFileFormatData record;
    if (content.size() != signature.size() + sizeof record) {
        throw DataError(fmt::format("{}: the file has {} bytes instead of {}; copy or convert it "
                                    "again",
                                    place(input.file), content.size(),
                                    signature.size() + sizeof record));
    }
    std::memcpy(&record, content.data() + signature.size(), sizeof record);
    const auto text = [](const auto& field) {
        const std::string_view whole(std::data(field), std::size(field));
        return printable(whole.substr(0, whole.find('\0')));
    };
    StoredWeather year = emptyYear(recordFormat);
    WeatherReport& report = year.report;
    report.site = {.city = text(record.name),
                   .region = text(record.state),
                   .country = {},
                   .latitude = static_cast<double>(record.latitude),
                   .longitude = static_cast<double>(record.longitude),
                   .timeZone = static_cast<double>(record.timeZone) / 15.0,
                   .elevation = static_cast<double>(record.altitude)};
    if (!siteRanges::latitude.holds(report.site.latitude) ||
        !siteRanges::longitude.holds(report.site.longitude) ||
        !siteRanges::timeZone.holds(report.site.timeZone)) {
        throw DataError(fmt::format("{}: the site ({}, {}, UTC{:+}) is not on earth; convert the "
                                    "file again",
                                    place(input.file), report.site.latitude, report.site.longitude,
                                    report.site.timeZone));
    }
    report.hoursPresent = hoursOfYear;
    for (std::size_t hour = 0; hour < hoursOfYear; ++hour) {
        const EHourlyData& values = record.hourly[hour / hoursPerDay][hour % hoursPerDay];
        const HourOfYear when(static_cast<int>(hour) / hoursPerDay,
                              static_cast<int>(hour) % hoursPerDay);
        if (values.diffuseRad >= missingMark || values.directRad >= missingMark) {
            report.radiationMissing.push_back(when);
        } else if (std::min(values.diffuseRad, values.directRad) < 0 ||
                   std::max(values.diffuseRad, values.directRad) > greatestRadiation) {
            throw DataError(fmt::format("{}: day {}, hour {}: radiation of {} and {} W/m2 is not "
                                        "possible; convert the file again",
                                        place(input.file), when.first + 1, when.second + 1,
                                        values.directRad, values.diffuseRad));
        } else {
            year.diffuse[hour] = static_cast<float>(values.diffuseRad);
            year.direct[hour] = static_cast<float>(values.directRad);
        }
    }
    return year;
}

} // namespace

StoredWeather inspectStoredWeather(const WeatherInput& input) {
    return input.format->store == StoreReader::record ? inspectRecord(input)
                                                      : EpwInspector(input).finished();
}

} // namespace insolate::study
