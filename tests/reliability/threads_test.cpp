// Masks of many points on many threads: the same bytes as on one.
#include "tests/rt/scenes.h"
#include "tests/support/keep_global_site.h"

#include <insolate/platform/processor_count.h>
#include <insolate/rt/ray_queries.h>
#include <insolate/rt/spatial_tree_util.h>
#include <insolate/shading/cell_directions.h>
#include <insolate/shading/shading_mask.h>

#include <atomic>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace insolate {
namespace {

class Threads : public testing::Test {
protected:
    test::KeepGlobalSite m_keep;
};

TEST_F(Threads, MasksOfOneRayObjectPerSlotAreThoseOfOneThread) {
    // The same triangles remember rays for every slot, so slots are what must not meet.
    const int slots = insolate::processorCount();
    test::loadScene(test::randomScene(400, 12.0, 20, true));
    RT::SpatialTreeUtil::GenerateSpatialTree();
    constexpr int pointCount = 48;
    std::vector<XYZf> positions;
    std::vector<XYZf> normals;
    std::mt19937 random(21);
    std::uniform_real_distribution<float> place(0.0f, 100.0f);
    for (int i = 0; i < pointCount; ++i) {
        positions.push_back({place(random), place(random), place(random)});
        normals.push_back(i % 3 == 0 ? XYZf{0.0f, 0.0f, 1.0f} : XYZf{0.6f, 0.0f, 0.8f});
    }
    int rayIds = 0;
    for (const double north : {0.0, 0.7, -2.1}) {
        ESolarPosition::Global.setNorthOffset(north);
        std::vector<EShadingMask> alone(pointCount);
        GetTransparencyValueOnRayInternal plain;
        for (std::size_t i = 0; i < pointCount; ++i) {
            alone[i].calculate(&plain, positions[i], &normals[i]);
        }
        std::vector<EShadingMask> together(pointCount);
        std::atomic<std::size_t> next{0};
        std::vector<std::thread> threads;
        for (int slot = 0; slot < slots; ++slot) {
            threads.emplace_back([&, slot] {
                for (std::size_t i = next++; i < pointCount; i = next++) {
                    RT::GetTransparencyValueOnRayImpl rays(slot, rayIds + static_cast<int>(i));
                    together[i].calculate(&rays, positions[i], &normals[i]);
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        rayIds += pointCount;
        for (std::size_t i = 0; i < pointCount; ++i) {
            EXPECT_EQ(std::memcmp(&alone[i], &together[i], sizeof(EShadingMask)), 0)
                << "north " << north << ", point " << i;
        }
    }
}

TEST_F(Threads, DirectionsComputedByManyAreThoseOfOne) {
    for (int round = 0; round < 20; ++round) {
        ESolarPosition::Global.setNorthOffset(0.01 * round);
        std::vector<std::thread> threads;
        std::vector<std::array<XYZf, skyGrid::cellCount>> seen(4);
        for (std::size_t thread = 0; thread < seen.size(); ++thread) {
            threads.emplace_back([&, thread] {
                for (int k = 0; k < skyGrid::cellCount; ++k) {
                    // Each from another end, so that all compute and all find computed ones.
                    const int cell = (k + static_cast<int>(thread) * 317) % skyGrid::cellCount;
                    seen[thread][static_cast<std::size_t>(cell)] =
                        thread == 3 ? allCellDirections()->direction[static_cast<std::size_t>(cell)]
                                    : cellDirection(cell % skyGrid::azimuthCount,
                                                    cell / skyGrid::azimuthCount);
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        for (std::size_t thread = 1; thread < seen.size(); ++thread) {
            EXPECT_EQ(std::memcmp(seen[0].data(), seen[thread].data(), sizeof(seen[0])), 0);
        }
    }
}

} // namespace
} // namespace insolate
