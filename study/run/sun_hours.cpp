#include "study/run/sun_hours_study.h"

#include "study/model/sensor_grid.h"
#include "study/run/enclosed.h"
#include "study/run/sensor_blocks.h"
#include "study/run/sun_hours_baseline.h"
#include "study/run/sun_hours_steps.h"
#include "study/run/sun_of_days.h"
#include "study/support/errors.h"
#include "study/support/period.h"
#include "study/support/readable.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace insolate::study {

namespace {

/// Sensors of one block: enough to keep the threads from meeting, few enough to stop soon; fewer
/// where there would not be some blocks for each thread.
constexpr std::size_t mostInBlock = 64;

/// With more days there are no columns by day.
constexpr std::size_t mostDayColumns = 31;

constexpr float yes = 1.0f;
constexpr float no = 0.0f;

/// Columns of all sensors, and what fills them.
class SunColumns {
public:
    SunColumns(const SunHoursStudy& study, const std::vector<SunOfDay>& days)
        : m_rule(study.rule), m_days(days) {
        const std::size_t count = study.inputs.field.size();
        const auto add = [&](std::string name, std::string unit, std::string text) {
            m_columns.push_back(
                {std::move(name), std::move(unit), std::move(text), std::vector<float>(count)});
            return m_columns.size() - 1;
        };
        const std::string what = m_rule.sense == SunSense::sunAtLeast ? "sun" : "shadow";
        const std::string title = m_rule.sense == SunSense::sunAtLeast ? "Sun" : "Shadow";
        if (m_rule.probable) {
            add("probable_sun", "%", "Share of the year's probable sun");
            m_winter = add("probable_sun_winter", "%", "Share that comes in the winter part");
        } else {
            const bool least =
                (m_rule.dayRule == DayRule::every) == (m_rule.sense == SunSense::sunAtLeast);
            add(what, "min",
                days.size() == 1
                    ? fmt::format("{} on {}", title, dayText(days.front().dayOfYear))
                    : fmt::format("{} of the day with {}", title, least ? "least" : "most"));
            if (days.size() > 1) {
                m_day = add("day", "day of year", "The day that decides");
            }
        }
        if (m_rule.hours || m_rule.probable) {
            m_passes = add("passes", "0 or 1", "Whether the threshold is reached");
        }
        if (days.size() > mostDayColumns || m_rule.probable) {
            return;
        }
        const std::string clock = "h of " + utcText(study.site.site.timeZone);
        for (const SunOfDay& day : days) {
            const std::string date =
                fmt::format("{:04}_{:02}_{:02}", study.options.year, day.month, day.day);
            const std::string on = dayText(day.dayOfYear);
            m_byDay.push_back(
                add(fmt::format("{}_{}", what, date), "min", fmt::format("{} on {}", title, on)));
            add("longest_" + date, "min", fmt::format("Longest span of {} on {}", what, on));
            add("first_" + date, clock, fmt::format("First {} on {}", what, on));
            add("last_" + date, clock, fmt::format("Last {} on {}", what, on));
        }
    }

    /// Sets the values of a sensor whose spans of sun are asked for day by day.
    template <typename LitOn>
    void fill(std::size_t sensor, LitOn&& litOn) {
        if (m_rule.probable) {
            fillYear(sensor, litOn);
            return;
        }
        const bool every = m_rule.dayRule == DayRule::every;
        const bool lowDecides = every == (m_rule.sense == SunSense::sunAtLeast);
        bool passes = every;
        double deciding = 0.0;
        for (std::size_t i = 0; i < m_days.size(); ++i) {
            const DayOfSun day = dayOfSun(litOn(i), m_days[i].possible, m_rule);
            const bool dayPassed = dayPasses(day, m_rule);
            passes = every ? passes && dayPassed : passes || dayPassed;
            if (i == 0 || (lowDecides ? day.counted < deciding : day.counted > deciding)) {
                deciding = day.counted;
                if (m_day) {
                    set(*m_day, sensor, m_days[i].dayOfYear);
                }
            }
            if (!m_byDay.empty()) {
                const std::size_t first = m_byDay[i];
                set(first, sensor, day.counted);
                set(first + 1, sensor, day.longest);
                set(first + 2, sensor, day.first / 60.0);
                set(first + 3, sensor, day.last / 60.0);
            }
        }
        set(0, sensor, deciding);
        if (m_passes) {
            m_columns[*m_passes].values[sensor] = passes ? yes : no;
        }
    }

    [[nodiscard]] std::optional<std::size_t> passesColumn() const { return m_passes; }
    [[nodiscard]] std::vector<ResultColumn> take() { return std::move(m_columns); }

private:
    void set(std::size_t column, std::size_t sensor, double value) {
        m_columns[column].values[sensor] = static_cast<float>(value);
    }

    template <typename LitOn>
    void fillYear(std::size_t sensor, LitOn& litOn) {
        const ProbableSun& probable = *m_rule.probable;
        const auto length = [](const std::vector<TimeSpan>& spans) {
            double sum = 0.0;
            for (const TimeSpan& span : spans) {
                sum += span.length();
            }
            return sum;
        };
        double year = 0.0;
        double winter = 0.0;
        double possible = 0.0;
        for (std::size_t i = 0; i < m_days.size(); ++i) {
            const double weight = probable.share[static_cast<std::size_t>(m_days[i].month - 1)];
            const double sun = weight * length(litOn(i));
            const int day = m_days[i].dayOfYear;
            year += sun;
            winter += day >= probable.winterStart || day <= probable.winterEnd ? sun : 0.0;
            possible += weight * length(m_days[i].possible);
        }
        const double percent = possible > 0.0 ? 100.0 / possible : 0.0;
        set(0, sensor, year * percent);
        set(*m_winter, sensor, winter * percent);
        m_columns[*m_passes].values[sensor] =
            year * percent >= probable.yearPercent && winter * percent >= probable.winterPercent
                ? yes
                : no;
    }

    const SunlightRule& m_rule;
    const std::vector<SunOfDay>& m_days;
    std::vector<ResultColumn> m_columns;
    std::optional<std::size_t> m_day;
    std::optional<std::size_t> m_passes;
    std::optional<std::size_t> m_winter;
    std::vector<std::size_t> m_byDay; ///< the first of a day's columns
};

/// Points that keep enough of what they had pass as well.
void passByBaseline(std::vector<ResultColumn>& columns, std::size_t passes, const Baseline& former,
                    const SunlightRule& rule) {
    const double ratio = *rule.baselineRatio;
    for (std::size_t i = 0; i < columns[passes].values.size(); ++i) {
        const auto keeps = [&](std::size_t column, std::span<const double> before, double wanted) {
            const auto now = static_cast<double>(columns[column].values[i]);
            return now >= wanted || now >= ratio * before[i] - leastDifference;
        };
        const bool kept = rule.probable ? keeps(0, former.values, rule.probable->yearPercent) &&
                                              keeps(1, former.winter, rule.probable->winterPercent)
                                        : keeps(0, former.values, 1.0e300);
        if (kept) {
            columns[passes].values[i] = yes;
        }
    }
}

struct Groups {
    std::vector<std::string> names;
    std::vector<std::size_t> of; ///< by sensor
};

Groups groupsOf(const SensorField& field, SunGroups by) {
    Groups groups;
    groups.of.resize(field.size());
    if (by == SunGroups::all || field.origins.empty()) {
        groups.names = {"all"};
        return groups;
    }
    std::map<std::uint32_t, std::size_t> known; // by the name's place
    for (std::size_t i = 0; i < groups.of.size(); ++i) {
        const CellOrigin& origin = field.origins[i];
        const std::uint32_t name = by == SunGroups::object ? origin.object : origin.material;
        const auto [place, isNew] = known.try_emplace(name, groups.names.size());
        if (isNew) {
            groups.names.push_back(name == CellOrigin::unnamed ? "unnamed" : field.names[name]);
        }
        groups.of[i] = place->second;
    }
    return groups;
}

std::vector<SunGroupResult> judgeGroups(const SunHoursStudy& study, const SunHoursResults& results,
                                        std::optional<std::size_t> passes, const Baseline* former) {
    const Groups groups = groupsOf(study.inputs.field, study.options.groups);
    std::vector<SunGroupResult> judged(groups.names.size());
    for (std::size_t g = 0; g < judged.size(); ++g) {
        judged[g].name = groups.names[g];
        judged[g].least = std::numeric_limits<double>::infinity();
        judged[g].greatest = -std::numeric_limits<double>::infinity();
    }
    for (std::size_t i = 0; i < groups.of.size(); ++i) {
        if (!results.included.empty() && results.included[i] == 0) {
            continue;
        }
        SunGroupResult& group = judged[groups.of[i]];
        const double area = results.areas.empty() ? 1.0 : static_cast<double>(results.areas[i]);
        const auto value = static_cast<double>(results.columns.front().values[i]);
        const bool pass = !passes || results.columns[*passes].values[i] == yes;
        ++group.sensors;
        group.area += area;
        group.passing += pass ? 1 : 0;
        group.passingArea += pass ? area : 0.0;
        group.formerArea += former != nullptr && former->passes[i] ? area : 0.0;
        group.least = std::min(group.least, value);
        group.greatest = std::max(group.greatest, value);
    }
    std::erase_if(judged, [](const SunGroupResult& group) { return group.sensors == 0; });
    // Sums of thousands of areas differ in their last digits.
    constexpr double slack = 1.0e-9;
    const SunlightRule& rule = study.rule;
    for (SunGroupResult& group : judged) {
        switch (rule.pass) {
        case SunPass::points:
            group.passes = group.passing == group.sensors;
            break;
        case SunPass::groups:
            group.passes = group.passing > 0;
            break;
        case SunPass::area:
            group.passes =
                group.passingArea >= (rule.share / 100.0 - slack) * group.area ||
                (rule.leastArea && group.passingArea >= *rule.leastArea * (1.0 - slack)) ||
                (former != nullptr &&
                 group.passingArea >= (*rule.baselineRatio - slack) * group.formerArea);
            break;
        }
    }
    return judged;
}

bool allPass(const std::vector<SunGroupResult>& groups, const SunlightRule& rule) {
    const auto passing = std::count_if(groups.begin(), groups.end(),
                                       [](const SunGroupResult& group) { return group.passes; });
    const double wanted = rule.pass == SunPass::groups ? rule.share / 100.0 : 1.0;
    return !groups.empty() &&
           static_cast<double>(passing) >= wanted * static_cast<double>(groups.size()) - 1.0e-9;
}

/// Marks sensors that are enclosed, and leaves out those that are to be.
/// @param dark by sensor, whether no sun reached it on any day
void findEnclosed(SunHoursResults& results, const SunHoursStudy& study,
                  std::span<const std::uint8_t> dark, const Baseline* former, Progress& progress,
                  const std::stop_token& stop) {
    const SunHoursOptions& options = study.options;
    results.enclosed =
        enclosedAmong(dark, study.inputs, options.model.north, options.model.threads, stop);
    results.enclosedCount = static_cast<std::size_t>(std::ranges::count(results.enclosed, 1.0f));
    if (results.enclosedCount == 0) {
        return;
    }
    progress.warn(enclosedWarning(results.enclosedCount, dark.size(), "neither sky nor ground",
                                  options.keepEnclosed));
    if (options.keepEnclosed) {
        return;
    }
    results.included.resize(dark.size());
    for (std::size_t i = 0; i < dark.size(); ++i) {
        const bool isLost = former != nullptr && former->passes[i];
        results.included[i] = results.enclosed[i] == 0.0f || isLost ? 1 : 0;
    }
}

void checkOptions(const SunHoursOptions& options, const SunlightRule& rule) {
    if (options.year < 1950 || options.year > 2050) {
        throw UsageError(fmt::format("--year {}: the sun's place is known from 1950 to 2050; give "
                                     "a year of these",
                                     options.year));
    }
    checkModelOptions(options.model);
    checkPageLimit(options.pageLimit);
    if (!options.baseline.empty()) {
        if (rule.sense == SunSense::shadowAtMost) {
            throw UsageError("--baseline: shares of former sun do not belong to --max-shadow; "
                             "leave one of them out");
        }
        if (!rule.baselineRatio) {
            throw UsageError("--ratio is missing; give the share of the --baseline that satisfies, "
                             "such as 0.8");
        }
        if (!rule.hours && !rule.probable) {
            throw UsageError("--min is missing; a --baseline is compared with where there is a "
                             "threshold");
        }
    } else if (options.rule.ratio) {
        throw UsageError("--baseline is missing; --ratio compares with an earlier run");
    }
}

int yearOf(const SunHoursOptions& options) {
    if (options.year != 0 && options.yearOfDates && options.year != *options.yearOfDates) {
        throw UsageError(fmt::format("--dates: the dates are of {}, but --year is {}; leave one of "
                                     "the years out",
                                     *options.yearOfDates, options.year));
    }
    return options.year != 0 ? options.year
                             : options.yearOfDates.value_or(SunHoursOptions::usualYear);
}

std::optional<SummerTime> summerTimeFor(const SunHoursOptions& options, const SunWindow& window) {
    std::optional<SummerTime> summer = summerTimeOf(options.summerTime, options.year);
    if (summer && window.basis != TimeBasis::clock) {
        throw UsageError(fmt::format(
            "--dst {}: belongs to hours of the clock, but these are of {}; "
            "leave it out",
            options.summerTime,
            window.basis == TimeBasis::solar ? "true solar time" : "sunrise and sunset"));
    }
    return summer;
}

} // namespace

SunHoursStudy prepareSunHours(const SunHoursOptions& options, std::optional<StudyInputs> given,
                              Progress& progress, const std::stop_token& stop) {
    SunHoursStudy study;
    study.options = options;
    study.rule = ruleOf(options.rule);
    study.options.year = yearOf(options);
    checkOptions(study.options, study.rule);
    study.rule.window.summerTime = summerTimeFor(study.options, study.rule.window);
    study.site = namedSite(options.site);
    progress.note(fmt::format("{}, year {}; centre of the sun's disc, {} refraction",
                              study.site.name, study.options.year,
                              options.refraction ? "with" : "without"));
    if (!study.site.note.empty()) {
        progress.warn(study.site.note);
    }
    if (!options.rule.preset.empty()) {
        const SunlightPreset& preset = sunlightPreset(options.rule.preset);
        progress.note(fmt::format("rule {}: {}, {} ({}){}{}", preset.name, preset.title,
                                  preset.country, preset.edition, preset.note.empty() ? "" : "; ",
                                  preset.note));
    }
    progress.note(ruleText(study.rule));
    if (!options.baseline.empty()) {
        nlohmann::ordered_json record = sunRecord(study);
        record["scene"]["north_deg"] = options.model.north;
        requireSameSun(options.baseline, record);
    }
    study.inputs = given ? std::move(*given) : readInputs(options.model, progress, stop);
    return study;
}

SunHoursResults calculateSunHours(const SunHoursStudy& study, Progress& progress,
                                  const std::stop_token& stop) {
    const SensorField& field = study.inputs.field;
    const SunOfDays sun(study);
    if (std::ranges::all_of(sun.days(), [](const SunOfDay& day) { return day.possible.empty(); })) {
        progress.warn("there is no sun to count on any of the days, above the horizon or "
                      "--min-altitude and within the window: nothing has sun, and limits of shadow "
                      "hold everywhere");
    }
    SunColumns columns(study, sun.days());
    const std::size_t count = field.size();
    std::optional<Baseline> former;
    if (!study.options.baseline.empty()) {
        former = readBaseline(study.options.baseline, field, study.rule.probable.has_value(), stop);
    }

    SunHoursResults results;
    const auto perThread = 4 * static_cast<std::size_t>(usedThreads(study.options.model.threads));
    const SensorBlocks blocks{count, std::clamp(count / perThread, std::size_t{1}, mostInBlock)};
    std::vector<std::uint8_t> dark(count, 1);
    results.spans.resize(study.options.spans ? blocks.number() : 0);
    progress.begin(count, counted(count, "sensor", "sensors"));
    forEachBlock(
        blocks, study.options.model.threads,
        [&](SensorRange sensors, int) {
            SunOfSensor sensorSun(sun, field);
            for (std::size_t i = sensors.first; i < sensors.end; ++i) {
                sensorSun.moveTo(i);
                columns.fill(i, [&](std::size_t day) -> const std::vector<TimeSpan>& {
                    const std::vector<TimeSpan>& lit = sensorSun.litOn(day);
                    if (!lit.empty()) {
                        dark[i] = 0;
                    }
                    for (const TimeSpan& span : lit) {
                        if (study.options.spans) {
                            results.spans[sensors.first / blocks.size].push_back({i, day, span});
                        }
                    }
                    return lit;
                });
            }
            progress.advance(sensors.end - sensors.first);
        },
        stop);
    progress.end();
    throwIfStopped(stop);

    const std::optional<std::size_t> passes = columns.passesColumn();
    results.columns = columns.take();
    results.areas = cellAreas(field);
    if (former && study.rule.pass != SunPass::area) {
        passByBaseline(results.columns, *passes, *former, study.rule);
    }
    findEnclosed(results, study, dark, former ? &*former : nullptr, progress, stop);
    results.groups = judgeGroups(study, results, passes, former ? &*former : nullptr);
    if (passes) {
        results.passes = allPass(results.groups, study.rule);
    }
    return results;
}

} // namespace insolate::study
