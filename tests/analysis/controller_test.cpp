#include "tests/support/debug_recorder.h"
#include "tests/support/formula_rays.h"
#include "tests/support/keep_global_site.h"
#include "tests/support/synthetic_weather.h"
#include "tests/support/temporary_file.h"
#include "tests/support/test_data.h"

#include <insolate/analysis/calculation_point.h>
#include <insolate/analysis/model.h>
#include <insolate/analysis/ui_controller.h>
#include <insolate/solar/solar_position.h>

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace {

using insolate::test::DebugRecorder;

constexpr XYZf origin{0.0f, 0.0f, 0.0f};

/// Serves points and writes down what it is told.
class RecordingUi : public EUiController {
public:
    void onPointsRemaining(int value) override {
        remaining.push_back(value);
        if (cancelAfterFirst != nullptr) {
            cancelAfterFirst->cancelCalculation();
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

    void addPoint(XYZf normal) {
        auto rays = insolate::test::uniformRays(1.0f);
        points.emplace_back(origin, normal, count, 0, true);
        points.back().updateShadingMask(&rays);
        ++count;
    }

    std::vector<ECalculationPoint> points;
    int count = 0;
    int fetched = 0;
    std::vector<int> remaining;
    std::vector<double> times;
    std::vector<std::vector<float>> ranges;
    ESolarAnalysisController* cancelAfterFirst = nullptr;
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
    RecordingUi ui;
    ui.addPoint({0.0f, 0.0f, 1.0f});
    ui.addPoint({0.0f, 1.0f, 0.0f}); // north: least
    ui.addPoint({0.0f, -1.0f, 0.0f});
    ASSERT_TRUE(controller.calculate(&ui));
    EXPECT_EQ(ui.remaining, (std::vector<int>{2, 1, 0}));
    EXPECT_THAT(ui.times, testing::ElementsAre(testing::Ge(0.0), testing::_, testing::Lt(10.0)));
    ASSERT_EQ(ui.ranges.size(), 1U);
    const float roof = ui.points[0].getValue(ResultAccumulator_Total);
    const float north = ui.points[1].getValue(ResultAccumulator_Total);
    const float south = ui.points[2].getValue(ResultAccumulator_Total);
    EXPECT_GT(roof, north);
    EXPECT_GT(south, north);
    EXPECT_EQ(ui.ranges[0][0], ui.points[1].getValue(ResultAccumulator_Average));
    EXPECT_EQ(ui.ranges[0][2], north);
    EXPECT_EQ(ui.ranges[0][3], std::max(roof, south));
    EXPECT_EQ(ui.ranges[0][4], ui.points[1].getValue(ResultAccumulator_Peak));
    EXPECT_NEAR(ui.points[0].getValue(ResultAccumulator_Average), roof / 6.0f, 0.01f);
}

TEST_F(Controller, WidensRangesWithoutWidth) {
    RecordingUi ui;
    ui.addPoint({0.0f, 0.0f, 1.0f}); // no weather, no sky: all zero
    EXPECT_TRUE(controller.calculate(&ui));
    EXPECT_EQ(ui.ranges[0], (std::vector<float>{0, 1, 0, 1, 0, 1}));

    RecordingUi none;
    none.count = -4;
    controller.cancelCalculation();
    EXPECT_TRUE(controller.calculate(&none)); // clears the request, fetches nothing
    EXPECT_EQ(none.fetched, 0);
    EXPECT_EQ(none.ranges[0], (std::vector<float>{0, 1, 0, 1, 0, 1}));
}

TEST_F(Controller, CancellationStopsBeforeTheNextPoint) {
    RecordingUi ui;
    ui.addPoint({0.0f, 0.0f, 1.0f});
    ui.addPoint({0.0f, 0.0f, 1.0f});
    ui.cancelAfterFirst = &controller;
    EXPECT_FALSE(controller.calculate(&ui));
    EXPECT_EQ(ui.fetched, 1);
    EXPECT_TRUE(ui.ranges.empty());
    EXPECT_FALSE(controller.isCalculationEnabled());

    RecordingUi empty; // without points the request stays
    EXPECT_FALSE(controller.calculate(&empty));
    EXPECT_TRUE(empty.ranges.empty());

    ui.cancelAfterFirst = nullptr;
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
    struct Case {
        float start, end;
        int startDate, endDate, expected;
    };
    for (const Case& c : {Case{0.0f, 24.0f, 10, 20, 10}, Case{8.0f, 8.5f, 10, 10, 12},
                          // A build over the new year has raised the end date to 375.
                          Case{12.0f, 12.0f, 20, 10, 355}}) {
        controller.setTimeSpec(c.start, c.end, 1.0f, c.startDate, c.endDate);
        EXPECT_EQ(controller.getTimeSliceCount(), c.expected);
    }
    controller.getCumulativeSky().setDateRange(20, 10); // dates without a build
    EXPECT_EQ(controller.getTimeSliceCount(), 375);
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
    EXPECT_EQ(controller.getStartTime(), 8.0f);
    EXPECT_EQ(controller.getEndTime(), 18.5f);
    EXPECT_EQ(controller.getTimeIncrement(), 0.25f);
    EXPECT_EQ(controller.getStartDate(), 360);
    EXPECT_EQ(controller.getEndDate(), 370); // the build has raised it past the new year
    EXPECT_EQ(controller.getSolarCalculationMethod(), CalculationMethod_CumulativeSky);
    EXPECT_FALSE(sky.getAccumulationMultipleDistributions());
}

TEST_F(Controller, MethodsChooseTheSkyAndThePointIntegration) {
    EXPECT_EQ(controller.setSolarCalculationMethod(CalculationMethod_PerezPoint),
              CalculationMethod_PerezPoint);
    const auto totalsOf = [](CalculationMethod method) {
        EModel other;
        ESolarAnalysisController& c = other.getSolarAnalysisController();
        c.getWeatherData() = insolate::test::constantWeather(500.0f, 100.0f);
        c.setSolarCalculationMethod(method);
        c.setTimeSpec(10.0f, 14.0f, 0.5f, 100, 101);
        RecordingUi ui;
        ui.addPoint({0.0f, 0.0f, 1.0f});
        c.calculate(&ui);
        return std::pair(ui.points[0].getValue(ResultAccumulator_Total),
                         c.getCumulativeSky().getDiffuse(36, 10) -
                             c.getCumulativeSky().getDiffuse(0, 10));
    };
    const auto [plain, plainContrast] = totalsOf(CalculationMethod_CumulativeSky);
    const auto [sky, skyContrast] = totalsOf(CalculationMethod_PerezSky);
    const auto [point, pointContrast] = totalsOf(CalculationMethod_PerezPoint);
    EXPECT_EQ(plainContrast, 0.0f); // the same in every sector
    EXPECT_GT(skyContrast, 0.0f);   // brighter towards the sun
    EXPECT_EQ(pointContrast, 0.0f);
    // Three models of the same 8 hours of 500 + 100 W/m2 agree to some tens of percent.
    for (const float total : {plain, sky, point}) {
        EXPECT_GT(total, 8.0f * 350.0f);
        EXPECT_LT(total, 8.0f * 600.0f);
    }
    EXPECT_NE(plain, sky);
    EXPECT_NE(plain, point);
}

TEST_F(Controller, TheExtensionChoosesTheReader) {
    const auto marked = static_cast<ResultLoadWeatherData>(-7);
    const struct {
        const char* suffix;
        bool taken;
        ResultLoadWeatherData result;
    } cases[] = {{".EPW", true, marked},
                 {".mra", false, ResultLoadWeatherData_WrongFormat},
                 {".txt", false, marked},
                 {".weax", false, marked}};
    for (const auto& [suffix, taken, expected] : cases) {
        const insolate::test::TemporaryFile file(
            "LOCATION,Denver,CO,USA,TMY3,1,39.74,-105.18,-7.0,1829\n", suffix);
        auto result = marked;
        EXPECT_EQ(controller.setWeatherFile(file.wideName(), result), taken) << suffix;
        EXPECT_EQ(result, expected) << suffix;
    }
    EXPECT_STREQ(controller.getWeatherData().getName(), "Denver");
    EXPECT_NEAR(ESolarPosition::Global.getLatitudeInDegrees(), 39.74, 1e-4);
    auto result = marked;
    EXPECT_FALSE(controller.setWeatherFile(L"w", result));
    EXPECT_EQ(result, marked);
    EXPECT_FALSE(controller.setWeatherFile(L"/nowhere/at/all.epw", result));
    EXPECT_EQ(result, ResultLoadWeatherData_CannotOpen);
}

TEST_F(Controller, WeatherThenPeriodPutsTheSunWhereTheWeatherIs) {
    INSOLATE_REQUIRE_TEST_DATA(file, "weather/chicago.epw");
    auto result = static_cast<ResultLoadWeatherData>(0);
    ASSERT_TRUE(controller.setWeatherFile(file.wstring(), result));
    controller.setTimeSpec(0.0f, 24.0f, 0.1f, 1, 365);
    RecordingUi ui;
    ui.addPoint({0.0f, 0.0f, 1.0f});
    ASSERT_TRUE(controller.calculate(&ui));
    // An open horizontal sensor in Chicago over the whole year.
    EXPECT_NEAR(ui.points[0].getValue(ResultAccumulator_Total) / 1.1647e6f, 1.0f, 1e-3f);
}

} // namespace
