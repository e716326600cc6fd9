#include "../rt/scenes.h"
#include "../support/formula_rays.h"
#include "../support/keep_global_site.h"

#include <insolate/geometry/geometry.h>
#include <insolate/rt/ray_queries.h>
#include <insolate/rt/spatial_tree_util.h>
#include <insolate/shading/cell_directions.h>
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
    auto darkness = uniformRays(0.0f);
    XYZf up = {0, 0, 1};
    EShadingMask mask;
    EXPECT_TRUE(mask.calculate(&darkness, {1, 2, 3}, &up)); // of which nothing may stay
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

using insolate::allCellDirections;
using insolate::cellDirection;
using insolate::test::KeepGlobalSite;

constexpr double radiansPerDegree = std::numbers::pi / 180.0;

/// Compass azimuth 0..360 and altitude [degrees] of a direction of a model without north offset.
struct Compass {
    explicit Compass(const XYZf& d)
        : azimuth(std::fmod(std::atan2(d.x, d.y) / radiansPerDegree + 360.0, 360.0)),
          altitude(std::asin(static_cast<double>(d.z)) / radiansPerDegree) {}
    double azimuth, altitude;
};

TEST(CellDirections, PointAtTheCellsCentresClockwiseFromNorth) {
    for (const double offset : {0.0, 30.0, -90.0, 200.0}) {
        const KeepGlobalSite north(offset * radiansPerDegree);
        const auto directions = allCellDirections();
        for (int cell = 0; cell < 1296; ++cell) {
            const XYZf d = directions->direction[static_cast<std::size_t>(cell)];
            const Compass compass(d);
            // Single precision near the zenith resolves the azimuth to some 1e-4 degrees.
            const double turn = compass.azimuth - (5 * (cell % 72) + 2.5 + offset);
            ASSERT_NEAR(std::remainder(turn, 360.0), 0.0, 1e-3) << cell;
            ASSERT_NEAR(compass.altitude, 5 * (cell / 72) + 2.5, 2e-3);
            ASSERT_NEAR(d.x * d.x + d.y * d.y + d.z * d.z, 1.0f, 1e-6f);
            ASSERT_EQ(cellDirection(cell % 72, cell / 72).x, d.x);
        }
    }
}

TEST(CellDirections, KeepAJitteredDirectionUntilTheNorthOffsetChanges) {
    const KeepGlobalSite north(0.25);
    const auto forgetAll = [] {
        ESolarPosition::Global.setNorthOffset(0.25);
        cellDirection(0, 0);
        ESolarPosition::Global.setNorthOffset(0.0);
    };
    forgetAll();
    EGeometry::SeedRandomiser(5);
    const double across = (EGeometry::RandomNumber() * 0.6 + 0.2) * 5 * radiansPerDegree;
    const double up = (EGeometry::RandomNumber() * 0.6 + 0.2) * 5 * radiansPerDegree;
    EGeometry::SeedRandomiser(5);
    const Compass jittered(cellDirection(20, 6, true));
    // The random numbers exceed 1 where the platform's do: any angle may come out.
    const double altitude = (30 + 5 * up) * radiansPerDegree;
    EXPECT_NEAR(std::sin(jittered.altitude * radiansPerDegree), std::sin(altitude), 1e-3);
    const double turn = std::cos(altitude) < 0 ? 180.0 : 0.0;
    EXPECT_NEAR(std::remainder(jittered.azimuth - turn - (100 + 5 * across), 360.0), 0.0, 0.2);

    EXPECT_EQ(Compass(cellDirection(20, 6)).azimuth, jittered.azimuth);
    EXPECT_EQ(Compass(allCellDirections()->direction[6 * 72 + 20]).azimuth, jittered.azimuth);
    EXPECT_NEAR(Compass(cellDirection(21, 6)).azimuth, 107.5, 1e-4);
    EXPECT_NEAR(Compass(cellDirection(21, 6, true)).azimuth, 107.5, 1e-4) << "known by now";
    forgetAll();
    EXPECT_NEAR(Compass(cellDirection(20, 6)).azimuth, 102.5, 1e-4);
}

} // namespace
