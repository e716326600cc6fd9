#include "study/model/model_info.h"

#include "study/model/likely_unit.h"
#include "study/model/mesh_edges.h"
#include "study/model/selection.h"
#include "study/model/winding.h"
#include "study/support/errors.h"
#include "study/support/numbers.h"
#include "study/support/readable.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <span>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace insolate::study {

namespace {

/// Collects the faces of one kind of part.
class PartCounter {
public:
    explicit PartCounter(const Mesh& mesh) : m_mesh(mesh), m_parts(mesh.names.size() + 1) {}

    void add(std::uint32_t name, const Vector3& areaVector) {
        PartInfo& part = name == Mesh::unnamed ? m_parts.back() : m_parts[name];
        ++part.faces;
        part.area += 0.5 * length(areaVector);
        part.meanNormal = part.meanNormal + areaVector * 0.5;
    }

    /// The largest first; nothing when no face has a name.
    std::vector<PartInfo> sorted() {
        std::vector<PartInfo> parts;
        for (std::size_t i = 0; i < m_parts.size(); ++i) {
            PartInfo& part = m_parts[i];
            if (part.faces > 0) {
                part.name = i < m_mesh.names.size() ? m_mesh.names[i] : std::string();
                part.meanNormal = part.meanNormal * (part.area > 0.0 ? 1.0 / part.area : 0.0);
                parts.push_back(std::move(part));
            }
        }
        std::stable_sort(parts.begin(), parts.end(),
                         [](const PartInfo& a, const PartInfo& b) { return a.area > b.area; });
        return parts.size() == 1 && parts[0].name.empty() ? std::vector<PartInfo>() : parts;
    }

private:
    const Mesh& m_mesh;
    std::vector<PartInfo> m_parts; ///< by name; the last has none
};

/// Finds faces with the same corners, wherever they begin and however they wind.
void countDoubles(const Mesh& mesh, std::span<const std::uint32_t> welded,
                  std::span<const Vector3> areas, ModelInfo& info) {
    const std::size_t count = mesh.faces.size();
    std::vector<std::pair<std::uint64_t, std::uint32_t>> byHash(count);
    for (std::uint32_t f = 0; f < count; ++f) {
        std::uint64_t hash = mesh.faces[f].cornerCount;
        for (const std::uint32_t corner : mesh.cornersOf(mesh.faces[f])) {
            // A sum, so that the order does not matter.
            std::uint64_t h = (welded[corner] + 1ULL) * 0x9E3779B97F4A7C15ULL;
            hash += (h ^ (h >> 29U)) * 0xBF58476D1CE4E5B9ULL;
        }
        byHash[f] = {hash, f};
    }
    std::sort(byHash.begin(), byHash.end());
    const auto corners = [&](std::uint32_t face) {
        std::vector<std::uint32_t> sorted;
        for (const std::uint32_t corner : mesh.cornersOf(mesh.faces[face])) {
            sorted.push_back(welded[corner]);
        }
        std::sort(sorted.begin(), sorted.end());
        return sorted;
    };
    for (std::size_t i = 1, first = 0; i < count; ++i) {
        const std::uint32_t face = byHash[i].second;
        const std::uint32_t original = byHash[first].second;
        if (byHash[i].first != byHash[first].first || corners(face) != corners(original)) {
            first = i;
            continue;
        }
        ++info.doubles;
        info.backToBack += dot(areas[face], areas[original]) < 0.0 ? 1U : 0U;
    }
}

/// 0..360.
double bearingOf(const Vector3& normal, double north) {
    const double azimuth = std::fmod(azimuthOf(normal, north), 360.0);
    return azimuth < 0.0 ? azimuth + 360.0 : azimuth;
}

/// "up", "south, tilt 35", "mainly west", "all around".
std::string orientationText(const PartInfo& part, double north) {
    const double agreement = length(part.meanNormal);
    if (!(agreement >= 0.05)) {
        return "all around";
    }
    const double tilt = tiltOf(part.meanNormal);
    const char* const point = compassName(
        static_cast<int>(std::lround(bearingOf(part.meanNormal, north) / 45.0)) % 8 * 2);
    const std::string side = tilt <= 10.0    ? "up"
                             : tilt >= 170.0 ? "down"
                             : std::abs(tilt - 90.0) <= 5.0
                                 ? point
                                 : fmt::format("{}, tilt {:.0f}", point, tilt);
    return agreement < 0.9 ? "mainly " + side : side;
}

std::string lengthText(double metres) {
    return std::abs(metres) >= 1000.0 ? fmt::format("{:.0f}", metres)
                                      : fmt::format("{:.4g}", metres);
}

} // namespace

ModelInfo modelInfo(const Mesh& mesh, const std::string& source, LengthUnit unit,
                    const std::stop_token& stop) {
    ModelInfo info;
    info.source = source;
    info.unit = unit;
    info.notes = mesh.notes;
    info.coordinateStep = mesh.coordinateStep;
    info.faces = mesh.faces.size();
    Bounds bounds;
    const std::vector<std::uint32_t> welded = weldedVertices(mesh);
    std::vector<char> isUsed(mesh.vertices.size(), 0);
    PartCounter objects(mesh);
    PartCounter groups(mesh);
    PartCounter materials(mesh);
    std::vector<Vector3> areas;
    areas.reserve(info.faces);
    std::vector<Vector3> polygon;
    for (const Mesh::Face& face : mesh.faces) {
        throwIfStopped(stop);
        mesh.polygonOf(face, polygon);
        const Vector3 area = areaVector(polygon);
        areas.push_back(area);
        info.triangles += polygon.size() - 2;
        info.area += 0.5 * length(area);
        info.facesWithoutArea += length(area) > 0.0 ? 0U : 1U;
        objects.add(face.object, area);
        groups.add(face.group, area);
        materials.add(face.material, area);
        bounds.add(polygon);
        for (const std::uint32_t corner : mesh.cornersOf(face)) {
            info.vertices += isUsed[welded[corner]] == 0 ? 1U : 0U;
            isUsed[welded[corner]] = 1;
        }
    }
    if (mesh.faces.empty()) {
        return info;
    }
    info.low = bounds.low;
    info.high = bounds.high;
    info.objects = objects.sorted();
    info.groups = groups.sorted();
    info.materials = materials.sorted();
    Scene triangles;
    appendTriangles(mesh, triangles);
    info.likelyUnit = likelyUnit(unit, lengthsOf(triangles));

    const Bodies bodies = findBodies(mesh, stop);
    info.outward = bodies.count(Winding::outward);
    info.inward = bodies.count(Winding::inward);
    info.mixed = bodies.count(Winding::mixed);
    info.open = bodies.count(Winding::open);
    for (const Body& body : bodies.bodies) {
        info.hollows += body.isHollow ? 1U : 0U;
        info.volume += body.isHollow ? -body.volume : body.volume;
    }
    countDoubles(mesh, welded, areas, info);
    return info;
}

std::string modelInfoText(const ModelInfo& info, double north) {
    std::string text =
        fmt::format("{}\n{} {}, {} {}, {} places, {} m2\n", info.source, groupedDigits(info.faces),
                    counted(info.faces, "face", "faces"), groupedDigits(info.triangles),
                    counted(info.triangles, "triangle", "triangles"), groupedDigits(info.vertices),
                    lengthText(info.area));
    const Vector3 extent = info.high - info.low;
    text += fmt::format("extent {} x {} x {} m, from ({}, {}, {}) to ({}, {}, {})\n",
                        lengthText(extent.x), lengthText(extent.y), lengthText(extent.z),
                        lengthText(info.low.x), lengthText(info.low.y), lengthText(info.low.z),
                        lengthText(info.high.x), lengthText(info.high.y), lengthText(info.high.z));
    if (!info.likelyUnit) {
        text += fmt::format("units: read as {}; the lengths fit no building in any unit\n",
                            unitName(info.unit));
    } else if (*info.likelyUnit != info.unit) {
        text += fmt::format("units: read as {}, but the lengths look like {}: try --units {}\n",
                            unitName(info.unit), unitName(*info.likelyUnit),
                            unitName(*info.likelyUnit));
    } else {
        text += fmt::format("units: {}, which fits the lengths\n", unitName(info.unit));
    }

    const std::size_t closed = info.outward + info.inward + info.mixed;
    text += fmt::format("closed bodies: {}", groupedDigits(closed));
    if (closed > 0) {
        text += fmt::format(", {} m3; {} wound outward, {} inward, {} mixed",
                            lengthText(info.volume), groupedDigits(info.outward),
                            groupedDigits(info.inward), groupedDigits(info.mixed));
    }
    text += fmt::format("; open surfaces: {}\n", groupedDigits(info.open));
    if (info.hollows > 0) {
        text += fmt::format("  {} of the bodies {} of others\n", groupedDigits(info.hollows),
                            counted(info.hollows, "is a hollow", "are hollows"));
    }
    if (info.inward + info.mixed > 0) {
        text += "  bodies wound inward have their sensors inside: --orient outward turns them\n";
    }
    if (info.doubles > 0) {
        text += fmt::format("double faces: {}, {} of them back to back\n",
                            groupedDigits(info.doubles), groupedDigits(info.backToBack));
    }
    if (info.facesWithoutArea > 0) {
        text += fmt::format("faces without area: {}, which get no sensors\n",
                            groupedDigits(info.facesWithoutArea));
    }
    if (info.coordinateStep > 0.0) {
        text += fmt::format("precision: single, coordinates in steps of {:.2g} m{}\n",
                            info.coordinateStep,
                            info.coordinateStep < 1.0e-3
                                ? ""
                                : "; move the model to its origin before the export, or export it "
                                  "as OBJ");
    }
    for (const std::string& note : info.notes) {
        text += note + "\n";
    }

    constexpr std::size_t mostRows = 20;
    for (const auto& [title, parts] :
         {std::pair{"objects", &info.objects}, std::pair{"groups", &info.groups},
          std::pair{"materials", &info.materials}}) {
        if (parts->empty()) {
            text += fmt::format("\n{}: none\n", title);
            continue;
        }
        text += fmt::format("\n{:<32} {:>10} {:>12}  mean orientation\n",
                            fmt::format("{} ({})", title, parts->size()), "faces", "m2");
        for (std::size_t i = 0; i < std::min(parts->size(), mostRows); ++i) {
            const PartInfo& part = (*parts)[i];
            text += fmt::format("{:<32} {:>10} {:>12}  {}\n",
                                part.name.empty() ? "(no name)" : printable(part.name),
                                groupedDigits(part.faces), lengthText(part.area),
                                orientationText(part, north));
        }
        if (parts->size() > mostRows) {
            text += fmt::format("and {} smaller ones: --json lists all\n",
                                groupedDigits(parts->size() - mostRows));
        }
    }
    if (!info.uses.empty()) {
        text += fmt::format("\n{:<32} {:>10} {:>12}  taken for\n", "light", "triangles", "m2");
    }
    for (const MaterialUse& use : info.uses) {
        text += fmt::format("{:<32} {:>10} {:>12}  {}\n",
                            !use.pattern.empty()    ? printable(use.pattern)
                            : info.uses.size() == 1 ? "(all)"
                                                    : "(all others)",
                            groupedDigits(use.triangles), lengthText(use.area), use.text);
    }
    return text;
}

std::string modelInfoJson(const ModelInfo& info, double north) {
    using JsonText = nlohmann::ordered_json;
    const auto point = [](const Vector3& p) { return JsonText{p.x, p.y, p.z}; };
    const auto parts = [&](const std::vector<PartInfo>& list) {
        JsonText all = JsonText::array();
        for (const PartInfo& part : list) {
            JsonText entry = {{"name", part.name}, {"faces", part.faces}, {"area_m2", part.area}};
            const double agreement = length(part.meanNormal);
            entry["orientation"] = {
                {"agreement", agreement},
                {"tilt", agreement > 0.0 ? JsonText(tiltOf(part.meanNormal)) : JsonText()},
                {"azimuth",
                 agreement > 0.0 ? JsonText(bearingOf(part.meanNormal, north)) : JsonText()}};
            all.push_back(std::move(entry));
        }
        return all;
    };
    JsonText json = {
        {"file", info.source},
        {"faces", info.faces},
        {"triangles", info.triangles},
        {"vertices", info.vertices},
        {"area_m2", info.area},
        {"extent_m", {{"low", point(info.low)}, {"high", point(info.high)}}},
        {"units",
         {{"read_as", unitName(info.unit)},
          {"likely", info.likelyUnit ? JsonText(unitName(*info.likelyUnit)) : JsonText()}}},
        {"bodies",
         {{"outward", info.outward},
          {"inward", info.inward},
          {"mixed", info.mixed},
          {"hollows", info.hollows},
          {"open_surfaces", info.open},
          {"volume_m3", info.volume}}},
        {"faces_without_area", info.facesWithoutArea},
        {"double_faces", info.doubles},
        {"back_to_back", info.backToBack},
        {"coordinate_step_m", info.coordinateStep},
        {"notes", info.notes},
        {"objects", parts(info.objects)},
        {"groups", parts(info.groups)},
        {"materials", parts(info.materials)},
    };
    for (const MaterialUse& use : info.uses) {
        json["light"].push_back({{"names", use.pattern.empty() ? "*" : use.pattern},
                                 {"taken_for", use.text},
                                 {"triangles", use.triangles},
                                 {"area_m2", use.area}});
    }
    return json.dump(2, ' ', false, JsonText::error_handler_t::replace) + "\n";
}

} // namespace insolate::study
