#include "tests/support/debug_recorder.h"
#include "tests/support/formula_rays.h"
#include "tests/support/keep_global_site.h"

#include <insolate/analysis/calculation_point.h>
#include <insolate/analysis/model.h>
#include <insolate/analysis/object.h>
#include <insolate/solar/solar_position.h>

#include <gmock/gmock.h>

#include <memory>
#include <vector>

namespace {

using insolate::test::DebugRecorder;

constexpr XYZf up{0.0f, 0.0f, 1.0f};

/// A model whose points are deleted at the end, as a host would.
struct OwnedModel {
    EModel model;
    std::vector<std::unique_ptr<ECalculationPoint>> points;

    int add() {
        const int key = model.addCalculationPoint(XYZf(), up, 40);
        points.emplace_back(model.getCalculationPoint(key));
        return key;
    }
};

TEST(Model, KeysAreIndicesAndStrayKeysFallBackToTheFirstPoint) {
    OwnedModel owned;
    DebugRecorder recorder;
    EXPECT_EQ(owned.model.getJobSize(), 0);
    EXPECT_EQ(owned.model.getCalculationPoint(0), nullptr);
    EXPECT_THAT(DebugRecorder::texts(),
                testing::ElementsAre(L"out of range nCalculationPointKey, Mila Hart, 4-11-2009"));
    for (int key = 0; key < 3; ++key) {
        EXPECT_EQ(owned.add(), key);
    }
    EXPECT_EQ(owned.model.getCalculationPoint(2), owned.points[2].get());
    EXPECT_EQ(owned.model.getCalculationPoint(3), owned.points[0].get());
    EXPECT_EQ(owned.model.getCalculationPoint(-1), owned.points[0].get());
    EXPECT_EQ(DebugRecorder::texts().size(), 3U);

    owned.model.reset();
    EXPECT_EQ(owned.model.getJobSize(), 0);
    EXPECT_EQ(owned.points[1]->getFaceKey(), 40); // still alive
    EXPECT_EQ(owned.add(), 0);
}

TEST(Model, MasksAreComputedOnceUntilTheyAreRestarted) {
    OwnedModel owned;
    auto rays = insolate::test::uniformRays(0.0f);
    owned.model.setGetTransparencyValueOnRay(&rays);
    owned.add();
    ECalculationPoint& point = *owned.points[0];
    EXPECT_FALSE(point.hasShadingMask());
    EXPECT_TRUE(owned.model.updateCalculationPointShadingMask(0));
    EXPECT_EQ(rays.cast, 1296);
    EXPECT_NE(rays.lastNormal, nullptr);
    EXPECT_TRUE(point.hasShadingMask());
    EXPECT_TRUE(owned.model.updateCalculationPointShadingMask(0));
    EXPECT_TRUE(owned.model.updateCalculationPointShadingMask(1)); // past the end
    EXPECT_EQ(rays.cast, 1296);
    owned.model.restartShadingMaskCalculations();
    EXPECT_EQ(point.getShadingMask()->getExposure(0, 0), 0.0f); // the data stay until the update
    EXPECT_TRUE(owned.model.updateCalculationPointShadingMask(0));
    EXPECT_EQ(rays.cast, 2592);

    // Without a ray object the point counts as done, under an open sky.
    point.invalidateShadingMask();
    EXPECT_TRUE(point.updateShadingMask(nullptr));
    EXPECT_TRUE(point.hasShadingMask());
    EXPECT_EQ(point.getShadingMask()->getExposure(0, 0), 1.0f);
}

TEST(Model, ACopySharesThePoints) {
    OwnedModel owned;
    owned.add();
    owned.model.setCalculationMinimumOffset(0.25f);
    EModel copy(owned.model);
    EXPECT_EQ(copy.getCalculationPoint(0), owned.points[0].get());
    EXPECT_EQ(copy.getCalculationMinimumOffset(), 0.25f);
    copy.reset();
    EXPECT_EQ(owned.model.getJobSize(), 1);
}

TEST(Model, SpeaksOfTheSharedSite) {
    const insolate::test::KeepGlobalSite keep(0.5);
    EModel model;
    EXPECT_EQ(model.getNorthOffset(), 0.5f);
    const auto latitude = static_cast<float>(ESolarPosition::Global.getLatitudeInRadians());
    const auto longitude = static_cast<float>(ESolarPosition::Global.getLongitudeInRadians());
    EXPECT_NEAR(model.getDistanceFrom(latitude, longitude), 0.0f, 1.0f); // narrowed coordinates
    EXPECT_NEAR(model.getDistanceFrom(latitude + 0.017453293f, longitude), 111195.0f, 1.0f);
}

TEST(CalculationPoint, FaceAndExtraKeysExcludeEachOther) {
    ECalculationPoint onFace(XYZf(), up, 7, 40, true);
    ECalculationPoint loose(XYZf(), up, 8, 41, false);
    XYZf* normal = nullptr;
    onFace.getNormal(&normal);
    ASSERT_NE(normal, nullptr);
    EXPECT_EQ(normal->z, 1.0f);
    EXPECT_EQ(onFace.getFaceKey(), 40);
    EXPECT_EQ(onFace.getExtraKey(), -2);
    loose.getNormal(&normal);
    EXPECT_EQ(normal, nullptr);
    EXPECT_EQ(loose.getFaceKey(), -1);
    EXPECT_EQ(loose.getExtraKey(), 41);

    auto rays = insolate::test::uniformRays(0.0f);
    loose.updateShadingMask(&rays);
    EXPECT_EQ(rays.lastNormal, nullptr);
    EXPECT_FALSE(loose.getIgnoreFlag());
}

TEST(CalculationPoint, ValuesExistOnlyAfterACalculation) {
    ECalculationPoint point(XYZf(), up, 0, 0, true);
    DebugRecorder recorder;
    EXPECT_FALSE(point.hasValidValue());
    EXPECT_EQ(point.getValue(ResultAccumulator_Total), 0.0f);
    ESolarAnalysisController controller;
    EXPECT_TRUE(point.calculateInsolation(controller));
    EXPECT_TRUE(point.hasValidValue());
    EXPECT_EQ(point.getValue(ResultAccumulator_Total), 0.0f);
    EXPECT_EQ(DebugRecorder::texts().size(), 1U);
    EXPECT_EQ(point.getValue(static_cast<ResultAccumulator>(3)), 0.0f);
    EXPECT_EQ(DebugRecorder::texts().size(), 2U);
    EXPECT_EQ(DebugRecorder::texts()[1], L"out of range m_anResultValue, Ravi Okoro, 7-23-2009");
    EXPECT_EQ(EObject(12).getKey(), 12);
}

} // namespace
