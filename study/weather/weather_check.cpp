#include "study/weather/weather_check.h"

#include "study/files/input_file.h"
#include "study/run/period.h"
#include "study/support/errors.h"
#include "study/support/file_name.h"
#include "study/support/numbers.h"
#include "study/support/readable.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

#include <fmt/format.h>
#include <insolate/insolate.h>

namespace insolate::study {

namespace {

constexpr int daysPerYear = 365;
constexpr int hoursPerDay = 24;
constexpr std::size_t hoursPerYear = 8760;
constexpr float missingValue = std::numeric_limits<float>::quiet_NaN();

/// Above any irradiance on earth [W/m2]; the solar constant is 1,361.
constexpr double greatestRadiation = 1500.0;
/// The format's own mark for a missing radiation value.
constexpr double missingMark = 9999.0;

constexpr std::string_view wrongFile =
    "not a weather file; give an .epw file, or a .wea or .mra file of this program";

std::string readWhole(const std::filesystem::path& file) {
    std::ifstream in = openInput(file, "weather file");
    std::error_code problem;
    // An annual file is below 3 MB; a film by mistake must not fill the memory.
    constexpr std::uintmax_t largest = 256U << 20U;
    if (const auto size = std::filesystem::file_size(file, problem); !problem && size > largest) {
        throw DataError(fmt::format("{}: {} MB is no annual weather file; give an .epw, .wea or "
                                    ".mra file",
                                    place(file), size >> 20U));
    }
    std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad()) {
        throw DataError(fmt::format("{}: reading stopped early; check the disk", place(file)));
    }
    return content;
}

/// Fields of a comma-separated line, numbered from 0. Commas between double quotes do not separate.
class Fields {
public:
    explicit Fields(std::string_view line) {
        std::size_t start = 0;
        bool inQuotes = false;
        for (std::size_t i = 0; i <= line.size() && m_count < m_fields.size(); ++i) {
            if (i == line.size() || (line[i] == ',' && !inQuotes)) {
                m_fields[m_count++] = trimmed(line.substr(start, i - start));
                start = i + 1;
            } else if (line[i] == '"') {
                inQuotes = !inQuotes;
            }
        }
    }
    [[nodiscard]] std::size_t count() const { return m_count; }
    [[nodiscard]] std::string_view operator[](std::size_t i) const {
        return i < m_count ? m_fields[i] : std::string_view();
    }

private:
    std::array<std::string_view, 36> m_fields;
    std::size_t m_count = 0;
};

std::string unquoted(std::string_view field) {
    std::string text(field);
    std::erase(text, '"');
    return printable(text);
}

class EpwInspector {
public:
    EpwInspector(const std::filesystem::path& file, std::string_view content)
        : m_file(file), m_rest(content) {}

    WeatherReport inspect() {
        WeatherReport report = read();
        report.oddClock = oddClockText(report.site, m_diffuse, m_file);
        noteStrayDirect(report, m_direct, m_diffuse, m_global, m_file);
        return report;
    }

private:
    WeatherReport read() {
        if (m_rest.starts_with("\xEF\xBB\xBF")) {
            m_rest.remove_prefix(3);
        }
        if (m_rest.find('\xFF') != std::string_view::npos) {
            throw DataError(fmt::format("{}: {}", place(m_file), wrongFile));
        }
        const bool lastLineEnds = m_rest.ends_with('\n');
        while (!m_rest.empty()) {
            ++m_line;
            const std::size_t end = m_rest.find('\n');
            const std::string_view line = trimmed(m_rest.substr(0, end));
            m_rest.remove_prefix(end == std::string_view::npos ? m_rest.size() : end + 1);
            take(line, end == std::string_view::npos);
        }
        if (!m_hasLocation) {
            throw DataError(fmt::format("{}: no LOCATION line; {}", place(m_file), wrongFile));
        }
        if (m_dataLines == 0) {
            throw DataError(
                fmt::format("{}: the file holds no hourly data; download it again", place(m_file)));
        }
        if (!lastLineEnds) {
            m_report.notes.emplace_back(
                "the last line has no line end and is not read; add one in an editor");
        }
        if (m_leapLines > 0) {
            m_report.notes.push_back(fmt::format(
                "{} {} read as 28 February: the year has 365 days", m_leapLines,
                counted(m_leapLines, "line of 29 February is", "lines of 29 February are")));
        }
        std::size_t line = 0;
        for (int hour = 0; hour < daysPerYear * hoursPerDay; ++hour) {
            const HourOfYear when(hour / hoursPerDay, hour % hoursPerDay);
            const std::size_t lastLine =
                std::exchange(line, m_lineOf[static_cast<std::size_t>(hour)]);
            if (line == 0) {
                if (m_report.hoursMissing.empty()) {
                    m_report.lineBeforeMissing = lastLine;
                }
                m_report.hoursMissing.push_back(when);
            }
            if (const std::size_t at = m_missingAt[static_cast<std::size_t>(hour)]; at != 0) {
                m_report.radiationMissing.push_back(when);
                std::size_t& first = m_report.firstRadiationMissingLine;
                first = first == 0 ? at : std::min(first, at);
            }
        }
        m_report.hoursPresent = hoursPerYear - m_report.hoursMissing.size();
        return m_report;
    }

    void take(std::string_view line, bool unfinished) {
        if (line.empty()) {
            return;
        }
        if (std::isdigit(static_cast<unsigned char>(line.front())) != 0) {
            takeData(Fields(line), unfinished);
        } else if (line.starts_with("LOCATION")) {
            takeLocation(Fields(line));
        } else if (line.starts_with("DATA PERIODS")) {
            takePeriods(Fields(line));
        } else if (m_line == 1) {
            throw DataError(fmt::format("{}: no LOCATION line; {}", place(m_file, 1), wrongFile));
        } else if (std::string_view("CDGHT").find(line.front()) == std::string_view::npos) {
            throw DataError(fmt::format("{}: {} begins neither a header nor a data line; mend or "
                                        "delete the line",
                                        place(m_file, m_line), quoteText(line.substr(0, 20))));
        }
    }

    double locationNumber(const Fields& fields, std::size_t index, std::string_view what,
                          double lowest, double highest) const {
        const auto number = parseNumber<double>(fields[index]);
        if (!number || !(*number >= lowest && *number <= highest)) {
            throw DataError(fmt::format("{}: LOCATION: {} is no {} between {} and {}; mend the "
                                        "line or download the file again",
                                        place(m_file, m_line), quoteText(fields[index]), what,
                                        lowest, highest));
        }
        return *number;
    }

    void takeLocation(const Fields& fields) {
        if (m_hasLocation) {
            throw DataError(fmt::format("{}: a second LOCATION line; keep the one of your site",
                                        place(m_file, m_line)));
        }
        m_hasLocation = true;
        if (fields[0].find(';') != std::string_view::npos) {
            throw DataError(fmt::format("{}: the fields are separated by semicolons; save the file "
                                        "again with commas between them",
                                        place(m_file, m_line)));
        }
        WeatherSite& site = m_report.site;
        site.city = unquoted(fields[1]);
        site.region = unquoted(fields[2]);
        site.country = unquoted(fields[3]);
        site.latitude = locationNumber(fields, 6, "latitude", -90.0, 90.0);
        site.longitude = locationNumber(fields, 7, "longitude", -180.0, 180.0);
        site.timeZone = locationNumber(fields, 8, "time zone", -12.0, 14.0);
        site.elevation = locationNumber(fields, 9, "elevation", -500.0, 9000.0);
    }

    void takePeriods(const Fields& fields) const {
        const auto perHour = parseNumber<int>(fields[2]);
        if (perHour && *perHour != 1) {
            throw DataError(fmt::format("{}: the file has {} records an hour; give a file with "
                                        "one record an hour",
                                        place(m_file, m_line), *perHour));
        }
    }

    void takeData(const Fields& fields, bool unfinished) {
        ++m_dataLines;
        if (!m_hasLocation) {
            throw DataError(fmt::format("{}: no LOCATION line stands before the data; {}",
                                        place(m_file, m_line), wrongFile));
        }
        if (fields.count() < 16) {
            throw DataError(fmt::format("{}: the line has {} {}, radiation stands in fields 15 "
                                        "and 16; mend the line or download the file again",
                                        place(m_file, m_line), fields.count(),
                                        counted(fields.count(), "field", "fields")));
        }
        const auto month = parseNumber<int>(fields[1]);
        const auto day = parseNumber<int>(fields[2]);
        const auto hour = parseNumber<int>(fields[3]);
        const bool isLeapDay = month && day && *month == 2 && *day == 29;
        // A leap day's lines take the place of the day before.
        const int dayOfYear = month && day ? dayIndex(*month, isLeapDay ? 28 : *day) : -1;
        if (dayOfYear < 0 || !hour || *hour < 1 || *hour > hoursPerDay) {
            throw DataError(fmt::format("{}: {},{},{} is no month, day and hour (1 to 24); mend "
                                        "the line or download the file again",
                                        place(m_file, m_line), quoteText(fields[1]),
                                        quoteText(fields[2]), quoteText(fields[3])));
        }
        // Both fields are looked at: a wrong diffuse value is told even where direct is missing.
        const bool directMissing = takeRadiation(fields, 14, "direct normal");
        const bool diffuseMissing = takeRadiation(fields, 15, "diffuse horizontal");
        m_leapLines += isLeapDay ? 1 : 0;
        if (unfinished) {
            return;
        }
        const auto index = static_cast<std::size_t>(dayOfYear * hoursPerDay + *hour - 1);
        // Of several lines for an hour the last one stands.
        m_missingAt[index] = directMissing || diffuseMissing ? m_line : 0;
        const auto valueOf = [&](std::size_t field, bool isMissing) {
            return isMissing ? missingValue
                             : parseNumber<float>(fields[field]).value_or(missingValue);
        };
        m_global[index] = valueOf(13, false);
        m_direct[index] = valueOf(14, directMissing);
        m_diffuse[index] = valueOf(15, diffuseMissing);
        if (isLeapDay && m_lineOf[index] != 0) {
            return;
        }
        if (std::exchange(m_lineOf[index], m_line) != 0) {
            if (m_report.hoursRepeated++ == 0) {
                m_report.firstRepeatedLine = m_line;
            }
        }
    }

    /// Whether the value is marked as missing.
    bool takeRadiation(const Fields& fields, std::size_t index, std::string_view what) const {
        const auto number = parseNumber<double>(fields[index]);
        if (number && *number >= missingMark) {
            return true;
        }
        if (!number || !(*number >= 0.0 && *number <= greatestRadiation)) {
            throw DataError(fmt::format("{}: field {} ({} radiation): {} is not a value from 0 to "
                                        "{} W/m2; mend the line or download the file again",
                                        place(m_file, m_line), index + 1, what,
                                        quoteText(fields[index]), greatestRadiation));
        }
        return false;
    }

    const std::filesystem::path& m_file;
    std::string_view m_rest;
    std::size_t m_line = 0;
    std::size_t m_dataLines = 0;
    std::size_t m_leapLines = 0;
    bool m_hasLocation = false;
    /// The line that gives the hour, 0 for none.
    std::vector<std::size_t> m_lineOf = std::vector<std::size_t>(hoursPerYear, 0);
    /// The line that marks the hour's radiation as missing, 0 for none.
    std::vector<std::size_t> m_missingAt = std::vector<std::size_t>(hoursPerYear, 0);
    std::vector<float> m_global = std::vector<float>(hoursPerYear, missingValue);
    std::vector<float> m_direct = m_global;
    std::vector<float> m_diffuse = m_global;
    WeatherReport m_report;
};

WeatherReport inspectWea(const std::filesystem::path& file, std::string_view content) {
    constexpr std::string_view signature = "xqt_WEA_ver1.10";
    constexpr std::size_t nameOffset = 16;
    constexpr std::size_t nameSize = 32;
    constexpr std::size_t hoursOffset = 80;
    constexpr std::size_t recordSize = 16;
    constexpr std::size_t siteOffset = 141584;
    constexpr std::size_t wholeSize = 141608;
    if (content.substr(0, signature.size() + 1) != std::string(signature) + '\0') {
        throw DataError(fmt::format("{}: {}", place(file), wrongFile));
    }
    if (content.size() != wholeSize) {
        throw DataError(fmt::format("{}: the file has {} bytes instead of {}; copy or convert it "
                                    "again",
                                    place(file), content.size(), wholeSize));
    }
    const auto number = [&](std::size_t offset) {
        float value = 0.0f;
        std::memcpy(&value, content.data() + offset, sizeof value);
        return static_cast<double>(value);
    };
    const auto text = [&](std::size_t offset) {
        const std::string_view field = content.substr(offset, nameSize);
        return printable(field.substr(0, field.find('\0')));
    };
    WeatherReport report;
    report.site.city = text(nameOffset);
    report.site.region = text(nameOffset + nameSize);
    report.site.longitude = number(siteOffset);
    report.site.timeZone = number(siteOffset + 4) / 15.0;
    report.site.latitude = number(siteOffset + 8);
    report.site.elevation = number(siteOffset + 12);
    if (!(std::abs(report.site.latitude) <= 90.0 && std::abs(report.site.longitude) <= 180.0 &&
          std::abs(report.site.timeZone) <= 14.0)) {
        throw DataError(fmt::format("{}: the site ({}, {}, UTC{:+}) is not on earth; convert the "
                                    "file again",
                                    place(file), report.site.latitude, report.site.longitude,
                                    report.site.timeZone));
    }
    report.hoursPresent = hoursPerYear;
    std::vector<float> diffuseOf(hoursPerYear, missingValue);
    std::vector<float> directOf = diffuseOf;
    const std::vector<float> unknown = diffuseOf;
    for (std::size_t hour = 0; hour < hoursPerYear; ++hour) {
        std::array<std::int16_t, 8> record{};
        std::memcpy(record.data(), content.data() + hoursOffset + hour * recordSize, recordSize);
        const std::int16_t diffuse = record[4];
        const std::int16_t direct = record[5];
        const HourOfYear when(static_cast<int>(hour) / hoursPerDay,
                              static_cast<int>(hour) % hoursPerDay);
        if (diffuse >= missingMark || direct >= missingMark) {
            report.radiationMissing.push_back(when);
        } else if (std::min(diffuse, direct) < 0 || std::max(diffuse, direct) > greatestRadiation) {
            throw DataError(fmt::format("{}: day {}, hour {}: radiation of {} and {} W/m2 is not "
                                        "possible; convert the file again",
                                        place(file), when.first + 1, when.second + 1, direct,
                                        diffuse));
        } else {
            diffuseOf[hour] = static_cast<float>(diffuse);
            directOf[hour] = static_cast<float>(direct);
        }
    }
    report.oddClock = oddClockText(report.site, diffuseOf, file);
    noteStrayDirect(report, directOf, diffuseOf, unknown, file);
    return report;
}

/// The middle of a day's light [h]: opposite that of its longest night, around midnight. None
/// without both, or where the light's ends are missing.
std::optional<double> middleOfLight(std::span<const float> day) {
    constexpr float light = 5.0f; // [W/m2], just before sunrise under any sky
    constexpr std::size_t shortestNight = 6;
    const auto at = [&](std::size_t hour) { return day[hour % day.size()]; };
    std::size_t begin = 0;
    std::size_t night = 0;
    for (std::size_t hour = 0; hour < day.size(); ++hour) {
        std::size_t dark = 0;
        while (dark < day.size() && !(at(hour + dark) > light)) {
            ++dark;
        }
        if (dark > night) {
            begin = hour;
            night = dark;
        }
    }
    if (night < shortestNight || night == day.size() || std::isnan(at(begin)) ||
        std::isnan(at(begin + night - 1))) {
        return std::nullopt;
    }
    return static_cast<double>(begin) + 0.5 * static_cast<double>(night) + 12.0;
}

/// How much later than the sun's noon the middle of the light lies on the median day [h]; 0 where
/// too few days tell. It is the light's ends that count, which clouds do not move.
double latenessOfLight(const WeatherSite& site, std::span<const float> diffuse) {
    constexpr std::size_t fewestDays = 30;
    std::vector<double> late;
    for (std::size_t first = 0; first + hoursPerDay <= diffuse.size(); first += hoursPerDay) {
        if (const auto middle = middleOfLight(diffuse.subspan(first, hoursPerDay))) {
            const MonthAndDay date = monthAndDay(static_cast<int>(first / hoursPerDay));
            const SunPosition sun = sunPosition(julianDay(2001, date.month, date.day, 12.0), {});
            const double noon =
                12.0 + site.timeZone - site.longitude / 15.0 - sun.equationOfTime / 60.0;
            late.push_back(std::remainder(*middle - noon, 24.0));
        }
    }
    if (late.size() < fewestDays) {
        return 0.0;
    }
    const auto median = late.begin() + static_cast<std::ptrdiff_t>(late.size() / 2);
    std::nth_element(late.begin(), median, late.end());
    return *median;
}

} // namespace

std::string WeatherSite::text() const {
    std::string result = city;
    for (const std::string& part : {region, country}) {
        if (!part.empty() && part != "-") {
            result += (result.empty() ? "" : ", ") + part;
        }
    }
    return result.empty() ? "unnamed site" : result;
}

WeatherReport inspectWeatherFile(const std::filesystem::path& file) {
    const std::string content = readWhole(file);
    if (!hasExtension(file, {".epw", ".wea", ".mra"})) {
        throw DataError(fmt::format("{}: {}", place(file), wrongFile));
    }
    WeatherReport report = hasExtension(file, {".epw"}) ? EpwInspector(file, content).inspect()
                                                        : inspectWea(file, content);
    if (!report.oddClock.empty()) {
        report.notes.push_back(report.oddClock);
    }
    return report;
}

std::string oddClockText(const WeatherSite& site, std::span<const float> diffuse,
                         const std::filesystem::path& file) {
    if (std::abs(site.latitude) > 89.0) {
        return {}; // the pole has the noon of any longitude
    }
    const bool isText = hasExtension(file, {".epw"});
    const double solarZone = site.longitude / 15.0;
    const double difference = site.timeZone - solarZone;
    // Across the date line a clock may be a day ahead of the sun.
    if (std::abs(difference - 24.0 * std::round(difference / 24.0)) <= 3.5) {
        // Records at the wrong end of half an hour are common, and dawn and dusk are known to the
        // hour: 0.75 h is more than both leave (0.55 h in four sound years, 0.16 h).
        constexpr double worthTelling = 0.75;
        const double late = latenessOfLight(site, diffuse);
        if (std::abs(late) <= worthTelling) {
            return {};
        }
        double fitting = std::round(2.0 * (site.timeZone + late)) / 2.0 + 0.0; // no -0
        fitting += fitting < -12.0 ? 24.0 : fitting > 14.0 ? -24.0 : 0.0;
        return fmt::format(
            "{}: the days' light lies {:.1f} h {} the sun's noon at {:.2f} {} by the "
            "time zone UTC{:+}: the hours would fit about UTC{:+}; {}",
            place(file), std::abs(late), late < 0.0 ? "before" : "after", std::abs(site.longitude),
            site.longitude < 0.0 ? "W" : "E", site.timeZone, fitting,
            isText ? "check fields 8 (longitude, east positive) and 9 (time zone) of "
                     "the LOCATION line"
                   : "check the .epw file and convert it again");
    }
    return fmt::format("{}: the time zone UTC{:+} does not go with longitude {:.2f} {}, where the "
                       "sun keeps UTC{:+.1f}: the sun would stand elsewhere than in the file's "
                       "hours; {}",
                       place(file), site.timeZone, std::abs(site.longitude),
                       site.longitude < 0.0 ? "W" : "E", solarZone,
                       isText ? "mend fields 8 (longitude, east positive) and 9 (time zone) of the "
                                "LOCATION line"
                              : "mend the .epw file and convert it again");
}

void noteStrayDirect(WeatherReport& report, std::span<const float> direct,
                     std::span<const float> diffuse, std::span<const float> global,
                     const std::filesystem::path& file) {
    StrayDirect stray;
    double whole = 0.0;
    for (std::size_t hour = 0; hour < direct.size(); ++hour) {
        if (!(direct[hour] > 0.0f)) {
            continue;
        }
        whole += static_cast<double>(direct[hour]);
        if (diffuse[hour] == 0.0f && !(global[hour] > 0.0f)) {
            ++stray.hours;
            stray.sum += static_cast<double>(direct[hour]);
        }
    }
    constexpr double worthTelling = 1.0e-3; // as of radiation while the sun is down
    if (!(stray.sum > worthTelling * whole)) {
        return;
    }
    report.strayDirect = stray;
    report.notes.push_back(fmt::format(
        "{}: {} {} direct normal radiation but neither global nor diffuse ({:.4g} kWh/m2): a "
        "residue of the file's processing; the hourly method leaves it out where the sun is down, "
        "of the other methods trust no peak; {}",
        place(file), stray.hours, counted(stray.hours, "hour has", "hours have"),
        stray.sum / 1000.0,
        hasExtension(file, {".epw"}) ? "set field 15 to 0 in these hours"
                                     : "mend the .epw file and convert it again"));
}

std::string hourOfYearText(const HourOfYear& hour) {
    return fmt::format("{}, {} to {}", dayText(hour.first + 1), clockText(hour.second),
                       clockText(hour.second + 1));
}

void requireCompleteYear(const WeatherReport& report, const std::filesystem::path& file,
                         bool allowGaps) {
    if (allowGaps) {
        return;
    }
    constexpr std::string_view mend =
        "give a complete file, or --allow-gaps to count them as without radiation";
    if (report.hoursRepeated > 0) {
        throw DataError(fmt::format("{}: the hour was given before ({} such {}); give a file "
                                    "with one record an hour, or --allow-gaps to let the last one "
                                    "stand",
                                    place(file, report.firstRepeatedLine), report.hoursRepeated,
                                    counted(report.hoursRepeated, "line", "lines")));
    }
    const auto failAt = [&](const LineFault& fault, const std::string& consequence) {
        return DataError(fmt::format("{}: {}; {}; mend the line, {}", place(file, fault.line),
                                     printable(fault.what), consequence, mend));
    };
    if (!report.hoursMissing.empty()) {
        const std::string missing = fmt::format(
            "{} of the year's {} hours {} {}", report.hoursMissing.size(), hoursPerYear,
            counted(report.hoursMissing.size(), "is missing:", "are missing, the first is"),
            hourOfYearText(report.hoursMissing.front()));
        if (report.unreadableLine.line == report.lineBeforeMissing + 1) {
            throw failAt(report.unreadableLine, missing);
        }
        throw DataError(fmt::format(
            "{}: {}{}; {}",
            report.lineBeforeMissing == 0 ? place(file) : place(file, report.lineBeforeMissing),
            missing, report.lineBeforeMissing == 0 ? "" : ", after this line", mend));
    }
    if (!report.radiationMissing.empty()) {
        const std::string missing =
            fmt::format("radiation is missing in {} {} {}", report.radiationMissing.size(),
                        counted(report.radiationMissing.size(), "hour:", "hours, the first is"),
                        hourOfYearText(report.radiationMissing.front()));
        if (report.unreadableRadiation.line > 0) {
            throw failAt(report.unreadableRadiation, missing);
        }
        const std::string where = report.firstRadiationMissingLine == 0
                                      ? place(file)
                                      : place(file, report.firstRadiationMissingLine);
        throw DataError(fmt::format("{}: {}; {}", where, missing, mend));
    }
}

} // namespace insolate::study
