#include "study/run/run_picture.h"

#include "study/files/folder_hold.h"
#include "study/files/output_folder.h"
#include "study/model/mesh.h"
#include "study/model/selection.h"
#include "study/output/picture.h"
#include "study/results/comparison.h"
#include "study/results/result_folder.h"
#include "study/results/result_scene.h"
#include "study/support/closest_name.h"
#include "study/support/errors.h"
#include "study/support/numbers.h"
#include "study/support/readable.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string_view>
#include <system_error>
#include <tuple>

#include <fmt/format.h>

namespace insolate::study {

namespace {

/// Two numbers with a character between them.
template <typename Number>
std::optional<std::pair<Number, Number>> parsePair(std::string_view text, char separator) {
    const std::size_t at = text.find(separator);
    if (at == std::string_view::npos) {
        return std::nullopt;
    }
    const auto first = parseNumber<Number>(text.substr(0, at));
    const auto second = parseNumber<Number>(text.substr(at + 1));
    return first && second ? std::optional(std::pair(*first, *second)) : std::nullopt;
}

void takeScale(PictureRunOptions& options, const std::string& text) {
    options.scale = parsePair<double>(text, ',');
    if (!options.scale) {
        throw UsageError(fmt::format("--scale: {} are no two numbers; give the ends of the "
                                     "colours, 0,1200",
                                     quoteText(text)));
    }
}

void takeSize(PictureRunOptions& options, const std::string& text) {
    const auto size = parsePair<int>(text, 'x');
    if (!size || size->first < 400 || size->first > 8000 || size->second < 300 ||
        size->second > 8000) {
        throw UsageError(fmt::format("--size: {} is no size; give width and height in pixels, "
                                     "400x300 to 8000x8000: 2400x1600",
                                     quoteText(text)));
    }
    std::tie(options.width, options.height) = *size;
}

/// The quantity as people read it.
ResultColumn shownValue(const ResultFolder& results, const std::string& name) {
    if (results.columns.empty()) {
        throw DataError(fmt::format("{}: the results have no quantity to show; calculate them "
                                    "again",
                                    place(results.folder)));
    }
    const ResultColumn* found = name.empty() ? &results.columns.front() : results.find(name);
    if (found == nullptr) { // a part of the period by its name alone: "dec" is "total_dec"
        found = results.find(results.columns.front().name + "_" + name);
    }
    if (found == nullptr) {
        const std::vector<std::string> names = results.columnNames();
        const auto& given = results.field.given;
        if (std::any_of(given.begin(), given.end(),
                        [&](const GivenColumn& column) { return column.name == name; })) {
            throw UsageError(fmt::format("--value: {} of {} holds dates, names or other texts and "
                                         "cannot be coloured; choose from {}",
                                         quoteText(name), place(results.folder),
                                         fmt::join(names, ", ")));
        }
        const std::string close = didYouMean(name, names);
        throw UsageError(fmt::format(
            "--value: there is no {} in {}{}", quoteText(name), place(results.folder),
            close.empty() ? fmt::format("; choose from {}", fmt::join(names, ", ")) : close));
    }
    return inShownUnit(*found);
}

/// The faces of all models and, behind them, the cells, so that one pattern means both.
Mesh facesAndCells(const ResultScene& scene, const ResultFolder& results) {
    const SensorField& field = results.field;
    // Results name objects and materials; groups are those of the faces that cells come from.
    const Mesh* const sensorMesh = scene.meshes.empty() || !results.model.sensorFile
                                       ? nullptr
                                       : &scene.meshes[*results.model.sensorFile];
    Mesh all;
    const auto addPolygon = [&](std::span<const Vector3> corners) -> Mesh::Face& {
        Mesh::Face face;
        face.firstCorner = static_cast<std::uint32_t>(all.corners.size());
        face.cornerCount = static_cast<std::uint32_t>(corners.size());
        for (const Vector3& corner : corners) {
            all.corners.push_back(static_cast<std::uint32_t>(all.vertices.size()));
            all.vertices.push_back(corner);
        }
        return all.faces.emplace_back(face);
    };
    std::vector<Vector3> polygon;
    for (const Mesh& mesh : scene.meshes) {
        std::vector<std::uint32_t> index;
        for (const std::string& name : mesh.names) {
            index.push_back(all.nameIndex(name));
        }
        const auto named = [&](std::uint32_t name) {
            return name == Mesh::unnamed ? name : index[name];
        };
        for (const Mesh::Face& face : mesh.faces) {
            Mesh::Face& added = addPolygon(mesh.polygonOf(face, polygon));
            added.object = named(face.object);
            added.group = named(face.group);
            added.material = named(face.material);
        }
    }
    for (std::size_t i = 0; i < field.size(); ++i) {
        const std::span<const Vector3> corners =
            field.hasCells()
                ? std::span(field.corners)
                      .subspan(field.cellStart[i], field.cellStart[i + 1] - field.cellStart[i])
                : std::span<const Vector3>();
        Mesh::Face& added = addPolygon(corners);
        if (!field.origins.empty()) {
            const auto named = [&](std::uint32_t name) {
                return name == CellOrigin::unnamed ? name : all.nameIndex(field.names[name]);
            };
            added.object = named(field.origins[i].object);
            added.material = named(field.origins[i].material);
            const std::uint32_t face = field.origins[i].face;
            if (sensorMesh != nullptr && face < sensorMesh->faces.size() &&
                sensorMesh->faces[face].group != Mesh::unnamed) {
                added.group = all.nameIndex(sensorMesh->names[sensorMesh->faces[face].group]);
            }
        }
    }
    return all;
}

/// What of the results the names leave.
struct Shown {
    std::vector<std::uint32_t> sensors;
    std::vector<std::uint8_t> triangles; ///< of the scene; empty: all
};

Shown selectShown(const PictureRunOptions& options, const ResultFolder& results,
                  const ResultScene& scene) {
    Shown shown;
    const std::size_t sensors = results.field.size();
    if (options.only.empty() && options.hide.empty()) {
        shown.sensors.resize(sensors);
        for (std::size_t i = 0; i < sensors; ++i) {
            shown.sensors[i] = static_cast<std::uint32_t>(i);
        }
        return shown;
    }
    const char* const option = options.only.empty() ? "--hide" : "--only";
    const Mesh all = facesAndCells(scene, results);
    if (all.names.empty() || (!options.only.empty() && results.field.origins.empty())) {
        throw DataError(fmt::format("{}: the sensors have no names that {} could mean; leave it "
                                    "out, or calculate the results again with a model whose faces "
                                    "have names",
                                    place(results.folder), option));
    }
    const std::string source = place(results.folder);
    const std::size_t faces = all.faces.size() - sensors;
    for (const std::uint32_t face :
         selectFaces(all, {.patterns = options.only, .exclude = options.hide}, 0.0, source).faces) {
        if (face >= faces) {
            shown.sensors.push_back(static_cast<std::uint32_t>(face - faces));
        }
    }
    if (shown.sensors.empty()) {
        throw DataError(fmt::format("{}: {} leaves no sensor to colour; name objects or materials "
                                    "of the sensors",
                                    source, option));
    }
    if (!options.hide.empty()) {
        std::vector<bool> stays(all.faces.size(), false);
        for (const std::uint32_t face :
             selectFaces(all, {.exclude = options.hide}, 0.0, source).faces) {
            stays[face] = true;
        }
        for (std::size_t face = 0; face < faces; ++face) {
            // triangulate() makes so many of a polygon, whatever its shape.
            shown.triangles.insert(shown.triangles.end(), all.faces[face].cornerCount - 2,
                                   stays[face] ? 1 : 0);
        }
    }
    return shown;
}

/// Where the picture goes: its folder is held, and no file of others has its name.
class PictureTarget {
public:
    PictureTarget(const std::filesystem::path& file, Progress& progress)
        : m_name(file.filename().string()),
          m_folder(file.has_parent_path() ? file.parent_path() : ".", {}, place(file)),
          m_hold(progress, m_folder) {
        m_folder.requireFree(result());
    }

    OutputFile& stage() { return m_folder.stage(result()); }
    void commit() { m_folder.commit(); }

private:
    [[nodiscard]] ResultName result() const { return {m_name, isOurPicture}; }

    std::string m_name;
    OutputFolder m_folder;
    FolderHold m_hold;
};

void drawInto(PictureTarget& target, const PictureRunOptions& options, const ResultFolder& results,
              const ResultScene& scene, Progress& progress, const std::stop_token& stop) {
    const std::filesystem::path& file = options.file;
    const ResultColumn value = shownValue(results, options.value);
    const Shown shown = selectShown(options, results, scene);
    ResultColumn column = value;
    column.values.clear();
    std::vector<float> areas;
    for (const std::uint32_t i : shown.sensors) {
        column.values.push_back(value.values[i]);
        if (!results.areas.empty()) {
            areas.push_back(results.areas[i]);
        }
    }
    PictureOptions picture;
    picture.title = options.title;
    picture.subtitle = results.facts.madeBy;
    picture.north = results.model.north;
    picture.view = options.view;
    if (options.scale) {
        picture.scaleLowest = options.scale->first;
        picture.scaleHighest = options.scale->second;
    }
    picture.colors = isDifference(column) ? ColorScheme::diverging : ColorScheme::sequential;
    picture.areas = areas;
    picture.shownTriangles = shown.triangles;
    picture.width = options.width;
    picture.height = options.height;
    picture.format = pictureFormat(file);
    const std::size_t leftOut = drawPicture(
        target.stage(), scene.scene, partOf(results.field, shown.sensors), column, picture, stop);
    throwIfStopped(stop);
    target.commit();
    if (leftOut > 0) {
        progress.note(fmt::format("{} {} behind others not drawn", groupedDigits(leftOut),
                                  counted(leftOut, "face is", "faces are")));
    }
    progress.note(fmt::format("wrote {}: {} of {} {}", place(file), value.name,
                              groupedDigits(shown.sensors.size()),
                              counted(shown.sensors.size(), "sensor", "sensors")));
}

} // namespace

void addPictureOptions(OptionTable& table, PictureRunOptions& options) {
    table.text("value", options.value, "NAME",
               "Quantity to show, by its name in sensors.csv: total, beam, peak, sky_view, "
               "direct_sun_hours, ..., or by that of a part of the period, dec; by default the "
               "first");
    table.add({.name = "view",
               .help = "From where: top, north, east, south, west, or the viewer's bearing and "
                       "height in degrees as 155,42; by default where most of the coloured cells "
                       "are seen",
               .typeName = "VIEW",
               .take = [&](const std::string& text) { options.view = pictureView(text); }});
    table.add({.name = "only",
               .kind = Option::Kind::list,
               .help = "Colour only cells of these objects or materials: roof, house_*, or "
                       "object:material; all else is surroundings",
               .typeName = "NAME,...",
               .take = [&](const std::string& text) { options.only.push_back(text); }});
    table.add({.name = "hide",
               .kind = Option::Kind::list,
               .help = "Draw nothing of these objects, groups or materials: tree_*",
               .typeName = "NAME,...",
               .take = [&](const std::string& text) { options.hide.push_back(text); }});
    table.add({.name = "scale",
               .help = "Ends of the colours, in the unit that the picture shows: 0,1200",
               .typeName = "LOW,HIGH",
               .take = [&](const std::string& text) { takeScale(options, text); }});
    table.text("title", options.title, "TEXT", "Title; by default the quantity's");
    table.add({.name = "size",
               .help = "Width and height in pixels",
               .typeName = "WxH",
               .usual = "1600x1000",
               .take = [&](const std::string& text) { takeSize(options, text); }});
    Option& file = table.file("file", options.file,
                              "Picture to write: .png, .svg or .pdf; by default picture.png in the "
                              "folder of the results");
    file.path = Option::Path::output;
}

void runPicture(const PictureRunOptions& given, Progress& progress, const std::stop_token& stop) {
    PictureRunOptions options = given;
    if (options.file.empty()) {
        options.file = options.folder / "picture.png";
    }
    pictureFormat(options.file);
    // Before the wait; where the results are missing, reading them says so.
    std::optional<PictureTarget> target;
    if (std::error_code none; std::filesystem::is_directory(options.folder, none)) {
        target.emplace(options.file, progress);
    }
    const ResultFolder results = readResultFolder(options.folder, stop);
    shownValue(results, options.value);
    const ResultScene scene = loadResultScene(results, stop);
    if (!scene.problem.empty()) {
        progress.warn(scene.problem + "; the picture shows the cells alone");
    }
    drawInto(target.value(), options, results, scene, progress, stop);
}

void drawResults(const PictureRunOptions& options, const ResultFolder& results,
                 const ResultScene& scene, Progress& progress, const std::stop_token& stop) {
    pictureFormat(options.file);
    PictureTarget target(options.file, progress);
    drawInto(target, options, results, scene, progress, stop);
}

} // namespace insolate::study
