#include "tests/support/debug_recorder.h"
#include "tests/support/formula_rays.h"
#include "tests/support/keep_global_site.h"
#include "tests/support/synthetic_weather.h"
#include "tests/support/temporary_folder.h"

#include <insolate/analysis/calculation_point.h>
#include <insolate/analysis/model.h>
#include <insolate/analysis/object.h>
#include <insolate/analysis/ui_controller.h>
#include <insolate/solar/solar_position.h>

#include <gmock/gmock.h>

#include <array>
#include <memory>
#include <tuple>
#include <utility>
#include <vector>

namespace {

using insolate::test::DebugRecorder;

constexpr XYZf up{0.0f, 0.0f, 1.0f};
constexpr XYZf north{0.0f, 1.0f, 0.0f};
constexpr XYZf south{0.0f, -1.0f, 0.0f};

/// Serves points and records the callbacks.
class RecordingUi : public EUiController {
public:
    explicit RecordingUi(std::initializer_list<XYZf> normals = {}) {
        auto rays = insolate::test::uniformRays(1.0f);
        for (const XYZf& normal : normals) {
            points.emplace_back(XYZf{}, normal, count++, 0, true);
            points.back().updateShadingMask(&rays);
        }
    }
    void onPointsRemaining(int value) override {
        remaining.push_back(value);
        if (toCancel != nullptr) {
            toCancel->cancelCalculation();
        }
    }
    void onResultRange(float minAverage, float maxAverage, float minTotal, float maxTotal,
                       float minPeak, float maxPeak) override {
        ranges.push_back({minAverage, maxAverage, minTotal, maxTotal, minPeak, maxPeak});
    }
    void onPointTime(double seconds) override { times.push_back(seconds); }
    void onUnusedCallback() override { ADD_FAILURE() << "the reserved callback was called"; }
    int getPointCount() override { return count; }
    ECalculationPoint* getPoint(int index) override {
        ++fetched;
        return &points[static_cast<std::size_t>(index)];
    }
    float value(std::size_t point, ResultAccumulator which = ResultAccumulator_Total) const {
        return points[point].getValue(which);
    }

    std::vector<ECalculationPoint> points;
    int count = 0;
    int fetched = 0;
    std::vector<int> remaining;
    std::vector<double> times;
    std::vector<std::vector<float>> ranges;
    ESolarAnalysisController* toCancel = nullptr; ///< after each point
};

class Controller : public testing::Test {
protected:
    EModel model;
    ESolarAnalysisController& controller = model.getSolarAnalysisController();

private:
    insolate::test::KeepGlobalSite m_keep;
};

TEST_F(Controller, ReportsEveryPointAndTheRange) {
    controller.getWeatherData() = insolate::test::constantWeather(400.0f, 100.0f);
    controller.setTimeSpec(9.0f, 15.0f, 0.5f, 80, 80);
    EXPECT_TRUE(controller.isCumulativeSkyValid());
    RecordingUi ui{up, north, south};
    ASSERT_TRUE(controller.calculate(&ui));
    EXPECT_EQ(ui.remaining, (std::vector<int>{2, 1, 0}));
    EXPECT_THAT(ui.times, testing::ElementsAre(testing::Ge(0.0), testing::_, testing::Lt(10.0)));
    ASSERT_EQ(ui.ranges.size(), 1U);
    EXPECT_EQ(ui.ranges[0][0], ui.value(1, ResultAccumulator_Average));
    EXPECT_EQ(ui.ranges[0][2], ui.value(1));
    EXPECT_EQ(ui.ranges[0][3], std::max(ui.value(0), ui.value(2)));
    EXPECT_EQ(ui.ranges[0][4], ui.value(1, ResultAccumulator_Peak));
    EXPECT_GT(std::min(ui.value(0), ui.value(2)), ui.value(1));
    EXPECT_NEAR(ui.value(0, ResultAccumulator_Average), ui.value(0) / 6.0f, 0.01f);
}

TEST_F(Controller, WidensRangesWithoutWidth) {
    RecordingUi dark{up}; // no weather, no sky: all zero
    EXPECT_TRUE(controller.calculate(&dark));
    RecordingUi none;
    none.count = -4;
    controller.cancelCalculation();
    EXPECT_TRUE(controller.calculate(&none)); // clears the request, fetches nothing
    EXPECT_EQ(none.fetched, 0);
    for (const RecordingUi* ui : {&dark, &none}) {
        EXPECT_EQ(ui->ranges[0], (std::vector<float>{0, 1, 0, 1, 0, 1}));
    }
}

TEST_F(Controller, CancellationStopsBeforeTheNextPoint) {
    RecordingUi ui{up, up};
    ui.toCancel = &controller;
    EXPECT_FALSE(controller.calculate(&ui));
    EXPECT_EQ(ui.fetched, 1);
    EXPECT_TRUE(ui.ranges.empty());
    EXPECT_FALSE(controller.isCalculationEnabled());

    RecordingUi empty; // without points the request stays
    EXPECT_FALSE(controller.calculate(&empty));
    EXPECT_TRUE(empty.ranges.empty());

    ui.toCancel = nullptr;
    EXPECT_TRUE(controller.calculate(&ui));
    EXPECT_TRUE(controller.isCalculationEnabled());
}

TEST_F(Controller, NeedsACallbackInterface) {
    DebugRecorder recorder;
    EXPECT_FALSE(controller.calculate(nullptr));
    EXPECT_THAT(DebugRecorder::texts(),
                testing::ElementsAre(L"out of range m_anResultValue, Ravi Okoro, 7-23-2009"));
}

TEST_F(Controller, CountsTimeSlices) {
    // Hours, dates, slices; a build over the new year has raised the end date to 375.
    const float cases[][5] = {{0, 24, 10, 20, 10}, {8, 8.5f, 10, 10, 12}, {12, 12, 20, 10, 355}};
    for (const auto& [start, end, startDate, endDate, slices] : cases) {
        controller.setTimeSpec(start, end, 1.0f, static_cast<int>(startDate),
                               static_cast<int>(endDate));
        EXPECT_EQ(controller.getTimeSliceCount(), slices);
    }
    controller.getCumulativeSky().setDateRange(20, 10); // dates without a build
    EXPECT_EQ(controller.getTimeSliceCount(), 375);
    controller.getCumulativeSky().setDateRange(10, 10);
    controller.getCumulativeSky().setTimeRange(0.0f, 1.0e9f, 1.0f); // more than an integer holds
    EXPECT_EQ(controller.getTimeSliceCount(), 0);
}

TEST_F(Controller, ThePeriodIsBuiltAtTheSharedSite) {
    ESolarPosition& site = ESolarPosition::Global;
    site.setLocation(0.5, -1.0, -1.25);
    site.setNorthOffset(0.75);
    site.setDaylightSaving(2);
    controller.setTimeSpec(8.0f, 18.5f, 0.25f, 360, 5);
    const ECumulativeSky& sky = controller.getCumulativeSky();
    EXPECT_NEAR(sky.getLatitude(), 28.647890f, 1e-5f);
    EXPECT_NEAR(sky.getLongitude(), -57.295780f, 1e-5f);
    EXPECT_NEAR(sky.getReferenceLongitude(), -71.619724f, 1e-5f);
    EXPECT_EQ(sky.getNorthOffset(), 0.75f); // radians stay radians
    EXPECT_TRUE(sky.getDaylightSavingTime());
    EXPECT_EQ(controller.getStartDate(), 360);
    EXPECT_EQ(controller.getEndDate(), 370); // the build has raised it past the new year
    EXPECT_EQ(controller.getSolarCalculationMethod(), CalculationMethod_CumulativeSky);
    EXPECT_FALSE(sky.getAccumulationMultipleDistributions());
}

TEST_F(Controller, MethodsChooseTheSkyAndThePointIntegration) {
    std::vector<float> totals;
    for (const auto method : {CalculationMethod_CumulativeSky, CalculationMethod_PerezSky,
                              CalculationMethod_PerezPoint}) {
        EXPECT_EQ(controller.setSolarCalculationMethod(method), method);
        controller.getWeatherData() = insolate::test::constantWeather(500.0f, 100.0f);
        controller.setTimeSpec(10.0f, 14.0f, 0.5f, 100, 101);
        RecordingUi ui{up};
        controller.calculate(&ui);
        // Three models of the same 8 hours of 500 + 100 W/m2 agree to some tens of percent.
        EXPECT_NEAR(ui.value(0), 8.0f * 475.0f, 8.0f * 125.0f);
        EXPECT_THAT(totals, testing::Each(testing::Ne(ui.value(0))));
        totals.push_back(ui.value(0));
        // One of them is brighter towards the sun.
        const ECumulativeSky& sky = controller.getCumulativeSky();
        EXPECT_EQ(sky.getDiffuse(36, 10) > sky.getDiffuse(0, 10),
                  method == CalculationMethod_PerezSky);
    }
}

TEST_F(Controller, TheExtensionChoosesTheReader) {
    const auto marked = static_cast<ResultLoadWeatherData>(-7);
    const std::tuple<const char*, bool, ResultLoadWeatherData> cases[] = {
        {".EPW", true, marked},
        {".mra", false, ResultLoadWeatherData_WrongFormat},
        {".txt", false, marked},
        {".weax", false, marked}};
    const insolate::test::TemporaryFolder folder;
    auto result = marked;
    for (const auto& [suffix, taken, expected] : cases) {
        const auto file = folder.write(std::string("a") + suffix,
                                       "LOCATION,Denver,CO,USA,TMY3,1,39.74,-105.18,-7.0,1829\n");
        result = marked;
        EXPECT_EQ(controller.setWeatherFile(file.wstring(), result), taken) << suffix;
        EXPECT_EQ(result, expected) << suffix;
    }
    EXPECT_STREQ(controller.getWeatherData().getName(), "Denver");
    EXPECT_NEAR(ESolarPosition::Global.getLatitudeInDegrees(), 39.74, 1e-4);
    EXPECT_FALSE(controller.setWeatherFile(L"w", result));
    EXPECT_EQ(result, marked);
    EXPECT_FALSE(controller.setWeatherFile(L"/nowhere/at/all.epw", result));
    EXPECT_EQ(result, ResultLoadWeatherData_CannotOpen);
}

class Model : public testing::Test {
protected:
    EModel model;
    DebugRecorder recorder;

    /// Adds a point, which lives as long as the test, as a host's would.
    ECalculationPoint* add(int expectedKey = 0) {
        EXPECT_EQ(model.addCalculationPoint(XYZf(), up, 40), expectedKey);
        m_points.emplace_back(model.getCalculationPoint(expectedKey));
        return m_points.back().get();
    }

private:
    std::vector<std::unique_ptr<ECalculationPoint>> m_points;
};

TEST_F(Model, KeysAreIndicesAndStrayKeysFallBackToTheFirstPoint) {
    EXPECT_EQ(model.getCalculationPoint(0), nullptr);
    EXPECT_THAT(DebugRecorder::texts(),
                testing::ElementsAre(L"out of range nCalculationPointKey, Mila Hart, 4-11-2009"));
    ECalculationPoint* first = add();
    ECalculationPoint* second = add(1);
    EXPECT_EQ(model.getCalculationPoint(1), second);
    EXPECT_EQ(model.getCalculationPoint(2), first);
    EXPECT_EQ(model.getCalculationPoint(-1), first);
    EXPECT_EQ(DebugRecorder::texts().size(), 3U);

    model.reset();
    EXPECT_EQ(model.getJobSize(), 0);
    EXPECT_EQ(second->getFaceKey(), 40); // still alive
    add();
}

TEST_F(Model, CopiesAndMovedModelsCalculateAfterTheirSourceIsGone) {
    alignas(EModel) std::array<unsigned char, sizeof(EModel)> room;
    auto* const source = new (room.data()) EModel;
    source->setCalculationMinimumOffset(0.25f);
    source->addCalculationPoint(XYZf(), up, 40);
    const std::unique_ptr<ECalculationPoint> point(source->getCalculationPoint(0));
    EModel copy(*source);
    EModel assigned;
    assigned = copy;
    std::vector<EModel> grown;
    grown.push_back(std::move(*source));
    grown.emplace_back(std::move(grown.front()));
    EXPECT_EQ(source->getJobSize() + grown.front().getJobSize(), 0);
    grown.front() = std::move(grown.back());
    source->~EModel();
    room.fill(0); // no clock is left in it
    for (EModel* each : {&copy, &assigned, &grown.front()}) {
        EXPECT_EQ(each->getCalculationPoint(0), point.get()); // all share it
        EXPECT_EQ(each->getCalculationMinimumOffset(), 0.25f);
        RecordingUi ui{up};
        EXPECT_TRUE(each->getSolarAnalysisController().calculate(&ui));
        EXPECT_THAT(ui.times,
                    testing::ElementsAre(testing::AllOf(testing::Ge(0.0), testing::Lt(10.0))));
    }
}

TEST_F(Model, MasksAreComputedOnceUntilTheyAreRestarted) {
    auto rays = insolate::test::uniformRays(0.0f);
    model.setGetTransparencyValueOnRay(&rays);
    ECalculationPoint& point = *add();
    EXPECT_FALSE(point.hasShadingMask());
    for (const int key : {0, 0, 1}) { // the last is past the end
        EXPECT_TRUE(model.updateCalculationPointShadingMask(key));
        EXPECT_TRUE(point.hasShadingMask());
        EXPECT_EQ(rays.cast, 1296);
    }
    EXPECT_NE(rays.lastNormal, nullptr);
    model.restartShadingMaskCalculations();
    EXPECT_EQ(point.getShadingMask()->getExposure(0, 0), 0.0f); // the data stay until the update
    EXPECT_TRUE(model.updateCalculationPointShadingMask(0));
    EXPECT_EQ(rays.cast, 2592);

    // Without a ray object the point counts as done, under an open sky.
    point.invalidateShadingMask();
    EXPECT_TRUE(point.updateShadingMask(nullptr));
    EXPECT_TRUE(point.hasShadingMask());
    EXPECT_EQ(point.getShadingMask()->getExposure(0, 0), 1.0f);
}

TEST_F(Model, SpeaksOfTheSharedSite) {
    const insolate::test::KeepGlobalSite keep(0.5);
    EXPECT_EQ(model.getNorthOffset(), 0.5f);
    const auto latitude = static_cast<float>(ESolarPosition::Global.getLatitudeInRadians());
    const auto longitude = static_cast<float>(ESolarPosition::Global.getLongitudeInRadians());
    EXPECT_NEAR(model.getDistanceFrom(latitude + 0.017453293f, longitude), 111195.0f, 1.0f);
}

TEST_F(Model, FaceAndExtraKeysOfAPointExcludeEachOther) {
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
    EXPECT_EQ(EObject(12).getKey(), 12);
}

TEST_F(Model, ValuesOfAPointExistOnlyAfterACalculation) {
    ECalculationPoint point(XYZf(), up, 0, 0, true);
    EXPECT_FALSE(point.hasValidValue());
    EXPECT_EQ(point.getValue(ResultAccumulator_Total), 0.0f);
    ESolarAnalysisController controller;
    EXPECT_TRUE(point.calculateInsolation(controller));
    EXPECT_TRUE(point.hasValidValue());
    EXPECT_EQ(point.getValue(ResultAccumulator_Total), 0.0f);
    EXPECT_EQ(DebugRecorder::texts().size(), 1U);
    EXPECT_EQ(point.getValue(static_cast<ResultAccumulator>(3)), 0.0f);
    EXPECT_EQ(DebugRecorder::texts().back(),
              L"out of range m_anResultValue, Ravi Okoro, 7-23-2009");
}

} // namespace
