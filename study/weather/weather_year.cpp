#include "study/weather/weather_year.h"

#include "study/support/errors.h"
#include "study/support/readable.h"
#include "study/weather/epw_records.h"
#include "study/weather/store_check.h"
#include "study/weather/weather_store.h"

#include <string>
#include <utility>

#include <fmt/format.h>

namespace insolate::study {

WeatherYear readWeatherYear(const std::filesystem::path& file, const std::stop_token& stop) {
    WeatherYear year = readWeatherYear(openWeather(file, stop));
    throwIfStopped(stop);
    return year;
}

WeatherYear readWeatherYear(const WeatherInput& input) {
    WeatherYear year = input.format->read(input);
    year.report.format = input.format;
    const WeatherSeries& series = year.series;
    noteOddities(year.report,
                 {series.directNormal, series.diffuseHorizontal, series.globalHorizontal,
                  series.sampleOffset},
                 input.file);
    return year;
}

WeatherReport inspectWeatherFile(const std::filesystem::path& file) {
    const WeatherInput input = openWeather(file);
    if (input.format->store == StoreReader::none) {
        return readWeatherYear(input).report;
    }
    StoredWeather stored = inspectStoredWeather(input);
    if (input.format->store == StoreReader::epw) {
        noteUnevenRecords(input, stored.report);
    }
    noteOddities(stored.report, stored.hours(), file);
    return std::move(stored.report);
}

std::string lastDayText(const std::filesystem::path& file, const WeatherFormat& format,
                        const std::string& storeMethod) {
    if (format.store == StoreReader::epw) {
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
        report.notes.push_back(lastDayText(file, *report.format, storeMethod));
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
    // In a period about dawn or dusk twilight may be a good part of the whole.
    constexpr double mostTwilight = 10.0; // Wh/m2 of an hour
    if (report.diffuseWithoutSun + report.directWithoutSun - stray.sum <=
        mostTwilight * report.hoursWithoutSun) {
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
