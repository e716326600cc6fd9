#include "study/model/cityjson_reader.h"

#include "study/files/input_file.h"
#include "study/model/polygon_rings.h"
#include "study/support/errors.h"
#include "study/support/numbers.h"
#include "study/support/readable.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace insolate::study {

namespace {

using Json = nlohmann::json;

constexpr int deepest = 100; ///< nesting; CityJSON itself has twelve levels
constexpr std::size_t largestDocument = 512U << 20U;
constexpr std::size_t mostCorners = 200'000'000; ///< templates may stand in a file a million times

/// Many programs write the whole city into one line.
constexpr InputKind cityFile = {
    .name = "city model", .mostBytes = 64ULL << 30U, .mostLineBytes = largestDocument};

/// Whole JSON documents, one after the other, each from line to line as long as it needs.
class DocumentSource {
public:
    DocumentSource(const std::filesystem::path& file, std::stop_token stop)
        : m_file(file), m_in(file, cityFile, stop), m_stop(std::move(stop)) {}

    /// The next document; nothing at the end of the file.
    std::optional<Json> next() {
        m_text.clear();
        m_firstLine = m_line + 1;
        int depth = 0;
        bool isInText = false;
        bool isEscaped = false;
        bool hasBegun = false;
        for (std::string line; !(hasBegun && depth == 0) && m_in.readLine(line);) {
            ++m_line;
            throwIfStopped(m_stop);
            if (m_line == 1 && line.starts_with("\xEF\xBB\xBF")) {
                line.erase(0, 3);
            }
            if (!hasBegun && trimmed(line).empty()) {
                m_firstLine = m_line + 1;
                continue;
            }
            hasBegun = true;
            // Depth is counted before anything is built, so that hostile nesting costs nothing.
            for (const char c : line) {
                if (isInText) {
                    isInText = isEscaped || c != '"';
                    isEscaped = !isEscaped && c == '\\';
                } else if (c == '"') {
                    isInText = true;
                } else if (c == '{' || c == '[') {
                    if (++depth > deepest) {
                        throw DataError(fmt::format("{}: more than {} lists and objects lie one in "
                                                    "the other, which no city model needs; export "
                                                    "the model again",
                                                    place(m_file, m_line), deepest));
                    }
                } else if (c == '}' || c == ']') {
                    --depth;
                }
            }
            isEscaped = false;
            m_text += line;
            m_text += '\n';
            if (m_text.size() > largestDocument) {
                throw DataError(fmt::format("{}: one CityJSON document of more than {} MB; convert "
                                            "the model to CityJSONSeq "
                                            "(.city.jsonl), which is read feature by feature",
                                            place(m_file), largestDocument >> 20U));
            }
        }
        if (!hasBegun) {
            return std::nullopt;
        }
        try {
            return Json::parse(m_text);
        } catch (const Json::exception& error) {
            const auto* parseError = dynamic_cast<const Json::parse_error*>(&error);
            const std::size_t byte =
                std::min(parseError != nullptr ? parseError->byte : 0, m_text.size());
            const auto lines = std::count(
                m_text.begin(),
                m_text.begin() + static_cast<std::ptrdiff_t>(byte > 0 ? byte - 1 : 0), '\n');
            throw DataError(
                fmt::format("{}: this is no JSON, or the file is cut off; export the model again",
                            place(m_file, m_firstLine + static_cast<std::size_t>(lines))));
        }
    }

    [[nodiscard]] std::string here() const { return place(m_file, m_firstLine); }
    [[nodiscard]] std::size_t line() const { return m_firstLine; }

private:
    std::filesystem::path m_file;
    InputFile m_in;
    std::stop_token m_stop;
    std::string m_text;
    std::size_t m_line = 0;
    std::size_t m_firstLine = 1; ///< of the document
};

/// The member of an object; nullptr when there is none or it is null.
const Json* memberOf(const Json& object, const char* name) {
    if (!object.is_object()) {
        return nullptr;
    }
    const auto found = object.find(name);
    return found == object.end() || found->is_null() ? nullptr : &*found;
}

/// The elements of a member that is a list; none of any other.
const Json& elementsOf(const Json& object, const char* name) {
    static const Json none = Json::array();
    const Json* member = memberOf(object, name);
    return member != nullptr && member->is_array() ? *member : none;
}

std::string textOf(const Json& object, const char* name) {
    const Json* member = memberOf(object, name);
    return member != nullptr && member->is_string() ? member->get<std::string>() : std::string();
}

std::optional<double> numberOf(const Json& value) {
    return value.is_number() ? std::optional(value.get<double>()) : std::nullopt;
}

std::optional<Vector3> pointOf(const Json& value) {
    if (!value.is_array() || value.size() < 3) {
        return std::nullopt;
    }
    const auto x = numberOf(value[0]);
    const auto y = numberOf(value[1]);
    const auto z = numberOf(value[2]);
    return x && y && z ? std::optional(Vector3{*x, *y, *z}) : std::nullopt;
}

/// A level of detail: 2.2 is {2, 2}, 2 is {2, -1}.
using Lod = std::pair<int, int>;
constexpr Lod noLod = {-1, -1};

std::optional<Lod> parseLod(std::string_view text) {
    const std::size_t point = text.find('.');
    const auto major = parseNumber<int>(text.substr(0, point));
    const auto minor = point == std::string_view::npos ? std::optional(-1)
                                                       : parseNumber<int>(text.substr(point + 1));
    if (!major || !minor || *major < 0 || *major > 9 || *minor > 9 || *minor < -1 ||
        (point != std::string_view::npos && *minor < 0)) {
        return std::nullopt;
    }
    return Lod{*major, *minor};
}

/// The level of a geometry: text, or a number before version 1.1.
Lod lodOf(const Json& geometry) {
    const Json* lod = memberOf(geometry, "lod");
    if (lod == nullptr) {
        return noLod;
    }
    const std::string text = lod->is_string() ? lod->get<std::string>() : lod->dump();
    return parseLod(text).value_or(noLod);
}

/// Whether the level is the one that is meant: "2" means all from 2.0 to 2.3.
bool isMeant(const Lod& lod, const Lod& wanted) {
    return lod == wanted || (wanted.second < 0 && lod.first == wanted.first);
}

/// Whether a is the better of two levels for the one that is wanted, if any is.
bool isBetter(const Lod& a, const Lod& b, const std::optional<Lod>& wanted) {
    if (!wanted) {
        return a > b;
    }
    const auto rank = [&](const Lod& lod) {
        return isMeant(lod, *wanted) ? 2 : lod < *wanted ? 1 : 0;
    };
    return rank(a) != rank(b) ? rank(a) > rank(b) : rank(a) == 0 ? a < b : a > b;
}

/// What is done with objects of a type.
enum class Treatment { read, leftOut, group, unknown };

Treatment treatmentOf(const std::string& type) {
    static const std::unordered_map<std::string_view, Treatment> treatments = [] {
        std::unordered_map<std::string_view, Treatment> known;
        for (const char* name : {"Building",
                                 "BuildingPart",
                                 "BuildingInstallation",
                                 "BuildingConstructiveElement",
                                 "Bridge",
                                 "BridgePart",
                                 "BridgeInstallation",
                                 "BridgeConstructiveElement",
                                 "BridgeConstructionElement",
                                 "Tunnel",
                                 "TunnelPart",
                                 "TunnelInstallation",
                                 "TunnelConstructiveElement",
                                 "OtherConstruction",
                                 "Road",
                                 "Railway",
                                 "Waterway",
                                 "TransportSquare",
                                 "TINRelief",
                                 "WaterBody",
                                 "PlantCover",
                                 "SolitaryVegetationObject",
                                 "LandUse",
                                 "CityFurniture",
                                 "GenericCityObject"}) {
            known[name] = Treatment::read;
        }
        // They lie within a building's own surfaces.
        for (const char* name :
             {"BuildingRoom", "BuildingStorey", "BuildingUnit", "BuildingFurniture", "BridgeRoom",
              "BridgeFurniture", "TunnelHollowSpace", "TunnelFurniture"}) {
            known[name] = Treatment::leftOut;
        }
        known["CityObjectGroup"] = Treatment::group;
        return known;
    }();
    const auto found = treatments.find(type);
    return found == treatments.end() ? Treatment::unknown : found->second;
}

/// Systems of coordinates in degrees, or about the earth's centre, that city models come in.
constexpr std::array<int, 34> unfitSystems = {4152, 4156, 4167, 4171, 4230, 4258, 4267, 4269, 4275,
                                              4277, 4283, 4289, 4301, 4312, 4313, 4314, 4326, 4490,
                                              4612, 4619, 4674, 4737, 4759, 4936, 4937, 4955, 4957,
                                              4978, 4979, 6318, 6319, 6668, 6697, 7844};

/// The number at the end of "https://www.opengis.net/def/crs/EPSG/0/7415",
/// "urn:ogc:def:crs:EPSG::7415" or "EPSG:7415".
std::optional<int> epsgOf(const std::string& system) {
    const std::size_t end = system.find_last_of(":/");
    if (end == std::string::npos || system.find("EPSG") == std::string::npos) {
        return std::nullopt;
    }
    return parseNumber<int>(std::string_view(system).substr(end + 1));
}

/// Moves template coordinates to their place.
struct TemplatePlacement {
    std::array<double, 12> matrix = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0};
    Vector3 at;

    [[nodiscard]] Vector3 operator()(const Vector3& p) const {
        const auto row = [&](std::size_t i) {
            return matrix[i] * p.x + matrix[i + 1] * p.y + matrix[i + 2] * p.z + matrix[i + 3];
        };
        return Vector3{row(0), row(4), row(8)} + at;
    }
    [[nodiscard]] bool mirrors() const {
        const Vector3 x{matrix[0], matrix[1], matrix[2]};
        const Vector3 y{matrix[4], matrix[5], matrix[6]};
        const Vector3 z{matrix[8], matrix[9], matrix[10]};
        return dot(x, cross(y, z)) < 0.0;
    }
};

class CityReader {
public:
    CityReader(const std::filesystem::path& file, const std::string& lod, std::stop_token stop)
        : m_file(file), m_source(file, std::move(stop)) {
        if (!lod.empty()) {
            m_lod = parseLod(lod);
            if (!m_lod) {
                throw UsageError(fmt::format(
                    "--lod: {} is no level of detail; give one as 1 or 2.2", quoteText(lod)));
            }
        }
    }

    Mesh read() {
        auto first = m_source.next();
        if (!first) {
            fail("the file is empty; export the model again");
        }
        readHead(*first);
        readCity(*first);
        first.reset();
        while (const auto feature = m_source.next()) {
            if (textOf(*feature, "type") != "CityJSONFeature") {
                fail("a line of the sequence is no CityJSONFeature; write one document to a file, "
                     "or "
                     "one feature to a line");
            }
            readCity(*feature);
        }
        checkCoordinates();
        noteFindings();
        return std::move(m_mesh);
    }

private:
    /// @param object the id of the city object, where there is one
    [[noreturn]] void fail(const std::string& what, const std::string& object = {}) const {
        throw DataError(object.empty() ? fmt::format("{}: {}", m_source.here(), what)
                                       : fmt::format("{}: city object {}: {}", m_source.here(),
                                                     quoteText(object), what));
    }

    void readHead(const Json& city) {
        const std::string type = textOf(city, "type");
        if (type != "CityJSON") {
            fail(type == "CityJSONFeature"
                     ? "the sequence begins with a feature; put the line with the CityJSON object "
                       "and its transform first"
                     : "this is not CityJSON: its \"type\" is not \"CityJSON\"; give a CityJSON "
                       "file");
        }
        const std::string version = textOf(city, "version");
        if (!version.starts_with("1.0") && !version.starts_with("1.1") &&
            !version.starts_with("2.")) {
            fail(fmt::format("CityJSON of version {} is not read; upgrade the file to 2.0",
                             quoteText(version)));
        }
        if (const Json* transform = memberOf(city, "transform")) {
            const Json* scale = memberOf(*transform, "scale");
            const Json* translate = memberOf(*transform, "translate");
            const auto s = scale != nullptr ? pointOf(*scale) : std::nullopt;
            const auto t = translate != nullptr ? pointOf(*translate) : std::nullopt;
            if (!s || !t) {
                fail("the transform needs three numbers each of scale and translate; export the "
                     "model again");
            }
            m_scale = *s;
            m_translate = *t;
        } else if (!version.starts_with("1.0")) {
            fail("the transform is missing, which this version demands; export the model again");
        }
        const Json* metadata = memberOf(city, "metadata");
        const std::string system =
            metadata != nullptr ? textOf(*metadata, "referenceSystem") : std::string();
        const auto epsg = epsgOf(system);
        if (system.find("CRS84") != std::string::npos ||
            (epsg &&
             std::find(unfitSystems.begin(), unfitSystems.end(), *epsg) != unfitSystems.end())) {
            fail(fmt::format("the coordinates are in {}, not in metres on a plane; reproject the "
                             "model, for instance to its UTM zone",
                             quoteText(system)));
        }
    }

    /// A whole city, or one feature with its own vertices.
    void readCity(const Json& city) {
        const Json none = Json::object();
        const Json* objects = memberOf(city, "CityObjects");
        if (objects != nullptr && !objects->is_object()) {
            fail("\"CityObjects\" is not an object; export the model again");
        }
        objects = objects == nullptr ? &none : objects;
        readVertices(city);
        if (const Json* templates = memberOf(city, "geometry-templates")) {
            readTemplates(*templates);
        }
        findGroups(*objects);
        m_bestLods.clear();
        m_bestLodsOfParts.clear();
        for (const auto& [id, object] : objects->items()) {
            if (object.is_object()) {
                readObject(*objects, id, object);
            }
        }
    }

    void readVertices(const Json& city) {
        m_vertices.clear();
        const Json* vertices = memberOf(city, "vertices");
        if (vertices == nullptr) {
            return;
        }
        if (!vertices->is_array()) {
            fail("\"vertices\" is not a list; export the model again");
        }
        m_vertices.reserve(vertices->size());
        for (const Json& vertex : *vertices) {
            const auto p = pointOf(vertex);
            if (!p) {
                fail(fmt::format("vertex {} is not three numbers; export the model again",
                                 m_vertices.size()));
            }
            m_vertices.push_back({p->x * m_scale.x + m_translate.x,
                                  p->y * m_scale.y + m_translate.y,
                                  p->z * m_scale.z + m_translate.z});
        }
        m_placed.assign(m_vertices.size(), Mesh::unnamed);
    }

    void readTemplates(const Json& templates) {
        m_templateVertices.clear();
        for (const Json& vertex : elementsOf(templates, "vertices-templates")) {
            const auto p = pointOf(vertex);
            if (!p) {
                fail(
                    fmt::format("vertex {} of the templates is not three numbers; export the model "
                                "again",
                                m_templateVertices.size()));
            }
            m_templateVertices.push_back(*p); // not transformed, as the format has it
        }
        m_templates = elementsOf(templates, "templates");
    }

    /// The groups that name each object: members in version 1.0, children later.
    void findGroups(const Json& objects) {
        for (const auto& [id, object] : objects.items()) {
            if (treatmentOf(textOf(object, "type")) != Treatment::group) {
                continue;
            }
            for (const char* list : {"children", "members"}) {
                for (const Json& member : elementsOf(object, list)) {
                    if (member.is_string() &&
                        !m_groupOf.try_emplace(member.get<std::string>(), id).second) {
                        ++m_counts["named by more than one group, put into the first"];
                    }
                }
            }
        }
    }

    /// The first of the object's parents that is no group; nullptr when there is none in the file.
    static const Json* parentOf(const Json& objects, const Json& object, std::string& id) {
        for (const Json& parent : elementsOf(object, "parents")) {
            if (!parent.is_string()) {
                continue;
            }
            const auto found = objects.find(parent.get<std::string>());
            if (found != objects.end() && treatmentOf(textOf(*found, "type")) != Treatment::group) {
                id = found.key();
                return &*found;
            }
        }
        return nullptr;
    }

    /// The best level among an object's surfaces; nothing without any.
    std::optional<Lod> bestLod(const Json& object) {
        const auto [entry, isNew] = m_bestLods.try_emplace(&object);
        std::optional<Lod>& best = entry->second;
        if (!isNew) {
            return best;
        }
        for (const Json& geometry : elementsOf(object, "geometry")) {
            const Json& surfaces = surfacesOf(geometry);
            const Lod lod = lodOf(surfaces);
            if (depthOf(surfaces) && !elementsOf(surfaces, "boundaries").empty() &&
                (!best || isBetter(lod, *best, m_lod))) {
                best = lod;
            }
        }
        return best;
    }

    /// Lists between a geometry's boundaries and its surfaces; nothing when it has no surfaces.
    static std::optional<int> depthOf(const Json& geometry) {
        const std::string type = textOf(geometry, "type");
        return type == "MultiSurface" || type == "CompositeSurface" ? std::optional(0)
               : type == "Solid"                                    ? std::optional(1)
               : type == "MultiSolid" || type == "CompositeSolid"   ? std::optional(2)
                                                                    : std::nullopt;
    }

    /// The geometry itself, or the template that it is an instance of.
    [[nodiscard]] const Json& surfacesOf(const Json& geometry) const {
        const Json* index = memberOf(geometry, "template");
        return textOf(geometry, "type") == "GeometryInstance" && index != nullptr &&
                       index->is_number_unsigned() && index->get<std::size_t>() < m_templates.size()
                   ? m_templates[index->get<std::size_t>()]
                   : geometry;
    }

    static bool isPart(const Json& object) { return textOf(object, "type").ends_with("Part"); }

    /// The best level among the parts of an object; nothing without any.
    std::optional<Lod> bestLodOfParts(const Json& objects, const Json& object) {
        const auto [entry, isNew] = m_bestLodsOfParts.try_emplace(&object);
        if (isNew) {
            for (const Json& child : elementsOf(object, "children")) {
                const auto found =
                    child.is_string() ? objects.find(child.get<std::string>()) : objects.end();
                const auto theirs =
                    found != objects.end() && isPart(*found) ? bestLod(*found) : std::nullopt;
                if (theirs && (!entry->second || isBetter(*theirs, *entry->second, m_lod))) {
                    entry->second = theirs;
                }
            }
        }
        return entry->second;
    }

    /// Whether a building and its parts show the same in different levels, and this object is of
    /// the worse: either the building is taken, or its parts are, or both if they are of one level.
    bool isShownBetter(const Json& objects, const Json& object) {
        const auto isWorse = [&](const std::optional<Lod>& own, const std::optional<Lod>& other) {
            return own && other && isBetter(*other, *own, m_lod);
        };
        if (isWorse(bestLod(object), bestLodOfParts(objects, object))) {
            return true;
        }
        std::string id;
        const Json* parent = isPart(object) ? parentOf(objects, object, id) : nullptr;
        return parent != nullptr && isWorse(bestLodOfParts(objects, *parent), bestLod(*parent));
    }

    void readObject(const Json& objects, const std::string& id, const Json& object) {
        const std::string type = textOf(object, "type");
        const Json& geometries = elementsOf(object, "geometry");
        if (geometries.empty()) {
            return;
        }
        switch (treatmentOf(type)) {
        case Treatment::read:
            break;
        case Treatment::unknown:
            ++m_unknownTypes[type];
            return;
        case Treatment::group:
            return; // its members have the geometry
        case Treatment::leftOut:
            ++m_counts["rooms, storeys or furniture, left out"];
            return;
        }
        m_object = id;
        const auto best = bestLod(object);
        if (!best) {
            tellWhyEmpty(geometries);
            return;
        }
        if (isShownBetter(objects, object)) {
            return;
        }
        if (m_lod && !isMeant(*best, *m_lod)) {
            ++m_counts["without the level of detail asked for, taken in the next one"];
        }
        std::string root = id;
        const Json* at = &object;
        for (int generations = 0; generations < 16 && at != nullptr; ++generations) {
            at = parentOf(objects, *at, root);
        }
        m_face.object = m_mesh.nameIndex(root);
        auto group = m_groupOf.find(id);
        group = group == m_groupOf.end() ? m_groupOf.find(root) : group;
        m_face.group = m_mesh.nameIndex(group == m_groupOf.end() ? type : group->second);
        for (const Json& geometry : geometries) {
            if (const Json& surfaces = surfacesOf(geometry);
                depthOf(surfaces) && lodOf(surfaces) == *best) {
                readGeometry(geometry);
            }
        }
    }

    void tellWhyEmpty(const Json& geometries) {
        for (const Json& geometry : geometries) {
            const Json& surfaces = surfacesOf(geometry);
            const std::string type = textOf(surfaces, "type");
            if (type == "GeometryInstance") {
                failOfTemplate();
            }
            if (type != "MultiPoint" && type != "MultiLineString" && !depthOf(surfaces)) {
                fail(fmt::format("geometry of the type {} is not known; export the model again",
                                 quoteText(type)),
                     m_object);
            }
            if (depthOf(surfaces)) {
                ++m_counts["without surfaces in their geometry"];
                return;
            }
        }
        ++m_counts["points or lines, left out"];
    }

    [[noreturn]] void failOfTemplate() const {
        fail("it is an instance of a template that is not there; export the model again", m_object);
    }

    void readGeometry(const Json& geometry) {
        if (textOf(geometry, "type") == "GeometryInstance") {
            readInstance(geometry);
        } else {
            m_placement.reset();
            readSurfaces(geometry);
        }
    }

    void readInstance(const Json& instance) {
        const Json& boundaries = elementsOf(instance, "boundaries");
        if (boundaries.empty()) {
            ++m_counts["without a place in the model, left out"];
            return;
        }
        TemplatePlacement placement;
        placement.at = m_vertices[vertexOf(boundaries[0], m_vertices.size())];
        if (const Json* matrix = memberOf(instance, "transformationMatrix")) {
            if (!matrix->is_array() || matrix->size() != 16) {
                fail("the transformationMatrix does not have 16 numbers; export the model again",
                     m_object);
            }
            for (std::size_t i = 0; i < 12; ++i) {
                const auto number = numberOf((*matrix)[i]);
                if (!number) {
                    fail(
                        "the transformationMatrix does not have 16 numbers; export the model again",
                        m_object);
                }
                placement.matrix[i] = *number;
            }
        }
        m_placement = placement;
        m_placedTemplate.assign(m_templateVertices.size(), Mesh::unnamed);
        readSurfaces(surfacesOf(instance));
    }

    /// The surfaces of a geometry lie at a depth that its type decides, with their semantics'
    /// values in lists of the same form.
    void readSurfaces(const Json& geometry) {
        const Json* semantics = memberOf(geometry, "semantics");
        m_semantics = semantics != nullptr ? memberOf(*semantics, "surfaces") : nullptr;
        readLevel(elementsOf(geometry, "boundaries"),
                  semantics != nullptr ? memberOf(*semantics, "values") : nullptr,
                  depthOf(geometry).value_or(0));
    }

    void readLevel(const Json& list, const Json* values, int depth) {
        if (!list.is_array()) {
            fail("its boundaries are not lists of the form that their type has; export the model "
                 "again",
                 m_object);
        }
        for (std::size_t i = 0; i < list.size(); ++i) {
            const Json* value = values != nullptr && values->is_array() && i < values->size()
                                    ? &(*values)[i]
                                    : nullptr;
            if (depth > 0) {
                readLevel(list[i], value, depth - 1);
            } else {
                readSurface(list[i], value);
            }
        }
    }

    /// The type of the surface that the value names; "" for none.
    [[nodiscard]] std::string semanticsOf(const Json* value) const {
        if (value == nullptr || !value->is_number_unsigned() || m_semantics == nullptr ||
            !m_semantics->is_array() || value->get<std::size_t>() >= m_semantics->size()) {
            return {};
        }
        return textOf((*m_semantics)[value->get<std::size_t>()], "type");
    }

    void readSurface(const Json& surface, const Json* value) {
        const std::string type = semanticsOf(value);
        if (type == "ClosureSurface") {
            return; // where there is nothing to see or to shade
        }
        if (!surface.is_array()) {
            fail("its boundaries are not lists of the form that their type has; export the model "
                 "again",
                 m_object);
        }
        m_face.material = m_mesh.nameIndex(type);
        std::vector<std::vector<std::uint32_t>> rings;
        for (const Json& list : surface) {
            std::vector<std::uint32_t> ring = ringOf(list);
            if (ring.size() >= 3) {
                rings.push_back(std::move(ring));
            } else if (rings.empty()) {
                break; // without an outline its holes are nothing
            } else {
                ++m_emptySurfaces;
            }
        }
        if (rings.empty()) {
            ++m_emptySurfaces;
            return;
        }
        if (rings.size() > 1) {
            bridgeHoles(rings);
        }
        addFace(rings[0]);
    }

    /// The ring's vertices in the mesh; a first one that is repeated at the end counts once.
    std::vector<std::uint32_t> ringOf(const Json& list) {
        if (!list.is_array()) {
            fail("its boundaries are not lists of the form that their type has; export the model "
                 "again",
                 m_object);
        }
        std::vector<std::uint32_t> ring;
        ring.reserve(list.size());
        const std::size_t count = m_placement ? m_templateVertices.size() : m_vertices.size();
        for (const Json& index : list) {
            ring.push_back(placed(vertexOf(index, count)));
        }
        if (ring.size() > 3 && ring.front() == ring.back()) {
            ring.pop_back();
        }
        return ring;
    }

    std::size_t vertexOf(const Json& index, std::size_t count) const {
        if (!index.is_number_unsigned() || index.get<std::uint64_t>() >= count) {
            fail(fmt::format("a boundary names vertex {}, but {} {} there; export the model again",
                             printable(index.is_number() ? index.dump() : index.type_name()), count,
                             counted(count, "vertex is", "vertices are")),
                 m_object);
        }
        return index.get<std::size_t>();
    }

    /// Only vertices that faces use become part of the mesh.
    std::uint32_t placed(std::size_t vertex) {
        std::uint32_t& index = m_placement ? m_placedTemplate[vertex] : m_placed[vertex];
        if (index == Mesh::unnamed) {
            checkCount(m_mesh.vertices.size());
            index = static_cast<std::uint32_t>(m_mesh.vertices.size());
            m_mesh.vertices.push_back(m_placement ? (*m_placement)(m_templateVertices[vertex])
                                                  : m_vertices[vertex]);
        }
        return index;
    }

    void bridgeHoles(std::vector<std::vector<std::uint32_t>>& rings) {
        std::vector<std::vector<Vector3>> places;
        for (const auto& ring : rings) {
            std::vector<Vector3>& corners = places.emplace_back();
            for (const std::uint32_t vertex : ring) {
                corners.push_back(m_mesh.vertices[vertex]);
            }
        }
        const auto joined =
            bridged(std::move(places[0]), {std::make_move_iterator(places.begin() + 1),
                                           std::make_move_iterator(places.end())});
        if (!joined) {
            ++m_closedHoles;
            return;
        }
        const auto order = [](const Vector3& a, const Vector3& b) {
            return std::tie(a.x, a.y, a.z) < std::tie(b.x, b.y, b.z);
        };
        std::map<Vector3, std::uint32_t, decltype(order)> indices(order);
        for (const auto& ring : rings) {
            for (const std::uint32_t vertex : ring) {
                indices.try_emplace(m_mesh.vertices[vertex], vertex);
            }
        }
        rings[0].clear();
        for (const Vector3& p : *joined) {
            rings[0].push_back(indices.at(p));
        }
    }

    void checkCount(std::size_t corners) const {
        if (corners > mostCorners) {
            fail("the model has more corners than can be held; split it into several files",
                 m_object);
        }
    }

    void addFace(std::vector<std::uint32_t>& ring) {
        checkCount(m_mesh.corners.size() + ring.size());
        if (m_placement && m_placement->mirrors()) {
            std::reverse(ring.begin(), ring.end());
        }
        m_face.firstCorner = static_cast<std::uint32_t>(m_mesh.corners.size());
        m_face.cornerCount = static_cast<std::uint32_t>(ring.size());
        m_mesh.corners.insert(m_mesh.corners.end(), ring.begin(), ring.end());
        m_mesh.faces.push_back(m_face);
    }

    /// Degrees without a reference system: places on the globe, some hundred thousandths apart.
    void checkCoordinates() const {
        constexpr double most = std::numeric_limits<double>::max();
        Vector3 low{most, most, most};
        Vector3 high{-most, -most, -most};
        for (const Vector3& p : m_mesh.vertices) {
            low = {std::min(low.x, p.x), std::min(low.y, p.y), std::min(low.z, p.z)};
            high = {std::max(high.x, p.x), std::max(high.y, p.y), std::max(high.z, p.z)};
        }
        const bool isOnGlobe = std::max(std::abs(low.x), std::abs(high.x)) <= 180.0 &&
                               std::max(std::abs(low.y), std::abs(high.y)) <= 180.0 &&
                               std::max(std::abs(low.x), std::abs(low.y)) > 1.0;
        const bool isNarrow =
            std::max(high.x - low.x, high.y - low.y) < 0.3 && high.z - low.z > 1.0;
        if (!m_mesh.vertices.empty() && isOnGlobe && isNarrow) {
            throw DataError(fmt::format(
                "{}: the model is {:.2g} by {:.2g} wide and {:.2g} high at ({:.4g}, {:.4g}): its "
                "coordinates look like degrees, not metres; reproject it, for instance to its UTM "
                "zone",
                place(m_file), high.x - low.x, high.y - low.y, high.z - low.z, low.x, low.y));
        }
    }

    /// What was left out, as sentences.
    void noteFindings() {
        const auto note = [&](std::size_t count, const std::string& text) {
            m_mesh.notes.push_back(
                fmt::format("{}: {} {}", place(m_file), groupedDigits(count), text));
        };
        for (const auto& [what, count] : m_counts) {
            note(count, fmt::format("{}: {}", counted(count, "city object", "city objects"), what));
        }
        std::size_t unknown = 0;
        std::string names;
        for (const auto& [type, count] : m_unknownTypes) {
            unknown += count;
            if (names.size() < 100) {
                names += fmt::format("{}{}", names.empty() ? "" : ", ", quoteText(type));
            }
        }
        if (unknown > 0) {
            note(unknown, fmt::format("{} of unknown type ({}) {} left out",
                                      counted(unknown, "city object", "city objects"), names,
                                      counted(unknown, "was", "were")));
        }
        if (m_emptySurfaces > 0) {
            note(m_emptySurfaces, fmt::format("{} with less than three corners {} left out",
                                              counted(m_emptySurfaces, "ring", "rings"),
                                              counted(m_emptySurfaces, "was", "were")));
        }
        if (m_closedHoles > 0) {
            note(m_closedHoles,
                 fmt::format("{} whose holes cross or leave the outline {} taken without them",
                             counted(m_closedHoles, "surface", "surfaces"),
                             counted(m_closedHoles, "was", "were")));
        }
    }

    std::filesystem::path m_file;
    DocumentSource m_source;
    std::optional<Lod> m_lod; ///< asked for
    Mesh m_mesh;
    Vector3 m_scale{1.0, 1.0, 1.0};
    Vector3 m_translate;
    Json m_templates = Json::array();
    std::vector<Vector3> m_templateVertices;
    std::vector<Vector3> m_vertices;     ///< of the document, in the world
    std::vector<std::uint32_t> m_placed; ///< of these, in the mesh; unnamed: not yet
    std::vector<std::uint32_t> m_placedTemplate;
    std::unordered_map<std::string, std::string> m_groupOf; ///< by object
    /// By object of the document.
    std::unordered_map<const Json*, std::optional<Lod>> m_bestLods;
    std::unordered_map<const Json*, std::optional<Lod>> m_bestLodsOfParts;
    std::string m_object;                         ///< that is being read
    Mesh::Face m_face;                            ///< with its names
    std::optional<TemplatePlacement> m_placement; ///< of a template
    const Json* m_semantics = nullptr;            ///< surfaces of the geometry
    std::map<std::string, std::size_t> m_counts;  ///< of objects, by what is so of them
    std::map<std::string, std::size_t> m_unknownTypes;
    std::size_t m_emptySurfaces = 0;
    std::size_t m_closedHoles = 0;
};

} // namespace

bool isCityJson(std::string_view head) {
    if (head.starts_with("\xEF\xBB\xBF")) {
        head.remove_prefix(3);
    }
    return trimmed(head).starts_with('{') &&
           (head.find("\"CityJSON") != std::string_view::npos ||
            head.find("\"CityObjects\"") != std::string_view::npos);
}

Mesh readCityJson(const std::filesystem::path& file, const std::string& lod,
                  const std::stop_token& stop) {
    return CityReader(file, lod, stop).read();
}

} // namespace insolate::study
