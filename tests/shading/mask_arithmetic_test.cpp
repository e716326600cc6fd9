#include "../support/formula_rays.h"
#include "plain_mask.h"

#include <insolate/platform/simd.h>
#include <insolate/rt/sky_visibility.h>
#include <insolate/shading/mask_arithmetic.h>

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <random>
#include <vector>

namespace {

using insolate::SkyCellSet;
using insolate::test::FormulaRays;
using insolate::test::plainMask;
using insolate::test::PlainMask;

/// Answers from a table in the order of asking.
FormulaRays tableRays(const std::vector<float>& table, bool isDoubleSided) {
    return FormulaRays(
        [&table, at = std::size_t{0}](const XYZf&) mutable { return table[at++ % table.size()]; },
        isDoubleSided);
}

float halfSky(const XYZf& direction) {
    return direction.x + 0.3f * direction.z > 0.1f ? 1.0f : 0.0f;
}

struct HalfSkyAtOnce final : FormulaRays, insolate::SkyVisibilityQuery {
    explicit HalfSkyAtOnce(bool isDoubleSided) : FormulaRays(halfSky, isDoubleSided) {}
    SkyCellSet visibleSky(const XYZf& /*origin*/, const insolate::SkyDirections& directions,
                          const SkyCellSet& wanted) override {
        ++calls;
        SkyCellSet visible;
        for (int cell = 0; cell < 1296; ++cell) {
            if (wanted.contains(cell % 72, cell / 72) &&
                halfSky(directions.direction(cell % 72, cell / 72)) > 0) {
                visible.insert(cell % 72, cell / 72);
            }
        }
        return visible;
    }
    int calls = 0;
};

void expectSame(const EShadingMask& mask, const EShadingMask& plain) {
    using Access = insolate::ShadingMaskAccess;
    for (int cell = 0; cell < 1296; ++cell) {
        ASSERT_EQ(Access::exposure(mask)[cell], Access::exposure(plain)[cell]) << cell;
        ASSERT_EQ(Access::incidence(mask)[cell], Access::incidence(plain)[cell]) << cell;
    }
    const auto bits = [](float value) {
        return std::isnan(value) ? 0 : std::bit_cast<std::uint32_t>(value);
    };
    EXPECT_EQ(bits(mask.getUniformSkyComponent()), bits(plain.getUniformSkyComponent()));
    EXPECT_EQ(bits(mask.getOvercastSkyComponent()), bits(plain.getOvercastSkyComponent()));
    EXPECT_EQ(bits(mask.getPerezHorizonFactor()), bits(plain.getPerezHorizonFactor()));
}

TEST(MaskArithmetic, GivesTheBytesAndSumsOfItsDefinitionOnEveryLevel) {
    constexpr float infinity = std::numeric_limits<float>::infinity();
    constexpr float nan = std::numeric_limits<float>::quiet_NaN();
    std::mt19937 random(41);
    std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
    std::vector<XYZf> normals = {{0, 0, 1},           {0, 0, -1},
                                 {1, 0, 0},           {0, 0, 0},
                                 {0, 0, 1e20f},       {1e30f, 0, 0},
                                 {nan, 0, 1},         {infinity, 0, 0},
                                 {1e-25f, 0, 1e-25f}, insolate::cellDirection(10, 7)};
    while (normals.size() < 150) {
        normals.push_back({unit(random), unit(random), unit(random)});
    }
    const insolate::SimdLevel before = insolate::simdLevel();
    int index = 0;
    for (XYZf& normal : normals) {
        SCOPED_TRACE(testing::Message() << "normal " << index);
        const float reach = index % 3 == 0 ? 1e6f : index % 3 == 1 ? 100.0f : 0.0f;
        const XYZf point = {reach * unit(random), reach * unit(random), reach * unit(random)};
        std::vector<float> table(97);
        for (float& value : table) {
            value = index % 2 == 0 ? (unit(random) > 0.2f ? 1.0f : 0.0f) : 2.0f * unit(random);
        }
        if (index == 5) {
            table[3] = nan;
        }
        FormulaRays plainRays = tableRays(table, index % 5 == 0);
        const PlainMask plain = plainMask(plainRays, point, &normal);
        for (const insolate::SimdLevel level : insolate::availableSimdLevels()) {
            insolate::setSimdLevel(level);
            FormulaRays rays = tableRays(table, index % 5 == 0);
            EShadingMask mask;
            mask.calculate(&rays, point, &normal);
            EXPECT_EQ(rays.cast, plain.raysCast);
            expectSame(mask, plain.mask);
        }
        ++index;
    }
    insolate::setSimdLevel(before);
}

TEST(MaskArithmetic, AsksForAllCellsAtOnceWhereItCan) {
    XYZf tilted = {0.2f, -0.4f, 0.5f};
    for (XYZf* normal : {static_cast<XYZf*>(nullptr), &tilted}) {
        for (const bool doubleSided : {false, true}) {
            FormulaRays rays(halfSky, doubleSided);
            HalfSkyAtOnce atOnce(doubleSided);
            EShadingMask mask;
            mask.calculate(&atOnce, {3, 2, 1}, normal);
            EXPECT_EQ(atOnce.calls, 1);
            expectSame(mask, plainMask(rays, {3, 2, 1}, normal).mask);
        }
    }
}

TEST(MaskArithmetic, TurnsCellsBehindTheSurfaceAwayAtTheRoundedRightAngle) {
    const float inFront = std::nextafter(insolate::behindCosine, 1.0f);
    EXPECT_GE(insolate::roundedArcCosine(insolate::behindCosine), 1.5707964f);
    EXPECT_LT(insolate::roundedArcCosine(inFront), 1.5707964f);
    insolate::CellValues cosines{};
    cosines.value.fill(insolate::behindCosine);
    cosines.value[72 * 4 + 70] = 0.5f;
    cosines.value[72 * 17 + 1] = inFront;
    SkyCellSet expected;
    expected.insert(70, 4);
    expected.insert(1, 17);
    EXPECT_EQ(insolate::cellsInFront(cosines), expected);
}

} // namespace
