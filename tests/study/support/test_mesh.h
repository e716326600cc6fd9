/// Meshes made of lists of polygons.
#pragma once

#include "study/model/mesh.h"

#include <vector>

namespace insolate::study::test {

/// Appends a face; every corner is a vertex of its own, as in STL.
inline Mesh::Face& addFace(Mesh& mesh, const std::vector<Vector3>& polygon) {
    Mesh::Face face;
    face.firstCorner = static_cast<std::uint32_t>(mesh.corners.size());
    face.cornerCount = static_cast<std::uint32_t>(polygon.size());
    for (const Vector3& p : polygon) {
        mesh.corners.push_back(static_cast<std::uint32_t>(mesh.vertices.size()));
        mesh.vertices.push_back(p);
    }
    return mesh.faces.emplace_back(face);
}

inline Mesh meshOf(const std::vector<std::vector<Vector3>>& polygons) {
    Mesh mesh;
    for (const auto& polygon : polygons) {
        addFace(mesh, polygon);
    }
    return mesh;
}

/// The six faces of a box, wound outwards: bottom, top, south, east, north, west.
inline std::vector<std::vector<Vector3>> boxFaces(const Vector3& low, const Vector3& high) {
    const auto at = [&](int i) {
        return Vector3{(i & 1) != 0 ? high.x : low.x, (i & 2) != 0 ? high.y : low.y,
                       (i & 4) != 0 ? high.z : low.z};
    };
    return {{at(0), at(2), at(3), at(1)}, {at(4), at(5), at(7), at(6)},
            {at(0), at(1), at(5), at(4)}, {at(1), at(3), at(7), at(5)},
            {at(3), at(2), at(6), at(7)}, {at(2), at(0), at(4), at(6)}};
}

/// The mesh with each face cut into the triangles of the scene, in another order of corners each.
inline Mesh triangulated(const Mesh& mesh) {
    Mesh result;
    result.names = mesh.names;
    std::vector<Vector3> polygon;
    std::size_t turn = 0;
    for (const Mesh::Face& face : mesh.faces) {
        mesh.polygonOf(face, polygon);
        for (const auto& t : triangulate(polygon)) {
            const std::size_t first = turn++ % 3;
            Mesh::Face& added = addFace(result, {polygon[t[first]], polygon[t[(first + 1) % 3]],
                                                 polygon[t[(first + 2) % 3]]});
            added.object = face.object;
            added.group = face.group;
            added.material = face.material;
        }
    }
    return result;
}

} // namespace insolate::study::test
