#include "study/run/run_sun.h"

#include "study/support/errors.h"
#include "study/support/numbers.h"
#include "study/support/period.h"

#include <cmath>

#include <fmt/format.h>
#include <insolate/insolate.h>

namespace insolate::study {

namespace {

/// Clock times as exact as the steps of the table need them.
class Clock {
public:
    explicit Clock(double step)
        : m_seconds(std::abs(step * 60.0 - std::round(step * 60.0)) > 1e-6) {}

    [[nodiscard]] std::string text(double hours) const {
        return m_seconds ? clockTextToSeconds(hours) : clockText(hours);
    }
    /// The moment as the texts have it.
    [[nodiscard]] double rounded(double hours) const {
        const double steps = m_seconds ? 3600.0 : 60.0;
        return std::round(hours * steps) / steps;
    }
    /// Of a moment that may lie outside the day.
    [[nodiscard]] std::string textOfMoment(double hours) const {
        const double days = std::floor(hours / 24.0);
        return text(hours - 24.0 * days) + (days < 0.0   ? " of the day before"
                                            : days > 0.0 ? " of the day after"
                                                         : "");
    }

private:
    bool m_seconds;
};

/// Whether the time of day lies between rise and set of this or a neighbouring day.
bool isUp(double time, const SunTimes& times) {
    if (times.kind != DayKind::RisesAndSets) {
        return times.kind == DayKind::PolarDay;
    }
    for (const double days : {-1.0, 0.0, 1.0}) {
        const double moment = time + 24.0 * days;
        if (moment >= times.rise && moment <= times.set) {
            return true;
        }
    }
    return false;
}

} // namespace

std::string sunTable(const SunOptions& options) {
    checkStep(options.step);
    if (options.year < 1950 || options.year > 2050) {
        throw UsageError(fmt::format("--date: the sun's place is known from 1950 to 2050, not in "
                                     "{}; give a year of these",
                                     options.year));
    }
    const auto [name, site, note] = namedSite(options);
    const MonthAndDay date = monthAndDay(options.day - 1);
    const SunTimes times = sunTimes(options.year, date.month, date.day, site);
    std::string table = fmt::format("# {}, {} {}\n", name, dayText(options.day), options.year);
    if (!note.empty()) {
        table += fmt::format("# {}\n", note);
    }
    if (times.kind == DayKind::PolarNight) {
        return table + "# the sun does not rise\n";
    }
    const Clock clock(options.step);
    table +=
        times.kind == DayKind::PolarDay
            ? std::string("# the sun does not set\n")
            : fmt::format("# sunrise {}, sunset {}, daylight {} h: upper edge on the horizon\n",
                          clock.textOfMoment(times.rise), clock.textOfMoment(times.set),
                          clock.text(clock.rounded(times.set) - clock.rounded(times.rise)));
    table += "# altitude: of the sun's centre as seen, lifted by refraction; true: without it\n"
             "#   time  altitude[deg]  azimuth[deg]  true_altitude[deg]\n";
    const int steps = static_cast<int>(std::floor(24.0 / options.step + 1.0e-9));
    for (int i = 0; i <= steps; ++i) {
        const double time = i * options.step;
        if (!isUp(time, times)) {
            continue;
        }
        const SunPosition sun =
            sunPosition(julianDay(options.year, date.month, date.day, time - site.timeZone), site);
        table += fmt::format("{:>8}  {:13.2f}  {:12.2f}  {:18.2f}\n", clock.text(time),
                             sun.altitude / radiansPerDegree, sun.azimuth / radiansPerDegree,
                             sun.geometricAltitude / radiansPerDegree);
    }
    return table;
}

} // namespace insolate::study
