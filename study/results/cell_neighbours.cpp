#include "study/results/cell_neighbours.h"

#include "study/model/mesh.h"
#include "study/support/errors.h"

#include <algorithm>
#include <array>
#include <cmath>

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

/// An edge in one of the boxes of a regular grid that it may pass.
struct Entry {
    std::array<std::int64_t, 3> box;
    std::uint32_t edge;
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
    double sum = 0.0;
    for (std::size_t cell = 0; cell < field.size(); ++cell) {
        const std::size_t first = field.cellStart[cell];
        const std::size_t count = field.cellStart[cell + 1] - first;
        for (std::size_t i = 0; i < count; ++i) {
            edges.push_back({field.corners[first + i], field.corners[first + (i + 1) % count],
                             static_cast<std::uint32_t>(cell)});
            sum += length(edges.back().to - edges.back().from);
        }
    }
    // Boxes about as large as the edges: each edge passes few of them, and each has few edges.
    const double box = std::max(2.0 * sum / static_cast<double>(edges.size()), 10.0 * samePlace);
    const auto boxOf = [&](double coordinate) {
        return static_cast<std::int64_t>(std::floor(coordinate / box));
    };
    std::vector<Entry> entries;
    for (std::size_t e = 0; e < edges.size(); ++e) {
        const Edge& edge = edges[e];
        std::array<std::array<std::int64_t, 2>, 3> range{};
        constexpr std::array members = {&Vector3::x, &Vector3::y, &Vector3::z};
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const auto [low, high] = std::minmax(edge.from.*members[axis], edge.to.*members[axis]);
            range[axis] = {boxOf(low - samePlace), boxOf(high + samePlace)};
        }
        for (std::int64_t x = range[0][0]; x <= range[0][1]; ++x) {
            for (std::int64_t y = range[1][0]; y <= range[1][1]; ++y) {
                for (std::int64_t z = range[2][0]; z <= range[2][1]; ++z) {
                    entries.push_back({{x, y, z}, static_cast<std::uint32_t>(e)});
                }
            }
        }
    }
    std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) {
        return a.box != b.box ? a.box < b.box : a.edge < b.edge;
    });
    for (std::size_t first = 0; first < entries.size();) {
        throwIfStopped(stop);
        std::size_t end = first;
        while (end < entries.size() && entries[end].box == entries[first].box) {
            ++end;
        }
        for (std::size_t i = first; i < end; ++i) {
            for (std::size_t j = i + 1; j < end; ++j) {
                const Edge& a = edges[entries[i].edge];
                const Edge& b = edges[entries[j].edge];
                if (a.cell != b.cell &&
                    dot(field.normals[a.cell], field.normals[b.cell]) > neighbouringDirection &&
                    overlap(a, b)) {
                    pairs.emplace_back(std::minmax(a.cell, b.cell));
                }
            }
        }
        first = end;
    }
    std::sort(pairs.begin(), pairs.end());
    pairs.erase(std::unique(pairs.begin(), pairs.end()), pairs.end());
    return pairs;
}

} // namespace insolate::study
