#include "../rt/scenes.h"
#include "north.h"

#include <insolate/geometry/geometry.h>
#include <insolate/rt/ray_queries.h>
#include <insolate/rt/spatial_tree_util.h>
#include <insolate/shading/shading_mask.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <numbers>

namespace {

using insolate::test::addQuad;
using insolate::test::loadScene;
using insolate::test::NorthOffset;
using insolate::test::Scene;

constexpr double pi = std::numbers::pi;

/// A ray object that answers by a formula and counts what it was asked.
class FormulaRays : public GetTransparencyValueOnRay {
public:
    using Formula = std::function<float(const XYZf& direction)>;

    explicit FormulaRays(Formula answer, bool isDoubleSided = false)
        : formula(std::move(answer)), doubleSided(isDoubleSided) {}

    bool getSurfaceDoubleSided() override {
        ++sidesAsked;
        return doubleSided;
    }
    float getTransparencyValue(const XYZf& /*origin*/, const XYZf& direction,
                               const XYZf* normal) override {
        ++cast;
        lastNormal = normal;
        return formula(direction);
    }
    int initialise() override { return 0; }

    int cast = 0;
    int sidesAsked = 0;
    const XYZf* lastNormal = nullptr;

private:
    Formula formula;
    bool doubleSided;
};

float open(const XYZf& /*direction*/) {
    return 1.0f;
}

XYZf tilted(double tilt, double planAngle = 0.0) {
    return {static_cast<float>(std::sin(tilt) * std::cos(planAngle)),
            static_cast<float>(std::sin(tilt) * std::sin(planAngle)),
            static_cast<float>(std::cos(tilt))};
}

EShadingMask maskInScene(const Scene& scene, XYZf point, XYZf normal) {
    loadScene(scene);
    RT::SpatialTreeUtil::GenerateSpatialTree();
    EShadingMask mask;
    GetTransparencyValueOnRayInternal rays;
    EXPECT_TRUE(mask.calculate(&rays, point, &normal));
    return mask;
}

/// A wall along y, 40 km long: practically without ends.
void addWall(Scene& scene, double x, double height) {
    addQuad(scene, {x, -20000, 0}, {0, 40000, 0}, {0, 0, height});
}

TEST(MaskCalculation, RefusesToGoWithoutRays) {
    EShadingMask mask;
    mask.setExposureValue(1, 2, 0.3f);
    mask.setPerezHorizonFactor(0.4f);
    const EShadingMask before = mask;
    EXPECT_FALSE(mask.calculate(nullptr, {0, 0, 0}, nullptr));
    EXPECT_EQ(std::memcmp(&mask, &before, sizeof mask), 0);
}

TEST(MaskCalculation, WithoutANormalFacesEveryDirection) {
    FormulaRays rays(open);
    EShadingMask mask;
    mask.setExposureValue(1, 2, 0.3f);
    EXPECT_TRUE(mask.calculate(&rays, {1, 2, 3}, nullptr));
    EXPECT_EQ(rays.cast, 1296);
    EXPECT_EQ(rays.sidesAsked, 1);
    EXPECT_EQ(rays.lastNormal, nullptr);
    EShadingMask expected;
    expected.setUniformSkyComponent(100.0f); // 200 before it is limited
    expected.setOvercastSkyComponent(100.0f);
    expected.setPerezHorizonFactor(1.0f);
    EXPECT_EQ(std::memcmp(&mask, &expected, sizeof mask), 0);
}

TEST(MaskCalculation, GivesTheShareOfAnOpenSkyOnATiltedPlane) {
    // Uniform sky: (1 + cos tilt) / 2 (Liu, Jordan 1963). Overcast sky: the closed form of Moon and
    // Spencer's distribution, 3/7 of the uniform share and 4/7 of the share of a luminance sin h,
    // which for a vertical plane is 1 / pi * (pi / 12 + 2 / 9) * 9 / 7 * 2.
    const double vertical = 2 * (pi / 12 + 2.0 / 9) / (7 * pi / 9);
    const struct {
        double tilt, uniform, overcast;
        int behind;
    } cases[] = {{0.0, 1.0, 1.0, 0}, {pi / 4, 0.8536, -1, -1}, {pi / 2, 0.5, vertical, 648}};
    for (const auto& [tilt, uniform, overcast, behind] : cases) {
        FormulaRays rays(open);
        EShadingMask mask;
        XYZf normal = tilted(tilt, 0.3);
        mask.calculate(&rays, {0, 0, 0}, &normal);
        EXPECT_EQ(rays.lastNormal, &normal);
        // Cells of 5 degrees: their centres stand for areas to some 0.1 %, one row of cells at the
        // surface's edge to 0.2 %.
        EXPECT_NEAR(mask.getUniformSkyComponent(), 100 * uniform, 0.2) << tilt;
        EXPECT_NEAR(mask.getSurfaceNormalAltitude(), pi / 2 - tilt, 1e-6);
        if (overcast > 0) {
            EXPECT_NEAR(mask.getOvercastSkyComponent(), 100 * overcast, 0.2) << tilt;
            EXPECT_EQ(1296 - rays.cast, behind) << tilt;
            EXPECT_NEAR(mask.getPerezHorizonFactor(), 1 - behind / 1296.0, 1e-5);
        }
    }
}

TEST(MaskCalculation, HidesWhatLiesBehindASingleSidedSurfaceOnly) {
    XYZf normal = {2, 0, 0}; // east, any length
    for (const bool doubleSided : {false, true}) {
        FormulaRays rays(open, doubleSided);
        EShadingMask mask;
        mask.calculate(&rays, {5, 5, 5}, &normal);
        EXPECT_EQ(rays.cast, doubleSided ? 1296 : 648);
        EXPECT_NEAR(mask.getPerezHorizonFactor(), doubleSided ? 1.0f : 0.5f, 1e-5f);
        for (int azimuth = 0; azimuth < 72; ++azimuth) {
            const double cosine =
                std::sin((5 * azimuth + 2.5) * pi / 180) * std::cos(2.5 * pi / 180);
            const bool hidden = azimuth >= 36 && !doubleSided;
            const double seen = hidden ? 0.0 : std::fabs(cosine);
            EXPECT_EQ(mask.getExposure(azimuth, 0), hidden ? 0.0f : 1.0f) << azimuth;
            EXPECT_NEAR(mask.getSurfaceIncidence(azimuth, 0), seen - 0.5 / 255, 0.5001 / 255);
        }
    }
}

TEST(MaskCalculation, LimitsCellsButSumsTransparenciesAsGiven) {
    XYZf up = {0, 0, 1};
    FormulaRays bright([](const XYZf& direction) { return direction.z < 0.25f ? 3.0f : 0.25f; });
    EShadingMask mask;
    mask.calculate(&bright, {0, 0, 0}, &up);
    EXPECT_EQ(mask.getExposure(0, 0), 1.0f);
    EXPECT_EQ(mask.getExposure(0, 17), 63.0f / 255.0f);
    const double low = std::pow(std::sin(15 * pi / 180), 2); // share of altitudes up to 15 degrees
    EXPECT_NEAR(mask.getUniformSkyComponent(), 100 * (3 * low + 0.25 * (1 - low)), 0.2);
    EXPECT_EQ(mask.getPerezHorizonFactor(), 1.0f) << "3, limited";
}

TEST(MaskCalculation, MeetsTheClosedFormsOfWallsAndCourts) {
    // A row of cells stands at every wall's upper edge: half a row of 72 cells of 5 degrees weighs
    // up to 2 % of a horizontal plane's uniform sky.
    constexpr double tolerance = 2.0;

    // Foot of a wall without end: half of everything.
    Scene high;
    addWall(high, -0.5, 1e5);
    EShadingMask mask = maskInScene(high, {0, 0, 0.1f}, {0, 0, 1});
    EXPECT_NEAR(mask.getUniformSkyComponent(), 50, 0.2);
    EXPECT_NEAR(mask.getOvercastSkyComponent(), 50, 0.2);
    EXPECT_NEAR(mask.getPerezHorizonFactor(), 0.5, 1e-5);

    for (const double angle : {20.0, 45.0, 60.0}) {
        SCOPED_TRACE(angle);
        const double height = 10 * std::tan(angle * pi / 180);
        const double cosine = std::cos(angle * pi / 180);
        // One wall, seen at an angle: (1 + cos) / 2 is left; a canyon: cos.
        Scene canyon;
        addWall(canyon, -10, height);
        mask = maskInScene(canyon, {0, 0, 0}, {0, 0, 1});
        EXPECT_NEAR(mask.getUniformSkyComponent(), 50 * (1 + cosine), tolerance / 2);
        addWall(canyon, 10, height);
        mask = maskInScene(canyon, {0, 0, 0}, {0, 0, 1});
        EXPECT_NEAR(mask.getUniformSkyComponent(), 100 * cosine, tolerance);

        // A square court: four times the configuration factor of a rectangle over its corner
        // (Hottel, Sarofim 1967).
        addQuad(canyon, {-10, -10, 0}, {20, 0, 0}, {0, 0, height});
        addQuad(canyon, {-10, 10, 0}, {20, 0, 0}, {0, 0, height});
        mask = maskInScene(canyon, {0, 0, 0}, {0, 0, 1});
        const double x = 10 / height;
        const double root = std::sqrt(1 + x * x);
        const double seen = 4 / (2 * pi) * 2 * (x / root) * std::atan(x / root);
        EXPECT_NEAR(mask.getUniformSkyComponent(), 100 * seen, tolerance);
        EXPECT_EQ(mask.getPerezHorizonFactor(), 0.0f);
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
        const NorthOffset north(-turn); // north lies at the plan angle pi/2 - offset
        const EShadingMask same =
            maskInScene(turned, turnedXY(1, 0.5f, 0.25f), turnedXY(0.6f, 0, 0.8f));
        int flipped = 0; // rays within rounding of an edge may
        for (int cell = 0; cell < 1296; ++cell) {
            flipped +=
                mask.getExposure(cell % 72, cell / 72) != same.getExposure(cell % 72, cell / 72)
                    ? 1
                    : 0;
            ASSERT_NEAR(mask.getSurfaceIncidence(cell % 72, cell / 72),
                        same.getSurfaceIncidence(cell % 72, cell / 72), 1.01f / 255);
        }
        EXPECT_LE(flipped, 1);
        EXPECT_NEAR(mask.getOvercastSkyComponent(), same.getOvercastSkyComponent(), 0.2f);
        EXPECT_NEAR(mask.getPerezHorizonFactor(), same.getPerezHorizonFactor(), 0.006f);
    }
}

TEST(MaskCalculation, ConvenienceFormCastsAgainstTheProcessWideScene) {
    Scene scene;
    addWall(scene, -8, 6);
    const EShadingMask expected = maskInScene(scene, {0, 0, 1}, {0, 0, 1});
    EShadingMask mask;
    EXPECT_TRUE(mask.calculate({0, 0, 1}, {0, 0, 1}));
    EXPECT_EQ(std::memcmp(&mask, &expected, sizeof mask), 0);
    EXPECT_LT(mask.getUniformSkyComponent(), 99.0f);
}

} // namespace
