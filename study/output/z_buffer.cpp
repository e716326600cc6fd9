#include "study/output/z_buffer.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>

namespace insolate::study {

namespace {

constexpr float nothing = -std::numeric_limits<float>::infinity();

std::uint32_t pack(const Color& c) {
    const auto byte = [](double v) {
        return static_cast<std::uint32_t>(std::lround(std::clamp(v, 0.0, 1.0) * 255.0));
    };
    return 0xFF000000U | byte(c.red) << 16U | byte(c.green) << 8U | byte(c.blue);
}

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

/// Where the edge from `a` to `b` crosses the row at `y`. The ends are taken in a fixed order, so
/// that the two triangles at an edge agree and leave neither gap nor overlap.
double crossing(ViewPoint a, ViewPoint b, double y) {
    if (a.y > b.y || (a.y == b.y && a.x > b.x)) {
        std::swap(a, b);
    }
    return a.x + (b.x - a.x) * ((y - a.y) / (b.y - a.y));
}

/// The first sample whose centre is not left of (above) `place`, held within 0..count.
int firstSample(double place, int count) {
    return static_cast<int>(std::clamp(std::ceil(place - 0.5), 0.0, static_cast<double>(count)));
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

void ZBuffer::drawTriangle(const ViewPoint& a, const ViewPoint& b, const ViewPoint& c,
                           const Color& color, const Vector3& normal) {
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

    const std::uint32_t packedColor = pack(color);
    const std::uint32_t packedNormal = packNormal(normal);
    const int lastRow = firstSample(v[2].y, m_rows);
    for (int row = firstSample(v[0].y, m_rows); row < lastRow; ++row) {
        const double y = row + 0.5;
        double left = crossing(v[0], v[2], y);
        double right = y < v[1].y ? crossing(v[0], v[1], y) : crossing(v[1], v[2], y);
        if (left > right) {
            std::swap(left, right);
        }
        const int first = firstSample(left, m_columns);
        const int last = firstSample(right, m_columns);
        const std::size_t rowStart = indexOf(0, row);
        const double rowDepth = a.depth + slopeY * (y - a.y);
        for (int column = first; column < last; ++column) {
            const auto depth = static_cast<float>(rowDepth + slopeX * (column + 0.5 - a.x));
            const std::size_t i = rowStart + static_cast<std::size_t>(column);
            if (depth > m_depth[i]) {
                m_depth[i] = depth;
                m_color[i] = packedColor;
                m_normal[i] = packedNormal;
            }
        }
    }
}

void ZBuffer::compareNeighbours(std::size_t here, std::size_t there,
                                std::vector<std::uint8_t>& marks) const {
    const float depthHere = m_depth[here];
    const float depthThere = m_depth[there];
    if (depthHere == nothing && depthThere == nothing) {
        return;
    }
    const std::array<float, 3> n = unpackNormal(m_normal[here]);
    const std::array<float, 3> m = unpackNormal(m_normal[there]);
    bool apart = depthHere == nothing || depthThere == nothing;
    if (!apart) {
        // One sample further, the depth of a surface changes by its slope; more is a gap.
        const auto slope = [](const std::array<float, 3>& k) {
            return std::hypot(k[0], k[1]) / std::max(std::abs(k[2]), 0.02F);
        };
        apart = std::abs(depthHere - depthThere) > 3.0F + 2.0F * std::max(slope(n), slope(m));
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

void ZBuffer::darkenEdges() {
    std::vector<std::uint8_t> marks(m_depth.size(), EdgeMark_None);
    for (int y = 0; y < m_rows; ++y) {
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
    for (std::size_t i = 0; i < marks.size(); ++i) {
        if (marks[i] == EdgeMark_None) {
            continue;
        }
        const double factor = marks[i] == EdgeMark_Silhouette ? 0.32 : 0.55;
        std::uint32_t color = 0xFF000000U;
        for (unsigned shift = 0; shift <= 16; shift += 8) {
            const double part = static_cast<double>(m_color[i] >> shift & 0xFFU);
            color |= static_cast<std::uint32_t>(part * factor) << shift;
        }
        m_color[i] = color;
    }
}

void ZBuffer::resolve(const Color& background, std::span<std::uint32_t> pixels,
                      std::size_t stride) const {
    const std::uint32_t empty = pack(background);
    const auto samples = static_cast<unsigned>(m_oversampling * m_oversampling);
    for (int y = 0; y < m_height; ++y) {
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
