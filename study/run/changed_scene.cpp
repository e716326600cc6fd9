#include "study/run/changed_scene.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string_view>
#include <unordered_map>
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
    std::unordered_map<Triangle, int, HashOfBytes, SameBytes> surplus; // of before over after
    surplus.reserve(before.triangleCount());
    for (std::size_t i = 0; i < before.triangleCount(); ++i) {
        ++surplus[triangleAt(before, i)];
    }
    SceneDifference difference;
    for (std::size_t i = 0; i < after.triangleCount(); ++i) {
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

/// Answers for one sensor by the changed triangles alone, and notes whether an answer of the whole
/// scenes differs.
class ChangedRays::Caster final : public GetTransparencyValueOnRay, public SkyVisibilityQuery {
public:
    explicit Caster(const ChangedRays& change) : m_change(change) {}

    [[nodiscard]] bool differs() const { return m_differs; }

    bool getSurfaceDoubleSided() override {
        offerWholeSkies(*this);
        return false;
    }
    int initialise() override { return 0; }

    float getTransparencyValue(const XYZf& origin, const XYZf& direction, const XYZf*) override {
        if (!m_differs && m_change.m_removed.isOccluded(origin, direction) !=
                              m_change.m_added.isOccluded(origin, direction)) {
            compare(origin, direction);
        }
        return 1.0f;
    }

    SkyCellSet visibleSky(const XYZf& origin, const SkyDirections& directions,
                          const SkyCellSet& wanted) override {
        SkyCellSet cells = wanted;
        visibleSkies(origin, std::span(&directions, 1), std::span(&cells, 1));
        return cells;
    }

    void visibleSkies(const XYZf& origin, std::span<const SkyDirections> directions,
                      std::span<SkyCellSet> cells) override {
        if (m_differs) {
            return; // what comes out is of no interest any more
        }
        std::vector<SkyCellSet> without(cells.begin(), cells.end());
        std::vector<SkyCellSet> with = without;
        m_change.m_removed.visibleSkies(origin, directions, without);
        m_change.m_added.visibleSkies(origin, directions, with);
        for (std::size_t set = 0; set < std::min(cells.size(), directions.size()); ++set) {
            for (std::size_t word = 0; word < SkyCellSet::wordCount; ++word) {
                std::uint64_t differing = without[set].words[word] ^ with[set].words[word];
                for (; differing != 0 && !m_differs; differing &= differing - 1) {
                    const int azimuth =
                        static_cast<int>(word % 2) * 64 + std::countr_zero(differing);
                    compare(origin, directions[set].direction(azimuth, static_cast<int>(word / 2)));
                }
            }
        }
    }

private:
    /// Whether the rest of the scenes hides what has changed.
    void compare(const XYZf& origin, const XYZf& direction) {
        m_differs = m_change.m_before.getTransparencyValue(origin, direction, nullptr) !=
                    m_change.m_after.getTransparencyValue(origin, direction, nullptr);
    }

    const ChangedRays& m_change;
    bool m_differs = false;
};

ChangedRays::ChangedRays(const SceneDifference& difference, const Recentring& recentring,
                         GetTransparencyValueOnRay& before, GetTransparencyValueOnRay& after)
    : m_removed(recentring.coordinates(difference.removed)),
      m_added(recentring.coordinates(difference.added)), m_before(before), m_after(after) {
    constexpr float far = std::numeric_limits<float>::infinity();
    m_lowest = {far, far, far};
    m_highest = {-far, -far, -far};
    for (const Scene* scene : {&difference.removed, &difference.added}) {
        for (const Vector3& corner : scene->vertices) {
            const XYZf p = recentring.local(corner);
            m_lowest = {std::min(m_lowest.x, p.x), std::min(m_lowest.y, p.y),
                        std::min(m_lowest.z, p.z)};
            m_highest = {std::max(m_highest.x, p.x), std::max(m_highest.y, p.y),
                         std::max(m_highest.z, p.z)};
        }
    }
}

bool ChangedRays::touch(const HourlyAnalysis& analysis, const Sensor& sensor) const {
    if (!mayTouch(sensor)) {
        return false;
    }
    Caster caster(*this);
    analysis.evaluate(caster, sensor);
    return caster.differs();
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
    for (int corner = 0; corner < 8; ++corner) {
        const XYZf way = {((corner & 1) != 0 ? m_highest.x : m_lowest.x) - sensor.position.x,
                          ((corner & 2) != 0 ? m_highest.y : m_lowest.y) - sensor.position.y,
                          ((corner & 4) != 0 ? m_highest.z : m_lowest.z) - sensor.position.z};
        const float along = n.x * way.x + n.y * way.y + n.z * way.z;
        if (!(along < -cosineOf30Degrees * length * std::hypot(way.x, way.y, way.z))) {
            return true;
        }
    }
    return false;
}

} // namespace insolate::study
