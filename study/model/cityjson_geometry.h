/// The surfaces of city objects, put into a mesh.
#pragma once

#include "study/model/cityjson_coordinates.h"
#include "study/model/cityjson_document.h"
#include "study/model/cityjson_templates.h"
#include "study/model/mesh.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace insolate::study::cityjson {

/// Lists between a geometry's boundaries and its surfaces; nothing when it has no surfaces.
std::optional<int> depthOf(const Json& geometry);

/// What the faces of a city object are called.
struct CityNames {
    std::string id; ///< of the object itself, for messages
    std::string object;
    std::string group;
};

/// What could not be taken as it stands.
struct CityFindings {
    std::size_t instancesWithoutPlace = 0;
    std::size_t emptyRings = 0;
    std::size_t closedHoles = 0; ///< surfaces
};

/// Reads geometries of one document after the other. Vertices become part of the mesh when a face
/// uses them; a face's material is the semantics of its surface.
class CityGeometry {
public:
    explicit CityGeometry(const CityDocuments& source) : m_source(source) {}

    /// A document's own vertices and, where it has them, templates.
    /// @throws DataError
    void begin(const Json& city, const CityTransform& transform);
    /// Adds the faces of a geometry that has surfaces, or of an instance of one.
    /// @throws DataError when its form or its vertices are not there
    void read(const Json& geometry, const CityNames& names);

    /// The geometry itself, or the template that it is an instance of.
    [[nodiscard]] const Json& surfacesOf(const Json& geometry) const {
        return m_templates.surfacesOf(geometry);
    }
    [[nodiscard]] const CityFindings& findings() const { return m_findings; }
    [[nodiscard]] Mesh& mesh() { return m_mesh; }

private:
    void readVertices(const Json& city, const CityTransform& transform);
    void readInstance(const Json& instance);
    void readSurfaces(const Json& geometry);
    void readLevel(const Json& list, const Json* values, int depth);
    void readSurface(const Json& surface, const Json* value);
    [[nodiscard]] std::string semanticsOf(const Json* value) const;
    std::vector<std::uint32_t> ringOf(const Json& list);
    [[nodiscard]] std::size_t vertexOf(const Json& index, std::size_t count) const;
    std::uint32_t placed(std::size_t vertex);
    void bridgeHoles(std::vector<std::vector<std::uint32_t>>& rings);
    void checkCount(std::size_t corners) const;
    void addFace(std::vector<std::uint32_t>& ring);
    [[noreturn]] void failOfForm() const;

    const CityDocuments& m_source;
    Mesh m_mesh;
    CityTemplates m_templates;
    std::vector<Vector3> m_vertices;     ///< of the document, in the world
    std::vector<std::uint32_t> m_placed; ///< of these, in the mesh; unnamed: not yet
    std::vector<std::uint32_t> m_placedTemplate;
    std::string m_object;                         ///< that is being read
    Mesh::Face m_face;                            ///< with its names
    std::optional<TemplatePlacement> m_placement; ///< of a template
    const Json* m_semantics = nullptr;            ///< surfaces of the geometry
    CityFindings m_findings;
};

} // namespace insolate::study::cityjson
