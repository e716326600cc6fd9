#include "tests/support/debug_recorder.h"
#include "tests/support/synthetic_weather.h"

#include <insolate/geometry/geometry.h>
#include <insolate/rt/ray_transparency.h>
#include <insolate/shading/shading_mask.h>
#include <insolate/sky/cumulative_sky.h>
#include <insolate/sky/solar_radiation.h>
#include <insolate/solar/solar_position.h>

#include <gtest/gtest.h>

#include <cmath>

namespace {

namespace skyGrid = insolate::skyGrid;
using insolate::test::DebugRecorder;

constexpr float halfPi = 1.5707964f;

/// Every ray is clear or every ray is blocked.
class UniformRays : public GetTransparencyValueOnRay {
public:
    explicit UniformRays(float transparency) : m_transparency(transparency) {}
    bool getSurfaceDoubleSided() override { return false; }
    float getTransparencyValue(const XYZf&, const XYZf&, const XYZf*) override {
        return m_transparency;
    }
    int initialise() override { return 0; }

private:
    float m_transparency;
};

EShadingMask maskOf(XYZf normal, float transparency) {
    UniformRays rays(transparency);
    EShadingMask mask;
    mask.calculate(&rays, XYZf{0.0f, 0.0f, 0.0f}, &normal);
    return mask;
}

/// One cell with radiation: south-east, 32.5 degrees high.
ECumulativeSky oneCellSky() {
    ECumulativeSky sky;
    sky.setDirectValue(27, 6, 1000.0f);
    sky.setDiffuseValue(27, 6, 400.0f);
    sky.setPeakValue(27, 6, 800.0f);
    sky.hourCount = 10.0f;
    return sky;
}

TEST(SolarRadiation, AnOpenUpwardPointReceivesCellTimesIncidence) {
    ECumulativeSky sky = oneCellSky();
    EShadingMask mask = maskOf({0.0f, 0.0f, 1.0f}, 1.0f);
    float results[3] = {};
    ASSERT_TRUE(ESolarRadiation().calculate(&sky, &mask, results));
    // The incidence is held in a byte: 255 x sin(32.5) truncated.
    const float incidence = std::floor(255.0f * std::sin(32.5f * 0.017453293f)) / 255.0f;
    EXPECT_NEAR(results[0], 1400.0f * incidence, 0.01f);
    EXPECT_NEAR(results[1], 140.0f * incidence, 0.001f);
    EXPECT_NEAR(results[2], 800.0f * incidence, 0.01f);
}

TEST(SolarRadiation, AVerticalSurfaceAddsATenthOfTheOpenHorizontal) {
    ECumulativeSky sky = oneCellSky();
    EShadingMask mask; // open and facing every cell, normal altitude 0
    float results[3] = {};
    ESolarRadiation().calculate(&sky, &mask, results);
    const float horizontal = 1400.0f * std::sin(32.5f * 0.017453293f);
    EXPECT_NEAR(results[0], 1400.0f + 0.1f * horizontal, 0.01f);

    // A fully blocked wall still sees the ground, and its average is then its peak.
    EShadingMask blocked = maskOf({0.0f, -1.0f, 0.0f}, 0.0f);
    ESolarRadiation().calculate(&sky, &blocked, results);
    EXPECT_NEAR(results[0], 0.1f * horizontal, 0.01f);
    EXPECT_EQ(results[1], results[2]);
}

TEST(SolarRadiation, ASlopeLosesPartOfItsDiffuseOnly) {
    ECumulativeSky sky = oneCellSky();
    sky.setDirectValue(27, 6, 0.0f);
    const float half = std::sqrt(0.5f);
    EShadingMask mask = maskOf({0.5f, -0.5f, half}, 1.0f); // tilted 45 degrees to the south-east
    const float incidence = mask.getSurfaceIncidence(27, 6);
    EXPECT_GT(incidence, 0.9f);
    float results[3] = {};
    ESolarRadiation().calculate(&sky, &mask, results);
    const float ground = std::cos(halfPi / 2.0f) * 400.0f * std::sin(32.5f * 0.017453293f) * 0.1f;
    EXPECT_NEAR(results[0], 400.0f * incidence * (1.0f - 0.095f) + ground, 0.01f);
}

TEST(SolarRadiation, DoublingTheSkyDoublesEveryTotal) {
    EWeatherData weather = insolate::test::sineDayWeather(400.0f, 120.0f);
    EWeatherData doubled = insolate::test::sineDayWeather(800.0f, 240.0f);
    EShadingMask mask = maskOf({0.6f, -0.64f, 0.48f}, 1.0f);
    for (const bool pointMethod : {false, true}) {
        float one[3] = {};
        float two[3] = {};
        ECumulativeSky sky;
        sky.setLocation(39.74f, -105.18f, -105.0f);
        sky.setTimeRange(0.0f, 24.0f, 0.5f);
        const auto run = [&](EWeatherData& values, float* results) {
            sky.calculate(&values);
            if (pointMethod) {
                ESolarRadiation().calculateUsingPerez(&values, &sky, &mask, {0.6f, -0.64f, 0.48f},
                                                      {}, results);
            } else {
                ESolarRadiation().calculate(&sky, &mask, results);
            }
        };
        run(weather, one);
        run(doubled, two);
        // Stored as whole numbers, the sine's hours double to within 1 W/m2 of some hundreds. The
        // point method's clearness stays, but its brightness grows with the radiation.
        EXPECT_NEAR(two[0] / one[0], 2.0f, pointMethod ? 0.1f : 0.01f);
        EXPECT_GT(one[0], 0.0f);
    }
}

TEST(SolarRadiation, NullsWriteNothing) {
    ECumulativeSky sky;
    EShadingMask mask;
    EWeatherData weather;
    float results[3] = {-1.0f, -1.0f, -1.0f};
    ESolarRadiation radiation;
    EXPECT_FALSE(radiation.calculate(nullptr, &mask, results));
    EXPECT_FALSE(radiation.calculate(&sky, nullptr, results));
    EXPECT_FALSE(radiation.calculateUsingPerez(nullptr, &sky, &mask, {}, {}, results));
    EXPECT_FALSE(radiation.calculateUsingPerez(&weather, nullptr, &mask, {}, {}, results));
    EXPECT_FALSE(radiation.calculateUsingPerez(&weather, &sky, nullptr, {}, {}, results));
    EXPECT_EQ(results[0] + results[1] + results[2], -3.0f);
    ESolarPosition position;
    EXPECT_EQ(radiation.getIncidentSolarRadiation(nullptr, &position, {}, 0.2), 0.0);
    EXPECT_EQ(radiation.getIncidentSolarRadiation(&weather, nullptr, {}, 0.2), 0.0);
}

TEST(SolarRadiation, ATotalWithoutHoursIsReported) {
    ECumulativeSky sky = oneCellSky();
    sky.hourCount = 0.0f;
    EShadingMask mask;
    float results[3] = {};
    {
        DebugRecorder recorder;
        EXPECT_TRUE(ESolarRadiation().calculate(&sky, &mask, results));
        ASSERT_EQ(DebugRecorder::texts().size(), 1U);
        EXPECT_EQ(DebugRecorder::texts()[0],
                  L"Surprise, the timespan is zero, but the result value is larger then zero, "
                  L"Ravi.Okoro,2009-07-09");
    }
    EXPECT_EQ(results[1], 0.0f);
    EXPECT_GT(results[0], 0.0f);

    ECumulativeSky empty;
    empty.peakDiffuse = 300.0f;
    mask.setOvercastSkyComponent(50.0f);
    DebugRecorder recorder;
    EXPECT_TRUE(ESolarRadiation().calculate(&empty, &mask, results));
    EXPECT_TRUE(DebugRecorder::texts().empty());
    EXPECT_EQ(results[0], 0.0f);
    EXPECT_EQ(results[2], 150.0f);
}

TEST(SolarRadiation, ThePointMethodIntegratesTheTiltedModel) {
    // One hour of a known day, walked in tenths: the same model evaluated by hand at each step.
    EWeatherData weather;
    weather.setHourlyDirectRad(171, 12, 700.0f);
    weather.setHourlyDiffuseRad(171, 12, 150.0f);
    weather.setHourlyDirectRad(171, 13, 700.0f);
    weather.setHourlyDiffuseRad(171, 13, 150.0f);
    ECumulativeSky sky;
    sky.setLocation(39.74f, -105.18f, -105.0f);
    sky.setDateRange(172, 172);
    sky.setTimeRange(11.0f, 12.5f, 0.5f);
    const XYZf south{0.0f, -1.0f, 0.0f};
    EShadingMask mask = maskOf(south, 1.0f);
    float results[3] = {};
    ASSERT_TRUE(ESolarRadiation().calculateUsingPerez(&weather, &sky, &mask, south, {}, results));

    ESolarPosition sun;
    sun.setLocation(39.74 * M_PI / 180.0, -105.18 * M_PI / 180.0, -105.0 * M_PI / 180.0);
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
}

TEST(SolarRadiation, ASingleInstantStepsNothingInThePointMethod) {
    EWeatherData weather = insolate::test::constantWeather(500.0f, 100.0f);
    ECumulativeSky sky;
    sky.setLocation(39.74f, -105.18f, -105.0f);
    sky.setDateRange(172, 172);
    sky.setTimeRange(12.0f, 12.0f, 0.1f);
    EShadingMask mask = maskOf({0.0f, 0.0f, 1.0f}, 1.0f);
    float results[3] = {-1.0f, -1.0f, -1.0f};
    EXPECT_TRUE(ESolarRadiation().calculateUsingPerez(&weather, &sky, &mask, {}, {}, results));
    EXPECT_EQ(results[0], 0.0f);
    EXPECT_EQ(results[1], 0.0f);
    EXPECT_EQ(results[2], 0.0f);
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
