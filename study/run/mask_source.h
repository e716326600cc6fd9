/// Where the sensors' shading masks come from: rays through the scene, or a file of an earlier run.
#pragma once

#include "study/model/scene.h"
#include "study/run/run_options.h"
#include "study/run/sky_visibility_store.h"

#include <insolate/insolate.h>

#include <cstddef>
#include <memory>
#include <stop_token>

namespace insolate::study {

/// Moves model coordinates so that the middle of scene and sensors is the origin: positions in the
/// library are single precision, and map coordinates would lose their decimetres.
class Recentring {
public:
    Recentring(const Scene& scene, const SensorField& field);

    [[nodiscard]] Vector3 moved(const Vector3& point) const;
    [[nodiscard]] XYZf local(const Vector3& point) const;

private:
    Vector3 m_centre; ///< whole metres, so that a model rounds alike wherever it stands
};

/// Fills masks. One call at a time for each thread slot.
class MaskSource {
public:
    virtual ~MaskSource() = default;

    /// @param sensor index of the sensor that the point stands for
    /// @param slot the calling thread's number, below the number of processors
    virtual void updateMask(ECalculationPoint& point, std::size_t sensor, int slot) = 0;

    /// The caster for rays into any direction, for all threads; null where none are cast.
    virtual GetTransparencyValueOnRay* rays() { return nullptr; }
};

/// Rays through the scene; builds what they walk through. Only one source by octree may exist at a
/// time: the library has one octree in a process.
std::unique_ptr<MaskSource> makeRayMasks(const Scene& scene, const Recentring& recentring,
                                         RayMethod method, const std::stop_token& stop);

/// Masks with the visibility of the store, as if the rays were cast again: the same bytes.
/// @param north as the masks were made with [degrees]; the store must outlive the source
std::unique_ptr<MaskSource> makeStoredMasks(const SkyVisibilityStore& store, double north);

} // namespace insolate::study
