#include "app/run/weather_year.h"

#include "app/errors.h"
#include "app/input/file_name.h"
#include "app/run/solar_analysis.h"

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include <fmt/format.h>

namespace insolate::app {

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

WeatherYear readEpwYear(const std::filesystem::path& file) {
    WeatherReading reading = readWeatherSeries(file);
    WeatherYear year;
    for (const WeatherFinding& finding : reading.findings) {
        year.report.notes.push_back(printable(finding.text));
    }
    if (!reading.ok) {
        throw DataError(year.report.notes.empty()
                            ? place(file) + ": not a weather file; give an .epw file"
                            : year.report.notes.back());
    }
    year.series = std::move(reading.series);
    const Site& site = year.series.site;
    year.report.site = {.city = printable(year.series.place),
                        .region = {},
                        .country = {},
                        .latitude = site.latitude,
                        .longitude = site.longitude,
                        .timeZone = site.timeZone,
                        .elevation = site.elevation};
    listGaps(year);
    return year;
}

WeatherYear readStoredYear(const std::filesystem::path& file) {
    WeatherYear year;
    year.report = inspectWeatherFile(file);
    EModel model;
    loadWeather(model.getSolarAnalysisController(), file, year.report);
    EWeatherData& store = model.getSolarAnalysisController().getWeatherData();
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
    const auto darkDay = [&](std::size_t day) {
        float sum = 0.0f;
        for (std::size_t hour = 24 * day; hour < 24 * day + 24; ++hour) {
            sum += direct[hour] + diffuse[hour];
        }
        return sum == 0.0f;
    };
    if (darkDay(364) && !darkDay(363)) {
        year.report.notes.push_back(fmt::format(
            "{}: 31 December holds no radiation and counts as dark; convert the year's .epw file "
            "again or give that",
            place(file)));
    }
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
    return hasExtension(file, {".epw"}) ? readEpwYear(file) : readStoredYear(file);
}

} // namespace insolate::app
