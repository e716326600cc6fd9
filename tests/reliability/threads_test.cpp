// Masks of many points on many threads: the same bytes as on one.
#include "tests/rt/scenes.h"
#include "tests/support/keep_global_site.h"

#include <insolate/platform/processor_count.h>
#include <insolate/rt/ray_queries.h>
#include <insolate/rt/spatial_tree_util.h>
#include <insolate/shading/shading_mask.h>

#include <atomic>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace insolate {
namespace {

TEST(Threads, MasksOfOneRayObjectPerSlotAreThoseOfOneThread) {
    const test::KeepGlobalSite keep;
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
        ESolarPosition::Global.setNorthOffset(north); // the threads compute its directions
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
        GetTransparencyValueOnRayInternal plain;
        for (std::size_t i = 0; i < pointCount; ++i) {
            EShadingMask alone;
            alone.calculate(&plain, positions[i], &normals[i]);
            EXPECT_EQ(std::memcmp(&alone, &together[i], sizeof alone), 0)
                << "north " << north << ", point " << i;
        }
    }
}

} // namespace
} // namespace insolate
