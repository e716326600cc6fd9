/// The rays of one sensor of the hourly method, and how its surface weighs what they bring.
#pragma once

#include <insolate/geometry/vector_math.h>
#include <insolate/hourly/sensor_kernels.h>
#include <insolate/rt/occlusion_index.h>
#include <insolate/rt/ray_caster_abilities.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <span>
#include <vector>

namespace insolate {

/// How a surface weighs what comes from a direction.
enum class Sides { One, Two, NoSurface };

/// Sine of the angle from a cell's middle to its farthest corner, 3.54 degrees, and a little more:
/// a cell this far from the surface's plane lies on one side of it.
inline constexpr float farFromPlane = 0.0629f;

/// The weight of a vector whose length, or measure without direction, is given.
inline float weightOnSurface(Sides sides, const XYZf& normal, const XYZf& vector, float measure) {
    switch (sides) {
    case Sides::One:
        return std::max(dotProduct(normal, vector), 0.0f);
    case Sides::Two:
        return std::abs(dotProduct(normal, vector));
    case Sides::NoSurface:
        break;
    }
    return measure;
}

/// The rays of one sensor. Visibilities are 0 (blocked) to 1 (clear).
class Rays {
public:
    Rays(GetTransparencyValueOnRay& caster, const XYZf& origin)
        : m_caster(caster), m_abilities(abilitiesOf(caster)), m_query(m_abilities.wholeSkies),
          m_origin(origin) {}

    /// Whether receiving surfaces have two sides.
    bool doubleSided() const { return m_abilities.doubleSided; }

    /// The surface that receives, for casters that mind; kept by reference.
    void receiveOn(const XYZf* normal) { m_normal = normal; }

    float one(const XYZf& direction) const {
        const float value = m_caster.getTransparencyValue(m_origin, direction, m_normal);
        return value > 0.0f ? std::min(value, 1.0f) : 0.0f;
    }

    /// The cells that are free, where every visibility is 0 or 1; else it changes nothing.
    void skies(std::span<const SkyDirections> directions, std::span<SkyCellSet> cells) {
        if (m_query != nullptr) {
            m_query->visibleSkies(m_origin, directions, cells);
        }
    }

    /// The same for several origins, this one or others, of the same caster. cells: for each origin
    /// as many sets as there are directions.
    void skies(std::span<const XYZf> origins, std::span<const SkyDirections> directions,
               std::span<SkyCellSet> cells) {
        if (m_query != nullptr) {
            m_query->visibleSkies(origins, directions, cells);
        }
    }

    /// Whether both ask the same object for whole skies.
    bool sharesWith(const Rays& other) const {
        return m_query != nullptr && m_query == other.m_query;
    }

    /// Visibility of the wanted cells of a set, by cell index, ray by ray. The cells become those
    /// that are clear; others keep what visibility has.
    void oneByOne(const SkyDirections& directions, SkyCellSet& cells, float* visibility) const {
        SkyCellSet free;
        forEach(cells, [&](std::size_t cell, int azimuth, int altitude) {
            visibility[cell] = one(directions.direction(azimuth, altitude));
            if (visibility[cell] == 1.0f) {
                free.insert(azimuth, altitude);
            }
        });
        cells = free;
    }

    template <typename Function>
    static void forEach(const SkyCellSet& set, Function&& function) {
        for (std::size_t word = 0; word < SkyCellSet::wordCount; ++word) {
            const auto altitude = static_cast<int>(word / 2);
            for (std::uint64_t bits = set.words[word]; bits != 0; bits &= bits - 1) {
                const int azimuth = static_cast<int>(word % 2) * 64 + std::countr_zero(bits);
                function(static_cast<std::size_t>(skyGrid::cellIndex(azimuth, altitude)), azimuth,
                         altitude);
            }
        }
    }

    /// Visibility of any directions; the shorter span counts.
    void many(std::span<const XYZf> directions, std::span<float> visibility) const {
        const std::size_t count = std::min(directions.size(), visibility.size());
        if (m_abilities.index != nullptr) {
            std::vector<std::uint8_t> occluded(count);
            m_abilities.index->areOccluded(m_origin, directions, occluded);
            std::ranges::transform(occluded, visibility.begin(),
                                   [](std::uint8_t is) { return is != 0 ? 0.0f : 1.0f; });
            return;
        }
        for (std::size_t i = 0; i < count; ++i) {
            visibility[i] = one(directions[i]);
        }
    }

    /// Whether every visibility is 0 or 1.
    bool allOrNothing() const { return m_query != nullptr; }

private:
    GetTransparencyValueOnRay& m_caster;
    RayCasterAbilities m_abilities;
    SkyVisibilityQuery* m_query;
    XYZf m_origin;
    const XYZf* m_normal = nullptr;
};

} // namespace insolate
