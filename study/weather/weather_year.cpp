#include "study/weather/weather_year.h"

#include "study/files/input_file.h"
#include "study/support/errors.h"
#include "study/support/readable.h"
#include "study/weather/sampled_weather.h"
#include "study/weather/store_check.h"
#include "study/weather/weather_store.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <vector>

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
    report.format = WeatherFormat::Epw;
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
                            ? fmt::format("{}: {}", place(input.file), notWeatherText)
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
    return year;
}

WeatherYear readStoredYear(const WeatherInput& input) {
    WeatherYear year;
    year.report = inspectStoredWeather(input).report;
    const auto loaded = std::make_unique<EWeatherData>();
    EWeatherData& store = *loaded;
    loadWeather(store, input.file, year.report, GlobalSite::keep);
    std::vector<float> direct;
    std::vector<float> diffuse;
    std::vector<float> temperature;
    for (int day = 0; day < ESolarPosition::DAYS_PER_YEAR; ++day) {
        for (int hour = 0; hour < ESolarPosition::HOURS_PER_DAY; ++hour) {
            direct.push_back(store.getHourlyDirectRad(day, hour));
            diffuse.push_back(store.getHourlyDiffuseRad(day, hour));
            temperature.push_back(store.getHourlyTemp(day, hour));
        }
    }
    for (const auto& [day, hour] : year.report.radiationMissing) {
        const auto index = static_cast<std::size_t>(day * ESolarPosition::HOURS_PER_DAY + hour);
        direct[index] = diffuse[index] = std::numeric_limits<float>::quiet_NaN();
    }
    year.report.lastDayEmpty = lastDayIsEmpty(store);
    const WeatherSite& site = year.report.site;
    year.series = makeWeatherSeries({site.latitude, site.longitude, site.timeZone, site.elevation},
                                    direct, diffuse)
                      .series;
    year.series.place = site.text();
    year.series.dryBulb = std::move(temperature);
    return year;
}

} // namespace

WeatherYear readWeatherYear(const std::filesystem::path& file) {
    return readWeatherYear(openWeather(file));
}

WeatherYear readWeatherYear(const WeatherInput& input) {
    WeatherYear year;
    switch (input.format) {
    case WeatherFormat::Epw:
        year = readEpwYear(input);
        break;
    case WeatherFormat::Store:
        year = readStoredYear(input);
        break;
    case WeatherFormat::WeaText:
        year = readWeaText(input);
        break;
    case WeatherFormat::Tmy3:
        year = assembleYear(readTmy3(input), input.file);
        break;
    case WeatherFormat::Nsrdb:
        year = assembleYear(readNsrdb(input), input.file);
        break;
    case WeatherFormat::Pvgis:
        year = assembleYear(readPvgis(input), input.file);
        break;
    }
    const WeatherSeries& series = year.series;
    noteOddities(year.report,
                 {series.directNormal, series.diffuseHorizontal, series.globalHorizontal,
                  series.sampleOffset},
                 input.file);
    return year;
}

WeatherReport inspectWeatherFile(const std::filesystem::path& file) {
    const WeatherInput input = openWeather(file);
    if (!isStoreFormat(input.format)) {
        return readWeatherYear(input).report;
    }
    StoredWeather stored = inspectStoredWeather(input);
    noteOddities(stored.report, stored.hours(), file);
    return std::move(stored.report);
}

std::string lastDayText(const std::filesystem::path& file, WeatherFormat format,
                        const std::string& storeMethod) {
    if (format == WeatherFormat::Epw) {
        return fmt::format(
            "{}: 31 December counts as dark and 30 December takes the weather of the "
            "31st: so --method {} reads a year; take --method hourly for these days",
            place(file), storeMethod);
    }
    return fmt::format(
        "{}: 31 December is empty and counts as dark, and 30 December has the weather "
        "of the 31st if 'insolate weather convert' made the file; give the .epw "
        "file{}",
        place(file), storeMethod.empty() ? "" : " with --method hourly");
}

void noteLastDay(WeatherReport& report, const std::filesystem::path& file,
                 const std::string& storeMethod, bool touchesLastDays) {
    if (report.lastDayEmpty && report.hasLastDay() && touchesLastDays) {
        report.notes.push_back(lastDayText(file, report.format, storeMethod));
    }
}

std::string noLightText(const std::filesystem::path& file) {
    return fmt::format("{}: no hour of the period has radiation; choose days and hours with light, "
                       "or check that the file is complete",
                       place(file));
}

std::string sunDownText(const std::filesystem::path& file, const HourlySky& sky,
                        const StrayDirect& stray) {
    const HourlySkyReport& report = sky.report;
    if (report.diffuseHorizontal <= 0.0 && report.directNormal <= 0.0) {
        return noLightText(file);
    }
    constexpr double leastReported = 1.0e-3; // dawn and dusk give less in any sound file
    if (report.diffuseWithoutSun <= leastReported * report.diffuseHorizontal &&
        report.directWithoutSun - stray.sum <=
            leastReported * (report.directNormal + report.directWithoutSun)) {
        return {};
    }
    return fmt::format(
        "{}: {} {} radiation while the sun is down: {:.4g} kWh/m2 of direct "
        "normal, which has no place in the sky, and {:.4g} kWh/m2 on the level, "
        "which go on the whole sky. Usually the place or its time zone is wrong ({}) "
        "or the hours are shifted; check the site and the hours of the file",
        place(file), report.hoursWithoutSun,
        counted(static_cast<std::size_t>(report.hoursWithoutSun), "hour has", "hours have"),
        report.directWithoutSun / 1000.0, report.diffuseWithoutSun / 1000.0, siteText(sky.site));
}

} // namespace insolate::study
