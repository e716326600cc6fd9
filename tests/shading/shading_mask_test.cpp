#include "north.h"

#include <insolate/shading/shading_mask.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <numbers>

namespace {

using insolate::test::NorthOffset;

constexpr double degree = std::numbers::pi / 180.0;

bool sameBytes(const EShadingMask& a, const EShadingMask& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

TEST(ShadingMask, StartsOpenAndFacingEveryCell) {
    EShadingMask mask;
    mask.setExposureValue(3, 4, 0.0f);
    mask.setIncidenceValue(3, 4, 0.0f);
    mask.setPerezHorizonFactor(0.5f);
    EXPECT_EQ(mask.getInPlane(3, 4), 0);
    mask.clear();
    EXPECT_TRUE(sameBytes(mask, EShadingMask()));
    for (int altitude = 0; altitude < 18; ++altitude) {
        for (int azimuth = 0; azimuth < 72; ++azimuth) {
            ASSERT_EQ(mask.getExposure(azimuth, altitude), 1.0f);
            ASSERT_EQ(mask.getSurfaceIncidence(azimuth, altitude), 1.0f);
            ASSERT_EQ(mask.getInPlane(azimuth, altitude), 1);
            ASSERT_EQ(mask.getModifier(azimuth, altitude), 1.0f);
            ASSERT_EQ(mask.getObstruction(azimuth, altitude), 0.0f);
            ASSERT_EQ(mask.getShading(azimuth, altitude), 0.0f);
        }
    }
    EXPECT_EQ(mask.getDiffuseFactor(), 0.0f);
    EXPECT_EQ(mask.getUniformSkyComponent(), 0.0f);
    EXPECT_EQ(mask.getSurfaceNormalAltitude(), 0.0f);
}

TEST(ShadingMask, StoresValuesAsTruncatedBytes) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float infinity = std::numeric_limits<float>::infinity();
    const struct {
        float value;
        int byte;
    } cases[] = {{0.5f, 127}, {0.999f, 254},   {1.0f, 255},    {7.0f, 255},
                 {0.0f, 0},   {-0.5f, 0},      {0.0039f, 0},   {0.00393f, 1},
                 {nan, 0},    {infinity, 255}, {-infinity, 0}, {-0.0f, 0}};
    EShadingMask mask;
    for (const auto& [value, byte] : cases) {
        ASSERT_TRUE(mask.setExposureValue(71, 17, value));
        ASSERT_TRUE(mask.setIncidenceValue(0, 17, value));
        const float expected = static_cast<float>(byte) / 255.0f;
        EXPECT_EQ(mask.getExposure(71, 17), expected) << value;
        EXPECT_EQ(mask.getSurfaceIncidence(0, 17), expected) << value;
        EXPECT_EQ(mask.getShading(71, 17), static_cast<float>(255 - byte) / 255.0f) << value;
    }
    mask.setExposureValue(5, 6, 0.5f);
    mask.setIncidenceValue(5, 6, 0.25f);
    EXPECT_EQ(mask.getModifier(5, 6), (63.0f / 255.0f) * (127.0f / 255.0f));
    const std::uint8_t* exposure = insolate::ShadingMaskAccess::exposure(mask);
    EXPECT_EQ(exposure[6 * 72 + 5], 127);
    EXPECT_EQ(insolate::ShadingMaskAccess::incidence(mask)[6 * 72 + 5], 63);
}

TEST(ShadingMask, AnswersOutsideTheGridWithFixedValues) {
    EShadingMask mask;
    const EShadingMask before;
    constexpr int outside[][2] = {{72, 0}, {-1, 0}, {0, 18}, {0, -1}, {1 << 30, 3}};
    for (const auto& [azimuth, altitude] : outside) {
        EXPECT_FALSE(mask.setExposureValue(azimuth, altitude, 0.0f));
        EXPECT_FALSE(mask.setIncidenceValue(azimuth, altitude, 0.0f));
        EXPECT_EQ(mask.getExposure(azimuth, altitude), 0.0f);
        EXPECT_EQ(mask.getSurfaceIncidence(azimuth, altitude), 0.0f);
        EXPECT_EQ(mask.getInPlane(azimuth, altitude), 0);
        EXPECT_EQ(mask.getModifier(azimuth, altitude), 1.0f);
        EXPECT_EQ(mask.getObstruction(azimuth, altitude), 1.0f);
        EXPECT_EQ(mask.getShading(azimuth, altitude), 0.0f);
    }
    EXPECT_TRUE(sameBytes(mask, before));
}

TEST(ShadingMask, LimitsItsFactors) {
    EShadingMask mask;
    const struct {
        float given, percent, factor;
    } cases[] = {{150, 100, 1}, {-2, 0, 0}, {0.25f, 0.25f, 0.25f}, {62, 62, 1}};
    for (const auto& [given, percent, factor] : cases) {
        mask.setOvercastSkyComponent(given);
        mask.setUniformSkyComponent(given);
        mask.setPerezHorizonFactor(given);
        EXPECT_EQ(mask.getOvercastSkyComponent(), percent);
        EXPECT_EQ(mask.getDiffuseFactor(), percent / 100.0f);
        EXPECT_EQ(mask.getUniformSkyComponent(), percent);
        EXPECT_EQ(mask.getPerezHorizonFactor(), factor);
    }
}

TEST(ShadingMask, FindsTheCellInADirectionOfTheModel) {
    EShadingMask mask;
    mask.setExposureValue(18, 0, 0.5f); // azimuths 90 to 95 degrees, the east
    mask.setIncidenceValue(18, 0, 0.25f);
    mask.setExposureValue(54, 17, 0.0f); // the west, up to the zenith
    const float half = 127.0f / 255.0f;
    const struct {
        const char* name;
        double north, angle, altitude; // degrees
        float exposure, incidence, shading;
    } cases[] = {
        {"east", 0, -2.5, 2.5, half, 63.0f / 255.0f, 128.0f / 255.0f},
        {"next cell", 0, -7.5, 2.5, 1, 1, 0},
        {"a little below the horizon", 0, -2.5, -3, half, 63.0f / 255.0f, 128.0f / 255.0f},
        {"below the horizon", 0, -2.5, -10, 1, 1, 1},
        {"beyond the zenith", 0, -2.5, 90.01, 1, 1, 1},
        {"not a number", 0, -2.5, std::numeric_limits<double>::quiet_NaN(), 1, 1, 1},
        {"west, high", 0, 177.5, 89, 0, 1, 1},
        {"west by a negative angle", 0, -182.5, 89, 0, 1, 1},
        {"east of a turned model", 30, -32.5, 2.5, half, 63.0f / 255.0f, 128.0f / 255.0f},
    };
    for (const auto& [name, north, angle, altitude, exposure, incidence, shading] : cases) {
        const NorthOffset offset(north * degree);
        const auto plan = static_cast<float>(angle * degree);
        const auto up = static_cast<float>(altitude * degree);
        EXPECT_EQ(mask.getExposureByAngle(plan, up), exposure) << name;
        EXPECT_EQ(mask.getSurfaceIncidenceByAngle(plan, up), incidence) << name;
        EXPECT_EQ(mask.getShadingByAngle(plan, up), shading) << name;
    }
}

} // namespace
