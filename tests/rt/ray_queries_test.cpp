#include "scenes.h"

#include <insolate/platform/processor_count.h>
#include <insolate/rt/occlusion_index.h>
#include <insolate/rt/ray.h>
#include <insolate/rt/ray_queries.h>
#include <insolate/rt/spatial_tree_util.h>

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace insolate::test {
namespace {

using RT::GetTransparencyValueOnRayImpl;

void build(const Scene& scene) {
    loadScene(scene);
    RT::SpatialTreeUtil::GenerateSpatialTree();
}

TEST(RayTriangle, HitsTheInsideOfEitherSideFromAHundredthOn) {
    const double coordinates[9] = {0, 0, 0, 1, 0, 0, 0, 1, 0};
    const RT::Triangle triangle = insolate::makeTriangle(coordinates);
    const struct {
        const char* name;
        Vector3d origin, direction;
        bool hits;
    } cases[] = {
        {"from above", {0.25, 0.25, 3}, {0, 0, -1}, true},
        {"from below", {0.25, 0.25, -3}, {0, 0, 1}, true},
        {"behind the origin", {0.25, 0.25, 3}, {0, 0, 1}, false},
        {"beside", {0.75, 0.75, 3}, {0, 0, -1}, false},
        {"edge u = 0", {0, 0.5, 1}, {0, 0, -1}, false},
        {"edge v = 0", {0.5, 0, 1}, {0, 0, -1}, false},
        {"edge u + v = 1", {0.5, 0.5, 1}, {0, 0, -1}, false},
        {"nearest distance", {0.25, 0.25, 0.01}, {0, 0, -1}, true},
        {"too near", {0.25, 0.25, 0.0099999}, {0, 0, -1}, false},
        {"near but in short steps", {0.25, 0.25, 0.005}, {0, 0, -0.5}, true},
        {"determinant at the limit", {0.25, 0.25, 1e-9}, {0, 0, -insolate::parallelLimit}, true},
        {"determinant below it", {0.25, 0.25, 1e-9}, {0, 0, -0.9999e-10}, false},
        {"direction not a number", {0.25, 0.25, 3}, {std::nan(""), 0, -1}, false},
    };
    for (const auto& [name, origin, direction, hits] : cases) {
        EXPECT_EQ(insolate::hitsTriangle(origin, direction, triangle), hits) << name;
    }
    const double line[9] = {0, 0, 0, 1, 1, 1, 2, 2, 2};
    EXPECT_FALSE(insolate::hitsTriangle({1, 1, 5}, {0, 0, -1}, insolate::makeTriangle(line)));
}

TEST(RayQueries, AgreeWithTestingEveryTriangle) {
    Scene boxOf258 = randomScene(1000, 20.0, 25); // with what the box is inflated by
    addTriangle(boxOf258, {-128, -128, -128}, {-127, -128, -128}, {-128, -127, -128});
    addTriangle(boxOf258, {128, 128, 128}, {127, 128, 128}, {128, 127, 128});
    const Scene scenes[] = {randomScene(4000, 4.0, 21),
                            randomScene(400, 30.0, 22),
                            randomScene(2000, 5.0, 23, true),
                            latticeScene(16),
                            boxOf258,
                            {}};
    std::mt19937 random(24);
    std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
    std::uniform_real_distribution<float> place(-10.0f, 110.0f);
    for (const Scene& scene : scenes) {
        build(scene);
        GetTransparencyValueOnRayInternal internal;
        GetTransparencyValueOnRayImpl impl(0, 0);
        const auto index = insolate::OcclusionIndex::fromInputPackage();
        insolate::FastRayTransparency fast(index);
        int blocked = 0;
        for (int i = 0; i < 3000; ++i) {
            XYZf origin = {place(random), place(random), place(random)};
            XYZf direction = {unit(random), unit(random), unit(random)};
            if (i % 3 == 1 && !scene.empty()) { // at a vertex or the middle of an edge
                const double* a = &scene[random() % (scene.size() / 9) * 9];
                const double* b = a + i % 2 * 3;
                const auto target = [&](std::size_t axis) {
                    return static_cast<float>((a[axis] + b[axis]) / 2);
                };
                direction = {target(0) - origin.x, target(1) - origin.y, target(2) - origin.z};
            } else if (i % 3 == 2) { // within the faces of the box of 258
                const auto axis = static_cast<std::size_t>(i / 3 % 3);
                float* const components[] = {&direction.x, &direction.y, &direction.z};
                float* const places[] = {&origin.x, &origin.y, &origin.z};
                *components[axis] = i % 2 == 0 ? 0.0f : -0.0f;
                *places[axis] = 258.0f / 16 * static_cast<float>(i % 8);
                *components[(axis + 1) % 3] *= static_cast<float>(i % 5);
            }
            const float expected = isBlocked(scene, origin, direction) ? 0.0f : 1.0f;
            ASSERT_EQ(internal.getTransparencyValue(origin, direction, nullptr), expected) << i;
            ASSERT_EQ(impl.getTransparencyValue(origin, direction, nullptr), expected) << i;
            ASSERT_EQ(fast.getTransparencyValue(origin, direction, nullptr), expected) << i;
            blocked += expected == 0.0f ? 1 : 0;
        }
        EXPECT_EQ(blocked > 100, !scene.empty());
    }
}

TEST(RayQueries, DifferFromTheIndexBeyondAHundredMillionDirections) {
    Scene scene;
    addTriangle(scene, {-1e6, -1e6, 50}, {2e6, -1e6, 50}, {-1e6, 2e6, 50});
    build(scene);
    GetTransparencyValueOnRayInternal internal;
    const auto index = insolate::OcclusionIndex::fromInputPackage();
    for (const auto& [length, plain] : {std::pair(1e-6f, 0.0f), std::pair(1e-7f, 1.0f)}) {
        const XYZf up = {0, 0, length};
        EXPECT_EQ(internal.getTransparencyValue({0, 0, 0}, up, nullptr), plain);
        EXPECT_TRUE(index.isOccluded({0, 0, 0}, up));
        const XYZf nowhere = {0, std::nanf(""), 0};
        EXPECT_EQ(internal.getTransparencyValue(nowhere, up, nullptr), 1.0f);
        EXPECT_FALSE(index.isOccluded(nowhere, up));
    }
}

TEST(RayQueries, CountTheirRaysAndSkipTrianglesTestedForTheSameRay) {
    Scene scene;
    addTriangle(scene, {0, 0, 0}, {1, 0, 0}, {0, 1, 0});
    build(scene);
    const auto mailbox = RT::InputPackage::instance().triangles[0].mailbox;
    const int slot = insolate::processorCount() - 1;
    std::uint32_t& entry = mailbox[static_cast<std::size_t>(slot)];
    GetTransparencyValueOnRayImpl query(slot, 5);
    const auto cast = [](GetTransparencyValueOnRayImpl& caster) {
        return caster.getTransparencyValue({0.2f, 0.2f, 1}, {0, 0, -1}, nullptr);
    };
    EXPECT_EQ(cast(query), 0.0f);
    EXPECT_EQ(entry, 6481U);
    GetTransparencyValueOnRayImpl copy(query);
    EXPECT_EQ(cast(query), 0.0f);
    EXPECT_EQ(entry, 6482U);
    EXPECT_EQ(cast(copy), 1.0f) << "the copy repeats id 6482, which the triangle remembers";
    copy = query;
    EXPECT_EQ(cast(copy), 0.0f);
    EXPECT_EQ(entry, 6483U);
    EXPECT_FALSE(query.getSurfaceDoubleSided());
    EXPECT_EQ(query.initialise(), 0);
}

} // namespace
} // namespace insolate::test
