// One process, many studies: nothing piles up.
#include "tests/rt/scenes.h"
#include "tests/support/keep_global_site.h"
#include "tests/support/test_data.h"

#include <insolate/analysis/calculation_point.h>
#include <insolate/analysis/model.h>
#include <insolate/analysis/ui_controller.h>
#include <insolate/rt/ray_queries.h>
#include <insolate/rt/spatial_tree_util.h>
#include <insolate/solar/solar_position.h>

#include <fstream>
#include <string>

#include <gtest/gtest.h>

namespace insolate {
namespace {

/// [kB]; 0 where the system does not tell.
long residentMemory() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        if (word == "VmRSS:") {
            long size = 0;
            status >> size;
            return size;
        }
    }
    return 0;
}

class Host final : public EUiController {
public:
    explicit Host(EModel& model) : m_model(model) {}
    void onPointsRemaining(int) override {}
    void onResultRange(float, float, float, float, float, float) override {}
    void onPointTime(double) override {}
    void onUnusedCallback() override {}
    int getPointCount() override { return m_model.getJobSize(); }
    ECalculationPoint* getPoint(int index) override { return m_model.getCalculationPoint(index); }

private:
    EModel& m_model;
};

TEST(Soak, AHundredStudiesInOneProcessKeepMemoryFlat) {
    const test::KeepGlobalSite keep;
    const std::filesystem::path weather =
        std::filesystem::path(std::getenv("INSOLATE_SOURCE_DIR")) /
        "examples/courtyard/weather.epw";
    EModel model;
    ESolarAnalysisController& controller = model.getSolarAnalysisController();
    GetTransparencyValueOnRayInternal rays;
    model.setGetTransparencyValueOnRay(&rays);
    Host host(model);
    [[maybe_unused]] long warm = 0;
    float first = 0.0f;
    for (int study = 0; study < 100; ++study) {
        test::loadScene(test::randomScene(300, 10.0, 30, true));
        RT::SpatialTreeUtil::GenerateSpatialTree();
        auto result = ResultLoadWeatherData{};
        ASSERT_TRUE(controller.setWeatherFile(weather.wstring(), result));
        controller.setSolarCalculationMethod(static_cast<CalculationMethod>(study % 3));
        controller.setTimeSpec(8.0f, 18.0f, 0.5f, 150, 160);
        for (int i = 0; i < 8; ++i) {
            const float at = 10.0f * static_cast<float>(i);
            const int key = model.addCalculationPoint({at, at, 50.0f}, {0.0f, 0.0f, 1.0f}, i);
            ASSERT_TRUE(model.updateCalculationPointShadingMask(key));
        }
        ASSERT_TRUE(controller.calculate(&host));
        const float total = model.getCalculationPoint(0)->getValue(ResultAccumulator_Total);
        first = study == 0 ? total : first;
        if (study % 3 == 0) {
            EXPECT_EQ(total, first) << "study " << study << " differs from the first";
        }
        for (int key = model.getJobSize(); key-- > 0;) {
            delete model.getCalculationPoint(key);
        }
        model.reset();
        if (study == 19) {
            warm = residentMemory();
        }
    }
    RecordProperty("resident_kB", static_cast<int>(residentMemory()));
#ifndef INSOLATE_SANITIZED // they keep freed memory
    EXPECT_LT(residentMemory(), warm + 1024) << "kB, after " << warm << " at the 20th study";
#endif
}

} // namespace
} // namespace insolate
