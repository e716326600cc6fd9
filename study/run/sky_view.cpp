#include "study/run/sky_view.h"

#include "study/model/recentring.h"
#include "study/support/errors.h"
#include "study/support/numbers.h"
#include "study/support/readable.h"

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
    return HourlyAnalysis(
        buildHourlySky(makeWeatherSeries(Site{}, dark, dark).series, midnight, sky), analysis);
}

} // namespace

std::vector<ResultColumn> skyViews(const StudyInputs& inputs, double north, int threads,
                                   Progress& progress, const std::stop_token& stop) {
    const SensorField& field = inputs.field;
    const Recentring recentring(inputs.scene, field);
    const OcclusionIndex index(recentring.coordinates(inputs.scene));
    std::vector<Sensor> sensors;
    sensors.reserve(field.size());
    for (std::size_t i = 0; i < field.size(); ++i) {
        sensors.push_back({recentring.local(field.positions[i]), narrowed(field.normals[i])});
    }
    std::vector<SensorResult> results(sensors.size());
    EvaluateOptions evaluation;
    evaluation.threads = threads;
    evaluation.progress = [&](std::size_t finished) { progress.advance(finished); };
    evaluation.stop = stop;
    progress.begin(sensors.size(), counted(sensors.size(), "sensor", "sensors"));
    const bool isComplete = analysisWithoutSun(north).evaluate(index, sensors, results, evaluation);
    progress.end();
    if (!isComplete) {
        throw Stopped();
    }
    std::vector<ResultColumn> columns = {{"sky_view", "%", "Sky view", {}},
                                         {"ground_view", "%", "Ground view", {}}};
    for (const SensorResult& result : results) {
        columns[0].values.push_back(100.0f * result.skyViewFactor);
        columns[1].values.push_back(100.0f * result.groundViewFactor);
    }
    return columns;
}

} // namespace insolate::study
