#include "study/results/cell_neighbours.h"

#include "study/model/mesh.h"
#include "study/support/errors.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <set>
#include <unordered_map>

namespace insolate::study {

namespace {

constexpr double neighbouringDirection = 0.9659; // cosine of 15 degrees
constexpr double samePlace = 1.0e-3;             // metres

struct Edge {
    Vector3 from, to;
    std::uint32_t cell = 0;
};

/// Whether the edges lie on one line and have more than a point in common.
bool overlap(const Edge& a, const Edge& b) {
    const Vector3 along = a.to - a.from;
    const double size = length(along);
    if (!(size > samePlace)) {
        return false;
    }
    const Vector3 unit = along * (1.0 / size);
    const auto place = [&](const Vector3& point) { return dot(point - a.from, unit); };
    const auto distance = [&](const Vector3& point) { return length(cross(point - a.from, unit)); };
    if (distance(b.from) > samePlace || distance(b.to) > samePlace) {
        return false;
    }
    const auto [low, high] = std::minmax({place(b.from), place(b.to)});
    return std::min(high, size) - std::max(low, 0.0) > samePlace;
}

/// A box of a grid whose boxes are twice as large as those of the level below.
struct Box {
    int level = 0;
    std::array<std::int64_t, 3> place{};

    bool operator==(const Box&) const = default;
};

struct BoxHash {
    std::size_t operator()(const Box& box) const {
        auto hash = static_cast<std::uint64_t>(box.level);
        for (const std::int64_t place : box.place) {
            hash = (hash ^ static_cast<std::uint64_t>(place)) * 0x9E3779B97F4A7C15ULL;
            hash ^= hash >> 32U;
        }
        return static_cast<std::size_t>(hash);
    }
};

double sizeOfBoxes(int level) {
    return std::ldexp(1.0, level); // metres
}

/// Calls back with the boxes of a level that an edge may pass: eight at most on its own level.
template <typename Visit>
void forEachBox(const Edge& edge, int level, const Visit& visit) {
    std::array<std::array<std::int64_t, 2>, 3> range{};
    constexpr std::array members = {&Vector3::x, &Vector3::y, &Vector3::z};
    for (std::size_t axis = 0; axis < 3; ++axis) {
        const auto [low, high] = std::minmax(edge.from.*members[axis], edge.to.*members[axis]);
        const auto boxAt = [&](double place) {
            return static_cast<std::int64_t>(std::floor(place / sizeOfBoxes(level)));
        };
        range[axis] = {boxAt(low - samePlace), boxAt(high + samePlace)};
    }
    for (std::int64_t x = range[0][0]; x <= range[0][1]; ++x) {
        for (std::int64_t y = range[1][0]; y <= range[1][1]; ++y) {
            for (std::int64_t z = range[2][0]; z <= range[2][1]; ++z) {
                visit(Box{level, {x, y, z}});
            }
        }
    }
}

/// Finds the edges that one may overlap. Each edge lies in boxes of about its own size, so that
/// edges of millimetres and of metres, which detailed models have side by side, neither fill
/// thousands of boxes nor gather by thousands in one.
class EdgeBoxes {
public:
    EdgeBoxes(const std::vector<Edge>& edges, const std::stop_token& stop) : m_edges(edges) {
        m_levels.reserve(edges.size());
        for (std::size_t e = 0; e < edges.size(); ++e) {
            throwIfStoppedAt(e, stop);
            const double size = length(edges[e].to - edges[e].from) + 2.0 * samePlace;
            const int level = std::ilogb(size) + 1;
            m_levels.push_back(level);
            m_used.insert(level);
            forEachBox(edges[e], level, [&](const Box& box) {
                m_boxes[box].push_back(static_cast<std::uint32_t>(e));
            });
        }
    }

    /// Calls back with the edges of the edge's own size that come after it, and with larger ones;
    /// some of them more than once.
    template <typename Visit>
    void forEachNear(std::size_t edge, const Visit& visit) const {
        for (auto level = m_used.lower_bound(m_levels[edge]); level != m_used.end(); ++level) {
            forEachBox(m_edges[edge], *level, [&](const Box& box) {
                const auto found = m_boxes.find(box);
                if (found == m_boxes.end()) {
                    return;
                }
                const auto& inBox = found->second;
                const auto first = *level == m_levels[edge]
                                       ? std::upper_bound(inBox.begin(), inBox.end(), edge)
                                       : inBox.begin();
                std::for_each(first, inBox.end(), visit);
            });
        }
    }

private:
    const std::vector<Edge>& m_edges;
    std::vector<int> m_levels; ///< by edge
    std::set<int> m_used;
    std::unordered_map<Box, std::vector<std::uint32_t>, BoxHash> m_boxes;
};

} // namespace

std::vector<std::pair<std::uint32_t, std::uint32_t>>
neighbouringCells(const SensorField& field, const std::stop_token& stop) {
    std::vector<std::pair<std::uint32_t, std::uint32_t>> pairs;
    if (!field.hasCells()) {
        return pairs;
    }
    std::vector<Edge> edges;
    edges.reserve(field.corners.size());
    for (std::size_t cell = 0; cell < field.size(); ++cell) {
        const std::size_t first = field.cellStart[cell];
        const std::size_t count = field.cellStart[cell + 1] - first;
        for (std::size_t i = 0; i < count; ++i) {
            edges.push_back({field.corners[first + i], field.corners[first + (i + 1) % count],
                             static_cast<std::uint32_t>(cell)});
        }
    }
    const EdgeBoxes boxes(edges, stop);
    std::size_t compared = 0;
    for (std::size_t e = 0; e < edges.size(); ++e) {
        throwIfStoppedAt(e, stop);
        const Edge& edge = edges[e];
        boxes.forEachNear(e, [&](std::uint32_t number) {
            throwIfStoppedAt(++compared, stop);
            const Edge& other = edges[number];
            if (edge.cell != other.cell &&
                dot(field.normals[edge.cell], field.normals[other.cell]) > neighbouringDirection &&
                (e < number ? overlap(edge, other) : overlap(other, edge))) {
                pairs.emplace_back(std::minmax(edge.cell, other.cell));
            }
        });
    }
    std::sort(pairs.begin(), pairs.end());
    pairs.erase(std::unique(pairs.begin(), pairs.end()), pairs.end());
    return pairs;
}

} // namespace insolate::study
