/// What lies over or under a place: boxes in plan, in a tree.
#pragma once

#include "study/model/scene.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace insolate::study {

struct PlanBox {
    double lowX = 0.0, lowY = 0.0;
    double highX = 0.0, highY = 0.0; ///< included
};

/// Finds the boxes that hold a place. Holds indices only; built once.
class PlanTree {
public:
    explicit PlanTree(std::vector<PlanBox> boxes);

    /// Calls visit(index of the box) for each that holds the place.
    template <typename Visit>
    void forEachAt(double x, double y, const Visit& visit) const {
        if (!m_boxes.empty()) {
            forEachAt(x, y, visit, 1, 0, m_order.size());
        }
    }

private:
    static constexpr std::size_t leafSize = 4;

    static bool holds(const PlanBox& box, double x, double y) {
        return x >= box.lowX && x <= box.highX && y >= box.lowY && y <= box.highY;
    }

    void build(std::size_t node, std::size_t first, std::size_t end);

    template <typename Visit>
    void forEachAt(double x, double y, const Visit& visit, std::size_t node, std::size_t first,
                   std::size_t end) const {
        if (!holds(m_nodes[node], x, y)) {
            return;
        }
        if (end - first > leafSize) {
            const std::size_t middle = (first + end) / 2;
            forEachAt(x, y, visit, 2 * node, first, middle);
            forEachAt(x, y, visit, 2 * node + 1, middle, end);
            return;
        }
        for (std::size_t i = first; i < end; ++i) {
            if (holds(m_boxes[m_order[i]], x, y)) {
                visit(m_order[i]);
            }
        }
    }

    std::vector<PlanBox> m_boxes;
    std::vector<std::uint32_t> m_order; ///< of the boxes in the leaves
    std::vector<PlanBox> m_nodes;       ///< 1 is the whole; the halves of n are 2n and 2n + 1
};

/// Triangles as a plumb line meets them. A line through an edge or a corner meets exactly one of
/// the triangles that share it, so that a closed surface is met as often downwards as upwards.
class PlumbLines {
public:
    struct Triangle {
        Vector3 a, b, c;
        std::uint32_t tag = 0; ///< whatever the caller knows it by
    };

    explicit PlumbLines(std::vector<Triangle> triangles);

    /// Calls visit(tag, z of the crossing, whether the triangle looks up) in no certain order.
    template <typename Visit>
    void forEachCrossing(double x, double y, const Visit& visit) const {
        m_tree.forEachAt(x, y, [&](std::uint32_t i) {
            const Triangle& t = m_triangles[i];
            if (isOver(t, x, y)) {
                visit(t.tag, heightAt(t, x, y), looksUp(t));
            }
        });
    }

private:
    static bool isOver(const Triangle& t, double x, double y);
    static bool looksUp(const Triangle& t);
    static double heightAt(const Triangle& t, double x, double y);

    std::vector<Triangle> m_triangles;
    PlanTree m_tree;
};

} // namespace insolate::study
