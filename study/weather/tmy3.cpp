#include "study/support/readable.h"
#include "study/weather/delimited_table.h"
#include "study/weather/sampled_weather.h"

#include <fmt/format.h>

namespace insolate::study {

namespace {

/// Wilcox and Marion (2008), Users manual for TMY3 data sets, NREL/TP-581-43156: records hold the
/// hour that ends at their time, in local standard time.
SampledWeather readTmy3(const WeatherInput& input) {
    DelimitedTable table(input);
    SampledWeather weather;
    WeatherReport& report = weather.report;
    table.need("the site");
    report.site = {.city = printable(table.field(1)),
                   .region = printable(table.field(2)),
                   .country = {},
                   .latitude = table.number(table.field(4), "field 5 (latitude)"),
                   .longitude = table.number(table.field(5), "field 6 (longitude)"),
                   .timeZone = table.number(table.field(3), "field 4 (time zone)"),
                   .elevation = table.number(table.field(6), "field 7 (elevation)")};
    checkSite(report.site, input.file, table.line());
    table.need("the names of the columns");
    table.takeColumns({"date", "time", "dni", "dhi"});
    while (table.next()) {
        WeatherSample sample;
        sample.line = table.line();
        const std::string_view date = table["date"];
        const std::string_view time = table["time"];
        if (date.size() != 10 || date[2] != '/' || date[5] != '/' || time.size() != 5 ||
            time[2] != ':') {
            throw table.fault(fmt::format("{} {} is no date and time as 01/31/1999 and 24:00",
                                          quoteText(date), quoteText(time)));
        }
        sample.month = table.whole(date.substr(0, 2), "month", 1, 12);
        sample.day = table.whole(date.substr(3, 2), "day", 1, 31);
        sample.year = table.whole(date.substr(6), "year", 1, 9999);
        sample.hour = table.whole(time.substr(0, 2), "hour", 0, 24) +
                      table.whole(time.substr(3), "minute", 0, 59) / 60.0 - 0.5;
        sample.direct = table.value("dni");
        sample.diffuse = table.value("dhi");
        sample.global = table.value("ghi");
        sample.dryBulb = table.value("dry-bulb");
        sample.dewPoint = table.value("dew-point");
        sample.pressure = table.value("pressure") * 100.0f; // mbar
        sample.albedo = table.value("alb");
        addSample(weather, sample, input.file);
    }
    return weather;
}

WeatherYear readTmy3Year(const WeatherInput& input) {
    return assembleYear(readTmy3(input), input.file);
}

} // namespace

constinit const WeatherFormat tmy3Format = {
    .name = "TMY3",
    .isShownBy =
        [](std::string_view line) {
            return line.starts_with("date (mm/dd/yyyy)") || line.starts_with("\"date (mm/dd/yyyy)");
        },
    .read = readTmy3Year,
    .siteFix = "check its first line: zone, latitude, longitude (east positive)"};

} // namespace insolate::study
