// The text format .wea of Radiance's tools: six header lines, then month, day, hour and two values
// a row. Longitude and time zone are degrees, west positive; the hour is the middle of the step.
//
// Files in use depart from this, see the functions below: where the light of the days shows what
// was meant, or nothing else can have been meant, the file is read so and a note says it.
#include "study/support/errors.h"
#include "study/support/numbers.h"
#include "study/support/readable.h"
#include "study/weather/sampled_weather.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>

#include <fmt/format.h>
#include <insolate/weather/epw_text.h>
#include <insolate/weather/text_lines.h>

namespace insolate::study {

namespace {

/// The lines of the header.
constexpr std::array<std::string_view, 6> headerKeys = {
    "place", "latitude", "longitude", "time_zone", "site_elevation", "weather_data_file_units"};

/// What the rows hold, by the code of the header.
enum class Quantity { normalAndDiffuse = 1, horizontalAndDiffuse = 2, illuminance = 3 };

/// Mean luminous efficacies of sunlight and of the sky [lm/W]. The sun's is 90 to 105 from 20
/// degrees of altitude up, the sky's 110 overcast to 140 clear: Littlefair (1988), Measurements of
/// the luminous efficacy of daylight, Lighting Research and Technology 20(4).
constexpr float sunEfficacy = 100.0f;
constexpr float skyEfficacy = 125.0f;

struct WeaText {
    SampledWeather weather;
    Quantity quantity = Quantity::normalAndDiffuse;
    bool wholeHours = true; ///< no row has a fraction of an hour
    double lastHour = 0.0;
};

std::vector<std::string_view> words(std::string_view line) {
    std::vector<std::string_view> result;
    constexpr std::string_view blanks = " \t\r\v\f";
    for (std::size_t at = line.find_first_not_of(blanks); at != std::string_view::npos;) {
        const std::size_t end = line.find_first_of(blanks, at);
        result.push_back(line.substr(at, end - at));
        at = line.find_first_not_of(blanks, end == std::string_view::npos ? line.size() : end);
    }
    return result;
}

class WeaTextReader {
public:
    explicit WeaTextReader(const WeatherInput& input) : m_file(input.file) {
        m_result.weather.nightsMayBeLeftOut = true;
        TextLines lines(input.content);
        TextLine line;
        while (lines.next(line)) {
            m_line = line.number;
            const std::vector<std::string_view> fields = words(line.text);
            if (fields.empty()) {
                continue;
            }
            if (epwLineKind(fields.front()) == EpwLineKind::Record) {
                finishHeader();
                takeRow(fields);
            } else if (m_headerEnded) {
                throw fault(fmt::format("{} is no row of month, day, hour and two values",
                                        quoteText(fields.front())),
                            "correct or delete the line");
            } else {
                takeHeader(fields, trimmed(line.text));
            }
        }
        finishHeader();
    }

    WeaText finished() { return std::move(m_result); }

private:
    [[nodiscard]] DataError fault(std::string_view what, std::string_view fix) const {
        return DataError(fmt::format("{}: {}; {}", place(m_file, m_line), what, fix));
    }

    double number(std::string_view text, std::string_view what) const {
        const auto value = parseNumber<double>(text);
        if (!value || !std::isfinite(*value)) {
            throw fault(fmt::format("{}: {} is not a number", what, quoteText(text)),
                        "correct the line");
        }
        return *value;
    }

    void takeHeader(const std::vector<std::string_view>& fields, std::string_view line) {
        std::string_view key = fields.front();
        if (key == "weather_data_file_unit") {
            key = headerKeys.back();
            note("weather_data_file_unit is read as weather_data_file_units");
        }
        const auto known = std::find(headerKeys.begin(), headerKeys.end(), key);
        if (known == headerKeys.end()) {
            throw fault(fmt::format("{} is none of the six header lines", quoteText(key)),
                        "the header has place, latitude, longitude, time_zone, site_elevation and "
                        "weather_data_file_units");
        }
        const auto index = static_cast<std::size_t>(known - headerKeys.begin());
        if (std::exchange(m_lineOfKey[index], m_line) != 0) {
            throw fault(fmt::format("a second {} line", key), "keep the right one");
        }
        WeatherSite& site = m_result.weather.report.site;
        if (index == 0) {
            site.city = printable(trimmed(line.substr(fields.front().size())));
            return;
        }
        const double value = number(fields.size() > 1 ? fields[1] : std::string_view(), key);
        switch (index) {
        case 1:
            site.latitude = value;
            break;
        case 2:
            site.longitude = 0.0 - value;
            break;
        case 3:
            site.timeZone = 0.0 - value / 15.0;
            break;
        case 4:
            site.elevation = value;
            break;
        default:
            if (value != 1.0 && value != 2.0 && value != 3.0) {
                throw fault(fmt::format("weather_data_file_units {} is no code of a unit{}", value,
                                        value > 3.0 ? ", rather a time step" : ""),
                            "give 1 (direct normal and diffuse horizontal, W/m2), 2 (both "
                            "horizontal, W/m2) or 3 (illuminance, lux)");
            }
            m_result.quantity = static_cast<Quantity>(static_cast<int>(value));
        }
    }

    void finishHeader() {
        if (std::exchange(m_headerEnded, true)) {
            return;
        }
        for (std::size_t i = 1; i < headerKeys.size(); ++i) { // a site may do without a name
            if (m_lineOfKey[i] == 0) {
                throw fault(fmt::format("the header has no {} line", headerKeys[i]), "add it");
            }
        }
        WeatherSite& site = m_result.weather.report.site;
        // Programs that write whole degrees cut the meridian of half-hour zones: -82.5 becomes -82.
        // All clocks keep quarters of an hour, so the nearest one is the one that was meant.
        const double quarters = std::round(site.timeZone * 4.0) / 4.0 + 0.0; // no -0
        if (std::abs(quarters - site.timeZone) > 1.0e-6) {
            m_line = m_lineOfKey[3];
            note(fmt::format("time_zone {:.4g} is no meridian of a clock: taken as {:.5g}, UTC{:+}",
                             -15.0 * site.timeZone, -15.0 * quarters, quarters));
        }
        site.timeZone = quarters;
        checkSite(site, m_file, std::max(m_lineOfKey[1], std::size_t{1}));
    }

    void takeRow(const std::vector<std::string_view>& fields) {
        if (fields.size() != 5) {
            throw fault(fmt::format("the row has {} {}", fields.size(),
                                    counted(fields.size(), "value", "values")),
                        "month, day, hour, direct and diffuse belong there; correct the line");
        }
        WeatherSample sample;
        sample.line = m_line;
        const auto whole = [&](std::string_view text, std::string_view what, double highest) {
            const double value = number(text, what);
            if (!(value >= 1.0 && value <= highest) || value != std::floor(value)) {
                throw fault(fmt::format("{} {} is not a value from 1 to {}", what, value, highest),
                            "correct the line");
            }
            return static_cast<int>(value);
        };
        sample.month = whole(fields[0], "month", 12);
        sample.day = whole(fields[1], "day", 31);
        sample.hour = number(fields[2], "hour");
        // Some programs count the last steps of a day on: 24.417.
        if (!(sample.hour >= 0.0 && sample.hour < 25.0)) {
            throw fault(fmt::format("hour {} is not a value from 0 to 24", sample.hour),
                        "correct the line");
        }
        m_result.wholeHours = m_result.wholeHours && sample.hour == std::floor(sample.hour);
        m_result.lastHour = std::max(m_result.lastHour, sample.hour);
        sample.direct = static_cast<float>(number(fields[3], "direct"));
        sample.diffuse = static_cast<float>(number(fields[4], "diffuse"));
        if (m_result.quantity == Quantity::illuminance) {
            sample.direct /= sunEfficacy;
            sample.diffuse /= skyEfficacy;
        }
        addSample(m_result.weather, sample, m_file);
    }

    void note(std::string_view text) {
        m_result.weather.report.notes.push_back(fmt::format("{}: {}", place(m_file, m_line), text));
    }

    const std::filesystem::path& m_file;
    std::size_t m_line = 0;
    bool m_headerEnded = false;
    std::array<std::size_t, 6> m_lineOfKey{};
    WeaText m_result;
};

/// What is to be added to the rows' hours [h], nothing where they are the middles of steps.
///
/// Rows at whole hours come from programs that keep the label of another format: 1 to 24 for hours
/// by their end, 0 to 23 by their beginning. Rows beyond 24 h, to 24.417 with steps of ten minutes,
/// count them from there. The light of the days decides between that and the hours as they stand.
std::optional<double> shiftOfRows(const WeaText& text, std::optional<double> lateness) {
    if (!text.wholeHours && text.lastHour <= 24.0) {
        return std::nullopt;
    }
    const double byLabel = text.lastHour > 23.0 ? -0.5 : 0.5;
    const bool labelFits = !lateness || std::abs(*lateness + byLabel) < std::abs(*lateness);
    return labelFits ? byLabel : 0.0;
}

/// The zone's other half hour, where a program has cut it off (5.5 to 5): the built-in map of zones
/// has the site there and the light of the days fits it better.
std::optional<double> zoneByMap(const WeatherSite& site, std::optional<double> lateness) {
    const double zone = static_cast<double>(ESolarPosition::Global.determineTimeZone(
        site.latitude * radiansPerDegree, site.longitude * radiansPerDegree));
    const double difference = zone - site.timeZone;
    const bool isCut = std::abs(difference) == 0.5 && zone != std::trunc(zone) &&
                       std::trunc(zone) == site.timeZone;
    return isCut && lateness && std::abs(*lateness - difference) < std::abs(*lateness)
               ? std::optional<double>(zone)
               : std::nullopt;
}

/// Direct radiation on the level, as the file has it, turned to the sun. In the hours of sunrise
/// and sunset the sun's strength rises with its height, and dividing by the mean height would give
/// walls 3 % too much over a clear year; so the hour's course is that of a clear sky: Meinel and
/// Meinel (1976), Applied Solar Energy, 0.7 to the power of (air mass ^ 0.678). What the sun cannot
/// have given near the horizon goes to the diffuse, so that the level keeps its sum.
void turnToTheSun(WeatherYear& year, const std::filesystem::path& file) {
    constexpr int steps = 10; // as many as the hourly sky takes
    constexpr double solarConstant = 1361.0;
    WeatherSeries& series = year.series;
    const Air air{standardPressure(series.site.elevation), 10.0};
    std::size_t limited = 0;
    double moved = 0.0;
    for (std::size_t hour = 0; hour < series.directNormal.size(); ++hour) {
        const auto horizontal = static_cast<double>(series.directNormal[hour]);
        if (!(horizontal > 0.0)) {
            continue;
        }
        const MonthAndDay date = monthAndDay(static_cast<int>(hour / 24));
        double normalCourse = 0.0;
        double levelCourse = 0.0;
        int stepsUp = 0;
        double distance = 1.0;
        for (int step = 0; step < steps; ++step) {
            const double clock = static_cast<double>(hour % 24) + (step + 0.5) / steps;
            const SunPosition sun =
                sunPosition(julianDay(2001, date.month, date.day,
                                      clock - series.site.timeZone + series.sampleOffset),
                            series.site, air);
            if (sun.altitude > 0.0) {
                const double sine = std::sin(sun.altitude);
                const double clear = std::pow(0.7, std::pow(1.0 / (sine + 0.02), 0.678));
                normalCourse += clear;
                levelCourse += clear * sine;
                ++stepsUp;
            }
            distance = sun.distance;
        }
        const double share = static_cast<double>(stepsUp) / steps;
        const double mostNormal = solarConstant / (distance * distance) * share;
        const double perNormal = stepsUp > 0 ? levelCourse / normalCourse : 0.0;
        const double normal =
            horizontal < mostNormal * perNormal ? horizontal / perNormal : mostNormal;
        const double rest = std::max(horizontal - normal * perNormal, 0.0);
        series.directNormal[hour] = static_cast<float>(normal);
        if (rest > 1e-9 * horizontal) {
            series.diffuseHorizontal[hour] += static_cast<float>(rest);
            moved += rest;
            ++limited;
        }
    }
    year.report.facts.push_back(fmt::format(
        "{}: unit code 2: the direct radiation is on the level; in {} {} near the horizon the sun "
        "cannot have given it, and {:.3g} kWh/m2 were taken as diffuse",
        place(file), limited, counted(limited, "hour", "hours"), moved / 1000.0));
}

/// Whole, since what is wrong with such files shows in the light of the days.
WeatherYear readWeaText(const WeatherInput& input) {
    WeaText text = WeaTextReader(input).finished();
    WeatherReport& report = text.weather.report;
    WeatherYear year = assembleYear(text.weather, input.file);
    const auto lateness = [&] {
        const WeatherSeries& series = year.series;
        return latenessOfLight(report.site, {series.directNormal, series.diffuseHorizontal,
                                             series.globalHorizontal, series.sampleOffset});
    };
    if (const auto shift = shiftOfRows(text, lateness())) {
        for (WeatherSample& sample : text.weather.samples) {
            sample.hour += *shift;
        }
        year = assembleYear(text.weather, input.file);
        const std::optional<double> late = lateness();
        report.notes.push_back(fmt::format(
            "{}: the rows stand at {}, where the format has the middles of the steps; they are "
            "read as {}{}",
            place(input.file), text.wholeHours ? "whole hours" : "hours beyond 24",
            *shift < 0.0   ? "half an hour earlier"
            : *shift > 0.0 ? "half an hour later"
                           : "they stand",
            late ? fmt::format(": the light of the days then lies {:.2f} h {} the sun's noon",
                               std::abs(*late), *late < 0.0 ? "before" : "after")
                 : ", as their numbers suggest"));
        year.report.notes.push_back(report.notes.back());
    }
    if (const auto zone = zoneByMap(report.site, lateness())) {
        report.notes.push_back(fmt::format(
            "{}: time_zone {} is taken as {}, UTC{:+}: the site lies in that zone and the light of "
            "the days keeps it",
            place(input.file), -15.0 * report.site.timeZone, -15.0 * *zone, *zone));
        report.site.timeZone = *zone;
        year = assembleYear(text.weather, input.file);
    }
    if (text.quantity == Quantity::horizontalAndDiffuse) {
        turnToTheSun(year, input.file);
    } else if (text.quantity == Quantity::illuminance) {
        year.report.notes.push_back(fmt::format(
            "{}: illuminance is taken as radiation by {} lm/W for the sun and {} lm/W for the sky, "
            "which is good to about 12 %; give a file in W/m2 where that matters",
            place(input.file), sunEfficacy, skyEfficacy));
    }
    return year;
}

} // namespace

constinit const WeatherFormat weaTextFormat = {
    .name = "a text .wea",
    .isShownBy =
        [](std::string_view line) {
            const std::string_view word = line.substr(0, line.find_first_of(" \t"));
            return word == "place" || word == "weather_data_file_units";
        },
    .read = readWeaText,
    .siteFix = "check its longitude and time_zone (degrees, west positive)"};

} // namespace insolate::study
