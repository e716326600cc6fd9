/// Which faces of a mesh meet, by the places of their corners: many formats give every face corners
/// of its own.
#pragma once

#include "study/model/mesh.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace insolate::study {

/// By vertex, the first vertex at exactly the same place.
std::vector<std::uint32_t> weldedVertices(const Mesh& mesh);

/// One side of a face's outline.
struct EdgeUse {
    std::uint32_t low = 0;  ///< the edge's ends, welded vertices, the lower number first
    std::uint32_t high = 0; ///< always another than low: sides without length are left out
    std::uint32_t face = 0;
    std::uint32_t corner = 0; ///< into the mesh's corners: where the side begins
    bool isForward = false;   ///< whether the face goes from low to high
};

/// The sides of all faces, those of one edge next to each other; otherwise in the order of faces.
std::vector<EdgeUse> edgeUses(const Mesh& mesh, std::span<const std::uint32_t> welded);

/// Calls visit(span of the uses) for each edge.
template <typename Use, typename Visit>
void forEachEdge(std::span<Use> uses, const Visit& visit) {
    for (std::size_t first = 0; first < uses.size();) {
        std::size_t end = first + 1;
        while (end < uses.size() && uses[end].low == uses[first].low &&
               uses[end].high == uses[first].high) {
            ++end;
        }
        visit(uses.subspan(first, end - first));
        first = end;
    }
}

} // namespace insolate::study
