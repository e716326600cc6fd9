/// A scene whose triangles have materials: what blocks light, what weakens it and what scatters it.
///
///     std::vector<Material> materials(2);
///     materials[1].passage = Material::Passage::Pane;
///     materials[1].passing = 0.72f;
///     const LightScene scene(coordinates, materialOfTriangle, materials);
///     const float through = scene.transmittance(origin, direction, season);
///
/// Opaque and translucent triangles lie in an OcclusionIndex each: rays that something opaque
/// blocks never ask the other. A scene is an ordinary object; all queries are const and may run on
/// any number of threads at once.
#pragma once

#include <insolate/export.h>
#include <insolate/geometry/xyzf.h>
#include <insolate/rt/material.h>
#include <insolate/rt/occlusion_index.h>
#include <insolate/rt/ray_transparency.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <span>
#include <vector>

namespace insolate {

/// The days of a year in groups on which all materials of a scene have the same values.
struct Seasons {
    std::array<std::uint16_t, 365> ofDay{}; ///< by day of the year, the first in front
    int count = 1;

    bool operator==(const Seasons&) const = default;
};

/// Those of the materials, numbered by their first days.
INSOLATE_EXPORT Seasons seasonsOf(std::span<const Material> materials);

class INSOLATE_EXPORT LightScene {
public:
    /// Without triangles: all light passes.
    LightScene();
    /// coordinates: as for OcclusionIndex. materialOfTriangle: for each triangle its place in
    /// materials; triangles beyond its end, and places that there are none for, have an opaque
    /// material of Material's own defaults.
    LightScene(std::span<const double> coordinates,
               std::span<const std::uint16_t> materialOfTriangle, std::vector<Material> materials,
               const OcclusionIndexOptions& options = {});
    LightScene(LightScene&&) noexcept;
    LightScene& operator=(LightScene&&) noexcept;
    ~LightScene();

    /// The triangles that nothing passes.
    const OcclusionIndex& opaque() const;
    /// The others. Their places in it are not those in the coordinates.
    const OcclusionIndex& translucent() const;
    bool hasTranslucent() const { return translucent().triangleCount() > 0; }

    /// As given, with the default one behind them.
    std::span<const Material> materials() const;
    const Seasons& seasons() const;

    /// A surface that a ray of opaque().nearestHit() has met.
    struct Surface {
        XYZf normal;            ///< unit, by the order of the corners; zero without an area
        std::uint16_t material; ///< place in materials()
    };
    const Surface& surface(std::uint32_t hitOfOpaque) const;
    /// The same of a ray of translucent().
    const Surface& translucentSurface(std::uint32_t hitOfTranslucent) const;

    /// Corners of the box around all triangles; low above high without any [model units].
    XYZf low() const;
    XYZf high() const;

    /// The share of light that the translucent triangles let through, 0..1: of a ray from origin to
    /// `distance` directions away. Opaque triangles are not asked. direction: unit.
    float transmittance(const XYZf& origin, const XYZf& direction, int season,
                        double distance = std::numeric_limits<double>::infinity()) const;
    /// The same for each season at once.
    void transmittances(const XYZf& origin, const XYZf& direction, std::span<float> bySeason,
                        double distance = std::numeric_limits<double>::infinity()) const;

    /// Crown hulls that are not closed: some edge has not two triangles that run along it in
    /// opposite directions. Paths through them are measured as far as entries and exits match.
    std::size_t openCrowns() const;

    std::size_t memoryBytes() const;

private:
    struct Content;
    std::unique_ptr<const Content> m_content; ///< null without triangles
    const Content& content() const;
};

/// The ray caster over a LightScene on the days of one season, for EShadingMask, EModel and
/// whatever else takes transparencies: values from 0 to 1. Holds no state of its own, so one object
/// serves any number of threads. The scene must outlive it.
class INSOLATE_EXPORT LightSceneTransparency final : public GetTransparencyValueOnRay {
public:
    explicit LightSceneTransparency(const LightScene& scene, int season = 0,
                                    bool doubleSided = false)
        : m_scene(&scene), m_season(season), m_doubleSided(doubleSided) {}

    bool getSurfaceDoubleSided() override { return m_doubleSided; }
    float getTransparencyValue(const XYZf& origin, const XYZf& direction,
                               const XYZf* normal) override;
    /// Does nothing; 0.
    int initialise() override { return 0; }

private:
    const LightScene* m_scene;
    int m_season;
    bool m_doubleSided;
};

} // namespace insolate
