#include <insolate/rt/occlusion_index.h>

#include <insolate/rt/input_package.h>
#include <insolate/rt/occlusion_build.h>
#include <insolate/rt/occlusion_query.h>
#include <insolate/rt/ray_caster_abilities.h>
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

/// Calls add(distance, number) for each hit of some triangles.
template <class Add>
void addHits(std::span<const double> triangles, std::span<const std::uint32_t> numbers,
             const Vector3d& origin, const Vector3d& direction, const Add& add) {
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        const double* triangle = triangles.data() + doublesPerTriangle * i;
        double distance = 0.0;
        if (hitsTriangle(origin.data(), direction.data(), triangle, triangle + 3, triangle + 6,
                         distance)) {
            add(distance, numbers[i]);
        }
    }
}

/// Whether the boxes can judge rays from this origin; false for NaN.
bool withinReach(const Vector3d& origin) {
    return isFinite(origin) && largestMagnitude(origin) <= largestCoordinate;
}

/// Whether the boxes can judge rays in this direction.
bool isRegular(const Vector3d& direction) {
    const double length = largestMagnitude(direction);
    return isFinite(direction) && length >= 1e-15 && length <= 1e15;
}

/// Whether a common walk for a block of origins is worth a try. A walk that is given up costs as
/// much as one by one takes a few origins, and neighbours of such a block fare alike: a thread
/// tries again after 8 blocks, and after twice as many each time that it fails.
class BlockHabit {
public:
    static BlockHabit& ofThread() {
        static thread_local BlockHabit habit;
        return habit;
    }

    bool tries(const void* scene) {
        if (m_scene != scene) {
            *this = BlockHabit();
            m_scene = scene;
        }
        if (m_left > 0) {
            --m_left;
            return false;
        }
        return true;
    }
    void gaveUp() {
        m_left = m_pause;
        m_pause = std::min(2 * m_pause, longestPause);
    }
    void succeeded() { m_pause = shortestPause; }

private:
    /// [blocks] A failed try costs as much as about three of sixteen origins take one by one: 2 %
    /// of the time at this pause, and 0.3 % at the longest. After some hundred blocks, some metres
    /// of a study, what lies before the sensors has changed.
    static constexpr int shortestPause = 8;
    static constexpr int longestPause = 64;
    const void* m_scene = nullptr;
    int m_left = 0;
    int m_pause = shortestPause;
};

/// Fewer origins leave too many lanes of the common walk empty. For sixteen it takes a quarter (0.1
/// m apart) to two thirds (0.5 m) of the time of walks one by one, so that it breaks even at four
/// to ten (./dev bench rays neighbours).
constexpr std::size_t fewestOriginsOfBlock = 6;

} // namespace

OcclusionIndex::OcclusionIndex() = default;

OcclusionIndex::OcclusionIndex(std::span<const double> coordinates,
                               const OcclusionIndexOptions& options)
    : m_storage(buildOcclusionStorage({reinterpret_cast<const std::byte*>(coordinates.data()),
                                       9 * sizeof(double), coordinates.size() / 9},
                                      options)) {}

OcclusionIndex OcclusionIndex::fromInputPackage(const OcclusionIndexOptions& options) {
    const std::vector<RT::Triangle>& triangles = RT::InputPackage::instance().triangles;
    OcclusionIndex index;
    if (!triangles.empty()) {
        index.m_storage =
            buildOcclusionStorage({reinterpret_cast<const std::byte*>(triangles.front().p0.data()),
                                   sizeof(RT::Triangle), triangles.size()},
                                  options);
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
           storage().unbounded.capacity() * sizeof(double) +
           storage().unboundedNumbers.capacity() * sizeof(std::uint32_t);
}

bool OcclusionIndex::isOccluded(const XYZf& origin, const XYZf& direction) const {
    const Vector3d from = widened(origin);
    const Vector3d along = widened(direction);
    if (!withinReach(from) || !isRegular(along)) {
        // Every triangle, without the help of any box.
        return hitsOneOf(storage().exact, from, along) ||
               hitsOneOf(storage().unbounded, from, along);
    }
    return occludedInHierarchy(storage(), from, direction) ||
           hitsOneOf(storage().unbounded, from, along);
}

void OcclusionIndex::areOccluded(const XYZf& origin, std::span<const XYZf> directions,
                                 std::span<std::uint8_t> occluded) const {
    constexpr std::size_t together = 32;
    const std::size_t count = std::min(directions.size(), occluded.size());
    const Vector3d from = widened(origin);
    for (std::size_t first = 0; first < count; first += together) {
        const std::span<const XYZf> some =
            directions.subspan(first, std::min(together, count - first));
        const bool regular = withinReach(from) && storage().unbounded.empty() &&
                             std::all_of(some.begin(), some.end(), [](const XYZf& direction) {
                                 // Lengths of one order share their bounds of error.
                                 const Vector3d along = widened(direction);
                                 return isFinite(along) && largestMagnitude(along) > 0.1 &&
                                        largestMagnitude(along) < 10.0;
                             });
        const std::uint32_t blocked = regular ? occludedInHierarchy(storage(), from, some) : 0;
        for (std::size_t i = 0; i < some.size(); ++i) {
            occluded[first + i] = regular ? static_cast<std::uint8_t>(blocked >> i & 1U)
                                          : static_cast<std::uint8_t>(isOccluded(origin, some[i]));
        }
    }
}

RayHit OcclusionIndex::nearestHit(const XYZf& origin, const XYZf& direction) const {
    RayHit hit;
    nearestHits(origin, {&direction, 1}, {&hit, 1});
    return hit;
}

void OcclusionIndex::nearestHits(const XYZf& origin, std::span<const XYZf> directions,
                                 std::span<RayHit> hits) const {
    const std::size_t count = std::min(directions.size(), hits.size());
    const Vector3d from = widened(origin);
    const Storage& all = storage();
    const bool near = withinReach(from);
    const auto addAll = [&](std::size_t i, std::span<const double> triangles,
                            std::span<const std::uint32_t> numbers) {
        addHits(triangles, numbers, from, widened(directions[i]),
                [&](double distance, std::uint32_t number) {
                    if (distance < hits[i].distance ||
                        (distance == hits[i].distance && number < hits[i].triangle)) {
                        hits[i] = {distance, number};
                    }
                });
    };
    bool together = near;
    for (std::size_t i = 0; i < count; ++i) {
        hits[i] = {};
        together = together && isRegular(widened(directions[i]));
    }
    if (together) {
        nearestInHierarchy(all, from, directions.first(count), hits.first(count));
    }
    for (std::size_t i = 0; i < count; ++i) {
        if (!together) {
            if (near && isRegular(widened(directions[i]))) {
                nearestInHierarchy(all, from, directions.subspan(i, 1), hits.subspan(i, 1));
            } else {
                addAll(i, all.exact, all.numbers);
            }
        }
        addAll(i, all.unbounded, all.unboundedNumbers);
    }
}

void OcclusionIndex::allHits(const XYZf& origin, const XYZf& direction,
                             std::vector<RayHit>& hits) const {
    hits.clear();
    const Vector3d from = widened(origin);
    const Vector3d along = widened(direction);
    const Storage& all = storage();
    const auto add = [&](double distance, std::uint32_t number) {
        hits.push_back({distance, number});
    };
    if (withinReach(from) && isRegular(along)) {
        allHitsInHierarchy(all, from, direction, hits);
    } else {
        addHits(all.exact, all.numbers, from, along, add);
    }
    addHits(all.unbounded, all.unboundedNumbers, from, along, add);
    std::sort(hits.begin(), hits.end(), [](const RayHit& a, const RayHit& b) {
        return a.distance != b.distance ? a.distance < b.distance : a.triangle < b.triangle;
    });
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

void OcclusionIndex::visibleSkies(std::span<const XYZf> origins,
                                  std::span<const SkyDirections> directions,
                                  std::span<SkyCellSet> cells) const {
    const std::size_t sets = directions.size();
    const std::size_t count = sets == 0 ? 0 : std::min(origins.size(), cells.size() / sets);
    const bool regular = std::all_of(directions.begin(), directions.end(),
                                     [](const SkyDirections& one) { return one.table().regular; });
    for (std::size_t first = 0; first < count; first += mostOriginsOfBlock) {
        const std::size_t some = std::min(mostOriginsOfBlock, count - first);
        const std::span<const XYZf> from = origins.subspan(first, some);
        const std::span<SkyCellSet> own = cells.subspan(first * sets, some * sets);
        if (regular && closeInOneWalk(from, directions, own)) {
            continue;
        }
        for (std::size_t i = 0; i < some; ++i) {
            visibleSkies(from[i], directions, own.subspan(i * sets, sets));
        }
    }
}

/// Takes out the cells that something blocks, for all origins together where that is likely to pay.
/// False where it did not come to the end.
bool OcclusionIndex::closeInOneWalk(std::span<const XYZf> origins,
                                    std::span<const SkyDirections> directions,
                                    std::span<SkyCellSet> cells) const {
    BlockHabit& habit = BlockHabit::ofThread();
    std::array<Vector3d, mostOriginsOfBlock> from;
    std::transform(origins.begin(), origins.end(), from.begin(), widened);
    const std::span<const Vector3d> some(from.data(), origins.size());
    if (origins.size() < fewestOriginsOfBlock ||
        !std::all_of(some.begin(), some.end(), withinReach) || !habit.tries(&storage())) {
        return false;
    }
    const std::size_t sets = directions.size();
    for (std::size_t i = 0; i < cells.size(); ++i) {
        cells[i] &= directions[i % sets].table().cells;
    }
    for (std::size_t k = 0; k < sets; ++k) {
        std::array<const SkyDirectionTable*, 2> tables{&directions[k].table(), nullptr};
        std::optional<SkyReach> both;
        if (k + 1 < sets) {
            tables[1] = &directions[k + 1].table();
            both = tables[0]->reach.halves(tables[1]->reach);
        }
        if (!closeBlockedCellsOfBlock(storage(), some, {tables.data(), both ? 2U : 1U},
                                      both ? *both : tables[0]->reach, cells.data() + k, sets)) {
            habit.gaveUp();
            return false;
        }
        k += both ? 1 : 0;
    }
    habit.succeeded();
    if (!storage().unbounded.empty()) {
        for (std::size_t i = 0; i < origins.size(); ++i) {
            for (std::size_t k = 0; k < sets; ++k) {
                castOneByOne(origins[i], directions[k], true, cells[i * sets + k]);
            }
        }
    }
    return true;
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
    offerIndex(*this, *m_index);
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

void FastRayTransparency::visibleSkies(std::span<const XYZf> origins,
                                       std::span<const SkyDirections> directions,
                                       std::span<SkyCellSet> cells) {
    m_index->visibleSkies(origins, directions, cells);
}

} // namespace insolate
