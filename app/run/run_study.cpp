#include "app/run/run_study.h"

#include "app/errors.h"
#include "app/input/file_name.h"
#include "app/input/mesh.h"
#include "app/input/sensor_csv.h"
#include "app/input/sensor_grid.h"
#include "app/output/heatmap.h"
#include "app/output/output_folder.h"
#include "app/output/sensor_tables.h"
#include "app/output/summary.h"
#include "app/run/mask_source.h"
#include "app/run/sky_visibility_store.h"
#include "app/run/solar_analysis.h"
#include "app/run/study_record.h"
#include "app/terminal/interrupt.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>

#include <fmt/format.h>
#include <unistd.h>

namespace insolate::app {

namespace {

/// Times of the stages, in order.
class Stopwatch {
public:
    void lap(const char* stage) {
        const auto now = std::chrono::steady_clock::now();
        m_record[stage] = std::chrono::duration<double>(now - m_last).count();
        m_last = now;
    }
    [[nodiscard]] double whole() const {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
    }
    [[nodiscard]] const nlohmann::ordered_json& record() const { return m_record; }

private:
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point m_last = m_start;
    nlohmann::ordered_json m_record;
};

/// Refuses what the machine cannot hold, before memory is taken.
void checkSize(double sensors, double triangles, const RunOptions& options) {
    constexpr double bytesPerSensor = 180.0;   // position, normal, cell, results
    constexpr double bytesPerTriangle = 900.0; // model, ray caster, its tree
    constexpr double secondsPerSensor = 1.0e-3;
    constexpr double mostSensors = 5.0e6;
    // Cells are numbered with 32 bits, four corners each.
    constexpr double mostCells = 1.0e9;
    const double bytes = sensors * bytesPerSensor + triangles * bytesPerTriangle;
    const double memory =
        static_cast<double>(sysconf(_SC_PHYS_PAGES)) * static_cast<double>(sysconf(_SC_PAGE_SIZE));
    if (sensors > mostCells ||
        ((sensors > mostSensors || bytes > 0.8 * memory) && !options.force)) {
        throw UsageError(fmt::format(
            "about {:.2g} sensors over {:.2g} triangles would take some {:.1f} GB of memory and "
            "{}; choose a larger --grid or fewer faces with --select{}",
            sensors, triangles, bytes / 1.0e9,
            durationText(sensors * secondsPerSensor / usedThreads(options.threads)),
            sensors > mostCells ? "" : ", or give --force"));
    }
}

struct Inputs {
    Scene scene;
    SensorField field;
};

SensorField cutSensors(const Mesh& mesh, double triangles, const RunOptions& options,
                       Progress& progress) {
    const std::string source = place(options.sensorFile());
    const auto faces = selectFaces(mesh, options.select, source);
    const SensorGridOptions grid{.spacing = options.grid, .offset = options.offset};
    checkSize(estimatedSensorCount(mesh, faces, grid), triangles, options);
    SensorGrid cut = cutIntoSensors(mesh, faces, grid);
    if (cut.emptyFaces > 0) {
        progress.warn(fmt::format("{}: {} faces without area are left out", source,
                                  groupedDigits(cut.emptyFaces)));
    }
    if (cut.field.size() == 0) {
        throw DataError(fmt::format("{}: no face has an area to put sensors on; mend the model or "
                                    "choose another one",
                                    source));
    }
    return std::move(cut.field);
}

Inputs readInputs(const RunOptions& options, Progress& progress) {
    const std::filesystem::path& sensorFile = options.sensorFile();
    Inputs inputs;
    std::optional<Mesh> sensorMesh;
    for (const std::filesystem::path& file : options.scenes) {
        Mesh mesh = importMesh(file, options.import);
        throwIfInterrupted();
        appendTriangles(mesh, inputs.scene);
        if (file == sensorFile) {
            sensorMesh = std::move(mesh);
        }
    }
    const auto triangles = static_cast<double>(inputs.scene.triangleCount());
    progress.note(fmt::format("scene: {} triangles", groupedDigits(inputs.scene.triangleCount())));

    if (hasExtension(sensorFile, {".csv", ".txt"})) {
        if (!options.select.empty()) {
            throw UsageError("--select chooses faces of a sensor model, but the sensors come from "
                             "a table; leave it out");
        }
        const UpAxis up = options.import.up.value_or(defaultUpAxis(options.scenes.front()));
        inputs.field = readSensorCsv(sensorFile, options.import.unit, up);
        checkSize(static_cast<double>(inputs.field.size()), triangles, options);
    } else {
        if (!sensorMesh) {
            sensorMesh = importMesh(sensorFile, options.import);
        }
        inputs.field = cutSensors(*sensorMesh, triangles, options, progress);
    }
    progress.note(fmt::format("sensors: {}", groupedDigits(inputs.field.size())));
    throwIfInterrupted();
    return inputs;
}

nlohmann::ordered_json runRecord(const RunOptions& options, SolarAnalysis& analysis,
                                 const Inputs& inputs) {
    nlohmann::ordered_json record = studyRecord(options, analysis.weather());
    record["rays"] = options.masks                       ? "masks " + options.masks->string()
                     : options.rays == RayMethod::octree ? "octree"
                                                         : "fast";
    record["scene"]["files"] = nlohmann::ordered_json::array();
    for (const auto& file : options.scenes) {
        record["scene"]["files"].push_back(file.string());
    }
    record["scene"]["triangles"] = inputs.scene.triangleCount();
    record["scene"]["metres_per_unit"] = metresIn(options.import.unit);
    record["scene"]["north_deg"] = options.north;
    record["sensors"] = {{"file", options.sensorFile().string()}, {"count", inputs.field.size()}};
    if (inputs.field.hasCells()) {
        record["sensors"]["grid_m"] = options.grid;
        record["sensors"]["offset_m"] = options.offset;
        record["sensors"]["select"] = options.select;
    }
    record["hours_counted"] = analysis.controller().getCumulativeSky().getHourCount();
    return record;
}

} // namespace

void runStudy(const RunOptions& options, Progress& progress) {
    Stopwatch watch;
    OutputFolder folder(options.out);
    SolarAnalysis analysis(options, options.north);
    reportWeather(analysis.weather(), progress);
    watch.lap("weather_and_sky_s");
    const Inputs inputs = readInputs(options, progress);
    watch.lap("models_s");
    const Recentring recentring(inputs.scene, inputs.field);
    const VisibilityKey key = options.masks || options.saveMasks
                                  ? visibilityKey(inputs.scene, inputs.field, options.north)
                                  : VisibilityKey();
    SkyVisibilityStore stored;
    if (options.masks) {
        stored = SkyVisibilityStore::read(*options.masks, key);
    }
    const std::unique_ptr<MaskSource> masks =
        options.masks ? makeStoredMasks(stored, options.north)
                      : makeRayMasks(inputs.scene, recentring, options.rays);
    throwIfInterrupted();
    watch.lap("ray_index_s");
    SkyVisibilityStore saved(options.saveMasks ? inputs.field.size() : 0);
    SensorResults results = calculateSensors(analysis,
                                             {.field = inputs.field,
                                              .recentring = recentring,
                                              .masks = *masks,
                                              .threads = options.threads,
                                              .saved = options.saveMasks ? &saved : nullptr},
                                             progress);
    watch.lap("sensors_s");

    const std::array<ResultColumn, 4> columns = {
        {{"total", "Wh/m2", "Total radiation", std::move(results.total)},
         {"average", "W/m2", "Average radiation", std::move(results.average)},
         {"peak", "W/m2", "Peak radiation", std::move(results.peak)},
         {"sky_view", "%", "Sky view", std::move(results.skyView)}}};
    const std::string subtitle = studySubtitle(options, analysis.weather());
    writeSensorsCsv(folder.stage("sensors.csv"), inputs.field, columns);
    throwIfInterrupted();
    writeSensorsVtp(folder.stage("sensors.vtp"), inputs.field, columns, subtitle);
    throwIfInterrupted();
    HeatmapOptions picture;
    picture.title = columns[0].title;
    picture.subtitle = subtitle;
    picture.north = options.north;
    drawHeatmap(folder.stage("heatmap.png"), inputs.scene, inputs.field, columns[0], picture);
    if (options.saveMasks) {
        saved.write(folder.stage("sensors.masks"), key);
    }
    throwIfInterrupted();
    watch.lap("files_s");

    nlohmann::ordered_json record = runRecord(options, analysis, inputs);
    record["results"] = rangesOf(columns);
    record["threads"] = usedThreads(options.threads);
    record["timings"] = watch.record();
    record["timings"]["whole_s"] = watch.whole();
    writeSummaryJson(folder.stage("summary.json"), record);
    folder.commit();

    const ColumnRange range = rangeOf(columns[0].values);
    progress.note(fmt::format("total radiation {:.4g} to {:.4g}, mean {:.4g} Wh/m2", range.lowest,
                              range.highest, range.mean));
    progress.note(
        fmt::format("wrote sensors.csv, sensors.vtp, heatmap.png{} and summary.json in {} "
                    "({})",
                    options.saveMasks ? ", sensors.masks" : "", options.out.string(),
                    durationText(watch.whole())));
}

} // namespace insolate::app
