// Any site, period and method: finite, not negative, and no more light than the weather brought.
#include "tests/support/debug_recorder.h"
#include "tests/support/formula_rays.h"
#include "tests/support/keep_global_site.h"

#include <insolate/analysis/calculation_point.h>
#include <insolate/analysis/model.h>
#include <insolate/sky/period_walk.h>
#include <insolate/solar/solar_position.h>

#include <array>
#include <cmath>
#include <random>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

namespace insolate {
namespace {

constexpr double degree = 3.14159265358979323846 / 180.0;
constexpr int siteCount = 200;
#ifdef INSOLATE_SANITIZED
constexpr int siteStep = 7; // many times slower
#else
constexpr int siteStep = 1;
#endif

struct Place {
    double latitude, longitude; ///< degrees
    double zone;                ///< hours
    double north;               ///< degrees
};

/// Latitude, longitude, zone and north of the corners of the world
constexpr double corners[][4] = {
    {90.0, 0.0, 0.0, 0.0},        {-90.0, 0.0, 0.0, 0.0},      {89.1, 180.0, 12.0, 10.0},
    {0.0, 180.0, 12.0, 0.0},      {0.0, -180.0, -12.0, 359.0}, {10.0, 179.99, -12.0, 90.0},
    {10.0, -179.99, 12.0, -90.0}, {66.56, 25.0, 2.0, 180.0},   {-66.56, 140.0, 10.0, 45.0},
    {23.44, 82.5, 5.5, 0.0},      {27.7, 85.3, 5.75, 30.0},    {-34.9, 138.6, 9.5, 15.0},
    {47.6, -52.7, -3.5, 270.0},   {-43.9, -176.5, 12.75, 0.0}};

/// The corners first, then anywhere.
Place placeNumber(std::size_t number) {
    if (number < std::size(corners)) {
        const auto& [latitude, longitude, zone, north] = corners[number];
        return {latitude, longitude, zone, north};
    }
    std::mt19937 random(static_cast<unsigned>(number));
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    const double longitude = 360.0 * unit(random) - 180.0;
    const double halfHours = std::round(longitude / 7.5 + 2.0 * unit(random) - 1.0);
    return {std::asin(2.0 * unit(random) - 1.0) / degree, longitude, halfHours / 2.0,
            720.0 * unit(random) - 360.0};
}

/// Start, end and step [h], first and last day: an instant, half an hour, three days in June and in
/// December, over the new year, times reversed, midnight, a year, the last hour of the year.
constexpr float periods[][5] = {
    {12, 12, 0.1f, 80, 80},   {9, 9.5f, 0.1f, 200, 200}, {0, 24, 0.25f, 171, 173},
    {0, 24, 0.25f, 354, 356}, {5, 19, 0.5f, 364, 2},     {18, 8, 0.5f, 100, 102},
    {0, 0, 0.1f, 1, 1},       {0, 24, 1, 1, 365},        {23, 24, 0.1f, 365, 365}};

/// Row r holds the hour that ends at r. Sunny and dull hours in any order, as much light as the
/// sun's height and its time above the horizon allow; or any numbers at any time when wild.
void fillWeather(EWeatherData& weather, unsigned seed, bool wild) {
    std::mt19937 random(seed);
    ESolarPosition sun = ESolarPosition::Global;
    for (int day = 0; day < 365; ++day) {
        moveToDay(sun, day + 1);
        for (int row = 0; row < 24; ++row) {
            const auto dice = static_cast<unsigned>(random());
            const double direct = dice % 3 == 0 ? 0.0 : dice / 7 % 1100;
            const double diffuse = dice % 5 == 0 ? 0.0 : dice / 8009 % 700;
            double up = 0.0;
            double height = 0.0;
            for (int quarter = 0; quarter < 4; ++quarter) {
                sun.setTime(row - 0.875 + 0.25 * quarter);
                const double sine = std::sin(sun.getSolarAltitudeInRadians());
                up += sine > 0.0 ? 0.25 : 0.0;
                height += std::max(sine, 0.0) * 0.25;
            }
            weather.setHourlyDirectRad(day, row, static_cast<float>(wild ? direct : direct * up));
            weather.setHourlyDiffuseRad(day, row,
                                        static_cast<float>(wild ? diffuse : diffuse * height));
        }
    }
}

struct Light {
    double direct = 0.0;  ///< on a surface that follows the sun [Wh/m2]
    double diffuse = 0.0; ///< on an open horizontal surface [Wh/m2]
};

/// The most that the weather gives over a period, whichever row or mixture of rows a step takes.
Light lightOf(const EWeatherData& weather, const ECumulativeSky& sky) {
    const DaySteps steps = dayStepsOf(sky);
    ESolarPosition sun = sunAtSite(sky);
    Light light;
    for (int date = sky.getStartDate();
         date <= unwrappedEndDate(sky.getStartDate(), sky.getEndDate()); ++date) {
        moveToDay(sun, dayWithinYear(date));
        const auto sunrise = static_cast<float>(sun.getSunriseTime());
        const auto sunset = static_cast<float>(sun.getSunsetTime());
        // One step more on either side: which ones count differs between the methods.
        for (float time = steps.start - steps.increment; time <= steps.end + steps.increment;
             time += steps.increment) {
            double direct = 0.0;
            double diffuse = 0.0;
            const auto brighter = [&](float aDirect, float aDiffuse) {
                direct = std::max<double>(direct, aDirect);
                diffuse = std::max<double>(diffuse, aDiffuse);
            };
            const int day = dayWithinYear(date) - 1;
            for (const float at : {time, time + 0.05f, time - 0.05f, time + steps.increment}) {
                const int hour = wholeHour(at);
                const HourlyRadiation read = hourlyRadiation(weather, day, hour, sunrise, sunset);
                brighter(read.direct, read.diffuse);
                for (const int row : {hour, hour + 1}) {
                    brighter(weather.getHourlyDirectRad(day, row),
                             weather.getHourlyDiffuseRad(day, row));
                }
            }
            light.direct += direct * steps.increment;
            light.diffuse += diffuse * steps.increment;
        }
    }
    return light;
}

using Results = std::array<float, 3>;

class AnySite : public testing::TestWithParam<CalculationMethod> {
protected:
    Results resultsOf(ECalculationPoint& point) {
        EXPECT_TRUE(point.calculateInsolation(m_model.getSolarAnalysisController()));
        return {point.getValue(ResultAccumulator_Total), point.getValue(ResultAccumulator_Average),
                point.getValue(ResultAccumulator_Peak)};
    }

    EModel m_model;
    test::KeepGlobalSite m_keep;
};

TEST_P(AnySite, GivesFiniteResultsWithinTheWeather) {
    ESolarAnalysisController& controller = m_model.getSolarAnalysisController();
    controller.setSolarCalculationMethod(GetParam());
    auto bare = test::uniformRays(1.0f);
    test::FormulaRays foliage([](const XYZf& d) { // about half of the rays, always the same ones
        return std::sin(97.0f * d.x) * std::cos(83.0f * d.y + d.z) > 0.0f ? 1.0f : 0.0f;
    });
    // How much a tilted surface may gather of the open sky's diffuse light: the ground gives a
    // tenth back, and light of a low sun's halo or cell counts up to 1 / sin 2.5 degrees.
    const double gain = GetParam() == CalculationMethod_CumulativeSky ? 1.0
                        : GetParam() == CalculationMethod_PerezPoint  ? 14.0
                                                                      : 23.0;
    int lit = 0;
    for (int number = 0; number < siteCount && !HasFailure(); number += siteStep) {
        const Place place = placeNumber(static_cast<std::size_t>(number));
        ESolarPosition::Global.setLocation(place.latitude * degree, place.longitude * degree,
                                           place.zone * 15.0 * degree);
        ESolarPosition::Global.setNorthOffset(place.north * degree);
        // Light at night, put in proportion to a sliver of an hour with the sun up, takes the
        // tilted-surface model where its fits end: there the results need only be finite.
        const bool wild = number % 4 == 3;
        fillWeather(controller.getWeatherData(), static_cast<unsigned>(number) + 1000, wild);

        std::mt19937 random(static_cast<unsigned>(number) + 5000);
        std::normal_distribution<float> normal;
        std::vector<ECalculationPoint> points; // each twice, open and shaded
        for (int i = 0; i < 5; ++i) {
            XYZf n = {normal(random), normal(random), normal(random)};
            const float size = std::sqrt(n.x * n.x + n.y * n.y + n.z * n.z);
            n = i == 0   ? XYZf{0.0f, 0.0f, 1.0f}
                : i == 1 ? XYZf{0.0f, 0.0f, -1.0f}
                         : XYZf{n.x / size, n.y / size, n.z / size};
            for (test::FormulaRays* rays : {&bare, &foliage}) {
                points.emplace_back(XYZf{}, n, 0, 0, true);
                points.back().updateShadingMask(rays);
            }
        }

        for (const auto& [start, end, step, firstDay, lastDay] : periods) {
            SCOPED_TRACE(fmt::format("site and seed {} ({}, {}, UTC{:+}, north {}), hours {} to {} "
                                     "of the days {} to {}",
                                     number, place.latitude, place.longitude, place.zone,
                                     place.north, start, end, firstDay, lastDay));
            const test::DebugRecorder recorder;
            controller.setTimeSpec(start, end, step, static_cast<int>(firstDay),
                                   static_cast<int>(lastDay));
            ASSERT_TRUE(controller.isCumulativeSkyValid());
            const Light light = lightOf(controller.getWeatherData(), controller.getCumulativeSky());
            const double whole = light.direct + light.diffuse;
            const double rounding = 1.0e-4 * whole + 1.0e-3;
            for (std::size_t i = 0; i < points.size(); i += 2) {
                SCOPED_TRACE(fmt::format("point {}", i / 2));
                const Results open = resultsOf(points[i]);
                const Results shaded = resultsOf(points[i + 1]);
                for (const Results& result : {open, shaded}) {
                    const auto [total, average, peak] = result;
                    ASSERT_TRUE(std::isfinite(total + average + peak));
                    if (wild && GetParam() == CalculationMethod_PerezPoint) {
                        continue;
                    }
                    // The cosine of a right angle rounds to just below zero.
                    ASSERT_GE(std::min({total, average, peak}), -1.0e-6 * whole);
                    ASSERT_GE(peak, average * 0.9999f);
                    ASSERT_LE(total, light.direct + gain * light.diffuse + 0.1 * whole + rounding);
                }
                if (wild) {
                    continue;
                }
                ASSERT_LE(shaded[0], open[0] + rounding);
                if (i == 0) {
                    // The open sky's diffuse light is shared out, none is made.
                    ASSERT_LE(open[0], light.direct + 1.3 * light.diffuse + 0.1 * whole);
                    lit += open[0] > 0.0f ? 1 : 0;
                }
            }
            ASSERT_TRUE(test::DebugRecorder::texts().empty());
        }
    }
    // The year and the three-day periods are light nearly everywhere, or nothing was tried.
    EXPECT_GT(lit, siteCount / siteStep * 3);
}

INSTANTIATE_TEST_SUITE_P(Reliability, AnySite,
                         testing::Values(CalculationMethod_CumulativeSky,
                                         CalculationMethod_PerezSky, CalculationMethod_PerezPoint));

} // namespace
} // namespace insolate
