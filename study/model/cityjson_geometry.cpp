#include "study/model/cityjson_geometry.h"

#include "study/model/polygon_rings.h"
#include "study/support/errors.h"
#include "study/support/readable.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <tuple>
#include <utility>

#include <fmt/format.h>

namespace insolate::study::cityjson {

namespace {

constexpr std::size_t mostCorners = 200'000'000; ///< templates may stand in a file a million times

} // namespace

std::optional<int> depthOf(const Json& geometry) {
    const std::string type = textOf(geometry, "type");
    return type == "MultiSurface" || type == "CompositeSurface" ? std::optional(0)
           : type == "Solid"                                    ? std::optional(1)
           : type == "MultiSolid" || type == "CompositeSolid"   ? std::optional(2)
                                                                : std::nullopt;
}

void CityGeometry::begin(const Json& city, const CityTransform& transform) {
    readVertices(city, transform);
    if (const Json* templates = memberOf(city, "geometry-templates")) {
        m_templates.read(*templates, m_source);
    }
}

void CityGeometry::readVertices(const Json& city, const CityTransform& transform) {
    m_vertices.clear();
    const Json* vertices = memberOf(city, "vertices");
    if (vertices == nullptr) {
        return;
    }
    if (!vertices->is_array()) {
        m_source.fail("\"vertices\" is not a list; export the model again");
    }
    m_vertices.reserve(vertices->size());
    for (const Json& vertex : *vertices) {
        const auto p = pointOf(vertex);
        if (!p) {
            m_source.fail(fmt::format("vertex {} is not three numbers; export the model again",
                                      m_vertices.size()));
        }
        m_vertices.push_back(transform(*p));
    }
    m_placed.assign(m_vertices.size(), Mesh::unnamed);
}

void CityGeometry::read(const Json& geometry, const CityNames& names) {
    m_object = names.id;
    m_face.object = m_mesh.nameIndex(names.object);
    m_face.group = m_mesh.nameIndex(names.group);
    if (textOf(geometry, "type") == "GeometryInstance") {
        readInstance(geometry);
    } else {
        m_placement.reset();
        readSurfaces(geometry);
    }
}

void CityGeometry::readInstance(const Json& instance) {
    const Json& boundaries = elementsOf(instance, "boundaries");
    if (boundaries.empty()) {
        ++m_findings.instancesWithoutPlace;
        return;
    }
    m_placement = placementOf(instance, m_vertices[vertexOf(boundaries[0], m_vertices.size())],
                              m_source, m_object);
    m_placedTemplate.assign(m_templates.vertices().size(), Mesh::unnamed);
    readSurfaces(m_templates.surfacesOf(instance));
}

/// The surfaces of a geometry lie at a depth that its type decides, with their semantics'
/// values in lists of the same form.
void CityGeometry::readSurfaces(const Json& geometry) {
    const Json* semantics = memberOf(geometry, "semantics");
    m_semantics = semantics != nullptr ? memberOf(*semantics, "surfaces") : nullptr;
    readLevel(elementsOf(geometry, "boundaries"),
              semantics != nullptr ? memberOf(*semantics, "values") : nullptr,
              depthOf(geometry).value_or(0));
}

void CityGeometry::readLevel(const Json& list, const Json* values, int depth) {
    if (!list.is_array()) {
        failOfForm();
    }
    for (std::size_t i = 0; i < list.size(); ++i) {
        const Json* value =
            values != nullptr && values->is_array() && i < values->size() ? &(*values)[i] : nullptr;
        if (depth > 0) {
            readLevel(list[i], value, depth - 1);
        } else {
            readSurface(list[i], value);
        }
    }
}

/// The type of the surface that the value names; "" for none.
std::string CityGeometry::semanticsOf(const Json* value) const {
    if (value == nullptr || !value->is_number_unsigned() || m_semantics == nullptr ||
        !m_semantics->is_array() || value->get<std::size_t>() >= m_semantics->size()) {
        return {};
    }
    return textOf((*m_semantics)[value->get<std::size_t>()], "type");
}

void CityGeometry::readSurface(const Json& surface, const Json* value) {
    const std::string type = semanticsOf(value);
    if (type == "ClosureSurface") {
        return; // where there is nothing to see or to shade
    }
    if (!surface.is_array()) {
        failOfForm();
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
            ++m_findings.emptyRings;
        }
    }
    if (rings.empty()) {
        ++m_findings.emptyRings;
        return;
    }
    if (rings.size() > 1) {
        bridgeHoles(rings);
    }
    addFace(rings[0]);
}

/// The ring's vertices in the mesh; a first one that is repeated at the end counts once.
std::vector<std::uint32_t> CityGeometry::ringOf(const Json& list) {
    if (!list.is_array()) {
        failOfForm();
    }
    std::vector<std::uint32_t> ring;
    ring.reserve(list.size());
    const std::size_t count = m_placement ? m_templates.vertices().size() : m_vertices.size();
    for (const Json& index : list) {
        ring.push_back(placed(vertexOf(index, count)));
    }
    if (ring.size() > 3 && ring.front() == ring.back()) {
        ring.pop_back();
    }
    return ring;
}

std::size_t CityGeometry::vertexOf(const Json& index, std::size_t count) const {
    if (!index.is_number_unsigned() || index.get<std::uint64_t>() >= count) {
        m_source.fail(
            fmt::format("a boundary names vertex {}, but {} {} there; export the model again",
                        printable(index.is_number() ? index.dump() : index.type_name()), count,
                        counted(count, "vertex is", "vertices are")),
            m_object);
    }
    return index.get<std::size_t>();
}

/// Only vertices that faces use become part of the mesh.
std::uint32_t CityGeometry::placed(std::size_t vertex) {
    std::uint32_t& index = m_placement ? m_placedTemplate[vertex] : m_placed[vertex];
    if (index == Mesh::unnamed) {
        checkCount(m_mesh.vertices.size());
        index = static_cast<std::uint32_t>(m_mesh.vertices.size());
        m_mesh.vertices.push_back(m_placement ? (*m_placement)(m_templates.vertices()[vertex])
                                              : m_vertices[vertex]);
    }
    return index;
}

void CityGeometry::bridgeHoles(std::vector<std::vector<std::uint32_t>>& rings) {
    std::vector<std::vector<Vector3>> places;
    for (const auto& ring : rings) {
        std::vector<Vector3>& corners = places.emplace_back();
        for (const std::uint32_t vertex : ring) {
            corners.push_back(m_mesh.vertices[vertex]);
        }
    }
    const auto joined = bridged(std::move(places[0]), {std::make_move_iterator(places.begin() + 1),
                                                       std::make_move_iterator(places.end())});
    if (!joined) {
        ++m_findings.closedHoles;
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

void CityGeometry::checkCount(std::size_t corners) const {
    if (corners > mostCorners) {
        m_source.fail("the model has more corners than can be held; split it into several files",
                      m_object);
    }
}

void CityGeometry::addFace(std::vector<std::uint32_t>& ring) {
    checkCount(m_mesh.corners.size() + ring.size());
    if (m_placement && m_placement->mirrors()) {
        std::reverse(ring.begin(), ring.end());
    }
    m_face.firstCorner = static_cast<std::uint32_t>(m_mesh.corners.size());
    m_face.cornerCount = static_cast<std::uint32_t>(ring.size());
    m_mesh.corners.insert(m_mesh.corners.end(), ring.begin(), ring.end());
    m_mesh.faces.push_back(m_face);
}

void CityGeometry::failOfForm() const {
    m_source.fail("its boundaries are not lists of the form that their type has; export the model "
                  "again",
                  m_object);
}

} // namespace insolate::study::cityjson
