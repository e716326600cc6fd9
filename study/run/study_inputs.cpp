#include "study/run/study_inputs.h"

#include "study/model/coplanar.h"
#include "study/model/ground_plane.h"
#include "study/model/likely_unit.h"
#include "study/model/mesh.h"
#include "study/model/selection.h"
#include "study/model/sensor_csv.h"
#include "study/model/sensor_grid.h"
#include "study/model/winding.h"
#include "study/support/errors.h"
#include "study/support/file_name.h"
#include "study/support/readable.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include <fmt/format.h>
#include <unistd.h>

namespace insolate::study {

namespace {

constexpr double bytesPerTriangle = 900.0; // model, ray caster, its tree
constexpr double mostTriangles = 1.0e7;

bool fitsMemory(double bytes) {
    return bytes <= 0.8 * static_cast<double>(sysconf(_SC_PHYS_PAGES)) *
                        static_cast<double>(sysconf(_SC_PAGE_SIZE));
}

/// Edges of the box around the points.
Vector3 extentOf(std::span<const Vector3> points, std::span<const Vector3> others = {}) {
    Bounds bounds;
    bounds.add(points);
    bounds.add(others);
    return bounds.extent();
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
/// @param advice how there would be fewer sensors
void checkSize(double sensors, double triangles, const Vector3& extent, const char* advice,
               const ModelOptions& options) {
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
            "{}; {}{}{}",
            sensors, triangles, bytes / 1.0e9,
            durationText(sensors * secondsPerSensor / usedThreads(options.threads)), advice,
            std::max(extent.x, extent.y) > largestCity
                ? fmt::format(", or --units if the model does not measure {}", extentText(extent))
                : "",
            sensors > mostCells ? "" : ", or give --force"));
    }
}

/// The same for a model, by its file's size alone.
void checkFileSize(const std::filesystem::path& file, const ModelOptions& options) {
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

/// As the user says, or as suits the scene, sensors' model included.
double sensorOffset(const Scene& scene, const Mesh& mesh, const ModelOptions& options,
                    Progress& progress) {
    if (options.offset) {
        return *options.offset;
    }
    const double offset = defaultSensorOffset(extentOf(scene.vertices, mesh.vertices));
    if (offset != SensorGridOptions().offset) {
        progress.note(fmt::format("in a scene this small the sensors stand {:.2g} mm off their "
                                  "faces; --offset sets another distance, --units another size",
                                  1000.0 * offset));
    }
    return offset;
}

/// How many faces and square metres each pattern took: a typing error shows here first.
void noteSelection(const SelectedFaces& selected, Progress& progress) {
    const auto note = [&](const char* option, const PatternCount& one) {
        progress.note(fmt::format("{} {}: {} {}, {:.4g} m2", option, quoteText(one.pattern),
                                  groupedDigits(one.faces), counted(one.faces, "face", "faces"),
                                  one.area));
    };
    for (const PatternCount& one : selected.taken) {
        note("--select", one);
    }
    for (const PatternCount& one : selected.excluded) {
        note("--exclude", one);
    }
    if (selected.turnedAway > 0) {
        progress.note(fmt::format("--facing and --tilt leave {} {} out",
                                  groupedDigits(selected.turnedAway),
                                  counted(selected.turnedAway, "face", "faces")));
    }
}

/// Puts triangles together, unless the user wants each cut by itself.
MergedMesh mergeFaces(Mesh mesh, const ModelOptions& options, Progress& progress,
                      const std::stop_token& stop) {
    if (!options.mergeFaces) {
        MergedMesh same{.mesh = std::move(mesh), .firstFace = {}, .triangles = 0};
        same.firstFace.resize(same.mesh.faces.size());
        std::iota(same.firstFace.begin(), same.firstFace.end(), 0U);
        return same;
    }
    MergedMesh merged = mergeCoplanarTriangles(mesh, stop);
    if (merged.triangles > 0) {
        const std::size_t faces = merged.mesh.faces.size() + merged.triangles - mesh.faces.size();
        progress.note(fmt::format("{} coplanar triangles are cut as {} {}; --merge-faces no cuts "
                                  "each by itself",
                                  groupedDigits(merged.triangles), groupedDigits(faces),
                                  counted(faces, "face", "faces")));
    }
    return merged;
}

SensorField cutSensors(Mesh whole, double triangles, const SensorGridOptions& grid,
                       const ModelOptions& options, Progress& progress,
                       const std::stop_token& stop) {
    const MergedMesh merged = mergeFaces(std::move(whole), options, progress, stop);
    const Mesh& mesh = merged.mesh;
    const std::string source = place(options.sensorFile());
    const SelectedFaces selected = selectFaces(mesh, options.selection, options.north, source);
    const std::vector<std::uint32_t>& faces = selected.faces;
    noteSelection(selected, progress);
    checkSize(estimatedSensorCount(mesh, faces, grid), triangles, extentOf(mesh.vertices),
              "choose a larger --grid or fewer faces with --select", options);
    SensorGrid cut = cutIntoSensors(mesh, faces, grid, stop);
    if (cut.emptyFaces > 0) {
        progress.warn(
            fmt::format("{}: {} {} left out", source, groupedDigits(cut.emptyFaces),
                        counted(cut.emptyFaces, "face without area is", "faces without area are")));
    }
    if (cut.field.size() == 0) {
        throw DataError(
            fmt::format("{}: no face has an area to put sensors on; repair the model or "
                        "choose another one",
                        source));
    }
    for (CellOrigin& origin : cut.field.origins) {
        origin.face = merged.firstFace[origin.face];
    }
    return std::move(cut.field);
}

/// A model of a house in millimetres that is read as metres gives results, but those of a mountain.
void warnOfUnit(const Scene& scene, const ModelOptions& options, Progress& progress) {
    const LengthUnit unit = options.import.unit;
    const ModelLengths lengths = lengthsOf(scene);
    const auto likely = likelyUnit(unit, lengths);
    if (likely && *likely != unit) {
        progress.warn(fmt::format(
            "the scene measures {} with its lengths read as {}, but they look "
            "like {}: give --units {} if that is right; 'insolate model info' "
            "shows the model",
            extentText(lengths.extent), unitName(unit), unitName(*likely), unitName(*likely)));
    }
}

void noteUndersides(const SensorField& field, Progress& progress) {
    const auto down = static_cast<std::size_t>(
        std::count_if(field.normals.begin(), field.normals.end(),
                      [](const Vector3& normal) { return normal.z < -0.5; }));
    if (field.hasCells() && 10 * down > field.size()) {
        progress.note(fmt::format("{} of them {} down: undersides lower the mean; --facing up "
                                  "leaves them out",
                                  groupedDigits(down), counted(down, "faces", "face")));
    }
}

/// By its name, or a pipe or device: models do not come through those.
bool isTable(const std::filesystem::path& sensors) {
    std::error_code none;
    const auto kind = std::filesystem::status(sensors, none).type();
    return hasExtension(sensors, {".csv", ".txt"}) || kind == std::filesystem::file_type::fifo ||
           kind == std::filesystem::file_type::character;
}

/// What chooses faces, or says how they are cut, has no meaning without a sensor model.
struct FaceOption {
    std::string_view name;
    const char* does;
    bool (*isGiven)(const ModelOptions&);
};
constexpr std::array<FaceOption, 7> faceOptions = {{
    {"select", "chooses", [](const ModelOptions& o) { return !o.selection.patterns.empty(); }},
    {"exclude", "chooses", [](const ModelOptions& o) { return !o.selection.exclude.empty(); }},
    {"facing", "chooses", [](const ModelOptions& o) { return !o.selection.facing.empty(); }},
    {"tilt", "chooses", [](const ModelOptions& o) { return o.selection.tilt.has_value(); }},
    {"grid", "cuts", [](const ModelOptions& o) { return o.grid.has_value(); }},
    {"offset", "moves sensors off", [](const ModelOptions& o) { return o.offset.has_value(); }},
    {"merge-faces", "cuts", [](const ModelOptions& o) { return !o.mergeFaces; }},
}};

void refuseFaceOptions(const ModelOptions& options, const char* source, const char* insteadOfGrid) {
    for (const FaceOption& option : faceOptions) {
        if (option.isGiven(options)) {
            throw UsageError(
                fmt::format("--{} {} the faces of a sensor model, but the sensors come from {}; {}",
                            option.name, option.does, source,
                            option.name == "grid" ? insteadOfGrid : "leave it out"));
        }
    }
}

/// Levels of detail belong to city models.
void checkLevel(const ModelOptions& options) {
    const auto hasLevels = [](const std::filesystem::path& file) {
        return hasLevelsOfDetail(file);
    };
    if (!options.import.lod.empty() &&
        std::none_of(options.scenes.begin(), options.scenes.end(), hasLevels) &&
        !hasLevels(options.sensorFile())) {
        throw UsageError(fmt::format("--lod {}: chooses among levels of detail, but none of the "
                                     "models is CityJSON; leave it out",
                                     options.import.lod));
    }
}

} // namespace

Mesh readModel(const std::filesystem::path& file, const ModelOptions& options, Progress& progress,
               const std::stop_token& stop) {
    checkFileSize(file, options);
    Mesh mesh = importMesh(file, options.import, stop);
    orientModel(mesh, file, options, progress, stop);
    return mesh;
}

void orientModel(Mesh& mesh, const std::filesystem::path& file, const ModelOptions& options,
                 Progress& progress, const std::stop_token& stop) {
    if (const std::string text = precisionText(mesh, file); !text.empty()) {
        progress.warn(text);
    }
    for (const std::string& note : mesh.notes) {
        progress.note(note);
    }
    const OrientReport turned = orientFaces(mesh, options.orient, stop);
    if (const std::string text = orientText(turned, options.orient, place(file)); !text.empty()) {
        progress.warn(text);
    }
}

std::vector<std::string_view> optionsWithoutMeaning(const std::filesystem::path& sensors) {
    std::vector<std::string_view> names;
    if (isTable(sensors) || parseGroundPlane(sensors.string())) {
        for (const FaceOption& option : faceOptions) {
            names.push_back(option.name);
        }
    }
    return names;
}

void addSensors(StudyInputs& inputs, std::optional<Mesh> mesh, const ModelOptions& options,
                Progress& progress, const std::stop_token& stop) {
    const std::filesystem::path& sensorFile = options.sensorFile();
    const auto triangles = static_cast<double>(inputs.scene.triangleCount());
    if (const auto plane = parseGroundPlane(sensorFile.string())) {
        refuseFaceOptions(options, "a plane", "give the grid with it: plane:z=1.5,grid=1");
        inputs.spacing = plane->grid;
        const auto [lowest, highest] =
            std::ranges::minmax_element(inputs.scene.vertices, {}, &Vector3::z);
        if (plane->z < lowest->z) {
            throw UsageError(
                fmt::format("--sensors plane:z={:.4g}: lies under the whole scene, which "
                            "reaches from z = {:.4g} to {:.4g} m; z is a height of the "
                            "model, not above its ground",
                            plane->z, lowest->z, highest->z));
        }
        checkSize(groundPlaneCells(*plane, inputs.scene), triangles, {},
                  "choose a larger grid= in --sensors plane:", options);
        GroundPlaneSensors cut = cutGroundPlane(*plane, inputs.scene, stop);
        inputs.field = std::move(cut.field);
        if (cut.inside + cut.buried > 0) {
            progress.note(fmt::format("{} cells inside of buildings and {} under the ground are "
                                      "left out",
                                      groupedDigits(cut.inside), groupedDigits(cut.buried)));
        }
        if (inputs.field.size() == 0) {
            throw DataError("--sensors plane: the whole plane lies inside of buildings or under "
                            "the ground; choose another height z");
        }
    } else if (isTable(sensorFile)) {
        refuseFaceOptions(options, "a table", "leave it out");
        const UpAxis up = options.import.up.value_or(defaultUpAxis(options.scenes.front()));
        inputs.field = readSensorCsv(sensorFile, options.import.unit, up, stop);
        checkSize(static_cast<double>(inputs.field.size()), triangles, {},
                  "give a table of fewer lines", options);
    } else {
        if (!mesh) {
            mesh = readModel(sensorFile, options, progress, stop);
        }
        inputs.spacing = options.grid.value_or(ModelOptions::usualGrid);
        inputs.offset = sensorOffset(inputs.scene, *mesh, options, progress);
        inputs.field = cutSensors(std::move(*mesh), triangles,
                                  {.spacing = *inputs.spacing, .offset = *inputs.offset}, options,
                                  progress, stop);
    }
    progress.note(fmt::format("sensors: {}", groupedDigits(inputs.field.size())));
    noteUndersides(inputs.field, progress);
    throwIfStopped(stop);
}

StudyInputs readInputs(const ModelOptions& options, Progress& progress,
                       const std::stop_token& stop) {
    checkLevel(options);
    StudyInputs inputs;
    std::optional<Mesh> sensorMesh;
    for (const std::filesystem::path& file : options.scenes) {
        Mesh mesh = readModel(file, options, progress, stop);
        appendTriangles(mesh, inputs.scene);
        if (file == options.sensorFile()) {
            sensorMesh = std::move(mesh);
        }
    }
    progress.note(fmt::format("scene: {} {}, {}", groupedDigits(inputs.scene.triangleCount()),
                              counted(inputs.scene.triangleCount(), "triangle", "triangles"),
                              extentText(extentOf(inputs.scene.vertices))));
    warnOfUnit(inputs.scene, options, progress);
    addSensors(inputs, std::move(sensorMesh), options, progress, stop);
    return inputs;
}

} // namespace insolate::study
