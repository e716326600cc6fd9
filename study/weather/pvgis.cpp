#include "study/support/errors.h"
#include "study/support/readable.h"
#include "study/weather/delimited_table.h"
#include "study/weather/sampled_weather.h"

#include <cmath>
#include <optional>

#include <fmt/format.h>

namespace insolate::study {

namespace {

/// Files of the world's data often keep universal time wherever the site is.
void noteUniversalTime(WeatherReport& report, const std::filesystem::path& file) {
    constexpr double farFromGreenwich = 7.5; // its clock is another
    if (report.site.timeZone == 0.0 && std::abs(report.site.longitude) > farFromGreenwich) {
        report.notes.push_back(fmt::format(
            "{}: the file's clock is UTC, and so are the days and hours of a period", place(file)));
    }
}

/// Typical years of PVGIS (European Commission, Joint Research Centre): records hold a moment in
/// universal time, later than their label by the offset that the header states.
SampledWeather readPvgis(const WeatherInput& input) {
    DelimitedTable table(input);
    SampledWeather weather;
    WeatherReport& report = weather.report;
    report.site.latitude = report.site.longitude = unknownValue;
    std::optional<double> offset;
    while (true) {
        table.need("the records");
        if (table.text().starts_with("time(UTC)")) {
            break;
        }
        const std::size_t colon = table.text().find(':');
        const std::string_view key = table.text().substr(0, colon);
        const std::string_view text =
            colon == std::string_view::npos ? std::string_view() : table.text().substr(colon + 1);
        if (key.starts_with("Latitude")) {
            report.site.latitude = table.number(text, "Latitude");
        } else if (key.starts_with("Longitude")) {
            report.site.longitude = table.number(text, "Longitude");
        } else if (key.starts_with("Elevation")) {
            report.site.elevation = table.number(text, "Elevation");
        } else if (key.starts_with("Irradiance Time Offset")) {
            offset = table.number(text, "Irradiance Time Offset");
            if (!(std::abs(*offset) <= 1.0)) {
                throw table.fault("the offset is not a value from -1 to 1 h");
            }
        } else if (table.text().starts_with("time,")) {
            throw DataError(fmt::format("{}: this is a series, not a typical year; download the "
                                        "typical year (TMY) as CSV",
                                        place(input.file, table.line())));
        }
    }
    checkSite(report.site, input.file, 1);
    if (!offset) {
        report.notes.push_back(fmt::format(
            "{}: no 'Irradiance Time Offset (h)' is stated: the records are taken for the moment "
            "of their label, which may be half an hour off; download the file again",
            place(input.file)));
    }
    noteUniversalTime(report, input.file);
    table.takeColumns({"time(utc)", "gb(n)", "gd(h)"});
    while (table.next() && table.beginsWithDigit()) { // explanations follow
        WeatherSample sample;
        sample.line = table.line();
        const std::string_view time = table["time(utc)"];
        if (time.size() != 13 || time[8] != ':') {
            throw table.fault(fmt::format("{} is no time as 20050131:2300", quoteText(time)));
        }
        sample.year = table.whole(time.substr(0, 4), "year", 1, 9999);
        sample.month = table.whole(time.substr(4, 2), "month", 1, 12);
        sample.day = table.whole(time.substr(6, 2), "day", 1, 31);
        sample.hour = table.whole(time.substr(9, 2), "hour", 0, 23) +
                      table.whole(time.substr(11), "minute", 0, 59) / 60.0 + offset.value_or(0.0);
        sample.direct = table.value("gb(n)");
        sample.diffuse = table.value("gd(h)");
        sample.global = table.value("g(h)");
        sample.dryBulb = table.value("t2m");
        sample.pressure = table.value("sp");
        addSample(weather, sample, input.file);
    }
    return weather;
}

WeatherYear readPvgisYear(const WeatherInput& input) {
    return assembleYear(readPvgis(input), input.file);
}

} // namespace

constinit const WeatherFormat pvgisFormat = {
    .name = "PVGIS",
    .isShownBy =
        [](std::string_view line) { return line.starts_with("latitude (decimal degrees)"); },
    .read = readPvgisYear,
    .siteFix = "check its Longitude"};

} // namespace insolate::study
