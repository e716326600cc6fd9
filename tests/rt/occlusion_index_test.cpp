// The fast index against its definition: the exact test of every triangle for every ray.

#include <insolate/rt/occlusion_index.h>

#include <insolate/geometry/vector_math.h>
#include <insolate/platform/simd.h>
#include <insolate/rt/sky_direction_table.h>

#include <bench/scenes.h>

#include "scenes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <limits>
#include <vector>

namespace {

using namespace insolate;
using insolate::test::isBlocked;
using scenes::Point;
using scenes::Random;
using scenes::Scene;

const std::array<XYZf, skyGrid::cellCount>& centres() {
    static const auto directions = scenes::cellCentres();
    return directions;
}

template <class Visit>
void forEachCell(const Visit& visit) {
    for (int cell = 0; cell < skyGrid::cellCount; ++cell) {
        visit(cell % skyGrid::azimuthCount, cell / skyGrid::azimuthCount);
    }
}

class OcclusionIndexAtLevel : public testing::TestWithParam<SimdLevel> {
protected:
    void SetUp() override { setSimdLevel(GetParam()); }
    void TearDown() override { setSimdLevel(availableSimdLevels().back()); }
};

INSTANTIATE_TEST_SUITE_P(Levels, OcclusionIndexAtLevel, testing::ValuesIn(availableSimdLevels()),
                         [](const auto& level) { return simdLevelName(level.param); });

/// Rays of one mask, one by one and all at once, against every triangle; the number that differ.
int differingCells(const OcclusionIndex& index, const Scene& scene, const XYZf& origin,
                   const SkyDirections& directions, const SkyCellSet& wanted) {
    const SkyCellSet visible = index.visibleSky(origin, directions, wanted);
    int differing = 0;
    forEachCell([&](int azimuth, int altitude) {
        const XYZf& direction = directions.direction(azimuth, altitude);
        const bool asked =
            wanted.contains(azimuth, altitude) && directions.cells().contains(azimuth, altitude);
        const bool clear = asked && !isBlocked(scene.coordinates, origin, direction);
        differing += visible.contains(azimuth, altitude) != clear ? 1 : 0;
        differing += asked && index.isOccluded(origin, direction) == clear ? 1 : 0;
    });
    return differing;
}

/// Every hit of a ray by every triangle, by distance, then by place.
std::vector<RayHit> plainHits(const Scene& scene, const XYZf& origin, const XYZf& direction) {
    const double from[3] = {origin.x, origin.y, origin.z};
    const double along[3] = {direction.x, direction.y, direction.z};
    std::vector<RayHit> hits;
    for (std::size_t i = 0; i < scene.triangleCount(); ++i) {
        const RT::Triangle triangle = makeTriangle(scene.coordinates.data() + 9 * i);
        double distance = -1.0;
        if (hitsTriangle(from, along, triangle.p0.data(), triangle.edge1.data(),
                         triangle.edge2.data(), distance)) {
            hits.push_back({distance, static_cast<std::uint32_t>(i)});
        }
    }
    std::stable_sort(hits.begin(), hits.end(),
                     [](const RayHit& a, const RayHit& b) { return a.distance < b.distance; });
    return hits;
}

/// One ray's hits against every triangle; the number of answers that differ.
int differingHits(const OcclusionIndex& index, const Scene& scene, const XYZf& origin,
                  const XYZf& direction) {
    const std::vector<RayHit> expected = plainHits(scene, origin, direction);
    std::vector<RayHit> hits(3);
    index.allHits(origin, direction, hits);
    const RayHit nearest = expected.empty() ? RayHit() : expected.front();
    return (hits != expected ? 1 : 0) + (index.nearestHit(origin, direction) != nearest ? 1 : 0);
}

/// Several sets of directions at once against each of them alone; the number that differ.
int differingSets(const OcclusionIndex& index, const XYZf& origin,
                  const std::vector<SkyDirections>& directions,
                  const std::vector<SkyCellSet>& wanted) {
    std::vector<SkyCellSet> visible = wanted;
    index.visibleSkies(origin, directions, visible);
    int differing = 0;
    for (std::size_t i = 0; i < visible.size(); ++i) {
        differing += visible[i] != index.visibleSky(origin, directions[i], wanted[i]) ? 1 : 0;
    }
    return differing;
}

/// A set with about one cell in `share` left out.
SkyCellSet mostCells(Random& random, std::size_t share) {
    SkyCellSet set = SkyCellSet::all();
    forEachCell([&](int azimuth, int altitude) {
        if (random.below(share) == 0) {
            set.erase(azimuth, altitude);
        }
    });
    return set;
}

/// Directions anywhere in a share of their cells' height, under a north offset.
SkyDirections scatteredDirections(Random& random, const SkyCellSet& cells, double north,
                                  double low = 0, double high = 1) {
    std::array<XYZf, skyGrid::cellCount> directions{};
    forEachCell([&](int azimuth, int altitude) {
        const double up = (altitude + random(low, high)) * std::numbers::pi / 36;
        const double turn = north - (azimuth + random(0, 1)) * std::numbers::pi / 36;
        directions[static_cast<std::size_t>(skyGrid::cellIndex(azimuth, altitude))] = scenes::toXyz(
            {std::cos(up) * std::cos(turn), std::cos(up) * std::sin(turn), std::sin(up)});
    });
    return SkyDirections(directions, cells);
}

Point randomPoint(Random& random, double size) {
    return {random(-size, size), random(-size, size), random(-size, size)};
}

Point shifted(Point p, const Point& by) {
    for (std::size_t k = 0; k < 3; ++k) {
        p[k] += by[k];
    }
    return p;
}

/// A block of origins at most `size` from a place at once, against each of them alone; the number
/// of sets that differ.
int differingBlock(const OcclusionIndex& index, Random& random, const XYZf& place, double size,
                   const std::vector<SkyDirections>& directions) {
    std::vector<XYZf> origins(6 + random.below(14), place);
    for (XYZf& origin : origins) {
        if (random.below(5) > 0) {
            origin = scenes::toXyz(shifted({place.x, place.y, place.z}, randomPoint(random, size)));
        }
    }
    std::vector<SkyCellSet> together(origins.size() * directions.size());
    for (SkyCellSet& set : together) {
        set = random.below(2) == 0 ? SkyCellSet::all() : mostCells(random, 1 + random.below(5));
    }
    std::vector<SkyCellSet> alone = together;
    // A thread that has met another scene tries a common walk in any case.
    std::vector<SkyCellSet> none(together.size());
    OcclusionIndex().visibleSkies(origins, directions, none);
    index.visibleSkies(origins, directions, together);
    int differing = 0;
    for (std::size_t i = 0; i < origins.size(); ++i) {
        const auto own = std::span(alone).subspan(i * directions.size(), directions.size());
        index.visibleSkies(origins[i], directions, own);
        for (std::size_t k = 0; k < own.size(); ++k) {
            differing += own[k] != together[i * own.size() + k] ? 1 : 0;
        }
    }
    return differing;
}

struct MadeScene {
    const char* name;
    std::function<void(Scene&, Random&)> make;
};

/// A point on the ray of a random cell from an origin.
Point onARay(Random& random, const Point& from, double distance) {
    const XYZf& d = centres()[random.below(skyGrid::cellCount)];
    return shifted(from, {distance * d.x, distance * d.y, distance * d.z});
}

void addSoup(Scene& scene, Random& random, int count, double extent, double size, Point at = {}) {
    for (int i = 0; i < count; ++i) {
        const Point p = shifted(randomPoint(random, extent), at);
        scenes::addTriangle(scene, p, shifted(p, randomPoint(random, size)),
                            shifted(p, randomPoint(random, size)));
    }
}

void addSensors(Scene& scene, Random& random, int count, double extent, Point at = {}) {
    for (int i = 0; i < count; ++i) {
        scene.sensors.push_back(scenes::toXyz(shifted(randomPoint(random, extent), at)));
    }
}

struct Soup {
    int count;
    double extent, size;
};

/// Triangles at random about a place, and sensors among them.
auto soups(const std::vector<Soup>& parts, int sensors, double extent, const Point& at = {}) {
    return [=](Scene& scene, Random& random) {
        for (const Soup& part : parts) {
            addSoup(scene, random, part.count, part.extent, part.size, at);
        }
        addSensors(scene, random, sensors, extent, at);
    };
}

void addWalls(Scene& scene, Random& random) {
    for (int i = 0; i < 12; ++i) {
        const double at = static_cast<double>(random.below(5)) - 2;
        const double lower = static_cast<double>(random.below(3)) - 1;
        scenes::addQuad(scene, {at, -3, lower}, {at, 3, lower}, {at, 3, lower + 2},
                        {at, -3, lower + 2});
        scenes::addQuad(scene, {-3, at, lower}, {3, at, lower}, {3, at, lower + 2},
                        {-3, at, lower + 2});
        scenes::addQuad(scene, {at, -3, at}, {at + 1, -3, at}, {at + 1, 3, at}, {at, 3, at});
    }
    for (int i = 0; i < 12; ++i) {
        const auto whole = [&] { return static_cast<float>(random.below(5)) - 2; };
        scene.sensors.push_back({whole(), whole(), whole()});
    }
}

/// Made to be hard but for the first; each adds triangles and sensors.
const MadeScene madeScenes[] = {
    {"a city", [](Scene& scene, Random&) { scene = scenes::city(3000, 6); }},
    {"soup of all sizes", soups({{60, 10, 0.2}, {20, 10, 8}}, 12, 12)},
    {"triangles of 1e-4", soups({{80, 0.05, 1e-4}, {20, 0.05, 1e-2}}, 6, 0.05)},
    {"triangles of 1e6 beside small ones", soups({{20, 3e6, 1e6}, {40, 30, 5}}, 6, 30)},
    {"5e6 from the origin", soups({{60, 20, 4}, {3, 5, 80}}, 8, 20, {5e6, -5e6, 200})},
    {"rays through vertices and edges",
     [](Scene& scene, Random& random) {
         // Triangles whose corners lie on the rays of the sensor, as closely as doubles can, or
         // just beside them.
         const Point sensor = {1.25, -0.5, 2};
         for (int i = 0; i < 60; ++i) {
             const auto corner = [&] {
                 return shifted(onARay(random, sensor, random(0.5, 30)),
                                randomPoint(random, i % 2 == 0 ? 0.0 : 1e-3));
             };
             scenes::addTriangle(scene, corner(), corner(), corner());
         }
         scene.sensors.push_back(scenes::toXyz(sensor));
     }},
    {"triangles of a thousandth of a cell around rays",
     [](Scene& scene, Random& random) {
         for (int i = 0; i < 60; ++i) {
             const XYZf d = centres()[random.below(skyGrid::cellCount)];
             const double flat = std::hypot(d.x, d.y);
             const auto corner = [&](double across, double up) {
                 return shifted({10.0 * d.x, 10.0 * d.y, 10.0 * d.z},
                                {-across * d.y / flat - up * d.z * d.x / flat,
                                 across * d.x / flat - up * d.z * d.y / flat, up * flat});
             };
             const double size = 2e-4 * flat;
             scenes::addTriangle(scene, corner(-size, -size), corner(size, -size), corner(0, size));
         }
         scene.sensors.push_back({0, 0, 0});
     }},
    {"fans around one vertex above the sensor",
     [](Scene& scene, Random& random) {
         for (int i = 0; i < 4; ++i) {
             const Point hub = onARay(random, {0, 0, 0}, 8);
             std::array<Point, 7> rim;
             std::generate(rim.begin(), rim.end(), [&] { return randomPoint(random, 12); });
             for (std::size_t k = 0; k < rim.size(); ++k) {
                 scenes::addTriangle(scene, hub, rim[k], rim[(k + 1) % rim.size()]);
             }
         }
         scene.sensors.push_back({0, 0, 0});
     }},
    {"hits at 0.01 and either side of it",
     [](Scene& scene, Random& random) {
         for (int i = 0; i < 40; ++i) {
             const double ulps = static_cast<double>(random.below(7)) - 3;
             const double z = 0.01 * (1 + ulps * 0x1p-52);
             const double x = random(-0.3, 0.3);
             const double y = random(-0.3, 0.3);
             scenes::addTriangle(scene, {x, y, z}, {x + 0.02, y, z}, {x, y + 0.02, z});
         }
         // The tilted ones cross that distance within the triangle.
         scenes::addTriangle(scene, {-1, -1, 0.002}, {1, -1, 0.005}, {0, 1, 0.02});
         scenes::addTriangle(scene, {0.01, -1, -1}, {0.01, 1, -1}, {0.01, 0, 1});
         scene.sensors.push_back({0, 0, 0});
         scene.sensors.push_back({0, 0, 0.001f});
     }},
    {"slivers, needles and degenerate triangles",
     [](Scene& scene, Random& random) {
         for (int i = 0; i < 40; ++i) {
             const Point a = randomPoint(random, 6);
             const Point b = randomPoint(random, 6);
             const double width = std::pow(10.0, random(-15, -2));
             const double along = random(0, 1);
             Point c = randomPoint(random, width);
             for (std::size_t k = 0; k < 3; ++k) {
                 c[k] += a[k] + along * (b[k] - a[k]);
             }
             scenes::addTriangle(scene, a, b, c);
             scenes::addTriangle(scene, a, a, b);
             scenes::addTriangle(scene, b, a, a);
         }
         scenes::addTriangle(scene, {1, 1, 1}, {1, 1, 1}, {1, 1, 1});
         addSensors(scene, random, 8, 5);
     }},
    {"coplanar stacks and one triangle many times",
     [](Scene& scene, Random& random) {
         for (int i = 0; i < 40; ++i) {
             scenes::addQuad(scene, {-4, -4, 3}, {4, -4, 3}, {4, 4, 3}, {-4, 4, 3});
             const double z = 3 + i * 1e-12;
             scenes::addTriangle(scene, {-9, -9, z}, {9, -9, z}, {0, 9, z});
         }
         addSoup(scene, random, 20, 3, 2);
         scene.sensors.push_back({0, 0, 0});
         scene.sensors.push_back({0, 0, 3});
         scene.sensors.push_back({1, 1, 2.995f});
     }},
    {"sensors on triangles",
     [](Scene& scene, Random& random) {
         addSoup(scene, random, 40, 4, 3);
         for (std::size_t i = 0; i < 8; ++i) {
             const double* v = scene.coordinates.data() + 9 * i;
             scene.sensors.push_back(scenes::toXyz(
                 {(v[0] + v[3] + v[6]) / 3, (v[1] + v[4] + v[7]) / 3, (v[2] + v[5] + v[8]) / 3}));
             scene.sensors.push_back(scenes::toXyz({v[0], v[1], v[2]}));
         }
     }},
    {"walls along the axes with sensors in their planes", addWalls},
    {"long walls that begin beside the ray of a cell",
     [](Scene& scene, Random& random) {
         for (int i = 0; i < 6; ++i) {
             const Point sensor = {0, 4096.0 * i, 0};
             const Point p = onARay(random, sensor, 1);
             const double x = i % 2 == 0 ? (i < 3 ? 1 : -1) : 0; // along an axis, as its box is
             const double y = i % 2 == 0 ? 0 : (i < 3 ? 1 : -1);
             scenes::addTriangle(scene, {p[0] - 1e-6 * x, p[1] - 1e-6 * y, p[2] - 500},
                                 {p[0] - 1e-6 * x, p[1] - 1e-6 * y, p[2] + 500},
                                 {p[0] + 1000 * x, p[1] + 1000 * y, p[2]});
             scene.sensors.push_back(scenes::toXyz(sensor));
         }
     }},
    {"coordinates that no box can hold",
     [](Scene& scene, Random& random) {
         addSoup(scene, random, 20, 10, 4);
         const double infinite = std::numeric_limits<double>::infinity();
         const double none = std::numeric_limits<double>::quiet_NaN();
         scenes::addTriangle(scene, {-1e12, -1e12, 5}, {2e12, 0, 5}, {0, 1e12, 9});
         scenes::addTriangle(scene, {none, 0, 1}, {1, 0, 1}, {0, 1, 1});
         scenes::addTriangle(scene, {0, 0, 1}, {infinite, 0, 1}, {0, infinite, 1});
         addSensors(scene, random, 3, 10);
         scene.sensors.push_back({3e12f, 0, 0});
         scene.sensors.push_back({std::numeric_limits<float>::infinity(), 0, 0});
         scene.sensors.push_back({std::numeric_limits<float>::quiet_NaN(), 0, 0});
     }},
};

TEST_P(OcclusionIndexAtLevel, AnswersLikeEveryTriangleInMadeScenes) {
    const SkyDirections centreDirections(centres());
    for (const MadeScene& made : madeScenes) {
        Random random(11);
        for (int round = 0; round < 3; ++round) {
            Scene scene;
            made.make(scene, random);
            const OcclusionIndex index(scene.coordinates);
            EXPECT_EQ(index.triangleCount(), scene.triangleCount());
            int differing = 0;
            for (const XYZf& sensor : scene.sensors) {
                const SkyCellSet wanted =
                    round == 0 ? SkyCellSet::all() : mostCells(random, 1 + random.below(5));
                differing += differingCells(index, scene, sensor, centreDirections, wanted);
                const SkyDirections scattered = scatteredDirections(
                    random, mostCells(random, 2 + random.below(9)), random(-7, 7));
                differing += differingCells(index, scene, sensor, scattered, wanted);
                std::vector<SkyDirections> sets{centreDirections, scattered};
                std::vector<SkyCellSet> cells{wanted, SkyCellSet::all()};
                differing += differingSets(index, sensor, sets, cells);
                std::vector<std::uint8_t> occluded(skyGrid::cellCount);
                index.areOccluded(sensor, centres(), occluded);
                for (int cell = 0; cell < skyGrid::cellCount; cell += 5 + round) {
                    const auto place = static_cast<std::size_t>(cell);
                    differing +=
                        index.isOccluded(sensor, centres()[place]) != (occluded[place] != 0) ? 1
                                                                                             : 0;
                    const int azimuth = cell % skyGrid::azimuthCount;
                    const int altitude = cell / skyGrid::azimuthCount;
                    const SkyDirections& some = cell % 2 == 0 ? centreDirections : scattered;
                    const XYZf direction = some.direction(azimuth, altitude);
                    differing += differingHits(index, scene, sensor,
                                               cell % 3 == 0 ? scaled(direction, -1) : direction);
                }
                // Halves that fit to each other make one finer mask, others do not.
                const double north = random(-7, 7);
                for (std::size_t more = random.below(8); more > 0; --more) {
                    const double half = 0.5 * static_cast<double>(random.below(2));
                    sets.push_back(scatteredDirections(random, mostCells(random, 1 + more),
                                                       north + random(-0.03, 0.03), half,
                                                       half + 0.5));
                    cells.push_back(mostCells(random, 1 + random.below(3)));
                }
                differing += differingSets(index, sensor, sets, cells);
                constexpr std::array sizes{1e-5, 0.02, 0.4};
                differing += differingBlock(index, random, sensor, sizes[random.below(3)], sets);
            }
            EXPECT_EQ(differing, 0) << made.name << ", round " << round;
        }
    }
}

TEST_P(OcclusionIndexAtLevel, AnswersLikeEveryTriangleForAnyDirection) {
    // Components of zero, denormal and very large ones, and lengths far from 1.
    const float components[] = {0.0f,   -0.0f,   1.0f,  -1.0f,  0.5f,   -3e-8f,
                                1e-20f, -1e-42f, 1e20f, -1e30f, 1e-16f, 0.25f};
    Random random(12);
    Scene scene;
    addSoup(scene, random, 60, 6, 3);
    addWalls(scene, random);
    const OcclusionIndex index(scene.coordinates);
    int differing = 0;
    int blocked = 0;
    const std::size_t choices = std::size(components);
    for (int i = 0; i < 6000; ++i) {
        const XYZf origin = i % 2 == 0 ? scene.sensors[random.below(scene.sensors.size())]
                                       : scenes::toXyz(randomPoint(random, 8));
        const XYZf direction = {components[random.below(choices)],
                                components[random.below(choices)],
                                components[random.below(choices)]};
        const bool expected = isBlocked(scene.coordinates, origin, direction);
        blocked += expected ? 1 : 0;
        differing += index.isOccluded(origin, direction) != expected ? 1 : 0;
        differing += differingHits(index, scene, origin, direction);
    }
    EXPECT_GT(blocked, 500);
    // The same for a whole sky, whose wide loops take lengths near 1 alone.
    const SkyDirections scattered = scatteredDirections(random, SkyCellSet::all(), 0);
    for (const auto& lengths :
         {std::array{1.0f, 2.1f}, std::array{0.4f, 1.0f}, std::array{1e-7f, 1e7f}}) {
        std::array<XYZf, skyGrid::cellCount> stretched{};
        forEachCell([&](int azimuth, int altitude) {
            stretched[static_cast<std::size_t>(skyGrid::cellIndex(azimuth, altitude))] =
                scaled(scattered.direction(azimuth, altitude), lengths[random.below(2)]);
        });
        const SkyDirections directions(stretched);
        EXPECT_FALSE(directions.table().regular);
        for (const XYZf& sensor : scene.sensors) {
            differing += differingCells(index, scene, sensor, directions, SkyCellSet::all());
        }
    }
    EXPECT_EQ(differing, 0);
}

TEST(OcclusionIndex, IsTheSameWhateverTheThreadsAndSurvivesAMove) {
    const Scene scene = scenes::city(60000, 200);
    const OcclusionIndex serial(scene.coordinates, {.parallel = false});
    OcclusionIndex source(scene.coordinates);
    const OcclusionIndex parallel = std::move(source);
    EXPECT_FALSE(
        source.isOccluded(scene.sensors[0], {0, 0, -1})); // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(source.triangleCount(), 0U);
    EXPECT_EQ(serial.memoryBytes(), parallel.memoryBytes());
    constexpr std::size_t largePage = std::size_t{2} << 20; // of which the index takes whole ones
    EXPECT_LE(serial.memoryBytes(), 132 * scene.triangleCount() + largePage);
    std::stop_source stop;
    stop.request_stop();
    EXPECT_EQ(OcclusionIndex(scene.coordinates, {.stop = stop.get_token()}).triangleCount(), 0U);
    const SkyDirections directions(centres());
    for (const XYZf& sensor : scene.sensors) {
        EXPECT_EQ(serial.visibleSky(sensor, directions), parallel.visibleSky(sensor, directions));
    }
}

TEST(OcclusionIndex, WithoutTrianglesBlocksNothing) {
    const SkyDirections directions(centres());
    EXPECT_EQ(OcclusionIndex().visibleSky({0, 0, 0}, directions).count(), skyGrid::cellCount);
    EXPECT_FALSE(OcclusionIndex(std::span<const double>()).isOccluded({0, 0, 0}, {0, 0, 1}));
    EXPECT_EQ(OcclusionIndex().visibleSky({0, 0, 0}, SkyDirections()).count(), 0);
}

} // namespace
