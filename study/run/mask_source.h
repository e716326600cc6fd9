/// Where the sensors' shading masks come from: rays through the scene, or a file of an earlier run.
#pragma once

#include "study/model/recentring.h"
#include "study/model/scene.h"
#include "study/run/process_scene.h"
#include "study/run/run_options.h"
#include "study/run/sky_visibility_store.h"

#include <insolate/insolate.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <stop_token>
#include <vector>

namespace insolate::study {

/// Fills masks. One call at a time for each thread slot.
class MaskSource {
public:
    virtual ~MaskSource() = default;

    /// @param sensor index of the sensor that the point stands for
    /// @param slot the calling thread's number, below the number of processors
    virtual void updateMask(ECalculationPoint& point, std::size_t sensor, int slot) = 0;

    /// The caster for rays into any direction, for all threads; null where none are cast.
    virtual GetTransparencyValueOnRay* rays() { return nullptr; }
    /// The scene with its materials, where light is reflected or passes; else null. rays() then
    /// meets the opaque triangles alone.
    [[nodiscard]] virtual const LightScene* light() const { return nullptr; }
};

/// Rays through the scene; builds what they walk through. The octree's triangles are the process's.
/// @param held what the study holds of the process already, or null
/// @throws Stopped; UsageError when another study holds what the octree needs
std::unique_ptr<MaskSource> makeRayMasks(const Scene& scene, const Recentring& recentring,
                                         RayMethod method, const std::stop_token& stop,
                                         std::shared_ptr<const ProcessScene> held = {});

/// Rays through a scene whose triangles have materials.
/// @param materialOfTriangle as for LightScene
/// @throws Stopped
std::unique_ptr<MaskSource> makeLightMasks(const Scene& scene, const Recentring& recentring,
                                           std::span<const std::uint16_t> materialOfTriangle,
                                           std::vector<Material> materials,
                                           const std::stop_token& stop);

/// Masks with the visibility of the store, as if the rays were cast again: the same bytes.
/// @param north as the masks were made with [degrees]; the store must outlive the source
std::unique_ptr<MaskSource> makeStoredMasks(const SkyVisibilityStore& store, double north);

} // namespace insolate::study
