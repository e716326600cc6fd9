#include "study/model/mesh_replace.h"

#include "study/support/closest_name.h"
#include "study/support/errors.h"

#include <algorithm>

#include <fmt/format.h>

namespace insolate::study {

namespace {

/// Puts faces of other meshes into one.
class Gathering {
public:
    explicit Gathering(Mesh& mesh) : m_mesh(mesh) {}

    void from(const Mesh& source) {
        m_source = &source;
        m_placeOf.assign(source.vertices.size(), Mesh::unnamed);
    }
    void add(const Mesh::Face& face, std::uint32_t object) {
        Mesh::Face copy = face;
        copy.firstCorner = static_cast<std::uint32_t>(m_mesh.corners.size());
        for (const std::uint32_t corner : m_source->cornersOf(face)) {
            std::uint32_t& place = m_placeOf[corner];
            if (place == Mesh::unnamed) {
                place = static_cast<std::uint32_t>(m_mesh.vertices.size());
                m_mesh.vertices.push_back(m_source->vertices[corner]);
            }
            m_mesh.corners.push_back(place);
        }
        copy.object = object;
        copy.group = named(face.group);
        copy.material = named(face.material);
        m_mesh.faces.push_back(copy);
    }
    std::uint32_t named(std::uint32_t name) {
        return name == Mesh::unnamed ? name : m_mesh.nameIndex(m_source->names[name]);
    }

private:
    Mesh& m_mesh;
    const Mesh* m_source = nullptr;
    std::vector<std::uint32_t> m_placeOf;
};

} // namespace

Mesh replaceObject(const Mesh& mesh, const std::string& object, const Mesh& by,
                   const std::string& source) {
    const auto found = std::find(mesh.names.begin(), mesh.names.end(), object);
    const auto name = static_cast<std::uint32_t>(found - mesh.names.begin());
    const auto isReplaced = [&](const Mesh::Face& face) { return face.object == name; };
    if (found == mesh.names.end() ||
        std::none_of(mesh.faces.begin(), mesh.faces.end(), isReplaced)) {
        throw DataError(fmt::format("{}: there is no object {}{}", source, quoteText(object),
                                    didYouMean(object, mesh.names)));
    }
    Mesh result;
    result.notes = mesh.notes;
    result.coordinateStep = std::max(mesh.coordinateStep, by.coordinateStep);
    Gathering gathering(result);
    gathering.from(mesh);
    for (const Mesh::Face& face : mesh.faces) {
        if (!isReplaced(face)) {
            gathering.add(face, gathering.named(face.object));
        }
    }
    gathering.from(by);
    for (const Mesh::Face& face : by.faces) {
        gathering.add(face, result.nameIndex(object));
    }
    return result;
}

} // namespace insolate::study
