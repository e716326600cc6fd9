/// Shading masks side by side with another ray caster.
///
///     bench_rays masks [scene]   time per mask against each mode of Embree
///     bench_rays build           time and memory of the index
///     bench_rays growth          time per mask from 1,000 to 4 million triangles
///     bench_rays threads         two threads over one
///     bench_rays compare [sensors [scene]]   every cell against the plain octree walk
#include <bench/embree_masks.h>
#include <bench/scenes.h>
#include <bench/side_by_side.h>

#include <insolate/platform/simd.h>
#include <insolate/rt/input_package_util.h>
#include <insolate/rt/occlusion_index.h>
#include <insolate/rt/ray_queries.h>
#include <insolate/rt/spatial_tree_util.h>
#include <insolate/shading/shading_mask.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace {

using namespace insolate;
using namespace insolate::bench;
using scenes::Scene;

constexpr int rounds = 11;
constexpr std::size_t sensorsPerRound = 400;

std::filesystem::path dataFolder() {
    const char* folder = std::getenv("INSOLATE_TEST_DATA");
    return folder != nullptr ? folder : "../shared/data";
}

/// The scenes whose names contain `only`; all of them for an empty one.
std::vector<Scene> benchScenes(std::size_t sensors, const std::string& only) {
    const std::vector<std::pair<std::string, std::function<Scene()>>> makers = {
        {"Lyon", [&] { return scenes::lyon(dataFolder(), sensors); }},
        {"city of 10000", [&] { return scenes::city(10'000, sensors); }},
        {"city of 100000", [&] { return scenes::city(100'000, sensors); }},
        {"city of 1000000", [&] { return scenes::city(1'000'000, sensors); }},
        {"uneven scene", [&] { return scenes::uneven(70'000, sensors); }},
        {"scanned object", [&] { return scenes::scannedObject(70'000, sensors); }},
    };
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

void masks(const std::string& only) {
    const SkyDirections directions(centres());
    // Embree takes the instruction set that this library has been told to take.
    const bool narrow = simdLevel() != SimdLevel::avx512;
    const std::string isa = narrow ? "threads=1,isa=avx2" : "threads=1";
    std::printf("%s, microseconds per mask (1,296 rays), one thread\n", simdLevelName(simdLevel()));
    for (const Scene& scene : benchScenes(sensorsPerRound, only)) {
        const OcclusionIndex index(scene.coordinates);
        EmbreeMasks embree(scene.coordinates, centres(), isa);
        long visible = 0;
        std::vector<Contender> contenders;
        contenders.push_back({"this library", [&] {
                                  visible = 0;
                                  for (const XYZf& sensor : scene.sensors) {
                                      visible += index.visibleSky(sensor, directions).count();
                                  }
                              }});
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
        race(contenders, rounds);
        const double perMask = 1e6 / static_cast<double>(scene.sensors.size());
        const double own = contenders.front().median() * perMask;
        double best = 1e9;
        for (std::size_t m = 1; m < contenders.size(); ++m) {
            best = std::min(best, contenders[m].median() * perMask);
        }
        const double share = static_cast<double>(visible) / skyGrid::cellCount /
                             static_cast<double>(scene.sensors.size());
        std::printf("%-16s %8zu triangles, %4.1f %% of the sky visible: %6.1f, Embree's best %6.1f "
                    "= %.2f x\n",
                    scene.name.c_str(), scene.triangleCount(), 100 * share, own, best, best / own);
        if (!only.empty()) {
            for (std::size_t m = 1; m < contenders.size(); ++m) {
                std::printf("    %-34s %7.1f  (%ld cells visible more than here)\n",
                            contenders[m].name.c_str(), contenders[m].median() * perMask,
                            static_cast<long>(scene.sensors.size()) * skyGrid::cellCount -
                                blocked[m - 1] - visible);
            }
        }
    }
}

/// This library alone, for a profiler.
void own(const std::string& only) {
    const SkyDirections directions(centres());
    for (const Scene& scene : benchScenes(sensorsPerRound, only)) {
        const OcclusionIndex index(scene.coordinates);
        std::vector<Contender> contenders;
        contenders.push_back({"", [&] {
                                  for (const XYZf& sensor : scene.sensors) {
                                      index.visibleSky(sensor, directions);
                                  }
                              }});
        race(contenders, 21);
        const std::vector<double>& seconds = contenders.front().seconds;
        std::printf("%-16s %6.1f us at best\n", scene.name.c_str(),
                    *std::min_element(seconds.begin(), seconds.end()) * 1e6 /
                        static_cast<double>(scene.sensors.size()));
    }
}

void build() {
    const Scene scene = scenes::city(1'000'000, 1);
    const double count = static_cast<double>(scene.triangleCount());
    double bytes = 0;
    double embreeSeconds = 0;
    double embreeBytes = 0;
    const auto timed = [&](bool parallel) {
        return [&, parallel] {
            const OcclusionIndex index(scene.coordinates, {.parallel = parallel});
            bytes = static_cast<double>(index.memoryBytes());
        };
    };
    std::vector<Contender> contenders;
    contenders.push_back({"index, one thread", timed(false)});
    contenders.push_back({"index, all threads", timed(true)});
    race(contenders, 5);
    {
        const EmbreeMasks embree(scene.coordinates, centres(), "threads=1");
        embreeSeconds = embree.buildSeconds();
        embreeBytes = embree.buildBytes();
    }
    for (const Contender& contender : contenders) {
        std::printf("%-20s %.3f s for %.0f triangles, %.0f bytes each\n", contender.name.c_str(),
                    contender.median(), count, bytes / count);
    }
    std::printf("%-20s %.3f s, %.0f bytes each (with its copy of the vertices)\n",
                "Embree, one thread", embreeSeconds, embreeBytes / count);
}

void growth() {
    const SkyDirections directions(centres());
    for (std::size_t triangles = 1000; triangles <= 4'096'000; triangles *= 4) {
        const Scene scene = scenes::city(triangles, 1000);
        const OcclusionIndex index(scene.coordinates);
        std::vector<Contender> contenders;
        contenders.push_back({"", [&] {
                                  for (const XYZf& sensor : scene.sensors) {
                                      index.visibleSky(sensor, directions);
                                  }
                              }});
        race(contenders, rounds);
        const double perMask =
            contenders.front().median() * 1e6 / static_cast<double>(scene.sensors.size());
        const double levels = std::log2(static_cast<double>(scene.triangleCount()));
        std::printf("%8zu triangles: %6.1f us per mask, %.2f per doubling of the scene\n",
                    scene.triangleCount(), perMask, perMask / levels);
    }
}

void threads(const std::string& only) {
    const SkyDirections directions(centres());
    for (const Scene& scene : benchScenes(4000, only)) {
        const OcclusionIndex index(scene.coordinates);
        const auto part = [&](std::size_t first, std::size_t step) {
            for (std::size_t i = first; i < scene.sensors.size(); i += step) {
                index.visibleSky(scene.sensors[i], directions);
            }
        };
        std::vector<Contender> contenders;
        contenders.push_back({"one", [&] { part(0, 1); }});
        contenders.push_back({"two", [&] {
                                  std::thread other(part, 1, 2);
                                  part(0, 2);
                                  other.join();
                              }});
        race(contenders, 7);
        std::printf("%-16s two threads over one: %.2f x\n", scene.name.c_str(),
                    contenders[0].median() / contenders[1].median());
    }
}

/// Whole masks with a normal, over the rays alone.
void wholeMasks(const std::string& only) {
    for (const Scene& scene : benchScenes(sensorsPerRound, only)) {
        const OcclusionIndex index(scene.coordinates);
        FastRayTransparency rays(index);
        const SkyDirections directions(centres());
        XYZf normal = {0, 0, 1};
        std::vector<Contender> contenders;
        contenders.push_back({"rays alone", [&] {
                                  for (const XYZf& sensor : scene.sensors) {
                                      index.visibleSky(sensor, directions);
                                  }
                              }});
        contenders.push_back({"EShadingMask::calculate", [&] {
                                  EShadingMask mask;
                                  for (const XYZf& sensor : scene.sensors) {
                                      mask.calculate(&rays, sensor, &normal);
                                  }
                              }});
        race(contenders, rounds);
        const double perMask = 1e6 / static_cast<double>(scene.sensors.size());
        std::printf("%-16s rays alone %6.1f us, whole mask %6.1f us: %.2f x\n", scene.name.c_str(),
                    contenders[0].median() * perMask, contenders[1].median() * perMask,
                    contenders[1].median() / contenders[0].median());
    }
}

int compare(std::size_t sensors, const std::string& only) {
    const SkyDirections directions(centres());
    long rays = 0;
    long differing = 0;
    for (Scene& scene : benchScenes(sensors, only)) {
        RT::InputPackageUitl::ResetInputPackage();
        RT::InputPackageUitl::AddTriangles(scene.coordinates.data(),
                                           static_cast<int>(scene.coordinates.size()));
        RT::InputPackageUitl::InflateBoundingBox();
        RT::SpatialTreeUtil::GenerateSpatialTree();
        const OcclusionIndex index(scene.coordinates);
        GetTransparencyValueOnRayInternal plain;
        const auto start = std::chrono::steady_clock::now();
        long here = 0;
        for (const XYZf& sensor : scene.sensors) {
            const SkyCellSet visible = index.visibleSky(sensor, directions);
            for (int altitude = 0; altitude < skyGrid::altitudeCount; ++altitude) {
                for (int azimuth = 0; azimuth < skyGrid::azimuthCount; ++azimuth) {
                    const XYZf& direction = directions.direction(azimuth, altitude);
                    const bool clear =
                        plain.getTransparencyValue(sensor, direction, nullptr) == 1.0f;
                    here += visible.contains(azimuth, altitude) != clear ? 1 : 0;
                    here += index.isOccluded(sensor, direction) == clear ? 1 : 0;
                }
            }
        }
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        const long cast = static_cast<long>(scene.sensors.size()) * skyGrid::cellCount;
        std::printf("%-16s %ld rays, %ld differ (%.0f s)\n", scene.name.c_str(), cast, here,
                    seconds);
        std::fflush(stdout);
        rays += cast;
        differing += here;
    }
    std::printf("%ld rays in all, %ld differ\n", rays, differing);
    return differing == 0 ? 0 : 1;
}

} // namespace

int main(int count, char** arguments) {
    const std::string what = count > 1 ? arguments[1] : "masks";
    const std::string more = count > 2 ? arguments[2] : "";
    if (what == "masks") {
        masks(more);
    } else if (what == "own") {
        own(more);
    } else if (what == "whole") {
        wholeMasks(more);
    } else if (what == "build") {
        build();
    } else if (what == "growth") {
        growth();
    } else if (what == "threads") {
        threads(more);
    } else if (what == "compare") {
        return compare(more.empty() ? 1500 : std::stoul(more), count > 3 ? arguments[3] : "");
    } else {
        std::puts("bench_rays masks [scene] | whole | build | growth | threads | compare [sensors "
                  "[scene]]");
        return 2;
    }
    return 0;
}
