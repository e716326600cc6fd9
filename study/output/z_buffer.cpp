#include "study/output/z_buffer.h"

#include "study/support/errors.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>

namespace insolate::study {

namespace {

constexpr float nothing = -std::numeric_limits<float>::infinity();

// Marks of a sample, above its colour.
constexpr std::uint32_t isCell = 1U << 24U;
constexpr std::uint32_t isSceneEdge = 1U << 25U; // as keepSceneEdges() found it
constexpr std::uint32_t hidesEdge = 1U << 26U;   // a cell drawn over such an edge

std::uint32_t packNormal(const Vector3& n) {
    const auto part = [](double v) {
        return static_cast<std::uint32_t>(std::lround((std::clamp(v, -1.0, 1.0) + 1.0) * 511.0));
    };
    return part(n.x) << 20U | part(n.y) << 10U | part(n.z);
}

std::array<float, 3> unpackNormal(std::uint32_t packed) {
    const auto part = [](std::uint32_t v) {
        return static_cast<float>(v & 0x3FFU) / 511.0F - 1.0F;
    };
    return {part(packed >> 20U), part(packed >> 10U), part(packed)};
}

/// An edge between two points, of which the first is not below the second. Both triangles at an
/// edge so get the same crossings with rows, and leave neither gap nor overlap.
struct Edge {
    double x;
    double y;
    double slope; ///< not finite for a level edge, which no row crosses

    Edge(const ViewPoint& a, const ViewPoint& b)
        : x(a.x), y(a.y), slope((b.x - a.x) / (b.y - a.y)) {}
    [[nodiscard]] double at(double row) const { return x + (row - y) * slope; }
};

/// The first sample whose centre is not left of (above) `place`, held within 0..count.
int firstSample(double place, int count) {
    const double number = place - 0.5;
    if (!(number > 0.0)) { // NaN as well
        return 0;
    }
    if (number >= static_cast<double>(count)) {
        return count;
    }
    const int below = static_cast<int>(number); // std::ceil is a call on some processors
    return below + (static_cast<double>(below) < number ? 1 : 0);
}

enum EdgeMark : std::uint8_t { EdgeMark_None, EdgeMark_Crease, EdgeMark_Silhouette };

} // namespace

ZBuffer::ZBuffer(int width, int height, int oversampling)
    : m_width(width), m_height(height), m_oversampling(oversampling),
      m_columns(width * oversampling), m_rows(height * oversampling) {
    const std::size_t samples = indexOf(0, m_rows);
    m_depth.assign(samples, nothing);
    m_color.assign(samples, 0U);
    m_normal.assign(samples, 0U);
}

std::uint32_t ZBuffer::pack(const Color& color) {
    const auto byte = [](double v) {
        return static_cast<std::uint32_t>(std::lround(std::clamp(v, 0.0, 1.0) * 255.0));
    };
    return byte(color.red) << 16U | byte(color.green) << 8U | byte(color.blue);
}

void ZBuffer::clear() {
    std::fill(m_depth.begin(), m_depth.end(), nothing);
    std::fill(m_color.begin(), m_color.end(), 0U);
}

double ZBuffer::workOf(const ViewPoint& a, const ViewPoint& b, const ViewPoint& c) const {
    const double area = 0.5 * std::abs((b.x - a.x) * (c.y - a.y) - (c.x - a.x) * (b.y - a.y));
    if (!(area > 0.0)) { // not a number: nothing is drawn
        return 0.0;
    }
    const auto centresWithin = [](double p, double q, double r, int count) {
        return firstSample(std::max({p, q, r}), count) - firstSample(std::min({p, q, r}), count);
    };
    const double columns = centresWithin(a.x, b.x, c.x, m_columns);
    const double rows = centresWithin(a.y, b.y, c.y, m_rows);
    constexpr double rowStart = 12.0; // finding the ends of a row costs as much as so many samples
    return std::min(area, columns * rows) + rowStart * rows;
}

template <Surface surface>
void ZBuffer::fillTriangle(const ViewPoint& a, const ViewPoint& b, const ViewPoint& c,
                           std::uint32_t color, std::uint32_t normal) {
    const double area = (b.x - a.x) * (c.y - a.y) - (c.x - a.x) * (b.y - a.y);
    if (!(std::abs(area) > 1.0e-9)) { // seen edge-on, or not a number
        return;
    }
    const double slopeX =
        ((b.depth - a.depth) * (c.y - a.y) - (c.depth - a.depth) * (b.y - a.y)) / area;
    const double slopeY =
        ((c.depth - a.depth) * (b.x - a.x) - (b.depth - a.depth) * (c.x - a.x)) / area;
    std::array<ViewPoint, 3> v = {a, b, c};
    std::sort(v.begin(), v.end(), [](const ViewPoint& p, const ViewPoint& q) { return p.y < q.y; });

    const Edge whole(v[0], v[2]);
    const Edge upper(v[0], v[1]);
    const Edge lower(v[1], v[2]);
    const double leftDepth = a.depth + slopeX * (0.5 - a.x); // of the first column's samples
    const int lastRow = firstSample(v[2].y, m_rows);
    for (int row = firstSample(v[0].y, m_rows); row < lastRow; ++row) {
        const double y = row + 0.5;
        double left = whole.at(y);
        double right = y < v[1].y ? upper.at(y) : lower.at(y);
        if (left > right) {
            std::swap(left, right);
        }
        const int first = firstSample(left, m_columns);
        const int last = firstSample(right, m_columns);
        const std::size_t rowStart = indexOf(0, row);
        const double rowDepth = leftDepth + slopeY * (y - a.y);
        for (int column = first; column < last; ++column) {
            const auto depth = static_cast<float>(rowDepth + slopeX * column);
            const std::size_t i = rowStart + static_cast<std::size_t>(column);
            if constexpr (surface == Surface::cellInFront) {
                const std::uint32_t old = m_color[i];
                if (depth > m_depth[i] || ((old & isCell) == 0 && !std::isnan(depth))) {
                    const bool behindEdge = (old & isSceneEdge) != 0 && depth < m_depth[i];
                    m_depth[i] = depth;
                    m_color[i] = color | isCell | (old & hidesEdge) | (behindEdge ? hidesEdge : 0U);
                    m_normal[i] = normal;
                }
            } else if (depth > m_depth[i]) {
                m_depth[i] = depth;
                m_color[i] = surface == Surface::cell ? color | isCell : color;
                m_normal[i] = normal;
            }
        }
    }
}

void ZBuffer::drawTriangle(const ViewPoint& a, const ViewPoint& b, const ViewPoint& c,
                           std::uint32_t color, const Vector3& normal, Surface surface) {
    const std::uint32_t packed = packNormal(normal);
    switch (surface) {
    case Surface::scene:
        return fillTriangle<Surface::scene>(a, b, c, color, packed);
    case Surface::cell:
        return fillTriangle<Surface::cell>(a, b, c, color, packed);
    case Surface::cellInFront:
        return fillTriangle<Surface::cellInFront>(a, b, c, color, packed);
    }
}

std::size_t ZBuffer::cellSamples() const {
    return static_cast<std::size_t>(std::count_if(
        m_color.begin(), m_color.end(), [](std::uint32_t color) { return (color & isCell) != 0; }));
}

void ZBuffer::compareNeighbours(std::size_t here, std::size_t there,
                                std::vector<std::uint8_t>& marks) const {
    const float depthHere = m_depth[here];
    const float depthThere = m_depth[there];
    if (depthHere == nothing && depthThere == nothing) {
        return;
    }
    // Most neighbours are of one face: neither test can find an edge within it.
    constexpr float leastGap = 3.0F;
    const float gap = std::abs(depthHere - depthThere);
    if (m_normal[here] == m_normal[there] && gap <= leastGap) {
        return;
    }
    const std::array<float, 3> n = unpackNormal(m_normal[here]);
    const std::array<float, 3> m = unpackNormal(m_normal[there]);
    bool apart = depthHere == nothing || depthThere == nothing;
    if (!apart && gap > leastGap) {
        // One sample further, the depth of a surface changes by its slope; more is a gap.
        const auto slope = [](const std::array<float, 3>& k) {
            return std::hypot(k[0], k[1]) / std::max(std::abs(k[2]), 0.02F);
        };
        apart = gap > leastGap + 2.0F * std::max(slope(n), slope(m));
    }
    if (apart) {
        const std::size_t nearer = depthHere > depthThere ? here : there;
        marks[nearer] = EdgeMark_Silhouette;
        return;
    }
    if (n[0] * m[0] + n[1] * m[1] + n[2] * m[2] < 0.906F) { // cos 25 degrees
        for (const std::size_t i : {here, there}) {
            marks[i] = std::max(marks[i], std::uint8_t{EdgeMark_Crease});
        }
    }
}

std::vector<std::uint8_t> ZBuffer::edges(const std::stop_token& stop) const {
    std::vector<std::uint8_t> marks(m_depth.size(), EdgeMark_None);
    for (int y = 0; y < m_rows; ++y) {
        throwIfStopped(stop);
        for (int x = 0; x < m_columns; ++x) {
            const std::size_t here = indexOf(x, y);
            if (x + 1 < m_columns) {
                compareNeighbours(here, here + 1, marks);
            }
            if (y + 1 < m_rows) {
                compareNeighbours(here, here + static_cast<std::size_t>(m_columns), marks);
            }
        }
    }
    return marks;
}

void ZBuffer::keepSceneEdges(const std::stop_token& stop) {
    const std::vector<std::uint8_t> marks = edges(stop);
    for (std::size_t i = 0; i < marks.size(); ++i) {
        if (marks[i] != EdgeMark_None) {
            m_color[i] |= isSceneEdge;
        }
    }
}

void ZBuffer::darkenEdges(const std::stop_token& stop) {
    const std::vector<std::uint8_t> marks = edges(stop);
    for (std::size_t i = 0; i < marks.size(); ++i) {
        const bool overEdge = (m_color[i] & hidesEdge) != 0;
        if (marks[i] == EdgeMark_None && !overEdge) {
            continue;
        }
        const double factor = marks[i] == EdgeMark_Silhouette ? 0.32 : 0.55;
        std::uint32_t color = m_color[i] & 0xFF000000U;
        for (unsigned shift = 0; shift <= 16; shift += 8) {
            const double part = static_cast<double>(m_color[i] >> shift & 0xFFU);
            color |= static_cast<std::uint32_t>(part * factor) << shift;
        }
        m_color[i] = color;
    }
}

void ZBuffer::resolve(const Color& background, std::span<std::uint32_t> pixels, std::size_t stride,
                      const std::stop_token& stop) const {
    const std::uint32_t empty = pack(background);
    const auto samples = static_cast<unsigned>(m_oversampling * m_oversampling);
    for (int y = 0; y < m_height; ++y) {
        throwIfStopped(stop);
        for (int x = 0; x < m_width; ++x) {
            std::array<unsigned, 3> sum = {};
            for (int sub = 0; sub < m_oversampling * m_oversampling; ++sub) {
                const std::size_t i = indexOf(x * m_oversampling + sub % m_oversampling,
                                              y * m_oversampling + sub / m_oversampling);
                const std::uint32_t color = m_depth[i] == nothing ? empty : m_color[i];
                for (unsigned k = 0; k < 3; ++k) {
                    sum[k] += color >> (8U * k) & 0xFFU;
                }
            }
            std::uint32_t pixel = 0xFF000000U;
            for (unsigned k = 0; k < 3; ++k) {
                pixel |= (sum[k] + samples / 2) / samples << (8U * k);
            }
            pixels[static_cast<std::size_t>(y) * stride + static_cast<std::size_t>(x)] = pixel;
        }
    }
}

} // namespace insolate::study
