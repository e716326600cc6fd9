#include "tests/support/debug_recorder.h"
#include "tests/support/formula_rays.h"
#include "tests/support/synthetic_weather.h"

#include <insolate/shading/shading_mask.h>
#include <insolate/sky/period_walk.h>
#include <insolate/sky/solar_radiation.h>
#include <insolate/solar/solar_position.h>

#include <gtest/gtest.h>

#include <array>
#include <cmath>

namespace {

using insolate::test::DebugRecorder;
using insolate::test::denverSky;

using Results = std::array<float, 3>;

const float sineOfCell = std::sin(32.5f * 0.017453293f);

EShadingMask maskOf(XYZf normal, float transparency) {
    auto rays = insolate::test::uniformRays(transparency);
    EShadingMask mask;
    mask.calculate(&rays, XYZf{0.0f, 0.0f, 0.0f}, &normal);
    return mask;
}

/// One cell with radiation: south-east, 32.5 degrees high.
ECumulativeSky oneCellSky(float direct = 1000.0f, float hours = 10.0f) {
    ECumulativeSky sky;
    sky.setDirectValue(27, 6, direct);
    sky.setDiffuseValue(27, 6, 400.0f);
    sky.setPeakValue(27, 6, 800.0f);
    sky.hourCount = hours;
    return sky;
}

Results resultsOf(ECumulativeSky sky, EShadingMask mask) {
    Results results{-1.0f, -1.0f, -1.0f};
    EXPECT_TRUE(ESolarRadiation().calculate(&sky, &mask, results.data()));
    return results;
}

TEST(SolarRadiation, APointReceivesItsCellsAndTheGround) {
    // Upwards: the incidence is held in a byte, 255 x sin(32.5) truncated.
    const float incidence = std::floor(255.0f * sineOfCell) / 255.0f;
    const Results up = resultsOf(oneCellSky(), maskOf({0.0f, 0.0f, 1.0f}, 1.0f));
    EXPECT_NEAR(up[0], 1400.0f * incidence, 0.01f);
    EXPECT_NEAR(up[1], 140.0f * incidence, 0.001f);
    EXPECT_NEAR(up[2], 800.0f * incidence, 0.01f);

    // Open and facing every cell, normal altitude 0: a tenth of the open horizontal from the
    // ground.
    const Results wall = resultsOf(oneCellSky(), EShadingMask());
    EXPECT_NEAR(wall[0], 1400.0f + 140.0f * sineOfCell, 0.01f);

    // A fully blocked wall still sees the ground, and its average is then its peak.
    const Results blocked = resultsOf(oneCellSky(), maskOf({0.0f, -1.0f, 0.0f}, 0.0f));
    EXPECT_NEAR(blocked[0], 140.0f * sineOfCell, 0.01f);
    EXPECT_EQ(blocked[1], blocked[2]);

    // Tilted 45 degrees to the south-east: part of the diffuse light is lost, and of that only.
    const EShadingMask slope = maskOf({0.5f, -0.5f, std::sqrt(0.5f)}, 1.0f);
    const float facing = slope.getSurfaceIncidence(27, 6);
    EXPECT_GT(facing, 0.9f);
    const float ground = std::cos(0.78539816f) * 0.1f * sineOfCell;
    for (const float direct : {0.0f, 1000.0f}) {
        EXPECT_NEAR(resultsOf(oneCellSky(direct), slope)[0],
                    (400.0f * (1.0f - 0.095f) + direct) * facing + (400.0f + direct) * ground,
                    0.02f);
    }
}

TEST(SolarRadiation, NullsWriteNothing) {
    ECumulativeSky sky;
    EShadingMask mask;
    EWeatherData weather;
    Results results{-1.0f, -1.0f, -1.0f};
    ESolarRadiation radiation;
    EXPECT_FALSE(radiation.calculate(nullptr, &mask, results.data()));
    EXPECT_FALSE(radiation.calculate(&sky, nullptr, results.data()));
    float* out = results.data();
    EXPECT_FALSE(radiation.calculateUsingPerez(nullptr, &sky, &mask, {}, {}, out));
    EXPECT_FALSE(radiation.calculateUsingPerez(&weather, nullptr, &mask, {}, {}, out));
    EXPECT_FALSE(radiation.calculateUsingPerez(&weather, &sky, nullptr, {}, {}, out));
    EXPECT_EQ(results, (Results{-1.0f, -1.0f, -1.0f}));
    ESolarPosition position;
    EXPECT_EQ(radiation.getIncidentSolarRadiation(nullptr, &position, {}, 0.2), 0.0);
    EXPECT_EQ(radiation.getIncidentSolarRadiation(&weather, nullptr, {}, 0.2), 0.0);
}

TEST(SolarRadiation, ATotalWithoutHoursIsReported) {
    DebugRecorder recorder;
    const Results timeless = resultsOf(oneCellSky(1000.0f, 0.0f), EShadingMask());
    EXPECT_EQ(DebugRecorder::texts(),
              (std::vector<std::wstring>{L"Surprise, the timespan is zero, but the result value is "
                                         L"larger then zero, Ravi.Okoro,2009-07-09"}));
    EXPECT_EQ(timeless[1], 0.0f);
    EXPECT_GT(timeless[0], 0.0f);

    ECumulativeSky empty;
    empty.peakDiffuse = 300.0f;
    EShadingMask mask;
    mask.setOvercastSkyComponent(50.0f);
    EXPECT_EQ(resultsOf(empty, mask), (Results{0.0f, 0.0f, 150.0f}));
    EXPECT_EQ(DebugRecorder::texts().size(), 1U);
}

TEST(SolarRadiation, ThePointMethodIntegratesTheTiltedModel) {
    // One hour of a known day, walked in tenths: the same model evaluated by hand at each step.
    EWeatherData weather = insolate::test::constantWeather(700.0f, 150.0f);
    ECumulativeSky sky = denverSky(172, 172, 11.0f, 12.5f, 0.5f);
    const XYZf south{0.0f, -1.0f, 0.0f};
    EShadingMask mask = maskOf(south, 1.0f);
    Results results{};
    const auto calculate = [&] {
        return ESolarRadiation().calculateUsingPerez(&weather, &sky, &mask, south, {},
                                                     results.data());
    };
    ASSERT_TRUE(calculate());

    ESolarPosition sun = insolate::sunAtSite(sky);
    sun.setDayOfTheYear(172);
    double total = 0.0;
    double peak = 0.0;
    for (const double stepEnd : {11.5, 12.0, 12.5}) { // the start is left out, the end taken in
        sun.setTime(stepEnd - 0.25);
        const double altitude = sun.getSolarAltitudeInRadians();
        EPerezInput input;
        input.direct = 700.0;
        input.diffuse = 150.0;
        input.tilt = M_PI / 2.0;
        input.zenithAngle = M_PI / 2.0 - altitude;
        input.incidenceAngle =
            std::acos(-std::cos(altitude) * std::cos(sun.getSolarAzimuthInRadians()));
        input.skyViewFactor = mask.getUniformSkyComponent() / 100.0;
        input.horizonFactor = mask.getPerezHorizonFactor();
        EPerezResults parts;
        const double value = ESolarRadiation().getPerezAllWeatherSkyData(&input, &parts);
        total += 0.5 * value;
        peak = std::max(peak, value);
    }
    EXPECT_NEAR(results[0] / total, 1.0, 1e-5); // angles and sums in single precision
    EXPECT_NEAR(results[1] / (total / 1.5), 1.0, 1e-5);
    EXPECT_NEAR(results[2] / peak, 1.0, 1e-5);

    sky.setTimeRange(12.0f, 12.0f, 0.1f); // an instant steps nothing
    EXPECT_TRUE(calculate());
    EXPECT_EQ(results, (Results{0.0f, 0.0f, 0.0f}));
}

TEST(SolarRadiation, IncidentRadiationOfOneHour) {
    EWeatherData weather;
    weather.setHourlyDirectRad(171, 12, 800.0f);
    weather.setHourlyDiffuseRad(171, 12, 100.0f);
    ESolarPosition position;
    position.setDayOfTheYear(172, 12.9); // the whole hour counts
    const double sine = std::sin(position.getSolarAltitudeInRadians());
    const XYZf up{0.0f, 0.0f, 1.0f};
    // On the horizontal the model gives back beam and diffuse while the sun is above 5 degrees.
    EXPECT_NEAR(ESolarRadiation().getIncidentSolarRadiation(&weather, &position, up, 0.2),
                800.0 * sine + 100.0, 0.01);
    position.setDayOfTheYear(172, 13.1);
    EXPECT_EQ(ESolarRadiation().getIncidentSolarRadiation(&weather, &position, up, 0.2), 0.0);
}

} // namespace
