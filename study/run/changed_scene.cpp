#include "study/run/changed_scene.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numbers>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include <xxhash.h>

namespace insolate::study {

namespace {

using Triangle = std::array<Vector3, 3>;

std::string_view bytesOf(const Triangle& triangle) {
    return {reinterpret_cast<const char*>(triangle.data()), sizeof triangle};
}

struct SameBytes {
    bool operator()(const Triangle& a, const Triangle& b) const { return bytesOf(a) == bytesOf(b); }
};

struct HashOfBytes {
    std::size_t operator()(const Triangle& triangle) const {
        return XXH3_64bits(triangle.data(), sizeof triangle);
    }
};

Triangle triangleAt(const Scene& scene, std::size_t index) {
    return {scene.vertices[3 * index], scene.vertices[3 * index + 1],
            scene.vertices[3 * index + 2]};
}

} // namespace

SceneDifference differenceOf(const Scene& before, const Scene& after) {
    // Mostly an object in the middle has changed.
    const auto same = [&](std::size_t i, std::size_t j) {
        return SameBytes()(triangleAt(before, i), triangleAt(after, j));
    };
    std::size_t beforeEnd = before.triangleCount();
    std::size_t afterEnd = after.triangleCount();
    std::size_t first = 0;
    while (first < std::min(beforeEnd, afterEnd) && same(first, first)) {
        ++first;
    }
    while (std::min(beforeEnd, afterEnd) > first && same(beforeEnd - 1, afterEnd - 1)) {
        --beforeEnd;
        --afterEnd;
    }
    std::unordered_map<Triangle, int, HashOfBytes, SameBytes> surplus; // of before over after
    surplus.reserve(beforeEnd - first);
    for (std::size_t i = first; i < beforeEnd; ++i) {
        ++surplus[triangleAt(before, i)];
    }
    SceneDifference difference;
    for (std::size_t i = first; i < afterEnd; ++i) {
        const Triangle triangle = triangleAt(after, i);
        const auto known = surplus.find(triangle);
        if (known != surplus.end() && known->second > 0) {
            --known->second;
        } else {
            difference.added.vertices.insert(difference.added.vertices.end(), triangle.begin(),
                                             triangle.end());
        }
    }
    // A triangle that stands twice in one scene and once in the other hides no more rays for that,
    // but counts as changed: that costs time alone.
    for (const auto& [triangle, count] : surplus) {
        if (count > 0) {
            difference.removed.vertices.insert(difference.removed.vertices.end(), triangle.begin(),
                                               triangle.end());
        }
    }
    return difference;
}

/// Squares of azimuth and altitude that hold every direction into a box.
struct ChangedRays::Range {
    int firstSector = 0; ///< 0..71
    int sectors = 0;     ///< 1..72, running over north
    int firstBand = 0;   ///< 0..35, upwards from the nadir
    int lastBand = -1;

    static constexpr int sectorCount = 72;
    static constexpr int bandCount = 36;
    static constexpr float degree = std::numbers::pi_v<float> / 180.0f;
    static constexpr float width = 5.0f * degree;

    static int sectorOf(float azimuth) {
        const int sector = static_cast<int>(std::floor(azimuth / width)) % sectorCount;
        return sector < 0 ? sector + sectorCount : sector;
    }
    static int bandOf(float altitude) {
        const auto band = static_cast<int>(std::floor(altitude / width));
        return std::clamp(band + bandCount / 2, 0, bandCount - 1);
    }
};

ChangedRays::ChangedRays(const SceneDifference& difference, const Recentring& recentring,
                         GetTransparencyValueOnRay& before, GetTransparencyValueOnRay& after,
                         std::vector<SkyDirections> rays)
    : m_removed(recentring.coordinates(difference.removed)),
      m_added(recentring.coordinates(difference.added)), m_before(before), m_after(after),
      m_sets(std::move(rays)),
      m_rays(static_cast<std::size_t>(Range::sectorCount) * Range::bandCount) {
    for (const Scene* scene : {&difference.removed, &difference.added}) {
        if (scene->vertices.empty()) {
            continue;
        }
        constexpr float far = std::numeric_limits<float>::infinity();
        Box box{{far, far, far}, {-far, -far, -far}};
        for (const Vector3& corner : scene->vertices) {
            const XYZf p = recentring.local(corner);
            box.lowest = {std::min(box.lowest.x, p.x), std::min(box.lowest.y, p.y),
                          std::min(box.lowest.z, p.z)};
            box.highest = {std::max(box.highest.x, p.x), std::max(box.highest.y, p.y),
                           std::max(box.highest.z, p.z)};
        }
        m_boxes.push_back(box);
    }
    for (std::size_t set = 0; set < m_sets.size(); ++set) {
        for (int cell = 0; cell < skyGrid::cellCount; ++cell) {
            const int azimuth = cell % skyGrid::azimuthCount;
            const int altitude = cell / skyGrid::azimuthCount;
            if (m_sets[set].cells().contains(azimuth, altitude)) {
                const XYZf& d = m_sets[set].direction(azimuth, altitude);
                const int sector = Range::sectorOf(std::atan2(d.x, d.y));
                const int band = Range::bandOf(std::atan2(d.z, std::hypot(d.x, d.y)));
                m_rays[static_cast<std::size_t>(band * Range::sectorCount + sector)].push_back(
                    {d, static_cast<std::uint16_t>(set), static_cast<std::uint8_t>(azimuth),
                     static_cast<std::uint8_t>(altitude)});
            }
        }
    }
}

ChangedRays::Box ChangedRays::seenFrom(const XYZf& from, const Box& box) {
    // Far above the rounding of coordinates; a larger box costs time alone.
    constexpr float rounding = 1.0e-5f;
    const XYZf& low = box.lowest;
    const XYZf& high = box.highest;
    const float margin =
        0.01f + rounding * std::max({std::abs(low.x), std::abs(low.y), std::abs(low.z),
                                     std::abs(high.x), std::abs(high.y), std::abs(high.z),
                                     std::abs(from.x), std::abs(from.y), std::abs(from.z)});
    return {{low.x - from.x - margin, low.y - from.y - margin, low.z - from.z - margin},
            {high.x - from.x + margin, high.y - from.y + margin, high.z - from.z + margin}};
}

bool ChangedRays::Box::isMet(const XYZf& direction) const {
    float begin = 0.0f;
    float end = std::numeric_limits<float>::infinity();
    const auto cut = [&](float low, float high, float way) {
        if (way == 0.0f) {
            if (low > 0.0f || high < 0.0f) {
                end = -1.0f;
            }
            return;
        }
        const float a = low / way;
        const float b = high / way;
        begin = std::max(begin, std::min(a, b));
        end = std::min(end, std::max(a, b));
    };
    cut(lowest.x, highest.x, direction.x);
    cut(lowest.y, highest.y, direction.y);
    cut(lowest.z, highest.z, direction.z);
    return begin <= end;
}

ChangedRays::Range ChangedRays::directionsInto(const Box& seen) {
    constexpr float turn = 0.1f * Range::degree;
    const auto [x0, y0, z0] = seen.lowest;
    const auto [x1, y1, z1] = seen.highest;
    const float nearest = std::hypot(std::max({x0, -x1, 0.0f}), std::max({y0, -y1, 0.0f}));
    const float farthest = std::hypot(std::max(-x0, x1), std::max(-y0, y1));
    Range range;
    range.firstBand = Range::bandOf(std::atan2(z0, z0 > 0.0f ? farthest : nearest) - turn);
    range.lastBand = Range::bandOf(std::atan2(z1, z1 > 0.0f ? nearest : farthest) + turn);
    range.sectors = Range::sectorCount;
    if (nearest > 0.0f) { // the box is seen under less than half a turn
        const float x = 0.5f * (x0 + x1);
        const float y = 0.5f * (y0 + y1);
        float left = 0.0f;
        float right = 0.0f;
        for (const float cornerX : {x0, x1}) {
            for (const float cornerY : {y0, y1}) {
                const float angle =
                    std::atan2(cornerX * y - cornerY * x, cornerX * x + cornerY * y);
                left = std::min(left, angle);
                right = std::max(right, angle);
            }
        }
        const float middle = std::atan2(x, y);
        range.firstSector = Range::sectorOf(middle + left - turn);
        const int sectors = static_cast<int>(std::floor((middle + right + turn) / Range::width)) -
                            static_cast<int>(std::floor((middle + left - turn) / Range::width)) + 1;
        range.sectors = std::min(sectors, Range::sectorCount);
    }
    return range;
}

bool ChangedRays::touch(const Sensor& sensor) const {
    if (!mayTouch(sensor)) {
        return false;
    }
    std::vector<SkyCellSet> asked;
    for (const Box& box : m_boxes) {
        const Box seen = seenFrom(sensor.position, box);
        const Range range = directionsInto(seen);
        for (int band = range.firstBand; band <= range.lastBand; ++band) {
            for (int k = 0; k < range.sectors; ++k) {
                const int sector = (range.firstSector + k) % Range::sectorCount;
                for (const Ray& ray :
                     m_rays[static_cast<std::size_t>(band * Range::sectorCount + sector)]) {
                    if (seen.isMet(ray.direction)) {
                        asked.resize(m_sets.size());
                        asked[ray.set].insert(ray.azimuth, ray.altitude);
                    }
                }
            }
        }
    }
    return !asked.empty() && differs(sensor.position, asked);
}

bool ChangedRays::differs(const XYZf& origin, std::span<const SkyCellSet> asked) const {
    std::vector<SkyCellSet> without(asked.begin(), asked.end());
    std::vector<SkyCellSet> with = without;
    m_removed.visibleSkies(origin, m_sets, without);
    m_added.visibleSkies(origin, m_sets, with);
    for (std::size_t set = 0; set < m_sets.size(); ++set) {
        for (std::size_t word = 0; word < SkyCellSet::wordCount; ++word) {
            std::uint64_t differing = without[set].words[word] ^ with[set].words[word];
            for (; differing != 0; differing &= differing - 1) {
                const int azimuth = static_cast<int>(word % 2) * 64 + std::countr_zero(differing);
                const XYZf& direction = m_sets[set].direction(azimuth, static_cast<int>(word / 2));
                // The rest of the scenes may hide what has changed.
                if (m_before.getTransparencyValue(origin, direction, nullptr) !=
                    m_after.getTransparencyValue(origin, direction, nullptr)) {
                    return true;
                }
            }
        }
    }
    return false;
}

bool ChangedRays::mayTouch(const Sensor& sensor) const {
    const XYZf& n = sensor.normal;
    const float length = std::hypot(n.x, n.y, n.z);
    if (!(length > 0.0f)) {
        return true; // a point without a surface looks everywhere
    }
    // Rays stand for cells of the sky and pieces of the ground that lie partly before the surface,
    // and so may stand behind it themselves: by 11 degrees in the sky, by half a piece of the
    // ground of some 45. Within 30 degrees of straight behind there is none. That cone is convex:
    // it holds a box that has its corners in it.
    constexpr float cosineOf30Degrees = 0.8660f;
    for (const Box& box : m_boxes) {
        for (int corner = 0; corner < 8; ++corner) {
            const XYZf way = {
                ((corner & 1) != 0 ? box.highest.x : box.lowest.x) - sensor.position.x,
                ((corner & 2) != 0 ? box.highest.y : box.lowest.y) - sensor.position.y,
                ((corner & 4) != 0 ? box.highest.z : box.lowest.z) - sensor.position.z};
            const float along = n.x * way.x + n.y * way.y + n.z * way.z;
            if (!(along < -cosineOf30Degrees * length * std::hypot(way.x, way.y, way.z))) {
                return true;
            }
        }
    }
    return false;
}

} // namespace insolate::study
