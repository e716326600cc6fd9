/// The wide loops that walk an OcclusionIndex, behind their run-time dispatch.
#pragma once

#include <insolate/rt/occlusion_storage.h>
#include <insolate/rt/sky_direction_table.h>
#include <insolate/rt/triangle.h>

#include <span>
#include <vector>

namespace insolate {

/// Whether a triangle of the hierarchy blocks the ray. Origin within largestCoordinate, direction's
/// components finite and its length within a factor of 1e15 of 1.
bool occludedInHierarchy(const OcclusionIndex::Storage& index, const Vector3d& origin,
                         const XYZf& direction);

/// The same for up to 32 rays of one origin, the first in the lowest bit.
std::uint32_t occludedInHierarchy(const OcclusionIndex::Storage& index, const Vector3d& origin,
                                  std::span<const XYZf> directions);

/// The nearest hit of each ray in the hierarchy, where it is nearer than the one that `hits` holds,
/// or as near with a lower number. The origin and the directions as above.
void nearestInHierarchy(const OcclusionIndex::Storage& index, const Vector3d& origin,
                        std::span<const XYZf> directions, std::span<RayHit> hits);

/// Appends every hit of the ray in the hierarchy, in no order.
void allHitsInHierarchy(const OcclusionIndex::Storage& index, const Vector3d& origin,
                        const XYZf& direction, std::vector<RayHit>& hits);

/// One set of directions and its cells that are not known to be blocked.
struct OpenSky {
    const SkyDirectionTable* directions;
    SkyCellSet* open;
};

/// Takes the cells whose ray a triangle of the hierarchy blocks out of one set, or of two, of which
/// the second has its directions above those of the first in each cell. Origin within
/// largestCoordinate; the tables must hold a direction for each open cell. Of two, the reach counts
/// in bands of half the height (SkyReach::halves).
void closeBlockedCells(const OcclusionIndex::Storage& index, const Vector3d& origin,
                       std::span<const OpenSky> skies, const SkyReach& reach);

/// Origins that one walk takes.
inline constexpr std::size_t mostOriginsOfBlock = 16;

/// The same for up to mostOriginsOfBlock origins and one or two tables. sets: for each origin, by
/// the stride, those of the tables. False where the origins see too different things for a common
/// walk to pay: then some cells are left in the sets whose rays are blocked.
bool closeBlockedCellsOfBlock(const OcclusionIndex::Storage& index,
                              std::span<const Vector3d> origins,
                              std::span<const SkyDirectionTable* const> skies,
                              const SkyReach& reach, SkyCellSet* sets, std::size_t stride);

} // namespace insolate
