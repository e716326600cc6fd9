#include "study/weather/sampled_weather.h"

#include "study/support/errors.h"
#include "study/support/numbers.h"
#include "study/support/readable.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include <fmt/format.h>
#include <insolate/solar/site_ranges.h>
#include <insolate/weather/hour_means.h>

namespace insolate::study {

namespace {

/// The clock of the samples: step k lies at (k + phase) / perHour hours of the year.
struct SampleClock {
    int perHour = 1;
    double phase = 0.0; ///< in steps, from 0 to below 1

    /// How much later than the middle of the hour the mean of its samples lies [h], to 4 s.
    [[nodiscard]] double offset() const {
        const double middle = (phase + 0.5 * (perHour - 1)) / perHour;
        return std::round((middle - 0.5) * 1000.0) / 1000.0 + 0.0; // no -0
    }
};

/// The step is the commonest time from one sample to the next, the phase the mean one.
SampleClock clockOf(const std::vector<double>& times, const WeatherSample& first,
                    const std::filesystem::path& file) {
    std::vector<double> steps;
    for (std::size_t i = 1; i < times.size(); ++i) {
        if (times[i] > times[i - 1]) {
            steps.push_back(times[i] - times[i - 1]);
        }
    }
    SampleClock clock;
    if (!steps.empty()) {
        const auto median = steps.begin() + static_cast<std::ptrdiff_t>(steps.size() / 2);
        std::nth_element(steps.begin(), median, steps.end());
        const double perHour = std::round(1.0 / *median);
        if (perHour < 1.0 || perHour > 60.0 || std::abs(perHour * *median - 1.0) > 0.05 ||
            60 % static_cast<int>(perHour) != 0) {
            throw DataError(fmt::format("{}: the records are {:.4g} minutes apart, which does not "
                                        "divide the hour evenly; give a file with a record every "
                                        "60, 30, 15, 10, 5 or 1 minutes",
                                        place(file, first.line), *median * 60.0));
        }
        clock.perHour = static_cast<int>(perHour);
    }
    // Phases go round: 0.98 and 0.01 are neighbours, whose mean is that of their directions.
    double sine = 0.0;
    double cosine = 0.0;
    for (const double time : times) {
        const double turn = 2.0 * std::numbers::pi * time * clock.perHour;
        sine += std::sin(turn);
        cosine += std::cos(turn);
    }
    clock.phase = std::atan2(sine, cosine) / (2.0 * std::numbers::pi);
    constexpr double roundedDown = -0.02; // "0.166" for a sixth means the step's very beginning
    clock.phase = clock.phase < roundedDown ? clock.phase + 1.0 : std::max(clock.phase, 0.0);
    return clock;
}

/// Whether the sun is down at an hour of the year. Its height is taken at whole hours, when asked
/// for, and between them on a line: years of minutes with most rows left out cost no more.
class Nights {
public:
    explicit Nights(const WeatherSite& site)
        : m_site{site.latitude, site.longitude, site.timeZone, site.elevation},
          m_altitudes(hoursPerYear + 1, unknownValue) {}

    [[nodiscard]] bool isDark(double hourOfYear) {
        // Below a degree there is hardly light, and programs differ on when the sun rises.
        constexpr double low = radiansPerDegree;
        const double hour = std::clamp(hourOfYear, 0.0, hoursPerYear - 1.0e-6);
        const auto before = static_cast<std::size_t>(hour);
        const double part = hour - static_cast<double>(before);
        return (1.0 - part) * altitudeAt(before) + part * altitudeAt(before + 1) < low;
    }

private:
    double altitudeAt(std::size_t hour) {
        double& altitude = m_altitudes[hour];
        if (std::isnan(altitude)) {
            altitude =
                sunPosition(julianDay(2001, 1, 1, static_cast<double>(hour) - m_site.timeZone),
                            m_site)
                    .geometricAltitude;
        }
        return altitude;
    }

    Site m_site;
    std::vector<double> m_altitudes;
};

/// Whether the value is there: from 9,999 W/m2 up it stands for a missing one, as in EPW files.
bool isRadiation(float value) {
    return value < 9999.0f;
}

} // namespace

void addSample(SampledWeather& weather, const WeatherSample& sample,
               const std::filesystem::path& file) {
    constexpr std::size_t mostSamples = std::size_t{2} * 60 * 8784;
    if (weather.samples.size() == mostSamples) {
        throw DataError(fmt::format("{}: more rows than two years have minutes; give one year",
                                    place(file, sample.line)));
    }
    weather.samples.push_back(sample);
}

void checkSite(const WeatherSite& site, const std::filesystem::path& file, std::size_t line) {
    const auto check = [&](double value, const SiteRange& range, std::string_view name,
                           std::string_view fix) {
        if (!range.holds(value)) {
            throw DataError(fmt::format("{}: {} {} is not a value from {} to {}; {}",
                                        place(file, line), name, value, range.low, range.high,
                                        fix));
        }
    };
    check(site.latitude, siteRanges::latitude, "latitude",
          "give the site's degrees, north positive");
    check(site.longitude, siteRanges::longitude, "longitude", "give the site's degrees");
    check(site.timeZone, siteRanges::timeZone, "time zone",
          "give the hours of the file's clock before UTC");
    check(site.elevation, siteRanges::elevation, "elevation", "give the metres above the sea");
}

WeatherYear assembleYear(const SampledWeather& weather, const std::filesystem::path& file) {
    std::vector<const WeatherSample*> samples;
    std::vector<double> times;
    std::size_t leapSamples = 0;
    for (const WeatherSample& sample : weather.samples) {
        if (sample.month == 2 && sample.day == 29) {
            ++leapSamples;
            continue;
        }
        const int day = dayIndex(sample.month, sample.day);
        if (day < 0) {
            throw DataError(fmt::format("{}: there is no day {} in month {}; correct the line",
                                        place(file, sample.line), sample.day, sample.month));
        }
        samples.push_back(&sample);
        times.push_back(day * 24.0 + sample.hour);
    }
    if (samples.empty()) {
        throw DataError(
            fmt::format("{}: the file holds no hourly data; download it again", place(file)));
    }
    const SampleClock clock = clockOf(times, *samples.front(), file);

    // The last sample of each step of the year.
    WeatherYear year;
    WeatherReport& report = year.report;
    report = weather.report;
    const std::size_t perHour = static_cast<std::size_t>(clock.perHour);
    std::vector<const WeatherSample*> sampleOf(hoursPerYear * perHour, nullptr);
    const auto stepCount = static_cast<double>(sampleOf.size());
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double exact = times[i] * clock.perHour - clock.phase;
        double step = std::round(exact);
        if (std::abs(exact - step) > 0.1) {
            throw DataError(fmt::format(
                "{}: the record at {:.4g} h does not stand in line with the others, which are {} "
                "minutes apart; correct the line or give a file with equal steps",
                place(file, samples[i]->line), samples[i]->hour, 60 / clock.perHour));
        }
        step -= stepCount * std::floor(step / stepCount); // over new year
        const WeatherSample*& slot = sampleOf[static_cast<std::size_t>(step)];
        if (slot != nullptr && report.hoursRepeated++ == 0) {
            report.firstRepeatedLine = samples[i]->line;
        }
        slot = samples[i];
    }

    HourMeans means;
    std::vector<std::int16_t> years(hoursPerYear, 0);
    Nights night(report.site);
    std::size_t nights = 0;
    std::size_t line = 0;
    for (std::size_t hour = 0; hour < hoursPerYear; ++hour) {
        std::size_t absent = 0;
        std::size_t holed = 0;
        for (std::size_t part = 0; part < perHour; ++part) {
            const std::size_t step = hour * perHour + part;
            const WeatherSample* sample = sampleOf[step];
            if (sample == nullptr) {
                const double time = (static_cast<double>(step) + clock.phase) / clock.perHour;
                if (weather.nightsMayBeLeftOut && night.isDark(time)) {
                    ++nights;
                    means.add(EpwField::Direct, hour, 0.0f);
                    means.add(EpwField::Diffuse, hour, 0.0f);
                } else {
                    ++absent;
                }
                continue;
            }
            years[hour] = static_cast<std::int16_t>(sample->year);
            if (!isRadiation(sample->direct) || !isRadiation(sample->diffuse)) {
                holed = holed == 0 ? sample->line : holed;
            }
            const auto add = [&](EpwField field, float value) {
                const bool isMissing = epwFieldInfo(field).radiation && !isRadiation(value);
                means.add(field, hour, isMissing ? unknownValue : value);
            };
            add(EpwField::Direct, sample->direct);
            add(EpwField::Diffuse, sample->diffuse);
            add(EpwField::Global, sample->global);
            add(EpwField::DryBulb, sample->dryBulb);
            add(EpwField::DewPoint, sample->dewPoint);
            add(EpwField::Pressure, sample->pressure);
            add(EpwField::Albedo, sample->albedo);
        }
        const auto index = static_cast<int>(hour);
        const HourOfYear when(index / 24, index % 24);
        if (absent == perHour) {
            if (report.hoursMissing.empty()) {
                report.lineBeforeMissing = line;
            }
            report.hoursMissing.push_back(when);
        } else if (absent > 0 || holed > 0) {
            report.radiationMissing.push_back(when);
            std::size_t& first = report.firstRadiationMissingLine;
            first = first == 0 ? holed : first;
        }
        if (const WeatherSample* last = sampleOf[hour * perHour + perHour - 1]) {
            line = last->line;
        }
    }
    report.hoursPresent = hoursPerYear - report.hoursMissing.size();

    means.fill(year.series, clock.perHour);
    const WeatherSite& site = report.site;
    WeatherReading reading = makeWeatherSeries(
        {site.latitude, site.longitude, site.timeZone, site.elevation}, year.series.directNormal,
        year.series.diffuseHorizontal, year.series.globalHorizontal);
    for (const WeatherFinding& finding : reading.findings) {
        report.notes.push_back(fmt::format("{}: {}", place(file), finding.text));
    }
    year.series.site = reading.series.site;
    year.series.directNormal = std::move(reading.series.directNormal);
    year.series.diffuseHorizontal = std::move(reading.series.diffuseHorizontal);
    year.series.globalHorizontal = std::move(reading.series.globalHorizontal);
    year.series.place = site.text();
    year.series.sampleOffset = clock.offset();
    year.series.year = std::move(years);

    if (leapSamples > 0) {
        report.facts.push_back(
            fmt::format("{}: 29 February is left out: a year has 365 days", place(file)));
    }
    if (nights > 0) {
        report.facts.push_back(fmt::format("{}: {} {} left out while the sun is down: counted as "
                                           "dark",
                                           place(file), nights,
                                           counted(nights, "row is", "rows are")));
    }
    if (clock.perHour > 1) {
        report.facts.push_back(fmt::format("{}: {} records an hour, averaged over the hour",
                                           place(file), clock.perHour));
    }
    if (year.series.sampleOffset != 0.0) {
        report.facts.push_back(fmt::format(
            "{}: the values stand {:.1f} min {} the middle of their hours; the sun is placed there",
            place(file), std::abs(year.series.sampleOffset) * 60.0,
            year.series.sampleOffset < 0.0 ? "before" : "after"));
    }
    return year;
}

constinit const WeatherFormat hostSamples = {.name = "samples",
                                             .siteFix = "check its longitude and time zone"};

WeatherYear weatherOfSamples(const SampledWeather& weather, const std::string& name) {
    checkSite(weather.report.site, name, 0);
    WeatherYear year = assembleYear(weather, name);
    const WeatherSeries& series = year.series;
    noteOddities(year.report,
                 {series.directNormal, series.diffuseHorizontal, series.globalHorizontal,
                  series.sampleOffset},
                 name);
    return year;
}

} // namespace insolate::study
