#include "study/support/readable.h"
#include "study/weather/delimited_table.h"
#include "study/weather/sampled_weather.h"

#include <map>

#include <fmt/format.h>

namespace insolate::study {

namespace {

/// NSRDB files of the physical solar model, versions 3 and 4: two lines of names and values, then
/// records that hold the moment of their time, in the zone that "Time Zone" says.
SampledWeather readNsrdb(const WeatherInput& input) {
    DelimitedTable table(input);
    SampledWeather weather;
    WeatherReport& report = weather.report;
    table.need("the site");
    const std::map<std::string, std::size_t> names = table.names();
    if (!names.contains("latitude") || !names.contains("longitude") ||
        !names.contains("time zone")) {
        throw table.fault("the two lines with Latitude, Longitude and Time Zone are missing");
    }
    table.need("the values of the site");
    const auto entry = [&](const char* name) {
        const auto found = names.find(name);
        return found == names.end() ? std::string_view() : table.field(found->second);
    };
    const auto known = [&](const char* name) { // "-" and nothing stand for unknown
        const std::string_view text = entry(name);
        return text.empty() || text == "-" || text == "None" ? std::string() : printable(text);
    };
    report.site = {.city = known("city"),
                   .region = known("state"),
                   .country = known("country"),
                   .latitude = table.number(entry("latitude"), "Latitude"),
                   .longitude = table.number(entry("longitude"), "Longitude"),
                   .timeZone = table.number(entry("time zone"), "Time Zone"),
                   .elevation = known("elevation").empty()
                                    ? 0.0
                                    : table.number(entry("elevation"), "Elevation")};
    checkSite(report.site, input.file, table.line());
    if (!known("local time zone").empty() &&
        table.number(entry("local time zone"), "Local Time Zone") != report.site.timeZone) {
        report.notes.push_back(fmt::format(
            "{}: the file's clock is UTC{:+}, the site's UTC{}: the days and hours of a period are "
            "those of the file",
            place(input.file, table.line()), report.site.timeZone, entry("local time zone")));
    }
    table.need("the names of the columns");
    table.takeColumns({"month", "day", "hour", "dni", "dhi"});
    while (table.next()) {
        WeatherSample sample;
        sample.line = table.line();
        sample.year = table["year"].empty() ? 0 : table.whole(table["year"], "year", 0, 9999);
        sample.month = table.whole(table["month"], "month", 1, 12);
        sample.day = table.whole(table["day"], "day", 1, 31);
        sample.hour = table.whole(table["hour"], "hour", 0, 23);
        sample.hour +=
            table["minute"].empty() ? 0.5 : table.whole(table["minute"], "minute", 0, 59) / 60.0;
        sample.direct = table.value("dni");
        sample.diffuse = table.value("dhi");
        sample.global = table.value("ghi");
        sample.dryBulb = table.value("temperature");
        sample.dewPoint = table.value("dew point");
        sample.pressure = table.value("pressure") * 100.0f; // mbar
        sample.albedo = table.value("surface albedo");
        addSample(weather, sample, input.file);
    }
    return weather;
}

WeatherYear readNsrdbYear(const WeatherInput& input) {
    return assembleYear(readNsrdb(input), input.file);
}

} // namespace

constinit const WeatherFormat nsrdbFormat = {
    .name = "PSM3, PSM4",
    .isShownBy =
        [](std::string_view line) {
            return line.starts_with("source,location id,") ||
                   line.starts_with("year,month,day,hour");
        },
    .read = readNsrdbYear,
    .siteFix = "check its Time Zone and Longitude",
};

} // namespace insolate::study
