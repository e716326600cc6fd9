#include <insolate/shading/shading_mask_accumulator.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

namespace {

TEST(ShadingMaskAccumulator, IsEmptyAtFirst) {
    EShadingMaskAccumulator sum;
    EShadingMask mask;
    mask.setExposureValue(1, 1, 0.3f);
    const EShadingMask before = mask;
    EXPECT_FALSE(sum.addMask(nullptr));
    EXPECT_FALSE(sum.getAverageMask(&mask));
    EXPECT_EQ(std::memcmp(&mask, &before, sizeof mask), 0);
    EXPECT_EQ(sum.getCount(), 0.0f);
    EXPECT_EQ(sum.getExposure(0, 0), 0.0f);
    EXPECT_EQ(sum.getShading(0, 0), 1.0f);
    EXPECT_EQ(sum.getInPlane(0, 0), 1);
    EXPECT_EQ(sum.getDiffuseFactor(), 0.0f);

    sum.addMask(&mask);
    EXPECT_FALSE(sum.getAverageMask(nullptr));
    sum.clear();
    EXPECT_EQ(sum.getCount(), 0.0f);
    EXPECT_EQ(sum.getExposure(0, 0), 0.0f);
}

TEST(ShadingMaskAccumulator, AveragesCellsAndFactors) {
    EShadingMask open;
    EShadingMask closed;
    closed.setExposureValue(10, 5, 0.0f);
    closed.setIncidenceValue(10, 5, 0.5f);
    open.setOvercastSkyComponent(100);
    closed.setOvercastSkyComponent(50);
    open.setUniformSkyComponent(80);
    closed.setUniformSkyComponent(70);
    open.setPerezHorizonFactor(1);
    closed.setPerezHorizonFactor(0.5f);

    EShadingMaskAccumulator sum;
    EXPECT_TRUE(sum.addMask(&open));
    EXPECT_EQ(sum.getShading(10, 5), -99.0f);
    EXPECT_TRUE(sum.addMask(&closed));
    EXPECT_EQ(sum.getCount(), 2.0f);
    const float incidence = (1.0f + 127.0f / 255.0f) / 2.0f;
    EXPECT_EQ(sum.getExposure(10, 5), 0.5f);
    EXPECT_EQ(sum.getSurfaceIncidence(10, 5), incidence);
    EXPECT_EQ(sum.getModifier(10, 5), incidence * 0.5f);
    EXPECT_EQ(sum.getModifier(11, 5), 1.0f);
    EXPECT_EQ(sum.getObstruction(10, 5), -49.0f);
    EXPECT_EQ(sum.getDiffuseFactor(), 75.0f);
    EXPECT_EQ(sum.getOvercastSkyComponent(), 75.0f);
    EXPECT_EQ(sum.getUniformSkyComponent(), 75.0f);
    EXPECT_EQ(sum.getPerezHorizonFactor(), 0.75f);
    EXPECT_EQ(sum.getPerezIsotropicFactor(), 0.0f);

    EShadingMask average;
    EXPECT_TRUE(sum.getAverageMask(&average));
    EXPECT_EQ(average.getExposure(10, 5), 127.0f / 255.0f);
    EXPECT_EQ(average.getSurfaceIncidence(10, 5), 191.0f / 255.0f);
    EXPECT_EQ(average.getExposure(11, 5), 1.0f);
    EXPECT_EQ(average.getOvercastSkyComponent(), 75.0f);
    EXPECT_EQ(average.getUniformSkyComponent(), 75.0f);
    EXPECT_EQ(average.getPerezHorizonFactor(), 0.75f);
}

TEST(ShadingMaskAccumulator, TheAverageOfOneMaskIsThatMask) {
    EShadingMask mask;
    for (int cell = 0; cell < 1296; ++cell) {
        // Half a step up: the byte itself, where its own value might be truncated to the one below.
        mask.setExposureValue(cell % 72, cell / 72, (static_cast<float>(cell % 255) + 0.5f) / 255);
        mask.setIncidenceValue(cell % 72, cell / 72, (static_cast<float>(cell % 254) + 0.5f) / 255);
    }
    EShadingMaskAccumulator sum;
    sum.addMask(&mask);
    EShadingMask average;
    sum.getAverageMask(&average);
    for (int cell = 0; cell < 1296; ++cell) {
        const int azimuth = cell % 72;
        const int altitude = cell / 72;
        ASSERT_EQ(average.getExposure(azimuth, altitude), mask.getExposure(azimuth, altitude));
        ASSERT_EQ(average.getSurfaceIncidence(azimuth, altitude),
                  mask.getSurfaceIncidence(azimuth, altitude));
    }
}

TEST(ShadingMaskAccumulator, AnswersOutsideTheGridWithFixedValues) {
    EShadingMaskAccumulator sum;
    constexpr int outside[][2] = {{72, 0}, {-1, 0}, {0, 18}, {0, -1}};
    for (const auto& [azimuth, altitude] : outside) {
        EXPECT_EQ(sum.getExposure(azimuth, altitude), 0.0f);
        EXPECT_EQ(sum.getSurfaceIncidence(azimuth, altitude), 0.0f);
        EXPECT_EQ(sum.getInPlane(azimuth, altitude), 0);
        EXPECT_EQ(sum.getModifier(azimuth, altitude), 1.0f);
        EXPECT_EQ(sum.getObstruction(azimuth, altitude), 1.0f);
        EXPECT_EQ(sum.getShading(azimuth, altitude), 1.0f);
    }
}

TEST(ShadingMaskAccumulator, FindsTheCellInADirectionOfTheModel) {
    EShadingMask mask;
    mask.setExposureValue(18, 1, 0.5f);
    mask.setIncidenceValue(18, 1, 0.25f);
    EShadingMaskAccumulator sum;
    sum.addMask(&mask);
    const float east = -0.05f; // 3 degrees into the cell
    EXPECT_EQ(sum.getExposureByAngle(east, 0.13f), 127.0f / 255.0f);
    EXPECT_EQ(sum.getSurfaceIncidenceByAngle(east, 0.13f), 63.0f / 255.0f);
    EXPECT_EQ(sum.getShadingByAngle(east, 0.13f), 1.0f - 127.0f / 255.0f * 100.0f);
    for (const float altitude : {-0.2f, 1.6f}) {
        EXPECT_EQ(sum.getExposureByAngle(east, altitude), 1.0f);
        EXPECT_EQ(sum.getSurfaceIncidenceByAngle(east, altitude), 1.0f);
        EXPECT_EQ(sum.getShadingByAngle(east, altitude), 1.0f);
    }
}

} // namespace
