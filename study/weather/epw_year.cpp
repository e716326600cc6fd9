#include "study/support/errors.h"
#include "study/support/readable.h"
#include "study/weather/epw_records.h"
#include "study/weather/weather_year.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include <fmt/format.h>

namespace insolate::study {

namespace {

/// Sorts the hours without radiation into those without a record and those whose values are
/// missing.
void listGaps(WeatherYear& year) {
    const WeatherSeries& series = year.series;
    WeatherReport& report = year.report;
    for (std::size_t hour = 0; hour < series.directNormal.size(); ++hour) {
        if (std::isfinite(series.directNormal[hour]) &&
            std::isfinite(series.diffuseHorizontal[hour])) {
            continue;
        }
        const auto index = static_cast<int>(hour);
        const bool isEmpty = !std::isfinite(series.directNormal[hour]) &&
                             !std::isfinite(series.diffuseHorizontal[hour]) &&
                             !std::isfinite(series.globalHorizontal[hour]) &&
                             !std::isfinite(series.dryBulb[hour]);
        (isEmpty ? report.hoursMissing : report.radiationMissing)
            .emplace_back(index / 24, index % 24);
    }
    report.hoursPresent = series.directNormal.size() - report.hoursMissing.size();
}

/// Lines that a refusal of the file can name.
void noteLine(const WeatherFinding& finding, WeatherReport& report) {
    constexpr std::array<int, 2> radiationColumns = {15, 16};
    const auto line = static_cast<std::size_t>(finding.line);
    if (finding.kind == WeatherFindingKind::DuplicateHour) {
        report.hoursRepeated = static_cast<std::size_t>(finding.count);
        report.firstRepeatedLine = line;
    } else if (finding.kind == WeatherFindingKind::Gap) {
        report.lineBeforeMissing = line;
    } else if (finding.kind == WeatherFindingKind::BadLine) {
        report.unreadableLine = {line, finding.what};
    } else if ((finding.kind == WeatherFindingKind::MissingValue ||
                finding.kind == WeatherFindingKind::BadNumber) &&
               std::find(radiationColumns.begin(), radiationColumns.end(), finding.column) !=
                   radiationColumns.end()) {
        std::size_t& first = report.firstRadiationMissingLine;
        first = first == 0 ? line : std::min(first, line);
        LineFault& fault = report.unreadableRadiation;
        if (finding.kind == WeatherFindingKind::BadNumber &&
            (fault.line == 0 || line < fault.line)) {
            fault = {line, finding.what};
        }
    }
}

WeatherYear readEpwYear(const WeatherInput& input) {
    WeatherReading reading = parseWeatherSeries(input.content, place(input.file));
    WeatherYear year;
    WeatherReport& report = year.report;
    for (const WeatherFinding& finding : reading.findings) {
        if (finding.kind == WeatherFindingKind::SecondLocation) {
            throw DataError(fmt::format("{}: a second LOCATION line; keep the one of your site",
                                        place(input.file, static_cast<std::size_t>(finding.line))));
        }
        report.notes.push_back(printable(finding.text));
        noteLine(finding, report);
    }
    if (!reading.ok) {
        throw DataError(report.notes.empty()
                            ? fmt::format("{}: {}", place(input.file), notWeatherText())
                            : report.notes.back());
    }
    year.series = std::move(reading.series);
    const Site& site = year.series.site;
    report.site = {.city = printable(year.series.place),
                   .region = {},
                   .country = {},
                   .latitude = site.latitude,
                   .longitude = site.longitude,
                   .timeZone = site.timeZone,
                   .elevation = site.elevation};
    listGaps(year);
    noteUnevenRecords(input, report);
    return year;
}

} // namespace

constinit const WeatherFormat epwFormat = {
    .name = "an .epw file",
    .isShownBy =
        [](std::string_view line) {
            return line.starts_with("location,") || line.starts_with("location;");
        },
    .read = readEpwYear,
    .siteFix = "check fields 8 (longitude, east positive) and 9 (time zone) of the LOCATION line",
    .store = StoreReader::epw};

} // namespace insolate::study
