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
using insolate::test::plainMask;
using insolate::test::PlainMask;

/// Answers by a table in the order of asking; skipped cells are skipped.
class TableRays : public GetTransparencyValueOnRay {
public:
    TableRays(std::vector<float> answers, bool isDoubleSided)
        : table(std::move(answers)), doubleSided(isDoubleSided) {}
    bool getSurfaceDoubleSided() override { return doubleSided; }
    float getTransparencyValue(const XYZf& /*origin*/, const XYZf& /*direction*/,
                               const XYZf* /*normal*/) override {
        return table[static_cast<std::size_t>(cast++) % table.size()];
    }
    int initialise() override { return 0; }

    std::vector<float> table;
    bool doubleSided;
    int cast = 0;
};

/// Open where a formula says so, cell by cell or all at once.
class HalfSky : public GetTransparencyValueOnRay {
public:
    bool getSurfaceDoubleSided() override { return doubleSided; }
    float getTransparencyValue(const XYZf& /*origin*/, const XYZf& direction,
                               const XYZf* /*normal*/) override {
        return direction.x + 0.3f * direction.z > 0.1f ? 1.0f : 0.0f;
    }
    int initialise() override { return 0; }

    bool doubleSided = false;
};

class HalfSkyAtOnce final : public HalfSky, public insolate::SkyVisibilityQuery {
public:
    SkyCellSet visibleSky(const XYZf& origin, const insolate::SkyDirections& directions,
                          const SkyCellSet& wanted) override {
        ++calls;
        SkyCellSet visible;
        for (int cell = 0; cell < 1296; ++cell) {
            const int azimuth = cell % 72;
            const int altitude = cell / 72;
            if (wanted.contains(azimuth, altitude) &&
                getTransparencyValue(origin, directions.direction(azimuth, altitude), nullptr) >
                    0) {
                visible.insert(azimuth, altitude);
            }
        }
        return visible;
    }

    int calls = 0;
};

void expectSame(const EShadingMask& mask, const EShadingMask& plain) {
    const auto* bytes = insolate::ShadingMaskAccess::exposure(mask);
    const auto* plainBytes = insolate::ShadingMaskAccess::exposure(plain);
    for (int cell = 0; cell < 1296; ++cell) {
        ASSERT_EQ(bytes[cell], plainBytes[cell]) << "exposure of cell " << cell;
        ASSERT_EQ(insolate::ShadingMaskAccess::incidence(mask)[cell],
                  insolate::ShadingMaskAccess::incidence(plain)[cell])
            << "incidence of cell " << cell;
    }
    const auto bits = [](float value) {
        std::uint32_t word = 0;
        std::memcpy(&word, &value, sizeof word);
        return std::isnan(value) ? 0 : word;
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
        TableRays plainRays(table, index % 5 == 0);
        const PlainMask plain = plainMask(plainRays, point, &normal);
        for (const insolate::SimdLevel level : insolate::availableSimdLevels()) {
            insolate::setSimdLevel(level);
            TableRays rays(table, index % 5 == 0);
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
    const XYZf point = {3, 2, 1};
    XYZf tilted = {0.2f, -0.4f, 0.5f};
    for (XYZf* normal : {static_cast<XYZf*>(nullptr), &tilted}) {
        for (const bool doubleSided : {false, true}) {
            HalfSky rays;
            HalfSkyAtOnce atOnce;
            rays.doubleSided = doubleSided;
            atOnce.doubleSided = doubleSided;
            EShadingMask mask;
            mask.calculate(&atOnce, point, normal);
            EXPECT_EQ(atOnce.calls, 1);
            expectSame(mask, plainMask(rays, point, normal).mask);
        }
    }
}

TEST(MaskArithmetic, TurnsCellsBehindTheSurfaceAwayAtTheRoundedRightAngle) {
    EXPECT_GE(insolate::roundedArcCosine(insolate::behindCosine), 1.5707964f);
    EXPECT_LT(insolate::roundedArcCosine(std::nextafter(insolate::behindCosine, 1.0f)), 1.5707964f);
    insolate::CellValues cosines{};
    cosines.value.fill(insolate::behindCosine);
    cosines.value[72 * 4 + 70] = 0.5f;
    cosines.value[72 * 17 + 1] = std::nextafter(insolate::behindCosine, 1.0f);
    const SkyCellSet front = insolate::cellsInFront(cosines);
    EXPECT_EQ(front.count(), 2);
    EXPECT_TRUE(front.contains(70, 4));
    EXPECT_TRUE(front.contains(1, 17));
}

} // namespace
