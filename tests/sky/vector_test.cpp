// The vector code against the plain definitions, on every instruction set of this machine.
#include "tests/support/synthetic_weather.h"

#include <insolate/geometry/geometry.h>
#include <insolate/platform/simd.h>
#include <insolate/shading/shading_mask.h>
#include <insolate/sky/all_weather_cells_vector.h>
#include <insolate/sky/cumulative_sky.h>
#include <insolate/sky/sky_on_mask.h>
#include <insolate/sky/tilted_surface_period.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <random>
#include <vector>

namespace {

namespace skyGrid = insolate::skyGrid;

/// Runs a calculation on every level and expects the same bytes from all; returns the first's.
template <typename Calculation>
std::vector<float> onEveryLevel(const Calculation& calculation) {
    const insolate::SimdLevel before = insolate::simdLevel();
    std::vector<float> first;
    for (const insolate::SimdLevel level : insolate::availableSimdLevels()) {
        EXPECT_TRUE(insolate::setSimdLevel(level));
        const std::vector<float> values = calculation();
        if (first.empty()) {
            first = values;
        }
        EXPECT_EQ(std::memcmp(first.data(), values.data(), first.size() * sizeof(float)), 0)
            << insolate::simdLevelName(level);
    }
    insolate::setSimdLevel(before);
    return first;
}

EShadingMask randomMask(std::uint32_t seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> value(0.0f, 1.0f);
    EShadingMask mask;
    for (int cell = 0; cell < skyGrid::cellCount; ++cell) {
        mask.setExposureValue(cell % 72, cell / 72, value(random));
        mask.setIncidenceValue(cell % 72, cell / 72, value(random));
    }
    mask.setUniformSkyComponent(63.0f);
    mask.setPerezHorizonFactor(0.4f);
    return mask;
}

TEST(SkyVector, DistributionMatchesThePlainOneCellByCell) {
    const auto expectThePlain = [](const insolate::AllWeatherStep& sky) {
        float cells[skyGrid::cellCount];
        const std::vector<float> fast = onEveryLevel([&] {
            const float scale = insolate::distributeAllWeatherVector(sky, 0.3, cells);
            std::vector<float> all(std::begin(cells), std::end(cells));
            all.push_back(scale);
            return all;
        });
        const float scale = insolate::distributeAllWeather(sky, 0.3, cells);
        ASSERT_NEAR(fast.back(), scale, scale * 1e-5f);
        const float brightest = *std::max_element(std::begin(cells), std::end(cells));
        for (std::size_t i = 0; i < skyGrid::cellCount; ++i) {
            // 1e-5 of the cell; where positive and negative terms cancel, 1e-7 of the brightest.
            ASSERT_NEAR(fast[i], cells[i], std::max(cells[i] * 1e-5f, brightest * 1e-7f))
                << "altitude " << sky.altitude << " cell " << i;
        }
    };
    // Degrees of light from overcast to clear, suns from the horizon to the zenith.
    for (double altitude = 0.002; altitude < 1.57; altitude += 0.021) {
        for (double angle = -3.1; angle < 3.1; angle += 0.9) {
            for (const auto& [diffuse, direct] :
                 {std::pair{5, 0}, {60, 900}, {150, 30}, {400, 300}, {700, 0}}) {
                expectThePlain(insolate::allWeatherStep(100, altitude, angle, diffuse, direct));
            }
        }
    }
}

TEST(SkyVector, ABrokenHourStaysFinite) {
    const insolate::AllWeatherStep sky = insolate::allWeatherStep(100, 0.02, 0.3, 32767.0, 0.0);
    float cells[skyGrid::cellCount];
    for (const float scale : {insolate::distributeAllWeatherVector(sky, 0.0, cells),
                              insolate::distributeAllWeather(sky, 0.0, cells)}) {
        EXPECT_TRUE(std::isfinite(scale));
        for (const float cell : cells) {
            ASSERT_TRUE(std::isfinite(scale * cell) && cell >= 0.0f);
        }
    }
}

TEST(SkyVector, BookingIsTheSameArithmetic) {
    float cells[skyGrid::cellCount];
    insolate::distributeAllWeather(insolate::allWeatherStep(100, 0.7, 0.4, 80.0, 700.0), 0.0,
                                   cells);
    const std::vector<float> booked = onEveryLevel([&] {
        ECumulativeSky sky;
        sky.peak[7] = 1.0e9f;
        insolate::bookDistribution(cells, 12.5f, 0.1f, sky.diffuse, sky.peak);
        insolate::bookDistribution(cells, 12.5f, 0.1f, sky.diffuse, sky.peak);
        std::vector<float> all(std::begin(sky.diffuse), std::end(sky.diffuse));
        all.insert(all.end(), std::begin(sky.peak), std::end(sky.peak));
        return all;
    });
    for (std::size_t i = 0; i < skyGrid::cellCount; ++i) {
        ASSERT_EQ(booked[i], 2.0f * (12.5f * cells[i] * 0.1f));
        ASSERT_EQ(booked[skyGrid::cellCount + i], i == 7 ? 1.0e9f : 12.5f * cells[i]);
    }
}

TEST(SkyVector, SkyOnMaskMatchesTheDoubleSumsAtEveryByte) {
    std::mt19937 random(11);
    std::uniform_real_distribution<float> value(0.0f, 900.0f);
    ECumulativeSky sky;
    for (int i = 0; i < skyGrid::cellCount; ++i) {
        sky.direct[i] = i % 3 == 0 ? value(random) : 0.0f;
        sky.diffuse[i] = value(random);
        sky.peak[i] = value(random);
    }
    sky.peak[5 * 72 + 5] = 0x1p20f; // the highest by far: its fraction shows each byte exactly
    for (int byte = 0; byte < 256; ++byte) {
        EShadingMask mask = randomMask(static_cast<std::uint32_t>(byte));
        // The encoding truncates: aim between this byte and the next.
        mask.setExposureValue(5, 5, (static_cast<float>(byte) + 0.5f) / 255.0f);
        mask.setIncidenceValue(5, 5, 1.0f);
        const std::vector<float> sums = onEveryLevel([&] {
            const insolate::SkyOnMask s = insolate::integrateSky(sky, mask);
            return std::vector<float>{s.diffuse, s.direct, s.horizontal, s.peak};
        });
        double diffuse = 0.0, direct = 0.0, horizontal = 0.0;
        float peak = 0.0f;
        for (int i = 0; i < skyGrid::cellCount; ++i) {
            const float factor =
                mask.getExposure(i % 72, i / 72) * mask.getSurfaceIncidence(i % 72, i / 72);
            diffuse += sky.diffuse[i] * factor;
            direct += sky.direct[i] * factor;
            horizontal += (sky.diffuse[i] + sky.direct[i]) *
                          std::sin((static_cast<float>(i / 72) + 0.5f) * skyGrid::cellAngle);
            peak = std::max(peak, sky.peak[i] * factor);
        }
        // 81 additions a lane in single precision
        EXPECT_NEAR(sums[0] / diffuse, 1.0, 2e-6);
        EXPECT_NEAR(sums[1] / direct, 1.0, 2e-6);
        EXPECT_NEAR(sums[2] / horizontal, 1.0, 2e-6);
        EXPECT_EQ(sums[3], peak);
    }
}

TEST(SkyVector, PointIntegrationMatchesThePlainSteps) {
    EWeatherData weather = insolate::test::sineDayWeather(600.0f, 150.0f);
    for (const float latitude : {-33.0f, 0.0f, 52.0f, 80.0f}) {
        ECumulativeSky sky;
        sky.setLocation(latitude, 10.0f, 15.0f);
        sky.setTimeRange(0.0f, 24.0f, 0.5f);
        const insolate::PointSteps& steps = insolate::pointSteps(weather, sky);
        std::uint32_t seed = 3;
        for (const XYZf& normal : {XYZf{0.0f, 0.0f, 1.0f},
                                   {0.0f, -2.0f, 0.0f},
                                   {3.0f, 1.0f, 0.5f},
                                   {0.0f, 0.0f, -1.0f}}) {
            const EShadingMask mask = randomMask(seed++);
            insolate::TiltedSurface surface{};
            surface.groundReflectance = 0.2;
            const double tilt = EGeometry::Angle({0, 0, 0}, normal, {0.0f, 0.0f, 1.0f}, nullptr);
            surface.sineTilt = std::sin(tilt);
            surface.cosineTilt = std::cos(tilt);
            surface.skyViewFactor = 0.63;
            surface.horizonFactor = 0.4;
            const std::vector<float> fast = onEveryLevel([&] {
                const auto s = insolate::integrateOnSurface(steps, surface, normal, mask);
                return std::vector<float>{s.beam, s.diffuse, s.hours, s.peak};
            });
            const auto plain = insolate::integrateOnSurfacePlain(steps, surface, normal, mask);
            EXPECT_NEAR(fast[0], plain.beam, plain.beam * 1e-5f + 1e-3f);
            EXPECT_NEAR(fast[1], plain.diffuse, plain.diffuse * 1e-5f);
            EXPECT_EQ(fast[2], plain.hours);
            EXPECT_NEAR(fast[3], plain.peak, plain.peak * 1e-5f);
        }
    }
}

TEST(SkyVector, KeptStepsNoticeEveryChangeOfTheirInputs) {
    EWeatherData weather = insolate::test::constantWeather(500.0f, 100.0f);
    ECumulativeSky sky = insolate::test::denverSky(100, 101, 8.0f, 16.0f, 0.5f);
    const auto signature = [&] {
        const insolate::PointSteps& steps = insolate::pointSteps(weather, sky);
        double sum = steps.hours;
        for (std::size_t i = 0; i < steps.sky.size(); ++i) {
            sum += steps.sky[i].direct + 3.0 * steps.sky[i].zenithAngle + 7.0 * steps.sunX[i];
        }
        return sum;
    };
    const std::function<void()> changes[] = {
        [&] { weather.setHourlyDirectRad(100, 12, 501.0f); },
        [&] { sky.setLocation(41.0f, -105.18f, -105.0f); },
        [&] { sky.setLocation(41.0f, -104.0f, -105.0f); },
        [&] { sky.setNorthOffset(0.1f); },
        [&] { sky.setDateRange(100, 102); },
        [&] { sky.setTimeRange(8.0f, 15.0f, 0.5f); },
        [&] { sky.setTimeRange(8.0f, 15.0f, 0.25f); },
    };
    double last = signature();
    EXPECT_EQ(signature(), last);
    for (std::size_t i = 0; i < std::size(changes); ++i) {
        changes[i]();
        EXPECT_NE(signature(), last) << "change " << i;
        last = signature();
    }
}

} // namespace
