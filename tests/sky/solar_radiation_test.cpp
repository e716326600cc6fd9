#include "tests/support/debug_recorder.h"
#include "tests/support/formula_rays.h"

#include <insolate/shading/shading_mask.h>
#include <insolate/sky/cumulative_sky.h>
#include <insolate/sky/solar_radiation.h>
#include <insolate/solar/solar_position.h>
#include <insolate/weather/weather_data.h>

#include <gtest/gtest.h>

#include <array>
#include <cmath>

namespace {

using insolate::test::DebugRecorder;

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
