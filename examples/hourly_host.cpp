/// A host in one file: the year's radiation on every face of a model, hour by hour, on all
/// processors.
///
///     hourly_host weather.epw model.obj [north]
///
/// writes sensors.csv and sensors.vtp into the folder radiation/. north is where true north lies in
/// plan: degrees clockwise from the model's +Y.
#include <insolate/insolate.h>
#include <study/study.h>

#include <cstdio>
#include <cstdlib>
#include <numbers>
#include <vector>

namespace {

using namespace insolate;

int calculate(const char* weatherFile, const char* modelFile, double north) {
    // The weather, read with all that is odd about it, and the sky that it makes over the year.
    const WeatherReading weather = readWeatherSeries(weatherFile);
    for (const WeatherFinding& finding : weather.findings) {
        std::fprintf(stderr, "%s\n", finding.text.c_str());
    }
    if (!weather.ok) {
        return 1;
    }
    HourlySkyOptions skyOptions;
    skyOptions.northOffset = north * std::numbers::pi / 180.0;
    const HourlyAnalysis analysis(buildHourlySky(weather.series, {1, 365, 0.0, 24.0}, skyOptions));

    // The model, and a sensor in the middle of every cell of at most 2 by 2 metres.
    const study::Mesh mesh = study::importMesh(modelFile, {});
    study::Scene scene;
    study::appendTriangles(mesh, scene);
    const study::SelectedFaces all = study::selectFaces(mesh, {}, 0.0, modelFile);
    const study::SensorField field = study::cutIntoSensors(mesh, all.faces, {.spacing = 2.0}).field;

    // Rays are single precision: model and sensors move to the middle of both.
    const study::Recentring recentring(scene, field);
    const LightScene surfaces(recentring.coordinates(scene), {}, {}); // each reflects 0.2
    std::vector<Sensor> sensors;
    for (std::size_t i = 0; i < field.size(); ++i) {
        sensors.push_back(
            {recentring.local(field.positions[i]), study::narrowed(field.normals[i])});
    }

    // All sensors, on all processors.
    std::vector<SensorResult> results(sensors.size());
    std::size_t done = 0;
    EvaluateOptions options;
    options.progress = [&](std::size_t finished) {
        done += finished;
        std::fprintf(stderr, "\r%zu of %zu sensors", done, sensors.size());
    };
    analysis.evaluate(surfaces, sensors, results, options);
    std::fprintf(stderr, "\n");

    // And what surfaces reflect on each other and on the sensors.
    const ReflectedLight light(analysis, surfaces, sensors, {}, {}, results);
    for (std::size_t i = 0; i < results.size(); ++i) {
        light.addTo(i, results[i]);
    }

    // Files appear under their names when all of them are complete.
    study::ResultColumn total{"total", "Wh/m2", "Total radiation", {}};
    study::ResultColumn peak{"peak", "W/m2", "Highest mean of an hour", {}};
    for (const SensorResult& result : results) {
        total.values.push_back(result.total);
        peak.values.push_back(result.peak);
    }
    const std::vector<study::ResultColumn> columns = {total, peak};
    study::OutputFolder folder("radiation", {weatherFile, modelFile});
    const study::ResultName table{"sensors.csv", study::isOurSensorsCsv};
    const study::ResultName cells{"sensors.vtp", study::isOurSensorsVtp};
    study::writeSensorsCsv(folder.stage(table), field, columns);
    study::writeSensorsVtp(folder.stage(cells), field, columns);
    folder.commit();
    std::printf("%zu sensors, the first one %.1f kWh/m2\n", results.size(),
                static_cast<double>(results.front().total) / 1000.0);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: hourly_host <weather.epw> <model> [north]\n");
        return 2;
    }
    try {
        return calculate(argv[1], argv[2], argc > 3 ? std::atof(argv[3]) : 0.0);
    } catch (const study::Error& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
