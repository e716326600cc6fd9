#include "study/run/mask_source.h"

#include "study/model/mesh.h"
#include "study/model/sensor_grid.h"
#include "study/support/errors.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>
#include <vector>

namespace insolate::study {

namespace {

/// Ray ids are 32 bits wide and a point takes 1,296 of them; a thread that has used them up goes on
/// without remembering which triangles a ray has met: slower, never wrong.
constexpr int mostRayIdBlocks = 3'300'000;

class OctreeMasks final : public MaskSource {
public:
    OctreeMasks(const Scene& scene, const Recentring& recentring, const std::stop_token& stop,
                std::shared_ptr<const ProcessScene> held)
        : m_held(held ? std::move(held) : ProcessScene::take()) {
        RT::InputPackageUitl::ResetInputPackage();
        // In pieces, so that the doubles of a large scene do not stand in memory once more.
        constexpr std::size_t piece = 3 * std::size_t{4096};
        std::vector<double> coordinates;
        for (std::size_t first = 0; first < scene.vertices.size(); first += piece) {
            coordinates.clear();
            const std::size_t end = std::min(first + piece, scene.vertices.size());
            for (std::size_t i = first; i < end; ++i) {
                const Vector3 p = recentring.moved(scene.vertices[i]);
                coordinates.insert(coordinates.end(), {p.x, p.y, p.z});
            }
            RT::InputPackageUitl::AddTriangles(coordinates.data(),
                                               static_cast<int>(coordinates.size()));
            throwIfStopped(stop);
        }
        RT::InputPackageUitl::InflateBoundingBox();
        RT::SpatialTreeUtil::GenerateSpatialTree();
    }

    void updateMask(ECalculationPoint& point, std::size_t, int slot) override {
        int& used = m_slots[static_cast<std::size_t>(slot)].rayIdBlocks;
        if (used < mostRayIdBlocks) {
            RT::GetTransparencyValueOnRayImpl rays(slot, used++);
            point.updateShadingMask(&rays);
        } else {
            GetTransparencyValueOnRayInternal rays;
            point.updateShadingMask(&rays);
        }
    }

    GetTransparencyValueOnRay* rays() override { return &m_rays; }

private:
    struct alignas(64) Slot {
        int rayIdBlocks = 0;
    };
    std::shared_ptr<const ProcessScene> m_held;
    GetTransparencyValueOnRayInternal m_rays;
    std::vector<Slot> m_slots = std::vector<Slot>(static_cast<std::size_t>(usedThreads(0)));
};

class FastMasks final : public MaskSource {
public:
    FastMasks(const Scene& scene, const Recentring& recentring, const std::stop_token& stop)
        : m_index(recentring.coordinates(scene), {.stop = stop}), m_rays(m_index) {}

    void updateMask(ECalculationPoint& point, std::size_t, int) override {
        FastRayTransparency rays(m_rays);
        point.updateShadingMask(&rays);
    }

    GetTransparencyValueOnRay* rays() override { return &m_rays; }

private:
    OcclusionIndex m_index;
    FastRayTransparency m_rays;
};

class LightMasks final : public MaskSource {
public:
    LightMasks(const Scene& scene, const Recentring& recentring,
               std::span<const std::uint16_t> materialOfTriangle, std::vector<Material> materials,
               const std::stop_token& stop)
        : m_scene(recentring.coordinates(scene), materialOfTriangle, std::move(materials),
                  {.stop = stop}),
          m_rays(m_scene.opaque()) {}

    void updateMask(ECalculationPoint& point, std::size_t, int) override {
        LightSceneTransparency rays(m_scene);
        point.updateShadingMask(&rays);
    }

    GetTransparencyValueOnRay* rays() override { return &m_rays; }
    [[nodiscard]] const LightScene* light() const override { return &m_scene; }

private:
    LightScene m_scene;
    FastRayTransparency m_rays;
};

/// Answers for one sensor from the store.
class StoredSky final : public GetTransparencyValueOnRay, public SkyVisibilityQuery {
public:
    StoredSky(const SkyCellSet& visible, double northOffset)
        : m_visible(visible), m_northOffset(northOffset) {}

    bool getSurfaceDoubleSided() override {
        offerWholeSkies(*this);
        return false;
    }
    int initialise() override { return 0; }

    float getTransparencyValue(const XYZf&, const XYZf& direction, const XYZf*) override {
        const double x = static_cast<double>(direction.x);
        const double y = static_cast<double>(direction.y);
        const double z = static_cast<double>(direction.z);
        constexpr double turn = 2.0 * std::numbers::pi;
        double azimuth = 0.25 * turn - std::atan2(y, x) - m_northOffset;
        azimuth -= turn * std::floor(azimuth / turn);
        const double altitude = std::atan2(z, std::hypot(x, y));
        const int sector = skyGrid::azimuthSector(static_cast<float>(azimuth));
        const int band = skyGrid::altitudeBand(static_cast<float>(altitude));
        return skyGrid::isCell(sector, band) && m_visible.contains(sector, band) ? 1.0f : 0.0f;
    }

    SkyCellSet visibleSky(const XYZf&, const SkyDirections& directions,
                          const SkyCellSet& wanted) override {
        SkyCellSet seen = m_visible;
        seen &= wanted;
        seen &= directions.cells();
        return seen;
    }

private:
    SkyCellSet m_visible;
    double m_northOffset;
};

class StoredMasks final : public MaskSource {
public:
    StoredMasks(const SkyVisibilityStore& store, double north)
        : m_store(store), m_northOffset(ESolarPosition::convertDegreesToRadians(north)) {}

    void updateMask(ECalculationPoint& point, std::size_t sensor, int) override {
        StoredSky rays(m_store.visibleSky(sensor), m_northOffset);
        point.updateShadingMask(&rays);
    }

private:
    const SkyVisibilityStore& m_store;
    double m_northOffset;
};

} // namespace

std::unique_ptr<MaskSource> makeRayMasks(const Scene& scene, const Recentring& recentring,
                                         RayMethod method, const std::stop_token& stop,
                                         std::shared_ptr<const ProcessScene> held) {
    if (method == RayMethod::octree) {
        return std::make_unique<OctreeMasks>(scene, recentring, stop, std::move(held));
    }
    throwIfStopped(stop);
    auto masks = std::make_unique<FastMasks>(scene, recentring, stop);
    throwIfStopped(stop);
    return masks;
}

std::unique_ptr<MaskSource> makeLightMasks(const Scene& scene, const Recentring& recentring,
                                           std::span<const std::uint16_t> materialOfTriangle,
                                           std::vector<Material> materials,
                                           const std::stop_token& stop) {
    auto masks = std::make_unique<LightMasks>(scene, recentring, materialOfTriangle,
                                              std::move(materials), stop);
    throwIfStopped(stop);
    return masks;
}

std::unique_ptr<MaskSource> makeStoredMasks(const SkyVisibilityStore& store, double north) {
    return std::make_unique<StoredMasks>(store, north);
}

} // namespace insolate::study
