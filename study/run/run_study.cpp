#include "study/run/run_study.h"

#include "study/files/output_folder.h"
#include "study/model/mesh.h"
#include "study/model/sensor_csv.h"
#include "study/model/sensor_grid.h"
#include "study/output/heatmap.h"
#include "study/output/sensor_tables.h"
#include "study/output/summary.h"
#include "study/run/hourly_study.h"
#include "study/run/mask_source.h"
#include "study/run/radiation_method.h"
#include "study/run/sky_visibility_store.h"
#include "study/run/study_record.h"
#include "study/support/errors.h"
#include "study/support/file_name.h"
#include "study/support/readable.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <fstream>
#include <numeric>
#include <span>

#include <fmt/format.h>
#include <unistd.h>

namespace insolate::study {

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

constexpr const char* masksName = "sensors.masks";
constexpr const char* seriesName = "series.csv";

constexpr double bytesPerTriangle = 900.0; // model, ray caster, its tree
constexpr double mostTriangles = 1.0e7;

bool fitsMemory(double bytes) {
    return bytes <= 0.8 * static_cast<double>(sysconf(_SC_PHYS_PAGES)) *
                        static_cast<double>(sysconf(_SC_PAGE_SIZE));
}

/// Edges of the box around the points.
Vector3 extentOf(const std::vector<Vector3>& points) {
    if (points.empty()) {
        return {};
    }
    Vector3 low = points.front();
    Vector3 high = low;
    for (const Vector3& p : points) {
        low = {std::min(low.x, p.x), std::min(low.y, p.y), std::min(low.z, p.z)};
        high = {std::max(high.x, p.x), std::max(high.y, p.y), std::max(high.z, p.z)};
    }
    return high - low;
}

/// "60 x 40 x 18 m"; a wrong unit or axis shows here first.
std::string extentText(const Vector3& extent) {
    const auto text = [](double metres) {
        return metres >= 100.0 ? groupedDigits(static_cast<std::size_t>(std::llround(metres)))
                               : fmt::format("{:.3g}", metres);
    };
    return fmt::format("{} x {} x {} m", text(extent.x), text(extent.y), text(extent.z));
}

/// Refuses what the machine cannot hold, before memory is taken.
void checkSize(double sensors, double triangles, const Vector3& extent, const RunOptions& options) {
    constexpr double bytesPerSensor = 210.0; // position, normal, cell, results
    constexpr double secondsPerSensor = 1.0e-4;
    constexpr double mostSensors = 5.0e6;
    constexpr double largestCity = 5.0e4; // metres
    // Cells are numbered with 32 bits, four corners each.
    constexpr double mostCells = 1.0e9;
    const double bytes = sensors * bytesPerSensor + triangles * bytesPerTriangle;
    if (sensors > mostCells ||
        ((sensors > mostSensors || triangles > mostTriangles || !fitsMemory(bytes)) &&
         !options.force)) {
        throw UsageError(fmt::format(
            "about {:.2g} sensors over {:.2g} triangles would take some {:.1f} GB of memory and "
            "{}; choose a larger --grid or fewer faces with --select{}{}",
            sensors, triangles, bytes / 1.0e9,
            durationText(sensors * secondsPerSensor / usedThreads(options.threads)),
            std::max(extent.x, extent.y) > largestCity
                ? fmt::format(", or --units if the model does not measure {}", extentText(extent))
                : "",
            sensors > mostCells ? "" : ", or give --force"));
    }
}

/// The same for a model, by its file's size alone.
void checkFileSize(const std::filesystem::path& file, const RunOptions& options) {
    constexpr double bytesInFile = 50.0; // of a triangle in binary STL; more or less in others
    constexpr double secondsPerTriangle = 3.0e-6;
    std::error_code problem;
    const std::uintmax_t size = std::filesystem::file_size(file, problem);
    const double triangles = problem ? 0.0 : static_cast<double>(size) / bytesInFile;
    const double bytes = triangles * bytesPerTriangle;
    if ((triangles > mostTriangles || !fitsMemory(bytes)) && !options.force) {
        throw UsageError(fmt::format(
            "{}: a file of {:.1f} GB may hold {:.2g} triangles, which would take some {:.0f} GB of "
            "memory and {} before the first ray; choose a smaller model, or give --force",
            place(file), static_cast<double>(size) / 1.0e9, triangles, bytes / 1.0e9,
            durationText(triangles * secondsPerTriangle)));
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
    checkSize(estimatedSensorCount(mesh, faces, grid), triangles, extentOf(mesh.vertices), options);
    SensorGrid cut = cutIntoSensors(mesh, faces, grid);
    if (cut.emptyFaces > 0) {
        progress.warn(
            fmt::format("{}: {} {} left out", source, groupedDigits(cut.emptyFaces),
                        counted(cut.emptyFaces, "face without area is", "faces without area are")));
    }
    if (cut.field.size() == 0) {
        throw DataError(fmt::format("{}: no face has an area to put sensors on; mend the model or "
                                    "choose another one",
                                    source));
    }
    return std::move(cut.field);
}

void noteUndersides(const SensorField& field, Progress& progress) {
    const auto down = static_cast<std::size_t>(
        std::count_if(field.normals.begin(), field.normals.end(),
                      [](const Vector3& normal) { return normal.z < -0.5; }));
    if (field.hasCells() && 10 * down > field.size()) {
        progress.note(fmt::format("{} of them {} down: undersides lower the mean; --select leaves "
                                  "them out by name",
                                  groupedDigits(down), counted(down, "faces", "face")));
    }
}

Inputs readInputs(const RunOptions& options, Progress& progress, const std::stop_token& stop) {
    const std::filesystem::path& sensorFile = options.sensorFile();
    Inputs inputs;
    std::optional<Mesh> sensorMesh;
    for (const std::filesystem::path& file : options.scenes) {
        checkFileSize(file, options);
        Mesh mesh = importMesh(file, options.import);
        throwIfStopped(stop);
        appendTriangles(mesh, inputs.scene);
        if (file == sensorFile) {
            sensorMesh = std::move(mesh);
        }
    }
    const auto triangles = static_cast<double>(inputs.scene.triangleCount());
    progress.note(fmt::format("scene: {} {}, {}", groupedDigits(inputs.scene.triangleCount()),
                              counted(inputs.scene.triangleCount(), "triangle", "triangles"),
                              extentText(extentOf(inputs.scene.vertices))));

    if (hasExtension(sensorFile, {".csv", ".txt"})) {
        if (!options.select.empty()) {
            throw UsageError("--select chooses faces of a sensor model, but the sensors come from "
                             "a table; leave it out");
        }
        if (options.gridGiven) {
            throw UsageError("--grid cuts the faces of a sensor model, but the sensors come from a "
                             "table; leave it out");
        }
        const UpAxis up = options.import.up.value_or(defaultUpAxis(options.scenes.front()));
        inputs.field = readSensorCsv(sensorFile, options.import.unit, up);
        checkSize(static_cast<double>(inputs.field.size()), triangles, {}, options);
    } else {
        if (!sensorMesh) {
            checkFileSize(sensorFile, options);
            sensorMesh = importMesh(sensorFile, options.import);
        }
        inputs.field = cutSensors(*sensorMesh, triangles, options, progress);
    }
    progress.note(fmt::format("sensors: {}", groupedDigits(inputs.field.size())));
    noteUndersides(inputs.field, progress);
    throwIfStopped(stop);
    return inputs;
}

nlohmann::ordered_json runRecord(const RunOptions& options, const WeatherReport& weather,
                                 const Inputs& inputs) {
    nlohmann::ordered_json record = studyRecord(options, weather);
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
    return record;
}

void checkSeries(const RunOptions& options, std::size_t sensors) {
    for (const std::size_t sensor : options.hourly.series) {
        if (sensor >= sensors) {
            throw UsageError(fmt::format("--series {}: there is no such sensor; give numbers from "
                                         "0 to {}, the lines of sensors.csv below its header",
                                         sensor, sensors - 1));
        }
    }
}

/// An earlier run's series, which would stand beside results that it does not belong to. A file
/// that only has its name stays, and so do masks: they are dear, and a run refuses those of another
/// study.
bool retireSeries(OutputFolder& folder, const RunOptions& options) {
    if (!options.hourly.series.empty()) {
        return false;
    }
    std::string begin(seriesHeader.size(), '\0');
    std::ifstream series(folder.path() / seriesName, std::ios::binary);
    series.read(begin.data(), static_cast<std::streamsize>(begin.size()));
    if (begin != seriesHeader) {
        return false;
    }
    folder.retire(seriesName);
    return true;
}

ResultColumn inKilowattHours(ResultColumn column) {
    for (float& value : column.values) {
        value /= 1000.0f;
    }
    column.unit = "kWh/m2";
    return column;
}

PartialResults::Key resumeKey(const RunOptions& options, const RadiationMethod& method,
                              const Inputs& inputs, const VisibilityKey& visibility) {
    nlohmann::ordered_json record = runRecord(options, method.weather(), inputs);
    method.describe(record, {});
    record["save_masks"] = options.saveMasks;
    std::vector<std::filesystem::path> files = {options.weather};
    if (options.masks) {
        files.push_back(*options.masks);
    }
    return PartialResults::keyOf(
        record.dump(-1, ' ', true, nlohmann::ordered_json::error_handler_t::replace), visibility,
        files);
}

/// Finished sensors of another study may have taken hours: they go only where the user knows.
void checkLeftover(const PartialResults::Leftover& left, const RunOptions& options,
                   Progress& progress) {
    if (left.sensors == 0 || (options.resume && left.ofThisStudy)) {
        return;
    }
    if (options.resume) {
        throw UsageError(fmt::format(
            "--resume: the {} finished {} in {} {} to another study or version and {}; repeat the "
            "options of that run, or leave --resume out to replace them",
            groupedDigits(left.sensors), counted(left.sensors, "sensor", "sensors"),
            place(options.out), counted(left.sensors, "belongs", "belong"),
            counted(left.sensors, "stays", "stay")));
    }
    progress.warn(fmt::format(
        "{} finished {} of an interrupted run {} replaced{}", groupedDigits(left.sensors),
        counted(left.sensors, "sensor", "sensors"), counted(left.sensors, "is", "are"),
        left.ofThisStudy ? "; --resume would go on after them" : ""));
}

/// @param kept receives how many finished sensors the folder keeps
void calculateStudy(const RunOptions& options, Progress& progress, const std::stop_token& stop,
                    std::size_t& kept) {
    Stopwatch watch;
    OutputFolder folder(options.out);
    folder.requireFree({"sensors.csv", "sensors.vtp", "heatmap.png", "summary.json"});
    if (options.saveMasks) {
        folder.requireFree({masksName});
    }
    if (!options.hourly.series.empty()) {
        folder.requireFree({seriesName});
    }
    const std::unique_ptr<RadiationMethod> method = makeRadiationMethod(options, options.north);
    reportStudy(options, method->weather(), progress);
    constexpr int week = 7;
    if (options.method == Method::hourly && options.period.dayCount() <= week &&
        options.hourly.sunTolerance <= 0.0) {
        progress.note("in a week or less the edges of shadows count more; --sun-tolerance 0.25 "
                      "looks closer at them");
    }
    watch.lap("weather_and_sky_s");
    const Inputs inputs = readInputs(options, progress, stop);
    checkSeries(options, inputs.field.size());
    watch.lap("models_s");
    const Recentring recentring(inputs.scene, inputs.field);
    const VisibilityKey key = visibilityKey(inputs.scene, inputs.field, options.north);
    PartialResults partial(options.out, resumeKey(options, *method, inputs, key), options.resume);
    checkLeftover(partial.leftover(), options, progress);
    SkyVisibilityStore stored;
    if (options.masks) {
        stored = SkyVisibilityStore::read(*options.masks, key);
    }
    const std::unique_ptr<MaskSource> masks =
        options.masks ? makeStoredMasks(stored, options.north)
                      : makeRayMasks(inputs.scene, recentring, options.rays, stop);
    throwIfStopped(stop);
    watch.lap("ray_index_s");
    SkyVisibilityStore saved(options.saveMasks ? inputs.field.size() : 0);
    const SensorWork work = {.field = inputs.field,
                             .recentring = recentring,
                             .masks = *masks,
                             .threads = options.threads,
                             .saved = options.saveMasks ? &saved : nullptr,
                             .kept = &partial};
    auto columns = [&] {
        try {
            std::vector<ResultColumn> results = calculateSensors(*method, work, progress, stop);
            kept = partial.sensorsKept();
            return results;
        } catch (...) {
            kept = partial.sensorsKept();
            throw;
        }
    }();
    watch.lap("sensors_s");
    const std::size_t results = columns.size();
    const std::vector<float> areas = cellAreas(inputs.field);
    if (!areas.empty()) {
        columns.push_back({"area", "m2", "Area of the cell", areas});
    }

    std::string written = "sensors.csv, sensors.vtp, heatmap.png";
    const std::string subtitle = studySubtitle(options, method->weather());
    writeSensorsCsv(folder.stage("sensors.csv"), inputs.field, columns);
    throwIfStopped(stop);
    writeSensorsVtp(folder.stage("sensors.vtp"), inputs.field, columns, subtitle);
    throwIfStopped(stop);
    const ResultColumn shown = inKilowattHours(columns.front());
    HeatmapOptions picture;
    picture.title = shown.title;
    picture.subtitle = subtitle;
    picture.north = options.north;
    picture.areas = areas;
    drawHeatmap(folder.stage("heatmap.png"), inputs.scene, inputs.field, shown, picture);
    if (options.saveMasks) {
        saved.write(folder.stage(masksName), key);
        written += fmt::format(", {}", masksName);
    }
    if (const auto* hourly = dynamic_cast<const HourlyStudy*>(method.get());
        hourly != nullptr && !options.hourly.series.empty()) {
        hourly->writeSeries(folder.stage(seriesName), work);
        written += fmt::format(", {}", seriesName);
    }
    throwIfStopped(stop);
    watch.lap("files_s");

    nlohmann::ordered_json record = runRecord(options, method->weather(), inputs);
    method->describe(record, columns);
    const std::size_t enclosed = countEnclosed(columns, inputs.field);
    record["sensors"]["enclosed"] = enclosed;
    if (!areas.empty()) {
        record["sensors"]["area_m2"] = std::accumulate(areas.begin(), areas.end(), 0.0);
    }
    record["sensors"]["means_weighted_by"] = areas.empty() ? "count" : "area";
    record["results"] = rangesOf(std::span(columns).first(results), areas);
    record["threads"] = usedThreads(options.threads);
    record["timings"] = watch.record();
    record["timings"]["whole_s"] = watch.whole();
    writeSummaryJson(folder.stage("summary.json"), record);
    const bool tookAway = retireSeries(folder, options);
    folder.commit();
    partial.remove();
    if (tookAway) {
        progress.note(fmt::format("took away {}, which an earlier run had left", seriesName));
    }

    const std::vector<float>& totals = columns.front().values;
    if (options.method != Method::hourly && enclosed < totals.size() && // hourly tells by its sky
        std::all_of(totals.begin(), totals.end(), [](float total) { return total == 0.0f; })) {
        progress.warn(noLightText(options.weather));
    }
    if (enclosed > 0) {
        progress.warn(fmt::format(
            "{} of {} {} {} {}; {} may lie inside closed geometry or face into it: check "
            "the faces' normals, --offset and --select",
            groupedDigits(enclosed), groupedDigits(inputs.field.size()),
            counted(inputs.field.size(), "sensor", "sensors"), counted(enclosed, "sees", "see"),
            options.method == Method::hourly ? "neither sky nor ground" : "no sky",
            counted(enclosed, "it", "they")));
    }
    const ColumnRange range = rangeOf(shown.values, areas);
    progress.note(fmt::format("total radiation {:.4g} to {:.4g}, {} {:.4g} {}", range.lowest,
                              range.highest, areas.empty() ? "mean" : "mean by area", range.mean,
                              shown.unit));
    progress.note(fmt::format("wrote {} and summary.json in {} ({})", written, options.out.string(),
                              durationText(watch.whole())));
}

} // namespace

void runStudy(const RunOptions& options, Progress& progress, const std::stop_token& stop) {
    std::size_t kept = 0;
    try {
        calculateStudy(options, progress, stop, kept);
    } catch (const Stopped& stopped) {
        if (kept == 0) {
            throw;
        }
        throw Stopped(fmt::format("{}; run again with --resume to go on after {} {}",
                                  stopped.what(), groupedDigits(kept),
                                  counted(kept, "sensor", "sensors")));
    }
}

} // namespace insolate::study
