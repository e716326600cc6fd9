#include "../support/formula_rays.h"
#include "plain_mask.h"

#include <insolate/platform/simd.h>
#include <insolate/rt/sky_visibility.h>
#include <insolate/shading/mask_arithmetic.h>

#include <gtest/gtest.h>

#include <bit>
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
    bool getSurfaceDoubleSided() override {
        offerWholeSkies(*this);
        return doubleSided;
    }
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

/// A thread reuses what it knows from the second mask with one normal on.
void forgetNormal() {
    std::array<std::uint8_t, 1296> incidence;
    faceSky(insolate::MaskSurface({0, 0, 0}, {1, 2, 3}, false), insolate::allCellDirections(),
            incidence.data());
}

TEST(MaskArithmetic, GivesTheBytesAndSumsOfItsDefinitionOnEveryLevel) {
    constexpr float infinity = std::numeric_limits<float>::infinity();
    constexpr float nan = std::numeric_limits<float>::quiet_NaN();
    std::mt19937 random(41);
    std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
    const XYZf cell = insolate::cellDirection(10, 7);
    std::vector<XYZf> normals = {
        {0, 0, 1},     {0, 0, -1},          {1, 0, 0},        {0, 0, 0},        {0, 0, 1e20f},
        {1e30f, 0, 0}, {nan, 0, 1},         {infinity, 0, 0}, {0, 0.5f, 2e-3f}, {1e-25f, 0, 1e-25f},
        cell,          {-cell.z, 0, cell.x}}; // facing, edge-on
    while (normals.size() < 60) {
        normals.push_back({unit(random), unit(random), unit(random)});
    }
    const insolate::SimdLevel before = insolate::simdLevel();
    const std::vector<insolate::SimdLevel> levels = insolate::availableSimdLevels();
    for (std::size_t index = 0; index < normals.size(); ++index) {
        for (const float reach : {0.0f, 50.0f, 1000.0f, 3.0f, 1e6f, infinity}) {
            SCOPED_TRACE(testing::Message() << "normal " << index << " reach " << reach);
            const bool doubleSided = index % 3 == 0;
            XYZf normal = normals[index];
            const XYZf point = {reach == 0 ? 0 : reach * unit(random), unit(random), unit(random)};
            std::vector<float> table(97);
            for (float& value : table) {
                value = index % 2 == 0 ? (unit(random) > 0.2f ? 1.0f : 0.0f) : 2.0f * unit(random);
            }
            table[3] = index == 5 ? nan : table[3];
            FormulaRays plainRays = tableRays(table, doubleSided);
            const PlainMask plain = plainMask(plainRays, point, &normal);
            FormulaRays half(halfSky, doubleSided);
            const PlainMask plainHalf = plainMask(half, point, &normal);
            for (const insolate::SimdLevel level : levels) {
                insolate::setSimdLevel(level);
                if (reach < 10) {
                    forgetNormal();
                }
                FormulaRays rays = tableRays(table, doubleSided);
                EShadingMask mask;
                mask.calculate(&rays, point, &normal);
                EXPECT_EQ(rays.cast, plain.raysCast);
                expectSame(mask, plain.mask);
                HalfSkyAtOnce atOnce(doubleSided);
                mask.calculate(&atOnce, point, &normal);
                EXPECT_EQ(atOnce.calls, 1);
                expectSame(mask, plainHalf.mask);
            }
        }
    }
    for (const bool doubleSided : {false, true}) {
        FormulaRays half(halfSky, doubleSided);
        HalfSkyAtOnce atOnce(doubleSided);
        EShadingMask mask;
        mask.calculate(&atOnce, {3, 2, 1}, nullptr);
        expectSame(mask, plainMask(half, {3, 2, 1}, nullptr).mask);
    }
    insolate::setSimdLevel(before);
}

TEST(MaskArithmetic, SharesWhatEqualNormalsHaveInCommon) {
    const auto directions = insolate::allCellDirections();
    const auto others = std::make_shared<const insolate::CellDirections>(*directions);
    const XYZf slope = {0.1f, 0.2f, 0.9f};
    forgetNormal();
    // One point after the other, and whether it takes a table, the last one or a new one.
    enum Table { none, kept, made };
    const struct {
        const char* name;
        XYZf point, normal;
        bool doubleSided, otherDirections;
        Table table;
    } steps[] = {
        {"the first with its normal", {1, 2, 3}, slope, false, false, none},
        {"the second", {4, 5, 6}, slope, false, false, made},
        {"the third", {-1, 2, 8}, slope, false, false, kept},
        {"coarser coordinates", {900, 2, 8}, slope, false, false, made},
        {"finer ones", {4, 5, 6}, slope, false, false, kept},
        {"coordinates too coarse for any", {1e8f, 2, 8}, slope, false, false, none},
        {"two sides", {4, 5, 6}, slope, true, false, made},
        {"one side again", {4, 5, 6}, slope, false, false, made},
        {"other directions", {4, 5, 6}, slope, false, true, made},
        {"the same ones", {4, 5, 6}, slope, false, true, kept},
        {"another normal", {4, 5, 6}, {0, 0, 1}, false, true, none},
        {"and again", {4, 5, 6}, {0, 0, 1}, false, true, made},
    };
    std::shared_ptr<const insolate::CosineTable> last;
    for (const auto& [name, point, normal, doubleSided, otherDirections, table] : steps) {
        std::array<std::uint8_t, 1296> incidence;
        const auto given = faceSky(insolate::MaskSurface(point, normal, doubleSided),
                                   otherDirections ? others : directions, incidence.data())
                               .table;
        EXPECT_EQ(given == nullptr ? none : given == last ? kept : made, table) << name;
        last = given != nullptr ? given : last;
    }
}

TEST(MaskArithmetic, TakesEachIncidenceToTheLastBitFromItsTable) {
    // A single cell with light is the whole sum. Coordinates of other powers of two round
    // otherwise: angles differ by up to a few hundred steps, as many as the tables' series reach.
    const auto directions = insolate::allCellDirections();
    const XYZf normal = {30, -20, 70};
    std::mt19937 random(42);
    std::uniform_real_distribution<float> power(9.0f, 14.6f);
    const auto place = [&] {
        return (random() % 2 == 0 ? 1.0f : -1.0f) * std::exp2(power(random));
    };
    const insolate::SimdLevel before = insolate::simdLevel();
    for (const insolate::SimdLevel level : insolate::availableSimdLevels()) {
        insolate::setSimdLevel(level);
        forgetNormal();
        for (int i = 0; i < 20; ++i) {
            const XYZf point = {place(), place(), place()};
            const insolate::MaskSurface surface(point, normal, true);
            std::array<std::uint8_t, 1296> exposure;
            std::array<std::uint8_t, 1296> incidence;
            const auto faced = faceSky(surface, directions, incidence.data());
            EXPECT_EQ(faced.table == nullptr, i == 0);
            for (int cell = 0; cell < 1296; ++cell) {
                SkyCellSet lit;
                lit.insert(cell % 72, cell / 72);
                const auto at = [&](const XYZf& direction) {
                    return insolate::sum(point, insolate::scaled(direction, 100.0f));
                };
                const XYZf& d = directions->direction[static_cast<std::size_t>(cell)];
                const float cosine =
                    insolate::roundedCosine(EGeometry::Angle(point, at(normal), at(d), nullptr));
                const float weight = insolate::SkyWeights::instance()
                                         .solidAngle[static_cast<std::size_t>(cell / 72)];
                ASSERT_EQ(fillMask(&surface, &faced, *directions, lit,
                                   {exposure.data(), incidence.data()})
                              .uniform,
                          std::fabs(cosine) * weight)
                    << cell;
            }
        }
    }
    insolate::setSimdLevel(before);
}

TEST(MaskArithmetic, TurnsCellsBehindTheSurfaceAwayAtTheRoundedRightAngle) {
    const float inFront = std::nextafter(insolate::behindCosine, 1.0f);
    EXPECT_GE(insolate::roundedArcCosine(insolate::behindCosine), 1.5707964f);
    EXPECT_LT(insolate::roundedArcCosine(inFront), 1.5707964f);
}

} // namespace
