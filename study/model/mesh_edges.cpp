#include "study/model/mesh_edges.h"

#include <algorithm>
#include <bit>
#include <tuple>

namespace insolate::study {

std::vector<std::uint32_t> weldedVertices(const Mesh& mesh) {
    const std::size_t count = mesh.vertices.size();
    constexpr std::uint32_t empty = 0xFFFFFFFFU;
    std::vector<std::uint32_t> table(std::bit_ceil(2 * count + 1), empty);
    const std::size_t mask = table.size() - 1;
    const auto mixed = [](std::uint64_t h, double value) {
        h = (h ^ std::bit_cast<std::uint64_t>(value + 0.0)) * 0x9E3779B97F4A7C15ULL; // -0 is 0
        return h ^ (h >> 32U);
    };
    std::vector<std::uint32_t> welded(count);
    for (std::uint32_t i = 0; i < count; ++i) {
        const Vector3& p = mesh.vertices[i];
        std::size_t slot = mixed(mixed(mixed(0, p.x), p.y), p.z) & mask;
        const auto isOther = [&](std::uint32_t j) {
            const Vector3& q = mesh.vertices[j];
            return p.x != q.x || p.y != q.y || p.z != q.z;
        };
        while (table[slot] != empty && isOther(table[slot])) {
            slot = (slot + 1) & mask;
        }
        if (table[slot] == empty) {
            table[slot] = i;
        }
        welded[i] = table[slot];
    }
    return welded;
}

std::vector<EdgeUse> edgeUses(const Mesh& mesh, std::span<const std::uint32_t> welded) {
    // Sorted by the lower end by counting, so that millions of sides take no time: few share one.
    std::vector<std::uint32_t> start(mesh.vertices.size() + 1, 0);
    const auto forEachSide = [&](const auto& visit) {
        for (std::uint32_t f = 0; f < mesh.faces.size(); ++f) {
            const Mesh::Face& face = mesh.faces[f];
            const auto corners = mesh.cornersOf(face);
            for (std::uint32_t i = 0; i < face.cornerCount; ++i) {
                const std::uint32_t from = welded[corners[i]];
                const std::uint32_t to = welded[corners[i + 1 < face.cornerCount ? i + 1 : 0]];
                if (from != to) {
                    visit(EdgeUse{std::min(from, to), std::max(from, to), f, face.firstCorner + i,
                                  from < to});
                }
            }
        }
    };
    std::size_t count = 0;
    forEachSide([&](const EdgeUse& use) {
        ++start[use.low + 1];
        ++count;
    });
    for (std::size_t i = 1; i < start.size(); ++i) {
        start[i] += start[i - 1];
    }
    std::vector<EdgeUse> uses(count);
    forEachSide([&](const EdgeUse& use) { uses[start[use.low]++] = use; });
    for (std::size_t first = 0; first < count;) {
        std::size_t end = first;
        while (end < count && uses[end].low == uses[first].low) {
            ++end;
        }
        std::sort(uses.begin() + static_cast<std::ptrdiff_t>(first),
                  uses.begin() + static_cast<std::ptrdiff_t>(end),
                  [](const EdgeUse& a, const EdgeUse& b) {
                      return std::tie(a.high, a.corner) < std::tie(b.high, b.corner);
                  });
        first = end;
    }
    return uses;
}

} // namespace insolate::study
