/// A fast index over the triangles of a scene that answers: does anything block this ray, and what
/// does it hit?
///
/// Hits are those of the library's ray/triangle test, to the last bit: bounds are strict, both
/// sides block, and hits nearer than 0.01 direction lengths do not count. There is no upper limit
/// of distance; the octree's queries have one of 1e8 direction lengths, so that the two may differ
/// for directions shorter than 1e-7 or scenes larger than 1e8. A ray with an origin or a direction
/// that is not a number hits nothing: such a place sees an open sky. An index is an ordinary
/// object; several scenes may live in one process. It copies the triangles and keeps no reference
/// to its input. All queries are const and may run on any number of threads at once.
#pragma once

#include <insolate/export.h>
#include <insolate/geometry/xyzf.h>
#include <insolate/rt/ray_transparency.h>
#include <insolate/rt/sky_visibility.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <span>
#include <stop_token>
#include <vector>

namespace insolate {

struct OcclusionIndexOptions {
    bool parallel = true; ///< build on all processors; the index is the same either way
    /// Ends the build within milliseconds: an index that it reached has no triangles.
    std::stop_token stop{};
};

/// Where a ray hits a triangle.
struct RayHit {
    static constexpr std::uint32_t none = 0xFFFFFFFFU;

    double distance = std::numeric_limits<double>::infinity(); ///< [multiples of the direction]
    std::uint32_t triangle = none; ///< its place in the coordinates; none without a hit

    bool operator==(const RayHit&) const = default;
};

class INSOLATE_EXPORT OcclusionIndex {
public:
    /// An index without triangles: nothing is blocked.
    OcclusionIndex();

    /// coordinates: nine doubles per triangle (x, y, z of p0, p1, p2) [model units]; a remainder of
    /// fewer than nine is ignored. Triangles beyond 2^26, or with a coordinate beyond 1e9, are
    /// tested for every ray: correct, but slow.
    explicit OcclusionIndex(std::span<const double> coordinates,
                            const OcclusionIndexOptions& options = {});

    /// Over the triangles that RT::InputPackageUitl has collected so far.
    static OcclusionIndex fromInputPackage(const OcclusionIndexOptions& options = {});

    /// What was moved from is an index without triangles.
    OcclusionIndex(OcclusionIndex&&) noexcept;
    OcclusionIndex& operator=(OcclusionIndex&&) noexcept;
    ~OcclusionIndex();

    std::size_t triangleCount() const;

    /// Memory that the index holds [bytes].
    std::size_t memoryBytes() const;

    /// Whether any triangle blocks the ray. The direction is used as given, not normalised.
    bool isOccluded(const XYZf& origin, const XYZf& direction) const;

    /// The same for several rays of one origin, which share the work: occluded[i] is 1 where
    /// something blocks directions[i], else 0. The shorter span counts.
    void areOccluded(const XYZf& origin, std::span<const XYZf> directions,
                     std::span<std::uint8_t> occluded) const;

    /// The nearest hit of the ray, by the same exact test of every triangle; of triangles at
    /// exactly the same distance that of the lowest place.
    RayHit nearestHit(const XYZf& origin, const XYZf& direction) const;

    /// The same for several rays of one origin; the shorter span counts.
    void nearestHits(const XYZf& origin, std::span<const XYZf> directions,
                     std::span<RayHit> hits) const;

    /// Every hit of the ray, by distance, then by place. hits is cleared first.
    void allHits(const XYZf& origin, const XYZf& direction, std::vector<RayHit>& hits) const;

    /// The cells among `wanted` that have a direction and whose ray from origin nothing blocks: the
    /// same as asking isOccluded() for each of them.
    SkyCellSet visibleSky(const XYZf& origin, const SkyDirections& directions,
                          const SkyCellSet& wanted = SkyCellSet::all()) const;

    /// The same for several sets of directions. cells: for each of the directions the
    /// wanted cells; they become the visible ones. The shorter span counts. Two sets that follow
    /// each other, the first in the lower and the second in the upper halves of the cells, share
    /// the work as one finer mask.
    void visibleSkies(const XYZf& origin, std::span<const SkyDirections> directions,
                      std::span<SkyCellSet> cells) const;

    /// The same for several origins, which share the work where they lie close together: as
    /// neighbours on a face do. cells: for each origin as many sets as there are directions, one
    /// behind the other. Any origins give the answers of each by itself.
    void visibleSkies(std::span<const XYZf> origins, std::span<const SkyDirections> directions,
                      std::span<SkyCellSet> cells) const;

    struct Storage;

private:
    const Storage& storage() const;
    void castOneByOne(const XYZf& origin, const SkyDirections& directions, bool boxesAsked,
                      SkyCellSet& open) const;
    bool closeInOneWalk(std::span<const XYZf> origins, std::span<const SkyDirections> directions,
                        std::span<SkyCellSet> cells) const;

    std::unique_ptr<const Storage> m_storage; ///< null without triangles
};

/// The ray caster over an OcclusionIndex, for EShadingMask and EModel: transparency 0 or 1.
///
///     OcclusionIndex index(coordinates);
///     FastRayTransparency rays(index);
///     model.setGetTransparencyValueOnRay(&rays);
///
/// Its answers are those of GetTransparencyValueOnRayInternal over the same triangles, but for the
/// limit of distance above. Holds no state of its own, so one object serves any number of threads.
/// The index must outlive it.
class INSOLATE_EXPORT FastRayTransparency final : public GetTransparencyValueOnRay,
                                                  public SkyVisibilityQuery {
public:
    explicit FastRayTransparency(const OcclusionIndex& occlusionIndex, bool doubleSided = false)
        : m_index(&occlusionIndex), m_doubleSided(doubleSided) {}

    bool getSurfaceDoubleSided() override;
    float getTransparencyValue(const XYZf& origin, const XYZf& direction,
                               const XYZf* normal) override;
    /// Does nothing; 0.
    int initialise() override;

    SkyCellSet visibleSky(const XYZf& origin, const SkyDirections& directions,
                          const SkyCellSet& wanted) override;
    void visibleSkies(const XYZf& origin, std::span<const SkyDirections> directions,
                      std::span<SkyCellSet> cells) override;
    void visibleSkies(std::span<const XYZf> origins, std::span<const SkyDirections> directions,
                      std::span<SkyCellSet> cells) override;

private:
    const OcclusionIndex* m_index;
    bool m_doubleSided;
};

} // namespace insolate
