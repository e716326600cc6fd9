#include "study/run/hourly_study.h"

#include "study/run/enclosed.h"
#include "study/run/sun_paths.h"

#include "study/support/errors.h"
#include "study/support/numbers.h"
#include "study/support/readable.h"

#include <algorithm>
#include <array>
#include <cmath>

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <oneapi/tbb/parallel_for.h>
#include <xxhash.h>

namespace insolate::study {

namespace {

/// Places of the columns.
enum Column {
    total,
    beam,
    diffuse,
    ground,
    averageDaylight,
    averagePeriod,
    peak,
    peakHour,
    skyView,
    groundView,
    sunHours,
    wholeColumns, ///< how many there always are
    reflected = wholeColumns
};

/// Of a part of the period: the first ones, the hours of sun, and what is reflected. Where there
/// are very many parts, all but the first would make tables that nobody reads.
constexpr std::array partColumns = {total, beam, diffuse, ground, sunHours, reflected};
constexpr std::size_t mostFullParts = 31;

/// A scene without triangles.
class OpenView final : public GetTransparencyValueOnRay {
public:
    bool getSurfaceDoubleSided() override { return false; }
    float getTransparencyValue(const XYZf&, const XYZf&, const XYZf*) override { return 1.0f; }
    int initialise() override { return 0; }
};

/// Collects bytes on which results depend.
class Digest {
public:
    /// Of values and of elements without gaps between their members.
    template <typename Value>
    void add(const Value& value) {
        add(&value, sizeof value);
    }
    template <typename Element>
    void add(const std::vector<Element>& elements) {
        add(elements.size());
        add(elements.data(), elements.size() * sizeof(Element));
    }
    [[nodiscard]] std::string text() const {
        const XXH128_hash_t hash = XXH3_128bits(m_bytes.data(), m_bytes.size());
        return fmt::format("{:016x}{:016x}", hash.high64, hash.low64);
    }

private:
    void add(const void* bytes, std::size_t size) {
        m_bytes.append(static_cast<const char*>(bytes), size);
    }

    std::string m_bytes;
};

int stepsOfHour(double step) {
    const double steps = std::round(1.0 / step);
    if (steps > 60.0 || std::abs(steps * step - 1.0) > 1.0e-9) {
        throw UsageError(fmt::format("--step {}: hours are walked in equal parts of a minute or "
                                     "more; give 0.1, 0.25, 0.5 or 1",
                                     step));
    }
    return static_cast<int>(steps);
}

HourlySky skyOf(const WeatherSeries& weather, const SkyOptions& options, const StudyPeriod& period,
                double north) {
    HourlySkyOptions sky;
    sky.stepsPerHour = stepsOfHour(period.step);
    sky.northOffset = north * radiansPerDegree;
    sky.albedo = options.hourly.albedo.value_or(HourlyOptions::usualAlbedo);
    sky.monthlyAlbedo = options.hourly.monthlyAlbedo;
    AnalysisPeriod days{period.startDay, period.endDay, period.startHour, period.endHour};
    if (const auto& summer = period.summerTime; summer && !period.hasWholeDays()) {
        days.firstSummerDay = summer->firstDay;
        days.lastSummerDay = summer->lastDay;
    }
    return buildHourlySky(weather, days, sky, SkyThreads::all);
}

} // namespace

HourlyStudy::HourlyStudy(const SkyOptions& options, double north,
                         std::shared_ptr<const WeatherYear> year)
    : m_asked(options), m_north(north), m_year(std::move(year)),
      m_parts(partsOf(options.period, options.hourly.split, options.hourly.periods)),
      m_weather(m_year->report), m_monthlyAlbedo(m_year->series.monthlyAlbedo) {
    requireCompleteYear(m_weather, options.weather, options.allowGaps);
    HourlySky sky = skyOf(m_year->series, options, options.period, north);
    if (!sky.valid) {
        throw DataError(fmt::format("{}: the sky of the period could not be built; choose another "
                                    "period",
                                    place(options.weather)));
    }
    if (m_asked.hourly.monthlyAlbedo) {
        const auto missing = static_cast<std::size_t>(
            std::count_if(m_monthlyAlbedo.begin(), m_monthlyAlbedo.end(),
                          [](float value) { return !std::isfinite(value); }));
        if (missing > 0) {
            m_weather.notes.push_back(
                fmt::format("{}: {} {} no albedo; {} holds for {}", place(options.weather), missing,
                            counted(missing, "month has", "months have"),
                            HourlyOptions::usualAlbedo, counted(missing, "it", "them")));
        }
    }
    noteLastDay(m_weather, options.weather, "", touchesLastDays(options.period));
    if (std::string odd = sunDownText(options.weather, sky, m_weather.strayDirect); !odd.empty()) {
        m_weather.notes.push_back(std::move(odd));
    }
    HourlyAnalysisOptions analysis;
    analysis.tolerance = m_asked.hourly.toleranceOfTotal() / 100.0;
    analysis.skyTolerance = m_asked.hourly.skyTolerance / 100.0;
    analysis.sunTolerance = m_asked.hourly.sunTolerance / 100.0;
    if (m_asked.hourly.openGround) {
        analysis.groundRays = 0;
    }
    if (m_asked.hourly.rules != nullptr) {
        std::vector<Material> materials;
        for (const MaterialRule& rule : m_asked.hourly.rules->rules) {
            materials.push_back(rule.material);
        }
        analysis.seasons = seasonsOf(materials);
        m_hasSeasons = analysis.seasons.count > 1;
    }
    std::vector<HourlySky> parts(m_parts.size());
    tbb::parallel_for(std::size_t{0}, parts.size(), [&](std::size_t i) {
        parts[i] = skyOf(m_year->series, options, m_parts[i].period, north);
        if (analysis.seasons.count == 1) { // the hours of the whole are enough
            parts[i].skyHours = {};
            parts[i].beams = {};
            parts[i].patchRadiance = {};
        }
    });
    m_analysis = std::make_shared<const HourlyAnalysis>(std::move(sky), analysis, parts);
}

std::vector<ResultColumn> HourlyStudy::columns() const {
    std::vector<ResultColumn> columns = {
        {"total", "Wh/m2", "Total radiation", {}},
        {"beam", "Wh/m2", "Direct radiation", {}},
        {"sky", "Wh/m2", "Radiation of the sky", {}},
        {"ground", "Wh/m2", "Radiation reflected by the ground", {}},
        {"average_daylight", "W/m2", "Average while the sun is up", {}},
        {"average_period", "W/m2", "Average over all hours", {}},
        {"peak", "W/m2", "Highest mean of an hour", {}},
        {"peak_hour", "hour of year", "Hour of the peak, counted by its end", {}},
        {"sky_view", "%", "Sky view", {}},
        {"ground_view", "%", "Ground view", {}},
        {"direct_sun_hours", "h", "Hours of direct sun", {}}};
    if (m_asked.reflects()) {
        columns.push_back({"reflected", "Wh/m2", "Radiation reflected by the scene", {}});
    }
    if (m_asked.hourly.unshaded) {
        columns.push_back({"unshaded", "Wh/m2", "Total radiation without the scene", {}});
    }
    for (const NamedPeriod& part : m_parts) {
        for (std::size_t i = 0; i < columnsOfPart(); ++i) {
            const ResultColumn& whole = columns[partColumns[i]];
            columns.push_back(
                {whole.name + "_" + part.name, whole.unit, whole.title + ", " + part.text, {}});
        }
    }
    return columns;
}

std::size_t HourlyStudy::columnsOfPart() const {
    // Light of the ground that leaves let through has no fixed share of a part's: it is needed.
    const bool needsGround = m_asked.reflects() && m_hasSeasons;
    return m_parts.size() > mostFullParts && !needsGround
               ? 1
               : partColumns.size() - (m_asked.reflects() ? 0 : 1);
}

std::size_t HourlyStudy::firstPartColumn() const {
    return std::size_t{wholeColumns} + (m_asked.reflects() ? 1 : 0) +
           (m_asked.hourly.unshaded ? 1 : 0);
}

Sensor HourlyStudy::sensorAt(const SensorWork& work, std::size_t index) const {
    return {work.recentring.local(work.field.positions[index]),
            narrowed(work.field.normals[index])};
}

SensorResult HourlyStudy::evaluate(const SensorWork& work, std::size_t index,
                                   std::span<SensorPart> parts, SensorHours* hours) const {
    const Sensor sensor = sensorAt(work, index);
    return work.masks.light() != nullptr
               ? m_analysis->evaluate(*work.masks.light(), sensor, parts, hours)
               : m_analysis->evaluate(*work.masks.rays(), sensor, parts, hours);
}

void HourlyStudy::calculate(const SensorWork& work, SensorRange range, int,
                            std::span<ResultColumn> columns) {
    const std::size_t count = range.end - range.first;
    std::vector<Sensor> sensors(count);
    for (std::size_t i = 0; i < count; ++i) {
        sensors[i] = sensorAt(work, range.first + i);
    }
    std::vector<SensorResult> results(count);
    std::vector<SensorPart> allParts(count * m_parts.size());
    EvaluateOptions here;
    here.threads = 1;
    if (work.masks.light() != nullptr) {
        m_analysis->evaluate(*work.masks.light(), sensors, results, here, {}, allParts);
    } else {
        m_analysis->evaluate(*work.masks.rays(), sensors, results, here, {}, allParts);
    }
    OpenView nothing;
    struct Open {
        XYZf normal;
        float total;
    };
    std::optional<Open> open;
    for (std::size_t i = range.first; i < range.end; ++i) {
        const SensorResult& result = results[i - range.first];
        columns[total].values[i] = result.total;
        columns[beam].values[i] = result.beam;
        columns[diffuse].values[i] = result.sky;
        columns[ground].values[i] = result.ground;
        columns[averageDaylight].values[i] = result.averageDaylight;
        columns[averagePeriod].values[i] = result.averagePeriod;
        columns[peak].values[i] = result.peak;
        columns[peakHour].values[i] = static_cast<float>(result.peakHour + 1);
        columns[skyView].values[i] = 100.0f * result.skyViewFactor;
        columns[groundView].values[i] = 100.0f * result.groundViewFactor;
        columns[sunHours].values[i] = result.directSunHours;
        std::size_t column = firstPartColumn();
        if (m_asked.hourly.unshaded) {
            const Sensor& sensor = sensors[i - range.first];
            // Neighbours mostly look the same way.
            if (!open || open->normal.x != sensor.normal.x || open->normal.y != sensor.normal.y ||
                open->normal.z != sensor.normal.z) {
                open = {sensor.normal, m_analysis->evaluate(nothing, sensor).total};
            }
            columns[column - 1].values[i] = open->total;
        }
        for (const SensorPart& part :
             std::span(allParts).subspan((i - range.first) * m_parts.size(), m_parts.size())) {
            const std::array<float, partColumns.size()> values = {
                part.total, part.beam, part.sky, part.ground, part.directSunHours, part.reflected};
            for (std::size_t k = 0; k < columnsOfPart(); ++k) {
                columns[column++].values[i] = values[k];
            }
        }
    }
}

SensorResult HourlyStudy::resultIn(std::span<const ResultColumn> columns, std::size_t i) {
    SensorResult result;
    result.total = columns[total].values[i];
    result.beam = columns[beam].values[i];
    result.sky = columns[diffuse].values[i];
    result.ground = columns[ground].values[i];
    result.peak = columns[peak].values[i];
    result.peakHour = static_cast<int>(columns[peakHour].values[i]) - 1;
    result.skyViewFactor = columns[skyView].values[i] / 100.0f;
    result.groundViewFactor = columns[groundView].values[i] / 100.0f;
    return result;
}

std::shared_ptr<const ReflectedSensors>
HourlyStudy::addReflected(const SensorWork& work, int threads, bool isKept,
                          std::span<ResultColumn> columns, Progress& progress,
                          const std::stop_token& stop) const {
    if (!m_asked.reflects()) {
        return {};
    }
    progress.begin(work.field.size(), "sensors, reflected light");
    EvaluateOptions run;
    run.threads = threads;
    run.stop = stop;
    run.progress = [&](std::size_t count) { progress.advance(count); };
    ReflectionOptions options;
    options.bounces = m_asked.hourly.bounces;
    options.leastCell *= work.recentring.scale();
    options.leastLinkCell *= work.recentring.scale();
    auto all = std::make_shared<ReflectedSensors>();
    std::vector<Sensor> sensors;
    std::vector<SensorResult> direct;
    std::vector<SensorPart> parts(m_parts.size());
    for (std::size_t first = 0; first < work.field.size(); first += ReflectedSensors::blockSize) {
        const std::size_t end = std::min(first + ReflectedSensors::blockSize, work.field.size());
        sensors.clear();
        direct.clear();
        for (std::size_t i = first; i < end; ++i) {
            sensors.push_back(sensorAt(work, i));
            direct.push_back(resultIn(columns, i));
        }
        ReflectedLight light(*m_analysis, *work.masks.light(), sensors, options, run, direct);
        throwIfStopped(stop);
        for (std::size_t i = first; i < end; ++i) {
            addReflected(light, first, i, columns, parts);
        }
        all->add(std::move(light), isKept);
    }
    progress.end();
    const ReflectionReport& report = all->report();
    progress.note(fmt::format(
        "reflected light: {} cells, {} {}, {:.1f} MB", groupedDigits(report.cells), report.bounces,
        counted(static_cast<std::size_t>(report.bounces), "reflection", "reflections"),
        static_cast<double>(report.bytes) / 1.0e6));
    if (!report.converged) {
        progress.warn(
            fmt::format("light is caught between surfaces that absorb next to nothing, in "
                        "a closed scene or a room that is met through a gap: it grows "
                        "with every reflection, and {} were counted; give a lower "
                        "--reflectance, or --bounces",
                        report.bounces));
    }
    return all;
}

void HourlyStudy::addReflected(const ReflectedLight& light, std::size_t first, std::size_t i,
                               std::span<ResultColumn> columns, std::span<SensorPart> parts) const {
    SensorResult result = resultIn(columns, i);
    const bool allOfParts = columnsOfPart() > 1;
    std::size_t column = firstPartColumn();
    for (std::size_t p = 0; p < parts.size(); ++p, column += columnsOfPart()) {
        SensorPart& part = parts[p];
        if (allOfParts) {
            part.beam = columns[column + 1].values[i];
            part.sky = columns[column + 2].values[i];
            part.ground = columns[column + 3].values[i];
        } else {
            const double all = m_analysis->sky().groundReflected;
            part.ground = all > 0.0
                              ? static_cast<float>(static_cast<double>(result.ground) *
                                                   m_analysis->partLight(p).groundReflected / all)
                              : 0.0f;
            part.sky = columns[column].values[i] - part.ground; // with the sun: only sums count
            part.beam = 0.0f;
        }
    }
    light.addTo(i - first, result, nullptr, parts);
    columns[total].values[i] = result.total;
    columns[ground].values[i] = result.ground;
    columns[averageDaylight].values[i] = result.averageDaylight;
    columns[averagePeriod].values[i] = result.averagePeriod;
    columns[peak].values[i] = result.peak;
    columns[reflected].values[i] = result.reflected;
    column = firstPartColumn();
    for (std::size_t p = 0; p < parts.size(); ++p, column += columnsOfPart()) {
        columns[column].values[i] = parts[p].total;
        if (allOfParts) {
            columns[column + 3].values[i] = parts[p].ground;
            columns[column + 5].values[i] = parts[p].reflected;
        }
    }
}

bool HourlyStudy::isEnclosed(std::span<const ResultColumn> columns, const SensorField&,
                             std::size_t sensor) const {
    return isEnclosedView(columns[skyView].values[sensor], columns[groundView].values[sensor]);
}

SensorHours HourlyStudy::hoursOf(const SensorWork& work, std::size_t sensor) const {
    SensorHours hours;
    SensorResult result = evaluate(work, sensor, {}, &hours);
    if (work.reflected != nullptr) {
        work.reflected->addTo(sensor, result, &hours);
    } else if (m_asked.reflects()) {
        hours.reflected.assign(hoursPerYear, 0.0f); // rows have that part
    }
    return hours;
}

std::unique_ptr<RadiationMethod>
HourlyStudy::again(const SkyOptions& options, double north,
                   const std::shared_ptr<const WeatherYear>& given) const {
    SkyOptions asked = options;
    asked.out = m_asked.out;
    if (given != m_year || north != m_north || asked != m_asked) {
        return nullptr;
    }
    return std::make_unique<HourlyStudy>(*this);
}

std::string HourlyStudy::digest() const {
    const HourlySky& sky = m_analysis->sky();
    const HourlyOptions& asked = m_asked.hourly;
    if (asked.rules != nullptr) {
        return {}; // light passes through what rays meet
    }
    Digest digest;
    digest.add(asked.toleranceOfTotal());
    digest.add(m_asked.reflects());
    digest.add(asked.skyTolerance);
    digest.add(asked.sunTolerance);
    digest.add(asked.openGround);
    digest.add(sky.options.northOffset);
    digest.add(sky.hours);
    digest.add(sky.daylightHours);
    digest.add(sky.groundReflected);
    digest.add(sky.diffuse);
    digest.add(sky.sunCells);
    digest.add(sky.sunSteps);
    digest.add(sky.skyHours);
    digest.add(sky.beams);
    digest.add(sky.patchRadiance);
    digest.add(sky.report.diffuseHorizontal);
    digest.add(sky.report.directHorizontal);
    return digest.text();
}

std::vector<std::uint8_t> HourlyStudy::touched(const SensorWork& work,
                                               const SceneDifference& difference,
                                               MaskSource& before, int threads,
                                               const std::stop_token& stop) const {
    std::vector<std::uint8_t> marks(work.field.size(), 0);
    const ChangedRays change(difference, work.recentring, *before.rays(), *work.masks.rays(),
                             m_analysis->firstRays());
    const HourlyOptions& asked = m_asked.hourly;
    const bool looksAgain =
        asked.toleranceOfTotal() > 0.0 || asked.skyTolerance > 0.0 || asked.sunTolerance > 0.0;
    constexpr std::size_t sensorsAtOnce = 64;
    forEachBlock(
        {marks.size(), sensorsAtOnce}, threads,
        [&](SensorRange sensors, int) {
            for (std::size_t i = sensors.first; i < sensors.end && !stop.stop_requested(); ++i) {
                const Sensor sensor = sensorAt(work, i);
                const bool isTouched = looksAgain ? change.mayTouch(sensor) : change.touch(sensor);
                marks[i] = isTouched ? 1 : 0;
            }
        },
        stop);
    throwIfStopped(stop);
    return marks;
}

SkyPages HourlyStudy::skyPages() const {
    const HourlySky& sky = m_analysis->sky();
    SkyPages pages;
    const std::vector<float> empty(static_cast<std::size_t>(skyGrid::cellCount), 0.0f);
    pages.parts = {{"direct", "Wh/m2", "Direct radiation", empty},
                   {"diffuse", "Wh/m2", "Diffuse radiation", sky.diffuse},
                   {"sun_hours", "h", "Hours of sun", empty}};
    pages.whole = {"radiation", "Wh/m2", "Radiation by sky cell", empty};
    for (const SunCell& sun : sky.sunCells) {
        pages.parts[0].values[static_cast<std::size_t>(sun.cell)] = sun.directNormal;
        pages.parts[2].values[static_cast<std::size_t>(sun.cell)] = sun.sunHours;
    }
    const SkyCells cells(sky.options.northOffset);
    for (std::size_t cell = 0; cell < empty.size(); ++cell) {
        pages.parts[1].values[cell] *= cells.solidAngle[cell];
        pages.whole.values[cell] = pages.parts[0].values[cell] + pages.parts[1].values[cell];
    }
    pages.paths = sunPaths([&](int day, double hour) {
        const MonthAndDay date = monthAndDay(day - 1);
        const SunPosition sun =
            sunPosition(julianDay(2001, date.month, date.day, hour - sky.site.timeZone), sky.site);
        return SkyPath::Point{sun.azimuth / radiansPerDegree, sun.altitude / radiansPerDegree};
    });
    return pages;
}

std::string HourlyStudy::advice() const {
    constexpr int week = 7;
    return m_asked.period.dayCount() <= week && m_asked.hourly.toleranceOfTotal() <= 0.0 &&
                   m_asked.hourly.sunTolerance <= 0.0
               ? "in a week or less the edges of shadows count more; --tolerance 1 looks closer at "
                 "them"
               : std::string();
}

void HourlyStudy::describeSky(nlohmann::ordered_json& record) const {
    const HourlySky& sky = m_analysis->sky();
    const HourlySkyReport& report = sky.report;
    const double usual = m_asked.hourly.albedo.value_or(HourlyOptions::usualAlbedo);
    nlohmann::ordered_json albedo = usual;
    if (m_asked.hourly.monthlyAlbedo) {
        albedo = nlohmann::ordered_json::array();
        for (const float month : m_monthlyAlbedo) {
            // Six digits: what a float holds, not the double near it.
            albedo.push_back(month > 0.0f ? std::round(static_cast<double>(month) * 1.0e6) / 1.0e6
                                          : usual);
        }
    }
    record["hourly"] = {{"steps_per_hour", sky.options.stepsPerHour},
                        {"albedo", albedo},
                        {"albedo_of_weather_file", m_asked.hourly.monthlyAlbedo},
                        {"hours", sky.hours},
                        {"daylight_hours", sky.daylightHours},
                        {"placed",
                         {{"unit", "Wh/m2"},
                          {"direct_normal", report.directNormal},
                          {"direct_horizontal", report.directHorizontal},
                          {"diffuse_horizontal", report.diffuseHorizontal},
                          {"open_horizontal", report.directHorizontal + report.diffuseHorizontal},
                          {"global_horizontal_of_the_weather", report.globalHorizontal},
                          {"reflected_by_open_ground", sky.groundReflected}}},
                        {"while_the_sun_is_down",
                         {{"hours", report.hoursWithoutSun},
                          {"direct_normal_Wh_m2", report.directWithoutSun},
                          {"placed_on_the_whole_sky_Wh_m2", report.diffuseWithoutSun}}},
                        {"hours_missing", report.hoursMissing},
                        {"hours_with_sky_model_held_to_its_range", report.skiesLimited}};
}

void HourlyStudy::describeSensors(nlohmann::ordered_json& record,
                                  std::span<const ResultColumn> columns) const {
    // A new key moves the others: no reference to one outlives the next.
    if (!m_parts.empty()) {
        nlohmann::ordered_json& parts = record["periods"];
        for (const NamedPeriod& part : m_parts) {
            parts.push_back({{"name", part.name}, {"text", part.text}});
        }
    }
    nlohmann::ordered_json& hourly = record["hourly"];
    hourly["ground"] = m_asked.hourly.openGround ? "open" : "open where the scene does not hide it";
    hourly["reflectance"] = m_asked.hourly.otherReflectance();
    if (m_asked.reflects()) {
        hourly["ground"] = m_asked.hourly.openGround ? "open" : "in the scene's shadow";
        hourly["bounces"] = m_asked.hourly.bounces;
    }
    hourly["tolerance_percent"] = m_asked.hourly.toleranceOfTotal();
    hourly["sky_tolerance_percent"] = m_asked.hourly.skyTolerance;
    hourly["sun_tolerance_percent"] = m_asked.hourly.sunTolerance;
    if (columns.empty()) {
        return;
    }
    const auto highest = std::max_element(columns[peak].values.begin(), columns[peak].values.end());
    if (highest != columns[peak].values.end() && *highest > 0.0f) {
        const auto sensor = static_cast<std::size_t>(highest - columns[peak].values.begin());
        const auto hour = static_cast<int>(columns[peakHour].values[sensor]);
        record["highest_peak"] = {{"W_m2", *highest},
                                  {"sensor", sensor},
                                  {"hour_of_year", hour},
                                  {"text", hourOfYearText({(hour - 1) / 24, (hour - 1) % 24})}};
    }
}

std::unique_ptr<RadiationMethod> makeHourlyStudy(const SkyOptions& options, double north,
                                                 const std::shared_ptr<const WeatherYear>& given) {
    return std::make_unique<HourlyStudy>(
        options, north,
        given != nullptr ? given
                         : std::make_shared<const WeatherYear>(readWeatherYear(options.weather)));
}

} // namespace insolate::study
