#include <insolate/rt/occlusion_index.h>

#include <insolate/rt/input_package.h>
#include <insolate/rt/occlusion_build.h>
#include <insolate/rt/occlusion_query.h>
#include <insolate/rt/triangle.h>

#include <algorithm>
#include <cmath>

namespace insolate {

namespace {

static_assert(offsetof(RT::Triangle, p1) == offsetof(RT::Triangle, p0) + 3 * sizeof(double));
static_assert(offsetof(RT::Triangle, p2) == offsetof(RT::Triangle, p0) + 6 * sizeof(double));

Vector3d widened(const XYZf& v) {
    return {static_cast<double>(v.x), static_cast<double>(v.y), static_cast<double>(v.z)};
}

double largestMagnitude(const Vector3d& v) {
    return std::max({std::fabs(v[0]), std::fabs(v[1]), std::fabs(v[2])});
}

bool isFinite(const Vector3d& v) {
    return std::isfinite(v[0]) && std::isfinite(v[1]) && std::isfinite(v[2]);
}

bool hitsOneOf(std::span<const double> triangles, const Vector3d& origin,
               const Vector3d& direction) {
    for (std::size_t i = 0; i < triangles.size(); i += doublesPerTriangle) {
        const double* triangle = triangles.data() + i;
        if (hitsTriangle(origin.data(), direction.data(), triangle, triangle + 3, triangle + 6)) {
            return true;
        }
    }
    return false;
}

/// Whether the boxes can judge rays from this origin; false for NaN.
bool withinReach(const Vector3d& origin) {
    return isFinite(origin) && largestMagnitude(origin) <= largestCoordinate;
}

} // namespace

OcclusionIndex::OcclusionIndex() = default;

OcclusionIndex::OcclusionIndex(std::span<const double> coordinates,
                               const OcclusionIndexOptions& options)
    : m_storage(buildOcclusionStorage({reinterpret_cast<const std::byte*>(coordinates.data()),
                                       9 * sizeof(double), coordinates.size() / 9},
                                      options.parallel)) {}

OcclusionIndex OcclusionIndex::fromInputPackage(const OcclusionIndexOptions& options) {
    const std::vector<RT::Triangle>& triangles = RT::InputPackage::instance().triangles;
    OcclusionIndex index;
    if (!triangles.empty()) {
        index.m_storage =
            buildOcclusionStorage({reinterpret_cast<const std::byte*>(triangles.front().p0.data()),
                                   sizeof(RT::Triangle), triangles.size()},
                                  options.parallel);
    }
    return index;
}

OcclusionIndex::OcclusionIndex(OcclusionIndex&&) noexcept = default;
OcclusionIndex& OcclusionIndex::operator=(OcclusionIndex&&) noexcept = default;
OcclusionIndex::~OcclusionIndex() = default;

const OcclusionIndex::Storage& OcclusionIndex::storage() const {
    if (m_storage != nullptr) {
        return *m_storage;
    }
    static const Storage empty;
    return empty;
}

std::size_t OcclusionIndex::triangleCount() const {
    return storage().triangleCount();
}

std::size_t OcclusionIndex::memoryBytes() const {
    return sizeof(Storage) + storage().block.size() +
           storage().unbounded.capacity() * sizeof(double);
}

bool OcclusionIndex::isOccluded(const XYZf& origin, const XYZf& direction) const {
    const Vector3d from = widened(origin);
    const Vector3d along = widened(direction);
    const double length = largestMagnitude(along);
    if (!withinReach(from) || !isFinite(along) || length < 1e-15 || length > 1e15) {
        // Every triangle, without the help of any box.
        return hitsOneOf(storage().exact, from, along) ||
               hitsOneOf(storage().unbounded, from, along);
    }
    return occludedInHierarchy(storage(), from, direction) ||
           hitsOneOf(storage().unbounded, from, along);
}

SkyCellSet OcclusionIndex::visibleSky(const XYZf& origin, const SkyDirections& directions,
                                      const SkyCellSet& wanted) const {
    SkyCellSet open = wanted;
    visibleSkies(origin, {&directions, 1}, {&open, 1});
    return open;
}

void OcclusionIndex::visibleSkies(const XYZf& origin, std::span<const SkyDirections> directions,
                                  std::span<SkyCellSet> cells) const {
    const Vector3d from = widened(origin);
    const bool near = withinReach(from);
    const std::size_t sets = std::min(directions.size(), cells.size());
    const auto walks = [&](std::size_t i) { return near && directions[i].table().regular; };
    for (std::size_t i = 0; i < sets; ++i) {
        cells[i] &= directions[i].table().cells;
    }
    for (std::size_t i = 0; i < sets; ++i) {
        if (!walks(i)) {
            continue;
        }
        const SkyDirectionTable& table = directions[i].table();
        std::array<OpenSky, 2> skies{{{&table, &cells[i]}, {}}};
        if (i + 1 < sets && walks(i + 1)) {
            const SkyDirectionTable& next = directions[i + 1].table();
            if (const std::optional<SkyReach> both = table.reach.halves(next.reach)) {
                ++i;
                skies[1] = {&next, &cells[i]};
                closeBlockedCells(storage(), from, skies, *both);
                continue;
            }
        }
        closeBlockedCells(storage(), from, {skies.data(), 1}, table.reach);
    }
    for (std::size_t i = 0; i < sets; ++i) {
        const bool together = near && directions[i].table().regular;
        if (!together || !storage().unbounded.empty()) {
            castOneByOne(origin, directions[i], together, cells[i]);
        }
    }
}

/// Takes out the cells that something blocks; only what no box holds where the boxes have been
/// asked.
void OcclusionIndex::castOneByOne(const XYZf& origin, const SkyDirections& directions,
                                  bool boxesAsked, SkyCellSet& open) const {
    const Vector3d from = widened(origin);
    for (int altitude = 0; altitude < skyGrid::altitudeCount; ++altitude) {
        for (int azimuth = 0; azimuth < skyGrid::azimuthCount; ++azimuth) {
            if (!open.contains(azimuth, altitude)) {
                continue;
            }
            const XYZf& direction = directions.direction(azimuth, altitude);
            if (boxesAsked ? hitsOneOf(storage().unbounded, from, widened(direction))
                           : isOccluded(origin, direction)) {
                open.erase(azimuth, altitude);
            }
        }
    }
}

bool FastRayTransparency::getSurfaceDoubleSided() {
    offerWholeSkies(*this);
    return m_doubleSided;
}

float FastRayTransparency::getTransparencyValue(const XYZf& origin, const XYZf& direction,
                                                const XYZf* /*normal*/) {
    return m_index->isOccluded(origin, direction) ? 0.0f : 1.0f;
}

int FastRayTransparency::initialise() {
    return 0;
}

SkyCellSet FastRayTransparency::visibleSky(const XYZf& origin, const SkyDirections& directions,
                                           const SkyCellSet& wanted) {
    return m_index->visibleSky(origin, directions, wanted);
}

void FastRayTransparency::visibleSkies(const XYZf& origin,
                                       std::span<const SkyDirections> directions,
                                       std::span<SkyCellSet> cells) {
    m_index->visibleSkies(origin, directions, cells);
}

} // namespace insolate
