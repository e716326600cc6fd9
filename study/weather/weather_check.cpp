#include "study/weather/weather_check.h"

#include "study/support/errors.h"
#include "study/support/period.h"
#include "study/support/readable.h"

#include <algorithm>
#include <cmath>
#include <string_view>
#include <utility>

#include <fmt/format.h>
#include <insolate/insolate.h>

namespace insolate::study {

namespace {

constexpr std::size_t dayLength = 24; ///< [h]
/// Of a clock from the sun's own time [h]; no country's is further away.
constexpr double mostClockOffset = 3.5;
/// Of light from the sun's noon that is worth a note [h]: more than sound files leave, see
/// latenessOfLight().
constexpr double leastLateness = 0.75;

/// The middle of a day's light [h]: opposite that of its longest night, around midnight. None
/// without both, or where the light's ends are missing.
std::optional<double> middleOfLight(std::span<const float> day) {
    constexpr float light = 5.0f; // [W/m2], just before sunrise under any sky
    constexpr std::size_t shortestNight = 6;
    const auto at = [&](std::size_t hour) { return day[hour % day.size()]; };
    std::size_t begin = 0;
    std::size_t night = 0;
    for (std::size_t hour = 0; hour < day.size(); ++hour) {
        std::size_t dark = 0;
        while (dark < day.size() && !(at(hour + dark) > light)) {
            ++dark;
        }
        if (dark > night) {
            begin = hour;
            night = dark;
        }
    }
    if (night < shortestNight || night == day.size() || std::isnan(at(begin)) ||
        std::isnan(at(begin + night - 1))) {
        return std::nullopt;
    }
    return static_cast<double>(begin) + 0.5 * static_cast<double>(night) + 12.0;
}

/// Whether the light of the days fits the clock once latitude and longitude change places.
bool looksSwapped(const WeatherSite& site, const HourlyRadiation& hours) {
    if (std::abs(site.longitude) > 90.0) {
        return false;
    }
    WeatherSite swapped = site;
    std::swap(swapped.latitude, swapped.longitude);
    const auto late = latenessOfLight(swapped, hours);
    return late && std::abs(*late) <= leastLateness &&
           std::abs(swapped.timeZone - swapped.longitude / 15.0) <= mostClockOffset;
}

/// What is odd about the site's clock; empty when nothing is.
std::string oddClockText(const WeatherReport& report, const HourlyRadiation& hours,
                         const std::filesystem::path& file) {
    const WeatherSite& site = report.site;
    if (std::abs(site.latitude) > 89.0) {
        return {}; // the pole has the noon of any longitude
    }
    const double solarZone = site.longitude / 15.0;
    const double difference = site.timeZone - solarZone;
    // Universal time is no country's clock, but many files keep it everywhere. Across the date line
    // a clock may be a day ahead of the sun.
    const bool isUtc = site.timeZone == 0.0 && report.format->store == StoreReader::none;
    const auto swappedText = [&] {
        return looksSwapped(site, hours)
                   ? fmt::format("latitude {:.2f} and longitude {:.2f} look swapped; ",
                                 site.latitude, site.longitude)
                   : std::string();
    };
    if (isUtc || std::abs(difference - 24.0 * std::round(difference / 24.0)) <= mostClockOffset) {
        const double late = latenessOfLight(site, hours).value_or(0.0);
        if (std::abs(late) <= leastLateness) {
            return {};
        }
        double fitting = std::round(2.0 * (site.timeZone + late)) / 2.0 + 0.0; // no -0
        fitting += fitting < -12.0 ? 24.0 : fitting > 14.0 ? -24.0 : 0.0;
        return fmt::format("{}: the days' light lies {:.1f} h {} the sun's noon at {:.2f} {} by "
                           "the time zone UTC{:+}: the hours would fit about UTC{:+}; {}{}",
                           place(file), std::abs(late), late < 0.0 ? "before" : "after",
                           std::abs(site.longitude), site.longitude < 0.0 ? "W" : "E",
                           site.timeZone, fitting, swappedText(), report.format->siteFix);
    }
    return fmt::format("{}: the time zone UTC{:+} does not go with longitude {:.2f} {}, where the "
                       "sun keeps UTC{:+.1f}: the sun would stand elsewhere than in the file's "
                       "hours; {}{}",
                       place(file), site.timeZone, std::abs(site.longitude),
                       site.longitude < 0.0 ? "W" : "E", solarZone, swappedText(),
                       report.format->siteFix);
}

void noteStrayDirect(WeatherReport& report, const HourlyRadiation& hours,
                     const std::filesystem::path& file) {
    StrayDirect stray;
    double whole = 0.0;
    for (std::size_t hour = 0; hour < hours.direct.size(); ++hour) {
        const float direct = hours.direct[hour];
        if (!(direct > 0.0f)) {
            continue;
        }
        whole += static_cast<double>(direct);
        if (hours.diffuse[hour] == 0.0f && !(hours.global[hour] > 0.0f)) {
            ++stray.hours;
            stray.sum += static_cast<double>(direct);
        }
    }
    constexpr double leastReported = 1.0e-3; // as of radiation while the sun is down
    if (!(stray.sum > leastReported * whole)) {
        return;
    }
    report.strayDirect = stray;
    report.notes.push_back(fmt::format(
        "{}: {} {} direct normal radiation but neither global nor diffuse ({:.4g} kWh/m2): a "
        "residue of the file's processing; the hourly method leaves it out where the sun is down, "
        "of the other methods trust no peak; {}",
        place(file), stray.hours, counted(stray.hours, "hour has", "hours have"),
        stray.sum / 1000.0,
        report.format->store == StoreReader::record ? "correct the .epw file and convert it again"
                                                    : "set it to 0 in these hours"));
}

} // namespace

std::string WeatherSite::text() const {
    std::string result = city;
    for (const std::string& part : {region, country}) {
        if (!part.empty() && part != "-") {
            result += (result.empty() ? "" : ", ") + part;
        }
    }
    return result.empty() ? "unnamed site" : result;
}

std::optional<double> latenessOfLight(const WeatherSite& site, const HourlyRadiation& hours) {
    constexpr std::size_t fewestDays = 30;
    std::vector<double> late;
    for (std::size_t first = 0; first + dayLength <= hours.diffuse.size(); first += dayLength) {
        if (const auto middle = middleOfLight(hours.diffuse.subspan(first, dayLength))) {
            const MonthAndDay date = monthAndDay(static_cast<int>(first / dayLength));
            const SunPosition sun = sunPosition(julianDay(2001, date.month, date.day, 12.0), {});
            const double noon =
                12.0 + site.timeZone - site.longitude / 15.0 - sun.equationOfTime / 60.0;
            late.push_back(std::remainder(*middle + hours.sampleOffset - noon, 24.0));
        }
    }
    if (late.size() < fewestDays) {
        return std::nullopt;
    }
    const auto median = late.begin() + static_cast<std::ptrdiff_t>(late.size() / 2);
    std::nth_element(late.begin(), median, late.end());
    return *median;
}

void noteOddities(WeatherReport& report, const HourlyRadiation& hours,
                  const std::filesystem::path& file) {
    report.oddClock = oddClockText(report, hours, file);
    if (!report.oddClock.empty()) {
        report.notes.push_back(report.oddClock);
    }
    noteStrayDirect(report, hours, file);
}

std::string hourOfYearText(const HourOfYear& hour) {
    return fmt::format("{}, {} to {}", dayText(hour.first + 1), clockText(hour.second),
                       clockText(hour.second + 1));
}

void requireCompleteYear(const WeatherReport& report, const std::filesystem::path& file,
                         bool allowGaps) {
    if (allowGaps) {
        return;
    }
    constexpr std::string_view fix =
        "give a complete file, or --allow-gaps to count them as without radiation";
    if (report.hoursRepeated > 0) {
        throw DataError(fmt::format("{}: the hour was given before ({} such {}); give a file "
                                    "with one record an hour, or --allow-gaps to let the last one "
                                    "stand",
                                    place(file, report.firstRepeatedLine), report.hoursRepeated,
                                    counted(report.hoursRepeated, "line", "lines")));
    }
    const auto failAt = [&](const LineFault& fault, const std::string& consequence) {
        return DataError(fmt::format("{}: {}; {}; correct the line, {}", place(file, fault.line),
                                     printable(fault.what), consequence, fix));
    };
    if (!report.hoursMissing.empty()) {
        const std::string missing = fmt::format(
            "{} of the year's {} hours {} {}", report.hoursMissing.size(), hoursPerYear,
            counted(report.hoursMissing.size(), "is missing:", "are missing, the first is"),
            hourOfYearText(report.hoursMissing.front()));
        if (report.unreadableLine.line == report.lineBeforeMissing + 1) {
            throw failAt(report.unreadableLine, missing);
        }
        throw DataError(fmt::format(
            "{}: {}{}; {}",
            report.lineBeforeMissing == 0 ? place(file) : place(file, report.lineBeforeMissing),
            missing, report.lineBeforeMissing == 0 ? "" : ", after this line", fix));
    }
    if (!report.radiationMissing.empty()) {
        const std::string missing =
            fmt::format("radiation is missing in {} {} {}", report.radiationMissing.size(),
                        counted(report.radiationMissing.size(), "hour:", "hours, the first is"),
                        hourOfYearText(report.radiationMissing.front()));
        if (report.unreadableRadiation.line > 0) {
            throw failAt(report.unreadableRadiation, missing);
        }
        const std::string where = report.firstRadiationMissingLine == 0
                                      ? place(file)
                                      : place(file, report.firstRadiationMissingLine);
        throw DataError(fmt::format("{}: {}; {}", where, missing, fix));
    }
}

} // namespace insolate::study
