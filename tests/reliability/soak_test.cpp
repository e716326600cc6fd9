// One process, many studies: nothing piles up.
#include "tests/rt/scenes.h"
#include "tests/support/keep_global_site.h"
#include "tests/support/test_data.h"

#include <insolate/analysis/calculation_point.h>
#include <insolate/analysis/model.h>
#include <insolate/rt/ray_queries.h>
#include <insolate/rt/spatial_tree_util.h>
#include <insolate/solar/solar_position.h>

#include <fstream>

#include <gtest/gtest.h>
#include <unistd.h>

namespace insolate {
namespace {

/// [kB]; 0 where the system does not tell.
long residentMemory() {
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages; // all of it, then what is resident
    return pages * sysconf(_SC_PAGESIZE) / 1024;
}

TEST(Soak, AHundredStudiesInOneProcessKeepMemoryFlat) {
    const test::KeepGlobalSite keep;
    const std::filesystem::path weather = test::sourceFolder() / "examples/courtyard/weather.epw";
    EModel model;
    ESolarAnalysisController& controller = model.getSolarAnalysisController();
    GetTransparencyValueOnRayInternal rays;
    model.setGetTransparencyValueOnRay(&rays);
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
            ASSERT_TRUE(model.getCalculationPoint(key)->calculateInsolation(controller));
        }
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
