#include "study/weather/store_check.h"
#include "study/weather/weather_store.h"

#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include <insolate/insolate.h>

namespace insolate::study {

namespace {

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

constinit const WeatherFormat recordFormat = {
    .name = "a .wea or .mra file of this program",
    .isShownBy = [](std::string_view line) { return line.starts_with("xqt_wea_"); },
    .read = readStoredYear,
    .siteFix = "check the .epw file and convert it again",
    .store = StoreReader::record};

} // namespace insolate::study
