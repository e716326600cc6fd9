#include "study/model/cityjson_reader.h"

#include "study/model/cityjson_coordinates.h"
#include "study/model/cityjson_document.h"
#include "study/model/cityjson_geometry.h"
#include "study/model/cityjson_levels.h"
#include "study/support/errors.h"
#include "study/support/numbers.h"
#include "study/support/readable.h"

#include <map>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include <fmt/format.h>

namespace insolate::study {

namespace cityjson {
namespace {

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

class CityReader {
public:
    CityReader(const std::filesystem::path& file, const std::string& lod, std::stop_token stop)
        : m_source(file, std::move(stop)) {
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
            m_source.fail("the file is empty; export the model again");
        }
        m_transform = readHead(*first, m_source);
        readCity(*first);
        first.reset();
        while (const auto feature = m_source.next()) {
            if (textOf(*feature, "type") != "CityJSONFeature") {
                m_source.fail("a line of the sequence is no CityJSONFeature; write one document to "
                              "a file, or one feature to a line");
            }
            readCity(*feature);
        }
        requireMetres(m_geometry.mesh(), m_source.file());
        noteFindings();
        return std::move(m_geometry.mesh());
    }

private:
    /// A whole city, or one feature with its own vertices.
    void readCity(const Json& city) {
        const Json none = Json::object();
        const auto found = city.find("CityObjects");
        if (found != city.end() && !found->is_object()) {
            m_source.fail("\"CityObjects\" is not an object; export the model again");
        }
        const Json* const objects = found == city.end() ? &none : &*found;
        m_geometry.begin(city, m_transform);
        findGroups(*objects);
        m_bestLods.clear();
        m_bestLodsOfParts.clear();
        for (const auto& [id, object] : objects->items()) {
            if (!object.is_object() ||
                (object.contains("geometry") && !object["geometry"].is_array())) {
                ++m_counts["damaged (no object, or geometry that is no list), left out"];
            } else {
                readObject(*objects, id, object);
            }
        }
    }

    /// The groups that name each object: members in version 1.0, children later.
    void findGroups(const Json& objects) {
        for (const auto& [id, object] : objects.items()) {
            if (treatmentOf(textOf(object, "type")) != Treatment::group) {
                continue;
            }
            for (const char* list : {"children", "members"}) {
                for (const Json& member : elementsOf(object, list)) {
                    if (!member.is_string()) {
                        continue;
                    }
                    const auto [entry, isNew] =
                        m_groupOf.try_emplace(member.get<std::string>(), id);
                    if (!isNew && entry->second != id) {
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
            const Json& surfaces = m_geometry.surfacesOf(geometry);
            const Lod lod = lodOf(surfaces);
            if (depthOf(surfaces) && !elementsOf(surfaces, "boundaries").empty() &&
                (!best || isBetter(lod, *best, m_lod))) {
                best = lod;
            }
        }
        return best;
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
        if (!m_read.insert(id).second) {
            ++m_counts["given a second time, left out"];
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
        const auto best = bestLod(object);
        if (!best) {
            refuseOrNote(id, geometries);
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
        auto group = m_groupOf.find(id);
        group = group == m_groupOf.end() ? m_groupOf.find(root) : group;
        const CityNames names{id, root, group == m_groupOf.end() ? type : group->second};
        for (const Json& geometry : geometries) {
            if (const Json& surfaces = m_geometry.surfacesOf(geometry);
                depthOf(surfaces) && lodOf(surfaces) == *best) {
                m_geometry.read(geometry, names);
            }
        }
    }

    /// Of an object without any surface.
    void refuseOrNote(const std::string& id, const Json& geometries) {
        for (const Json& geometry : geometries) {
            const Json& surfaces = m_geometry.surfacesOf(geometry);
            const std::string type = textOf(surfaces, "type");
            if (type == "GeometryInstance") {
                m_source.fail(
                    "it is an instance of a template that is not there; export the model again",
                    id);
            }
            if (type != "MultiPoint" && type != "MultiLineString" && !depthOf(surfaces)) {
                m_source.fail(
                    fmt::format("geometry of the type {} is not known; export the model again",
                                quoteText(type)),
                    id);
            }
            if (depthOf(surfaces)) {
                ++m_counts["without surfaces in their geometry"];
                return;
            }
        }
        ++m_counts["points or lines, left out"];
    }

    /// What was left out, as sentences.
    void noteFindings() {
        const CityFindings& findings = m_geometry.findings();
        if (findings.instancesWithoutPlace > 0) {
            m_counts["without a place in the model, left out"] = findings.instancesWithoutPlace;
        }
        const auto note = [&](std::size_t count, const std::string& text) {
            m_geometry.mesh().notes.push_back(
                fmt::format("{}: {} {}", place(m_source.file()), groupedDigits(count), text));
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
        if (findings.emptyRings > 0) {
            note(findings.emptyRings, fmt::format("{} with less than three corners {} left out",
                                                  counted(findings.emptyRings, "ring", "rings"),
                                                  counted(findings.emptyRings, "was", "were")));
        }
        if (findings.closedHoles > 0) {
            note(findings.closedHoles,
                 fmt::format(
                     "{} whose holes cross or leave the outline, or are many thousand, {} taken "
                     "without them",
                     counted(findings.closedHoles, "surface", "surfaces"),
                     counted(findings.closedHoles, "was", "were")));
        }
    }

    CityDocuments m_source;
    std::optional<Lod> m_lod; ///< asked for
    CityTransform m_transform;
    CityGeometry m_geometry{m_source};
    std::unordered_map<std::string, std::string> m_groupOf; ///< by object
    std::unordered_set<std::string>
        m_read; ///< ids of objects with geometry; a sequence may repeat them
    /// By object of the document.
    std::unordered_map<const Json*, std::optional<Lod>> m_bestLods;
    std::unordered_map<const Json*, std::optional<Lod>> m_bestLodsOfParts;
    std::map<std::string, std::size_t> m_counts; ///< of objects, by what is so of them
    std::map<std::string, std::size_t> m_unknownTypes;
};

} // namespace
} // namespace cityjson

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
    return cityjson::CityReader(file, lod, stop).read();
}

} // namespace insolate::study
