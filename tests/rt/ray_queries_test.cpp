#include "scenes.h"

#include <insolate/platform/processor_count.h>
#include <insolate/rt/ray.h>
#include <insolate/rt/ray_queries.h>
#include <insolate/rt/spatial_tree_util.h>

#include <gtest/gtest.h>

#include <limits>
#include <random>

namespace {

using insolate::Vector3d;
using insolate::test::addTriangle;
using insolate::test::latticeScene;
using insolate::test::loadScene;
using insolate::test::randomScene;
using insolate::test::Scene;
using RT::GetTransparencyValueOnRayImpl;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

void build(const Scene& scene) {
    loadScene(scene);
    RT::SpatialTreeUtil::GenerateSpatialTree();
}

Vector3d widened(const XYZf& v) {
    return {v.x, v.y, v.z};
}

/// The definition: the ray is blocked when any triangle of the scene is hit.
float bruteForce(const XYZf& origin, const XYZf& direction) {
    for (const RT::Triangle& triangle : RT::InputPackage::instance().triangles) {
        if (insolate::hitsTriangle(widened(origin), widened(direction), triangle)) {
            return 0.0f;
        }
    }
    return 1.0f;
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
        {"a million away", {0.25, 0.25, 1e6}, {0, 0, -1}, true},
        {"behind the origin", {0.25, 0.25, 3}, {0, 0, 1}, false},
        {"beside", {0.75, 0.75, 3}, {0, 0, -1}, false},
        {"edge u = 0", {0, 0.5, 1}, {0, 0, -1}, false},
        {"edge v = 0", {0.5, 0, 1}, {0, 0, -1}, false},
        {"edge u + v = 1", {0.5, 0.5, 1}, {0, 0, -1}, false},
        {"a vertex", {0, 1, 1}, {0, 0, -1}, false},
        {"nearest distance", {0.25, 0.25, 0.01}, {0, 0, -1}, true},
        {"too near", {0.25, 0.25, 0.0099999}, {0, 0, -1}, false},
        {"on the triangle", {0.25, 0.25, 0}, {0, 0, 1}, false},
        {"near but in short steps", {0.25, 0.25, 0.005}, {0, 0, -0.5}, true},
        {"in the plane", {-1, 0.25, 0}, {1, 0, 0}, false},
        {"determinant at the limit", {0.25, 0.25, 1e-9}, {0, 0, -insolate::parallelLimit}, true},
        {"determinant below it", {0.25, 0.25, 1e-9}, {0, 0, -0.9999e-10}, false},
        {"origin not a number", {nan, 0.25, 3}, {0, 0, -1}, false},
        {"direction not a number", {0.25, 0.25, 3}, {nan, 0, -1}, false},
        {"no direction", {0.25, 0.25, 3}, {0, 0, 0}, false},
    };
    for (const auto& [name, origin, direction, hits] : cases) {
        EXPECT_EQ(insolate::hitsTriangle(origin, direction, triangle), hits) << name;
    }
    const double line[9] = {0, 0, 0, 1, 1, 1, 2, 2, 2};
    EXPECT_FALSE(insolate::hitsTriangle({1, 1, 5}, {0, 0, -1}, insolate::makeTriangle(line)));
}

TEST(RayBox, KeepsRaysOnTheFacesAndDropsBoxesBehind) {
    const struct {
        const char* name;
        Vector3d origin, direction;
        bool passes;
    } cases[] = {
        {"inside", {0.5, 0.5, 0.5}, {1, 0, 0}, true},
        {"ahead", {-5, 0.5, 0.5}, {1, 0, 0}, true},
        {"behind", {5, 0.5, 0.5}, {1, 0, 0}, false},
        {"beside, parallel", {-5, 1.5, 0.5}, {1, 0, 0}, false},
        {"on the lower face", {-5, 0, 0.5}, {1, 0.0, 0}, true},
        {"on the lower face, negative zero", {-5, 0, 0.5}, {1, -0.0, 0}, true},
        {"on the upper face, negative zero", {-5, 1, 0.5}, {1, -0.0, -0.0}, true},
        {"along an edge", {-5, 0, 1}, {1, 0, 0}, true},
        {"through a corner", {-1, -1, -1}, {1, 1, 1}, true},
        {"past a corner", {-1, 0.5, 0.5}, {1, 1, 0}, false},
        {"beyond the reach", {-2e8, 0.5, 0.5}, {1, 0, 0}, false},
    };
    for (const auto& [name, origin, direction, passes] : cases) {
        EXPECT_EQ(insolate::passesBox({origin, direction}, {0, 0, 0}, {1, 1, 1}), passes) << name;
    }
}

TEST(RayQueries, AgreeWithTestingEveryTriangle) {
    const Scene scenes[] = {randomScene(4000, 4.0, 21),
                            randomScene(400, 30.0, 22),
                            randomScene(2000, 5.0, 23, true),
                            latticeScene(16),
                            {}};
    std::mt19937 random(24);
    std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
    std::uniform_real_distribution<float> place(-10.0f, 110.0f);
    for (const Scene& scene : scenes) {
        build(scene);
        GetTransparencyValueOnRayInternal internal;
        GetTransparencyValueOnRayImpl impl(0, 0);
        int blocked = 0;
        for (int i = 0; i < 3000; ++i) {
            const XYZf origin = {place(random), place(random), place(random)};
            XYZf direction = {unit(random), unit(random), unit(random)};
            if (i % 3 == 1 && !scene.empty()) { // at a vertex or the middle of an edge
                const std::size_t at = random() % (scene.size() / 9) * 9;
                const bool middle = (i & 1) != 0;
                const auto target = [&](std::size_t axis) {
                    const double a = scene[at + axis];
                    return static_cast<float>(middle ? (a + scene[at + 3 + axis]) / 2 : a);
                };
                direction = {target(0) - origin.x, target(1) - origin.y, target(2) - origin.z};
            } else if (i % 3 == 2) { // along the axes
                direction = {i % 2 == 0 ? 0.0f : direction.x, i % 5 == 0 ? -0.0f : direction.y,
                             i % 7 == 0 ? 0.0f : direction.z};
            }
            const float expected = bruteForce(origin, direction);
            ASSERT_EQ(internal.getTransparencyValue(origin, direction, nullptr), expected) << i;
            ASSERT_EQ(impl.getTransparencyValue(origin, direction, nullptr), expected) << i;
            blocked += expected == 0.0f ? 1 : 0;
        }
        EXPECT_EQ(blocked > 100, !scene.empty());
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
