/// Ray-transparency objects over the process-wide triangles and octree.
///
/// A ray is blocked (0.0) or clear (1.0). It is blocked by either side of a triangle at a distance
/// of at least 0.01 directions; rays through an edge or a vertex pass, so that rays which graze the
/// common edge of two triangles are not caught between them. Boxes of the octree that a ray enters
/// only after 1e8 directions are not searched: no limit for unit directions, but a direction
/// shorter than 1e-7 may miss what an OcclusionIndex finds. The direction is used as given; a ray
/// that is not a number hits nothing; the normal has no influence. The package must hold its
/// triangles and the tree must have been generated (RT::InputPackageUitl, RT::SpatialTreeUtil)
/// before the first query and must not change while queries run.
#pragma once

#include <insolate/export.h>
#include <insolate/rt/ray_transparency.h>

#include <cstdint>

namespace RT {
struct Ray;
struct SpatialTree;
} // namespace RT

/// Tests every triangle that it meets. A host may derive from it, for instance to make surfaces
/// double-sided. Writes nothing shared: one object may serve all threads.
class INSOLATE_EXPORT GetTransparencyValueOnRayInternal : public GetTransparencyValueOnRay {
public:
    /// False.
    bool getSurfaceDoubleSided() override;
    float getTransparencyValue(const XYZf& origin, const XYZf& direction,
                               const XYZf* normal) override;
    /// Does nothing; 0.
    int initialise() override;

private:
    bool isRayIntersectWithTriangles(const RT::Ray& ray, const RT::SpatialTree& node);
};

namespace RT {

/// Skips the triangles that it has already tested for the same ray: each triangle remembers, for
/// every thread slot, the id of the last ray. A host may derive from it as from the other.
///
/// Every thread needs an object of its own with a thread slot of its own; two objects that share a
/// slot on different threads may overlook triangles. Ids must not repeat in a slot while a triangle
/// may still remember them: a new object with a new point index for each point does so, as long as
/// it casts no more than the 1,296 rays of one mask.
class INSOLATE_EXPORT GetTransparencyValueOnRayImpl : public GetTransparencyValueOnRay {
public:
    /// threadSlot: 0 to the number of processors - 1; pointIndex: block of 1,296 ray ids.
    GetTransparencyValueOnRayImpl(int threadSlot, int pointIndex);
    GetTransparencyValueOnRayImpl(const GetTransparencyValueOnRayImpl&) = default;
    GetTransparencyValueOnRayImpl& operator=(const GetTransparencyValueOnRayImpl&) = default;

    /// False.
    bool getSurfaceDoubleSided() override;
    float getTransparencyValue(const XYZf& origin, const XYZf& direction,
                               const XYZf* normal) override;
    /// Does nothing; 0.
    int initialise() override;

private:
    bool isRayIntersectWithTriangles(const Ray& ray, const SpatialTree& node);

    std::int32_t rayCounter = 0; ///< queries made through this object
    std::int32_t threadSlot;
    std::int32_t pointIndex;
};

} // namespace RT
