#include "study/model/plan_tree.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numeric>
#include <utility>

namespace insolate::study {

PlanTree::PlanTree(std::vector<PlanBox> boxes)
    : m_boxes(std::move(boxes)), m_order(m_boxes.size()),
      m_nodes(2 * std::bit_ceil(m_boxes.size() / leafSize + 1)) {
    std::iota(m_order.begin(), m_order.end(), 0U);
    if (!m_boxes.empty()) {
        build(1, 0, m_order.size());
    }
}

void PlanTree::build(std::size_t node, std::size_t first, std::size_t end) {
    PlanBox all = m_boxes[m_order[first]];
    PlanBox middles{all.lowX + all.highX, all.lowY + all.highY, all.lowX + all.highX,
                    all.lowY + all.highY};
    for (std::size_t i = first; i < end; ++i) {
        const PlanBox& box = m_boxes[m_order[i]];
        all = {std::min(all.lowX, box.lowX), std::min(all.lowY, box.lowY),
               std::max(all.highX, box.highX), std::max(all.highY, box.highY)};
        const double x = box.lowX + box.highX;
        const double y = box.lowY + box.highY;
        middles = {std::min(middles.lowX, x), std::min(middles.lowY, y), std::max(middles.highX, x),
                   std::max(middles.highY, y)};
    }
    m_nodes[node] = all;
    if (end - first <= leafSize) {
        return;
    }
    const std::size_t middle = (first + end) / 2;
    const bool alongX = middles.highX - middles.lowX >= middles.highY - middles.lowY;
    const auto at = [&](std::size_t i) { return m_order.begin() + static_cast<std::ptrdiff_t>(i); };
    std::nth_element(at(first), at(middle), at(end), [&](std::uint32_t i, std::uint32_t j) {
        const PlanBox& a = m_boxes[i];
        const PlanBox& b = m_boxes[j];
        return alongX ? a.lowX + a.highX < b.lowX + b.highX : a.lowY + a.highY < b.lowY + b.highY;
    });
    build(2 * node, first, middle);
    build(2 * node + 1, middle, end);
}

namespace {

std::vector<PlanBox> boxesOf(const std::vector<PlumbLines::Triangle>& triangles) {
    std::vector<PlanBox> boxes;
    boxes.reserve(triangles.size());
    for (const PlumbLines::Triangle& t : triangles) {
        boxes.push_back({std::min({t.a.x, t.b.x, t.c.x}), std::min({t.a.y, t.b.y, t.c.y}),
                         std::max({t.a.x, t.b.x, t.c.x}), std::max({t.a.y, t.b.y, t.c.y})});
    }
    return boxes;
}

/// Whether the place lies left of the edge, by the edge's ends in a fixed order: both triangles at
/// an edge get one answer.
bool isLeft(const Vector3& p, const Vector3& q, double x, double y) {
    const bool isUpward = p.y < q.y;
    const Vector3& low = isUpward ? p : q;
    const Vector3& high = isUpward ? q : p;
    return (high.x - low.x) * (y - low.y) - (high.y - low.y) * (x - low.x) > 0.0;
}

double planTurn(const PlumbLines::Triangle& t) {
    return (t.b.x - t.a.x) * (t.c.y - t.a.y) - (t.b.y - t.a.y) * (t.c.x - t.a.x);
}

} // namespace

PlumbLines::PlumbLines(std::vector<Triangle> triangles)
    : m_triangles(std::move(triangles)), m_tree(boxesOf(m_triangles)) {}

bool PlumbLines::isOver(const Triangle& t, double x, double y) {
    bool isInside = false;
    const auto cross = [&](const Vector3& p, const Vector3& q) {
        if ((p.y > y) != (q.y > y)) {
            isInside = isInside != isLeft(p, q, x, y);
        }
    };
    cross(t.a, t.b);
    cross(t.b, t.c);
    cross(t.c, t.a);
    return isInside;
}

bool PlumbLines::looksUp(const Triangle& t) {
    return planTurn(t) > 0.0;
}

double PlumbLines::heightAt(const Triangle& t, double x, double y) {
    const double whole = planTurn(t);
    if (whole == 0.0) {
        return t.a.z;
    }
    const double ofB = ((x - t.a.x) * (t.c.y - t.a.y) - (y - t.a.y) * (t.c.x - t.a.x)) / whole;
    const double ofC = ((t.b.x - t.a.x) * (y - t.a.y) - (t.b.y - t.a.y) * (x - t.a.x)) / whole;
    return t.a.z + ofB * (t.b.z - t.a.z) + ofC * (t.c.z - t.a.z);
}

} // namespace insolate::study
