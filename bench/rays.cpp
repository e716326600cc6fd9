/// Shading masks side by side with another ray caster: medians of Google Benchmark's repetitions,
/// the contenders taking turns at random.
///
///     bench_rays masks [scene]     time per mask against each mode of Embree
///     bench_rays neighbours [scene]   the same for sensors that follow each other in a study,
///                                  one by one and in blocks
///     bench_rays whole [scene]     EShadingMask::calculate with a normal, over its rays alone
///     bench_rays threads [scene]   two threads over one
///     bench_rays build             time and memory of the index
///     bench_rays growth            time per mask from 1,000 to 4 million triangles
///     bench_rays compare [sensors [scene]]   every cell against the plain octree walk
///
/// --benchmark_repetitions=N and the like may stand anywhere.
#include <bench/embree_masks.h>
#include <bench/race.h>
#include <bench/scenes.h>

#include <insolate/platform/simd.h>
#include <insolate/rt/input_package_util.h>
#include <insolate/rt/occlusion_index.h>
#include <insolate/rt/ray_queries.h>
#include <insolate/rt/spatial_tree_util.h>
#include <insolate/shading/shading_mask.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace {

using namespace insolate;
using namespace insolate::bench;
using scenes::Scene;

constexpr int rounds = 15;
constexpr std::size_t sensorsPerRound = 400;

std::filesystem::path dataFolder() {
    const char* folder = std::getenv("INSOLATE_TEST_DATA");
    return folder != nullptr ? folder : "";
}

/// The scenes whose names contain `only`; all of them for an empty one.
std::vector<Scene> benchScenes(std::size_t sensors, const std::string& only,
                               bool forOctree = false) {
    std::vector<std::pair<std::string, std::function<Scene()>>> makers = {
        {"Lyon", [&] { return scenes::lyon(dataFolder(), sensors); }},
        {"city of 10000", [&] { return scenes::city(10'000, sensors); }},
        {"city of 100000", [&] { return scenes::city(100'000, sensors); }},
        {"city of 1000000", [&] { return scenes::city(1'000'000, sensors); }},
        {"uneven scene", [&] { return scenes::uneven(70'000, sensors); }},
        {"scanned object", [&] { return scenes::scannedObject(70'000, sensors); }},
    };
    if (forOctree) {
        // Half a second a mask for the octree, whose smallest leaf holds the whole object.
        makers.push_back({"coarse uneven scene", [&] { return scenes::uneven(4'000, sensors); }});
    }
    std::vector<Scene> chosen;
    for (const auto& [name, make] : makers) {
        if (name.find(only) != std::string::npos) {
            chosen.push_back(make());
            if (chosen.back().sensors.empty()) {
                std::printf("%s is left out: set INSOLATE_TEST_DATA\n", name.c_str());
                chosen.pop_back();
            }
        }
    }
    return chosen;
}

const std::array<XYZf, skyGrid::cellCount>& centres() {
    static const auto directions = scenes::cellCentres();
    return directions;
}

double microsecondsPerMask(const Timing& timing, const Scene& scene) {
    return timing.median * 1e6 / static_cast<double>(scene.sensors.size());
}

/// All masks of a scene, rays alone; the number of visible cells.
long castMasks(const OcclusionIndex& index, const Scene& scene, const SkyDirections& directions) {
    long visible = 0;
    for (const XYZf& sensor : scene.sensors) {
        visible += index.visibleSky(sensor, directions).count();
    }
    return visible;
}

void masks(const std::string& only) {
    const SkyDirections directions(centres());
    // Embree takes the instruction set that this library has been told to take.
    const bool narrow = simdLevel() != SimdLevel::avx512;
    const std::string isa = narrow ? "threads=1,isa=avx2" : "threads=1";
    std::printf("%s, microseconds per mask (1,296 rays), one thread\n"
                "%-16s %9s %8s %8s %8s %7s  Embree's best mode\n",
                simdLevelName(simdLevel()), "scene", "triangles", "visible", "here", "Embree",
                "ratio");
    for (const Scene& scene : benchScenes(sensorsPerRound, only)) {
        const OcclusionIndex index(scene.coordinates);
        EmbreeMasks embree(scene.coordinates, centres(), isa);
        long visible = 0;
        std::vector<Contender> contenders;
        contenders.push_back(
            {"this library", [&] { visible = castMasks(index, scene, directions); }});
        std::vector<long> blocked(EmbreeMasks::modes().size());
        for (std::size_t m = 0; m < blocked.size(); ++m) {
            const EmbreeMasks::Mode& mode = EmbreeMasks::modes()[m];
            contenders.push_back({mode.name, [&, m] {
                                      blocked[m] = 0;
                                      for (const XYZf& sensor : scene.sensors) {
                                          blocked[m] += embree.blockedCells(sensor, mode);
                                      }
                                  }});
        }
        const std::vector<Timing> timings = race(contenders);
        const auto best =
            std::min_element(timings.begin() + 1, timings.end(),
                             [](const Timing& a, const Timing& b) { return a.median < b.median; });
        const double own = microsecondsPerMask(timings.front(), scene);
        const double other = microsecondsPerMask(*best, scene);
        const auto cells = static_cast<long>(scene.sensors.size()) * skyGrid::cellCount;
        std::printf("%-16s %9zu %6.1f %% %8.1f %8.1f %7.2f  %s\n", scene.name.c_str(),
                    scene.triangleCount(),
                    100 * static_cast<double>(visible) / static_cast<double>(cells), own, other,
                    other / own,
                    contenders[static_cast<std::size_t>(best - timings.begin())].name.c_str());
        for (std::size_t m = 0; !only.empty() && m < contenders.size(); ++m) {
            std::printf("    %-34s %7.1f  cv %4.1f %%", contenders[m].name.c_str(),
                        microsecondsPerMask(timings[m], scene), 100 * timings[m].spread);
            if (m > 0) {
                std::printf("  (%ld cells visible more than here)",
                            cells - blocked[m - 1] - visible);
            }
            std::printf("\n");
        }
        std::fflush(stdout);
    }
}

/// All masks of a scene, 16 sensors that follow each other together.
long castBlocks(const OcclusionIndex& index, const Scene& scene, const SkyDirections& directions) {
    constexpr std::size_t together = 16;
    std::array<SkyCellSet, together> cells;
    long visible = 0;
    for (std::size_t first = 0; first < scene.sensors.size(); first += together) {
        const std::size_t count = std::min(together, scene.sensors.size() - first);
        std::fill_n(cells.begin(), count, SkyCellSet::all());
        index.visibleSkies({scene.sensors.data() + first, count}, {&directions, 1},
                           {cells.data(), count});
        for (std::size_t i = 0; i < count; ++i) {
            visible += cells[i].count();
        }
    }
    return visible;
}

void neighbours(const std::string& only) {
    const SkyDirections directions(centres());
    const bool narrow = simdLevel() != SimdLevel::avx512;
    const std::string isa = narrow ? "threads=1,isa=avx2" : "threads=1";
    std::printf("%s, microseconds per mask (1,296 rays) of sensors in the order of a study\n"
                "%-16s %8s %10s %8s %8s %7s %7s  Embree's best mode\n",
                simdLevelName(simdLevel()), "scene", "spacing", "one by one", "blocks", "Embree",
                "ratio", "ratio");
    for (Scene& scene : benchScenes(1, only)) {
        const OcclusionIndex index(scene.coordinates);
        EmbreeMasks embree(scene.coordinates, centres(), isa);
        for (const double spacing : {2.0, 0.5, 0.1}) {
            scenes::takeStudySensors(scene, spacing, 4, 128);
            long visible = 0;
            long inBlocks = 0;
            std::vector<Contender> contenders;
            contenders.push_back(
                {"one by one", [&] { visible = castMasks(index, scene, directions); }});
            contenders.push_back(
                {"blocks", [&] { inBlocks = castBlocks(index, scene, directions); }});
            for (const EmbreeMasks::Mode& mode : EmbreeMasks::modes()) {
                contenders.push_back({mode.name, [&] {
                                          for (const XYZf& sensor : scene.sensors) {
                                              embree.blockedCells(sensor, mode);
                                          }
                                      }});
            }
            const std::vector<Timing> timings = race(contenders);
            const auto best = std::min_element(
                timings.begin() + 2, timings.end(),
                [](const Timing& a, const Timing& b) { return a.median < b.median; });
            const double other = microsecondsPerMask(*best, scene);
            std::printf("%-16s %8.2f %10.1f %8.1f %8.1f %7.2f %7.2f  %s%s\n", scene.name.c_str(),
                        spacing, microsecondsPerMask(timings[0], scene),
                        microsecondsPerMask(timings[1], scene), other,
                        timings[0].median > 0 ? best->median / timings[0].median : 0.0,
                        best->median / timings[1].median,
                        contenders[static_cast<std::size_t>(best - timings.begin())].name.c_str(),
                        visible == inBlocks ? "" : "  THE ANSWERS DIFFER");
            std::fflush(stdout);
        }
    }
}

void build() {
    const Scene scene = scenes::city(1'000'000, 1);
    const auto count = static_cast<double>(scene.triangleCount());
    std::array<double, 3> bytes{};
    const auto built = [&](std::size_t which, bool parallel) {
        return [&, which, parallel] {
            const OcclusionIndex index(scene.coordinates, {.parallel = parallel});
            bytes[which] = static_cast<double>(index.memoryBytes());
        };
    };
    const std::vector<Contender> contenders = {
        {"index, one thread", built(0, false)},
        {"index, all threads", built(1, true)},
        {"Embree with its copy of the vertices, one thread", [&] {
             const EmbreeMasks embree(scene.coordinates, centres(), "threads=1");
             bytes[2] = embree.buildBytes();
         }}};
    const std::vector<Timing> timings = race(contenders);
    for (std::size_t k = 0; k < contenders.size(); ++k) {
        std::printf("%-50s %.3f s for %.0f triangles, %.0f bytes each\n",
                    contenders[k].name.c_str(), timings[k].median, count, bytes[k] / count);
    }
}

void growth() {
    const SkyDirections directions(centres());
    for (std::size_t triangles = 1000; triangles <= 4'096'000; triangles *= 4) {
        const Scene scene = scenes::city(triangles, 1000);
        const OcclusionIndex index(scene.coordinates);
        const Timing timing =
            race({{"masks", [&] { castMasks(index, scene, directions); }}}).front();
        const double perMask = microsecondsPerMask(timing, scene);
        const double levels = std::log2(static_cast<double>(scene.triangleCount()));
        std::printf("%8zu triangles: %6.1f us per mask, %.2f per doubling of the scene\n",
                    scene.triangleCount(), perMask, perMask / levels);
        std::fflush(stdout);
    }
}

/// Work for each sensor, on two threads that take a few sensors at a time.
template <class Work>
void onTwoThreads(const Scene& scene, const Work& work) {
    constexpr std::size_t block = 16;
    std::atomic<std::size_t> next = 0;
    const auto takeBlocks = [&] {
        for (std::size_t from = next.fetch_add(block); from < scene.sensors.size();
             from = next.fetch_add(block)) {
            for (std::size_t i = from; i < std::min(from + block, scene.sensors.size()); ++i) {
                work(scene.sensors[i]);
            }
        }
    };
    std::thread other(takeBlocks);
    takeBlocks();
    other.join();
}

void threads(const std::string& only) {
    const SkyDirections directions(centres());
    for (const Scene& scene : benchScenes(4000, only)) {
        const OcclusionIndex index(scene.coordinates);
        const auto timings = race({{"one", [&] { castMasks(index, scene, directions); }},
                                   {"two", [&] {
                                        onTwoThreads(scene, [&](const XYZf& sensor) {
                                            index.visibleSky(sensor, directions);
                                        });
                                    }}});
        std::printf("%-16s two threads over one: %.2f x\n", scene.name.c_str(),
                    timings[0].median / timings[1].median);
        std::fflush(stdout);
    }
}

/// Whole masks with a normal, over the rays alone.
void wholeMasks(const std::string& only) {
    std::printf("microseconds per mask, over the rays alone\n%-16s %8s %18s %18s %18s\n", "scene",
                "rays", "upright normals", "turning normals", "without normals");
    for (const Scene& scene : benchScenes(sensorsPerRound, only)) {
        const OcclusionIndex index(scene.coordinates);
        FastRayTransparency rays(index);
        const SkyDirections directions(centres());
        // Normals that turn by no more than rounding see the same cells, but share nothing.
        const auto whole = [&](float turn, bool withNormal) {
            return [&, turn, withNormal] {
                EShadingMask mask;
                XYZf normal = {0, 0, 1};
                for (const XYZf& sensor : scene.sensors) {
                    normal.x = turn - normal.x;
                    mask.calculate(&rays, sensor, withNormal ? &normal : nullptr);
                }
            };
        };
        const auto timings = race({{"rays", [&] { castMasks(index, scene, directions); }},
                                   {"upright", whole(0.0f, true)},
                                   {"turning", whole(1e-5f, true)},
                                   {"without", whole(0.0f, false)}});
        std::printf("%-16s %8.1f", scene.name.c_str(), microsecondsPerMask(timings[0], scene));
        for (std::size_t k = 1; k < timings.size(); ++k) {
            std::printf("    %6.1f = %.2f x", microsecondsPerMask(timings[k], scene),
                        timings[k].median / timings[0].median);
        }
        std::printf("\n");
        std::fflush(stdout);
    }
}

int compare(std::size_t sensors, const std::string& only) {
    const SkyDirections directions(centres());
    long rays = 0;
    long differing = 0;
    for (Scene& scene : benchScenes(sensors, only, true)) {
        RT::InputPackageUitl::ResetInputPackage();
        RT::InputPackageUitl::AddTriangles(scene.coordinates.data(),
                                           static_cast<int>(scene.coordinates.size()));
        RT::InputPackageUitl::InflateBoundingBox();
        RT::SpatialTreeUtil::GenerateSpatialTree();
        const OcclusionIndex index(scene.coordinates);
        const auto start = std::chrono::steady_clock::now();
        std::atomic<long> here = 0;
        onTwoThreads(scene, [&](const XYZf& sensor) {
            GetTransparencyValueOnRayInternal plain;
            const SkyCellSet visible = index.visibleSky(sensor, directions);
            long different = 0;
            for (int altitude = 0; altitude < skyGrid::altitudeCount; ++altitude) {
                for (int azimuth = 0; azimuth < skyGrid::azimuthCount; ++azimuth) {
                    const XYZf& direction = directions.direction(azimuth, altitude);
                    const bool clear =
                        plain.getTransparencyValue(sensor, direction, nullptr) == 1.0f;
                    different += visible.contains(azimuth, altitude) != clear ? 1 : 0;
                    different += index.isOccluded(sensor, direction) == clear ? 1 : 0;
                }
            }
            here += different;
        });
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        const long cast = static_cast<long>(scene.sensors.size()) * skyGrid::cellCount;
        std::printf("%-16s %zu triangles, %ld rays, %ld differ (%.0f s)\n", scene.name.c_str(),
                    scene.triangleCount(), cast, here.load(), seconds);
        std::fflush(stdout);
        rays += cast;
        differing += here;
    }
    std::printf("%ld rays in all, %ld differ\n", rays, differing);
    return differing == 0 ? 0 : 1;
}

} // namespace

int main(int count, char** arguments) {
    prepareRaces(count, arguments, rounds);
    const std::string what = count > 1 ? arguments[1] : "masks";
    const std::string more = count > 2 ? arguments[2] : "";
    if (what == "masks") {
        masks(more);
    } else if (what == "neighbours") {
        neighbours(more);
    } else if (what == "whole") {
        wholeMasks(more);
    } else if (what == "threads") {
        threads(more);
    } else if (what == "build") {
        build();
    } else if (what == "growth") {
        growth();
    } else if (what == "compare") {
        return compare(more.empty() ? 1500 : std::stoul(more), count > 3 ? arguments[3] : "");
    } else {
        std::puts("bench_rays [--benchmark_repetitions=N] masks [scene] | neighbours [scene] | "
                  "whole [scene] | threads "
                  "[scene] | build | growth | compare [sensors [scene]]");
        return 2;
    }
    return 0;
}
