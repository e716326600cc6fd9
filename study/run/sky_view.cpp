#include "study/run/sky_view.h"

#include "study/model/recentring.h"
#include "study/run/enclosed.h"
#include "study/run/sensor_blocks.h"
#include "study/support/errors.h"
#include "study/support/numbers.h"
#include "study/support/readable.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>
#include <insolate/insolate.h>

namespace insolate::study {

namespace {

/// Rays alone: the sky of a single night hour, in which no cell holds the sun.
HourlyAnalysis analysisWithoutSun(double north) {
    const std::vector<float> dark(hoursPerYear, 0.0f);
    const AnalysisPeriod midnight{.firstDay = 1, .lastDay = 1, .startHour = 0.0, .endHour = 1.0};
    HourlySkyOptions sky;
    sky.northOffset = north * radiansPerDegree;
    HourlyAnalysisOptions analysis;
    analysis.peak = false;
    analysis.tolerance = 0.0; // no light, nothing to be exact about
    return HourlyAnalysis(
        buildHourlySky(makeWeatherSeries(Site{}, dark, dark).series, midnight, sky), analysis);
}

/// @throws Stopped
std::vector<SensorResult> viewsOf(const std::vector<Sensor>& sensors, const OcclusionIndex& index,
                                  const HourlyAnalysis& analysis,
                                  const EvaluateOptions& evaluation) {
    std::vector<SensorResult> views(sensors.size());
    if (!analysis.evaluate(index, sensors, views, evaluation)) {
        throw Stopped();
    }
    return views;
}

/// A few of the rays to the sky, well before the surface and neither at the horizon nor at the
/// zenith: any of them alone is more than an enclosed sensor sees.
SkyCellSet tellingCells(const SkyDirections& directions, const XYZf& normal) {
    constexpr int sectorsApart = 6;
    constexpr int bandsApart = 3;
    constexpr int lastBand = 14;
    constexpr float leastCosine = 0.2f;
    const float length = std::hypot(normal.x, normal.y, normal.z);
    SkyCellSet cells;
    for (int altitude = 1; altitude < lastBand; altitude += bandsApart) {
        for (int azimuth = 0; azimuth < skyGrid::azimuthCount; azimuth += sectorsApart) {
            const XYZf& d = directions.direction(azimuth, altitude);
            if (normal.x * d.x + normal.y * d.y + normal.z * d.z >= leastCosine * length) {
                cells.insert(azimuth, altitude);
            }
        }
    }
    return cells;
}

} // namespace

std::vector<ResultColumn> skyViews(const StudyInputs& inputs, double north, int threads,
                                   Progress& progress, const std::stop_token& stop) {
    const SensorField& field = inputs.field;
    const Recentring recentring(inputs.scene, field);
    const OcclusionIndex index(recentring.coordinates(inputs.scene), {.stop = stop});
    throwIfStopped(stop);
    std::vector<Sensor> sensors;
    sensors.reserve(field.size());
    for (std::size_t i = 0; i < field.size(); ++i) {
        sensors.push_back({recentring.local(field.positions[i]), narrowed(field.normals[i])});
    }
    EvaluateOptions evaluation;
    evaluation.threads = threads;
    evaluation.progress = [&](std::size_t finished) { progress.advance(finished); };
    evaluation.stop = stop;
    progress.begin(sensors.size(), counted(sensors.size(), "sensor", "sensors"));
    const std::vector<SensorResult> results =
        viewsOf(sensors, index, analysisWithoutSun(north), evaluation);
    progress.end();
    std::vector<ResultColumn> columns = {{"sky_view", "%", "Sky view", {}},
                                         {"ground_view", "%", "Ground view", {}}};
    for (const SensorResult& result : results) {
        columns[0].values.push_back(100.0f * result.skyViewFactor);
        columns[1].values.push_back(100.0f * result.groundViewFactor);
    }
    return columns;
}

std::vector<float> enclosedAmong(std::span<const std::uint8_t> asked, const StudyInputs& inputs,
                                 double north, int threads, const std::stop_token& stop) {
    const SensorField& field = inputs.field;
    std::vector<float> enclosed(field.size(), 0.0f);
    if (std::ranges::all_of(asked, [](std::uint8_t one) { return one == 0; })) {
        return enclosed;
    }
    const Recentring recentring(inputs.scene, field);
    const OcclusionIndex index(recentring.coordinates(inputs.scene), {.stop = stop});
    throwIfStopped(stop);
    const HourlyAnalysis analysis = analysisWithoutSun(north);
    const SkyDirections directions = analysis.firstRays().front();
    const auto sensorAt = [&](std::size_t i) {
        return Sensor{recentring.local(field.positions[i]), narrowed(field.normals[i])};
    };
    std::vector<std::uint8_t> seesNothing(field.size(), 0); // as far as a few rays say
    constexpr std::size_t sensorsAtOnce = 256;
    forEachBlock(
        {field.size(), sensorsAtOnce}, threads,
        [&](SensorRange range, int) {
            for (std::size_t i = range.first; i < range.end; ++i) {
                if (asked[i] != 0) {
                    const Sensor sensor = sensorAt(i);
                    const SkyCellSet free = index.visibleSky(
                        sensor.position, directions, tellingCells(directions, sensor.normal));
                    seesNothing[i] = free.count() == 0 ? 1 : 0;
                }
            }
        },
        stop);
    throwIfStopped(stop);
    std::vector<Sensor> sensors;
    std::vector<std::size_t> places;
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (seesNothing[i] != 0) {
            sensors.push_back(sensorAt(i));
            places.push_back(i);
        }
    }
    EvaluateOptions evaluation;
    evaluation.threads = threads;
    evaluation.stop = stop;
    const std::vector<SensorResult> views = viewsOf(sensors, index, analysis, evaluation);
    for (std::size_t i = 0; i < views.size(); ++i) {
        const bool is =
            isEnclosedView(100.0f * views[i].skyViewFactor, 100.0f * views[i].groundViewFactor);
        enclosed[places[i]] = is ? 1.0f : 0.0f;
    }
    return enclosed;
}

std::string enclosedWarning(std::size_t enclosed, std::size_t sensors, const char* unseen,
                            bool areKept) {
    return fmt::format(
        "{} of {} {} {} {}{}; {} may lie inside closed geometry or face into it: check "
        "the faces' normals, --offset and --select",
        groupedDigits(enclosed), groupedDigits(sensors), counted(sensors, "sensor", "sensors"),
        counted(enclosed, "sees", "see"), unseen,
        areKept ? ""
                : counted(enclosed, " and is left out of means and colours",
                          " and are left out of means and colours"),
        counted(enclosed, "it", "they"));
}

} // namespace insolate::study
