#include "../rt/scenes.h"
#include "../support/formula_rays.h"
#include "../support/keep_global_site.h"

#include <insolate/rt/ray_queries.h>
#include <insolate/rt/spatial_tree_util.h>
#include <insolate/shading/shading_mask.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <numbers>

namespace {

using insolate::test::addQuad;
using insolate::test::Scene;
using insolate::test::uniformRays;

constexpr double pi = std::numbers::pi;

EShadingMask maskInScene(const Scene& scene, XYZf point, XYZf normal) {
    insolate::test::loadScene(scene);
    RT::SpatialTreeUtil::GenerateSpatialTree();
    EShadingMask mask;
    GetTransparencyValueOnRayInternal rays;
    EXPECT_TRUE(mask.calculate(&rays, point, &normal));
    return mask;
}

/// The share of the uniform sky [%] that the origin's horizontal plane sees.
float uniformSky(const Scene& scene) {
    return maskInScene(scene, {0, 0, 0}, {0, 0, 1}).getUniformSkyComponent();
}

/// A wall along y, 40 km long: practically without ends.
void addWall(Scene& scene, double x, double height) {
    addQuad(scene, {x, -20000, 0}, {0, 40000, 0}, {0, 0, height});
}

TEST(MaskCalculation, FacesEveryDirectionWithoutANormalAndNoneWithoutRays) {
    auto rays = uniformRays(1.0f);
    EShadingMask mask;
    mask.setExposureValue(1, 2, 0.3f);
    EXPECT_TRUE(mask.calculate(&rays, {1, 2, 3}, nullptr));
    EXPECT_EQ(rays.cast, 1296);
    EXPECT_EQ(rays.lastNormal, nullptr);
    EShadingMask expected;
    expected.setUniformSkyComponent(100.0f); // 200 before it is limited
    expected.setOvercastSkyComponent(100.0f);
    expected.setPerezHorizonFactor(1.0f);
    EXPECT_EQ(std::memcmp(&mask, &expected, sizeof mask), 0);
    EXPECT_FALSE(mask.calculate(nullptr, {0, 0, 0}, nullptr));
    EXPECT_EQ(std::memcmp(&mask, &expected, sizeof mask), 0);
}

TEST(MaskCalculation, GivesTheShareOfAnOpenSkyOnATiltedPlane) {
    // Uniform sky: (1 + cos tilt) / 2 (Liu, Jordan 1963). Overcast sky: the closed form of Moon and
    // Spencer's distribution, 3/7 of the uniform share and 4/7 of the share of a luminance sin h,
    // which for a vertical plane is 1 / pi * (pi / 12 + 2 / 9) * 9 / 7 * 2.
    const double vertical = 2 * (pi / 12 + 2.0 / 9) / (7 * pi / 9);
    const struct {
        double tilt, uniform, overcast;
        bool doubleSided;
        int cast;
    } cases[] = {{0.0, 1.0, 1.0, false, 1296},
                 {pi / 2, 0.5, vertical, false, 648},
                 {pi / 2, 1.0, 2 * vertical, true, 1296}};
    for (const auto& [tilt, uniform, overcast, doubleSided, cast] : cases) {
        auto rays = uniformRays(1.0f, doubleSided);
        EShadingMask mask;
        XYZf normal = {static_cast<float>(std::sin(tilt)), 0, static_cast<float>(std::cos(tilt))};
        mask.calculate(&rays, {0, 0, 0}, &normal);
        EXPECT_EQ(rays.lastNormal, &normal);
        EXPECT_EQ(rays.cast, cast);
        // Cells of 5 degrees: their centres stand for areas to some 0.1 %, one row of cells at the
        // surface's edge to 0.2 %.
        EXPECT_NEAR(mask.getUniformSkyComponent(), 100 * uniform, 0.2);
        EXPECT_NEAR(mask.getOvercastSkyComponent(), 100 * overcast, 0.2);
        EXPECT_NEAR(mask.getSurfaceNormalAltitude(), pi / 2 - tilt, 1e-6);
        EXPECT_NEAR(mask.getPerezHorizonFactor(), cast / 1296.0, 1e-5);
        EXPECT_EQ(mask.getExposure(54, 0), cast == 1296 ? 1.0f : 0.0f) << "west";
    }
}

TEST(MaskCalculation, MeetsTheClosedFormsOfWallsAndCourts) {
    // Foot of a wall without end: half of everything. The convenience form casts against the same,
    // process-wide scene.
    Scene high;
    addWall(high, -0.5, 1e5);
    EShadingMask mask = maskInScene(high, {0, 0, 0.1f}, {0, 0, 1});
    EXPECT_NEAR(mask.getUniformSkyComponent(), 50, 0.2);
    EXPECT_NEAR(mask.getOvercastSkyComponent(), 50, 0.2);
    EXPECT_NEAR(mask.getPerezHorizonFactor(), 0.5, 1e-5);
    EShadingMask same;
    EXPECT_TRUE(same.calculate({0, 0, 0.1f}, {0, 0, 1}));
    EXPECT_EQ(std::memcmp(&mask, &same, sizeof mask), 0);

    // A row of cells stands at every wall's upper edge: half a row of 72 cells of 5 degrees weighs
    // up to 2 % of a horizontal plane's uniform sky.
    constexpr double tolerance = 2.0;
    for (const double angle : {20.0, 45.0, 60.0}) {
        SCOPED_TRACE(angle);
        const double height = 10 * std::tan(angle * pi / 180);
        const double cosine = std::cos(angle * pi / 180);
        // One wall, seen at an angle: (1 + cos) / 2 is left; a canyon: cos.
        Scene scene;
        addWall(scene, -10, height);
        EXPECT_NEAR(uniformSky(scene), 50 * (1 + cosine), tolerance / 2);
        addWall(scene, 10, height);
        EXPECT_NEAR(uniformSky(scene), 100 * cosine, tolerance);
        // A square court: four times the configuration factor of a rectangle over its corner
        // (Hottel, Sarofim 1967).
        addQuad(scene, {-10, -10, 0}, {20, 0, 0}, {0, 0, height});
        addQuad(scene, {-10, 10, 0}, {20, 0, 0}, {0, 0, height});
        const double x = 10 / height;
        const double root = std::sqrt(1 + x * x);
        const double seen = 4 / (2 * pi) * 2 * (x / root) * std::atan(x / root);
        EXPECT_NEAR(uniformSky(scene), 100 * seen, tolerance);
    }
}

TEST(MaskCalculation, ChangesNothingWhenSceneNormalAndNorthTurnTogether) {
    Scene scene;
    addWall(scene, -8, 6);
    addQuad(scene, {3, 4, 0}, {5, 1, 0}, {0, 0, 12});
    addQuad(scene, {-2, -9, 3}, {7, -2, 1}, {1, 3, 4});
    const EShadingMask mask = maskInScene(scene, {1, 0.5f, 0.25f}, {0.6f, 0, 0.8f});

    for (const double turn : {0.7, -2.0, pi / 2}) {
        SCOPED_TRACE(turn);
        const double c = std::cos(turn);
        const double s = std::sin(turn);
        Scene turned = scene;
        for (std::size_t i = 0; i < scene.size(); i += 3) {
            turned[i] = c * scene[i] - s * scene[i + 1];
            turned[i + 1] = s * scene[i] + c * scene[i + 1];
        }
        const auto turnedXY = [&](float x, float y, float z) {
            return XYZf{static_cast<float>(c * x - s * y), static_cast<float>(s * x + c * y), z};
        };
        // North lies at the plan angle pi/2 - offset.
        const insolate::test::KeepGlobalSite north(-turn);
        const EShadingMask same =
            maskInScene(turned, turnedXY(1, 0.5f, 0.25f), turnedXY(0.6f, 0, 0.8f));
        int flipped = 0; // rays within rounding of an edge may
        for (int cell = 0; cell < 1296; ++cell) {
            const int azimuth = cell % 72;
            const int altitude = cell / 72;
            flipped += mask.getShading(azimuth, altitude) != same.getShading(azimuth, altitude);
            ASSERT_NEAR(mask.getSurfaceIncidence(azimuth, altitude),
                        same.getSurfaceIncidence(azimuth, altitude), 1.01f / 255);
        }
        EXPECT_LE(flipped, 1);
    }
}

} // namespace
