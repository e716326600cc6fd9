#include "study/weather/weather_store.h"

#include "study/support/errors.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace insolate::study {

namespace {

/// Puts the year into the store as an .epw file would be, in whole W/m2. What is missing counts as
/// without radiation.
void fillStore(EWeatherData& store, const WeatherSeries& series) {
    EWeaFileFormatData& record = store.getDataForWrite();
    record = {};
    const auto copy = [](const std::string& text, auto& field) {
        std::copy_n(text.begin(), std::min(text.size(), std::size(field) - 1), std::begin(field));
    };
    std::fill(std::begin(record.name), std::end(record.name), '\0');
    std::fill(std::begin(record.state), std::end(record.state), '\0');
    copy(series.place, record.name);
    record.latitude = static_cast<float>(series.site.latitude);
    record.longitude = static_cast<float>(series.site.longitude);
    record.timeZone = static_cast<float>(series.site.timeZone * 15.0);
    record.altitude = static_cast<float>(series.site.elevation);
    record.loaded = 1;
    for (int hour = 0; hour < hoursPerYear; ++hour) {
        const auto k = static_cast<std::size_t>(hour);
        // NaN is stored as 0.
        store.setHourlyTemp(hour / 24, hour % 24, series.dryBulb[k]);
        store.setHourlyDirectRad(hour / 24, hour % 24, std::round(series.directNormal[k]));
        store.setHourlyDiffuseRad(hour / 24, hour % 24, std::round(series.diffuseHorizontal[k]));
    }
}

void moveGlobalSite(const Site& site, const char* name) {
    const auto radians = [](double degrees) {
        return ESolarPosition::convertDegreesToRadians(degrees);
    };
    ESolarPosition::Global.setLocation(radians(site.latitude), radians(site.longitude),
                                       radians(site.timeZone * 15.0));
    ESolarPosition::Global.setName(name);
}

} // namespace

void loadWeather(EWeatherData& store, const std::filesystem::path& file,
                 const WeatherReport& report, GlobalSite site) {
    constexpr std::size_t longestName = 260;
    std::wstring name;
    try {
        name = file.wstring();
    } catch (const std::exception&) {
        throw DataError(
            fmt::format("{}: the file name is not UTF-8; rename the file", place(file)));
    }
    if (name.size() > longestName) {
        throw DataError(fmt::format("{}: the file name is longer than {} characters; go to its "
                                    "folder or copy the file to a shorter name",
                                    place(file), longestName));
    }
    if (report.format->store == StoreReader::none) {
        const WeatherSeries series = readWeatherYear(file).series;
        fillStore(store, series);
        if (site == GlobalSite::move) {
            moveGlobalSite(series.site, store.getName());
        }
        return;
    }
    const bool isText = report.format->store == StoreReader::epw;
    auto result = static_cast<ResultLoadWeatherData>(0);
    // By what the file holds, whatever its name.
    const int moves = site == GlobalSite::move ? 1 : 0;
    if (!(isText ? store.loadFile_EPW(name, moves, result)
                 : store.loadFile_WEA(name, moves, result))) {
        throw DataError(fmt::format("{}: cannot be opened as a weather file; give one that you may "
                                    "read",
                                    place(file)));
    }
    // Marks for missing values are numbers to the readers, and the store's 16 bits wrap the larger
    // ones; allowed gaps are without radiation.
    constexpr int lastDay = ESolarPosition::DAYS_PER_YEAR - 1;
    for (const auto& [day, hour] : report.radiationMissing) {
        // Of text files the store has 31 December, where it is given, in the place of the 30th.
        if (isText && day == lastDay - 1 &&
            std::find(report.hoursMissing.begin(), report.hoursMissing.end(),
                      HourOfYear(lastDay, hour)) == report.hoursMissing.end()) {
            continue;
        }
        const int place = isText ? std::min(day, lastDay - 1) : day;
        store.setHourlyDirectRad(place, hour, 0.0f);
        store.setHourlyDiffuseRad(place, hour, 0.0f);
    }
}

bool lastDayIsEmpty(const EWeatherData& year) {
    const auto isDark = [&](int day) {
        for (int hour = 0; hour < ESolarPosition::HOURS_PER_DAY; ++hour) {
            if (year.getHourlyDirectRad(day, hour) != 0.0f ||
                year.getHourlyDiffuseRad(day, hour) != 0.0f) {
                return false;
            }
        }
        return true;
    };
    return isDark(ESolarPosition::DAYS_PER_YEAR - 1) && !isDark(ESolarPosition::DAYS_PER_YEAR - 2);
}

std::string siteText(const Site& site) {
    return fmt::format("{:.2f} {}, {:.2f} {}, UTC{:+}", std::abs(site.latitude),
                       site.latitude < 0.0 ? "S" : "N", std::abs(site.longitude),
                       site.longitude < 0.0 ? "W" : "E", std::round(site.timeZone * 100.0) / 100.0);
}

} // namespace insolate::study
