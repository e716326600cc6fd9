#include "../support/keep_global_site.h"

#include <insolate/shading/shading_mask_accumulator.h>

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <numbers>

namespace {

constexpr double degree = std::numbers::pi / 180.0;
constexpr float nan = std::numeric_limits<float>::quiet_NaN();
constexpr float infinity = std::numeric_limits<float>::infinity();

using Cell = std::array<float, 6>;
using Values = std::array<float, 3>;

/// Exposure, incidence, in plane, modifier, obstruction and shading of a cell.
template <typename Mask>
Cell cellOf(const Mask& mask, int azimuth, int altitude) {
    return {mask.getExposure(azimuth, altitude),
            mask.getSurfaceIncidence(azimuth, altitude),
            static_cast<float>(mask.getInPlane(azimuth, altitude)),
            mask.getModifier(azimuth, altitude),
            mask.getObstruction(azimuth, altitude),
            mask.getShading(azimuth, altitude)};
}

/// Exposure, incidence and shading in a direction [radians].
template <typename Mask>
Values seenAt(const Mask& mask, float plan, float altitude) {
    return {mask.getExposureByAngle(plan, altitude),
            mask.getSurfaceIncidenceByAngle(plan, altitude),
            mask.getShadingByAngle(plan, altitude)};
}

/// Overcast and uniform sky component, Perez horizon factor.
template <typename Mask>
Values factorsOf(const Mask& mask) {
    EXPECT_EQ(mask.getDiffuseFactor(), // a percentage in the sum, a share in a mask
              mask.getOvercastSkyComponent() / (std::is_same_v<Mask, EShadingMask> ? 100 : 1));
    return {mask.getOvercastSkyComponent(), mask.getUniformSkyComponent(),
            mask.getPerezHorizonFactor()};
}

void setFactors(EShadingMask& mask, float overcast, float uniform, float horizon) {
    mask.setOvercastSkyComponent(overcast);
    mask.setUniformSkyComponent(uniform);
    mask.setPerezHorizonFactor(horizon);
}

bool sameBytes(const EShadingMask& a, const EShadingMask& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

TEST(ShadingMask, StoresTruncatedBytesAndLimitedFactorsUntilItIsCleared) {
    const struct {
        float value;
        int byte;
    } bytes[] = {{0.999f, 254}, {1.0f, 255}, {7.0f, 255},     {-0.5f, 0},     {0.0039f, 0},
                 {0.00393f, 1}, {nan, 0},    {infinity, 255}, {-infinity, 0}, {0.25f, 63}};
    EShadingMask mask;
    for (const auto& [value, byte] : bytes) {
        ASSERT_TRUE(mask.setExposureValue(5, 17, 0.5f));
        ASSERT_TRUE(mask.setIncidenceValue(5, 17, value));
        const float stored = static_cast<float>(byte) / 255.0f;
        EXPECT_EQ(cellOf(mask, 5, 17), (Cell{127.0f / 255, stored, byte > 0 ? 1.0f : 0.0f,
                                             stored * (127.0f / 255), 128.0f / 255, 128.0f / 255}))
            << value;
    }
    EXPECT_EQ(insolate::ShadingMaskAccess::exposure(mask)[17 * 72 + 5], 127);
    EXPECT_EQ(insolate::ShadingMaskAccess::incidence(mask)[17 * 72 + 5], 63);
    const float factors[][3] = {{150, 100, 1}, {-2, 0, 0}, {0.25f, 0.25f, 0.25f}, {62, 62, 1}};
    for (const auto& [given, percent, factor] : factors) {
        setFactors(mask, given, given, given);
        EXPECT_EQ(factorsOf(mask), (Values{percent, percent, factor}));
    }
    mask.clear();
    EXPECT_TRUE(sameBytes(mask, EShadingMask()));
    EXPECT_EQ(cellOf(mask, 5, 17), (Cell{1, 1, 1, 1, 0, 0}));
    EXPECT_EQ(factorsOf(mask), (Values{0, 0, 0}));
    EXPECT_EQ(mask.getSurfaceNormalAltitude(), 0.0f);
}

TEST(ShadingMask, AnswersOutsideTheGridWithFixedValues) {
    EShadingMask mask;
    EShadingMaskAccumulator sum;
    constexpr int outside[][2] = {{72, 0}, {-1, 0}, {0, 18}, {0, -1}, {1 << 30, 3}};
    for (const auto& [azimuth, altitude] : outside) {
        EXPECT_FALSE(mask.setExposureValue(azimuth, altitude, 0.0f));
        EXPECT_FALSE(mask.setIncidenceValue(azimuth, altitude, 0.0f));
        EXPECT_EQ(cellOf(mask, azimuth, altitude), (Cell{0, 0, 0, 1, 1, 0}));
        EXPECT_EQ(cellOf(sum, azimuth, altitude), (Cell{0, 0, 0, 1, 1, 1}));
    }
    EXPECT_TRUE(sameBytes(mask, EShadingMask()));
}

TEST(ShadingMask, FindsTheCellInADirectionOfTheModel) {
    EShadingMask mask;
    mask.setExposureValue(18, 0, 0.5f); // azimuths 90 to 95 degrees, the east
    mask.setIncidenceValue(18, 0, 0.25f);
    mask.setExposureValue(54, 17, 0.0f); // the west, up to the zenith
    EShadingMaskAccumulator sum;
    sum.addMask(&mask);
    const Values east = {127.0f / 255.0f, 63.0f / 255.0f, 128.0f / 255.0f};
    const struct {
        const char* name;
        double north, angle, altitude; // degrees
        Values seen;
    } cases[] = {
        {"next cell", 0, -7.5, 2.5, {1, 1, 0}},
        {"a little below the horizon", 0, -2.5, -3, east},
        {"below the horizon", 0, -2.5, -10, {1, 1, 1}},
        {"beyond the zenith", 0, -2.5, 90.01, {1, 1, 1}},
        {"not a number", 0, -2.5, nan, {1, 1, 1}},
        {"west, high", 0, 177.5, 89, {0, 1, 1}},
        {"west by a negative angle", 0, -182.5, 89, {0, 1, 1}},
        {"east of a turned model", 30, -32.5, 2.5, east},
    };
    for (const auto& [name, north, angle, altitude, seen] : cases) {
        const insolate::test::KeepGlobalSite turned(north * degree);
        const auto plan = static_cast<float>(angle * degree);
        const auto up = static_cast<float>(altitude * degree);
        EXPECT_EQ(seenAt(mask, plan, up), seen) << name;
        // The sum's shading has another measure: the exposure counts as a percentage.
        const bool inside = altitude > -5 && altitude <= 90;
        EXPECT_EQ(seenAt(sum, plan, up), (Values{seen[0], seen[1], inside ? 1 - seen[0] * 100 : 1}))
            << name;
    }
}

TEST(ShadingMaskAccumulator, AveragesCellsAndFactorsUntilItIsCleared) {
    EShadingMask open;
    EShadingMask closed;
    closed.setExposureValue(10, 5, 0.0f);
    closed.setIncidenceValue(10, 5, 0.5f);
    setFactors(open, 100, 80, 1);
    setFactors(closed, 50, 70, 0.5f);
    EShadingMaskAccumulator sum;
    for (int turn = 0; turn < 2; ++turn) {
        EXPECT_FALSE(sum.addMask(nullptr));
        EShadingMask average = closed;
        EXPECT_FALSE(sum.getAverageMask(&average));
        EXPECT_TRUE(sameBytes(average, closed));
        EXPECT_EQ(sum.getCount(), 0.0f);
        EXPECT_EQ(cellOf(sum, 0, 0), (Cell{0, 0, 1, 0, 1, 1}));
        EXPECT_EQ(factorsOf(sum), (Values{0, 0, 0}));

        EXPECT_TRUE(sum.addMask(&open));
        EXPECT_EQ(sum.getShading(10, 5), -99.0f);
        EXPECT_TRUE(sum.addMask(&closed));
        EXPECT_EQ(sum.getCount(), 2.0f);
        const float incidence = (1.0f + 127.0f / 255.0f) / 2.0f;
        EXPECT_EQ(cellOf(sum, 10, 5), (Cell{0.5f, incidence, 1, incidence * 0.5f, -49, -49}));
        EXPECT_EQ(factorsOf(sum), (Values{75, 75, 0.75f}));
        EXPECT_EQ(sum.getPerezIsotropicFactor(), 0.0f);
        EXPECT_FALSE(sum.getAverageMask(nullptr));
        EXPECT_TRUE(sum.getAverageMask(&average));
        EXPECT_EQ(average.getExposure(10, 5), 127.0f / 255.0f);
        EXPECT_EQ(average.getSurfaceIncidence(10, 5), 191.0f / 255.0f);
        EXPECT_EQ(factorsOf(average), (Values{75, 75, 0.75f}));
        sum.clear();
    }
}

} // namespace
