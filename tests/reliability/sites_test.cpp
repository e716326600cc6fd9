// Any site, period and method: finite, not negative, and no more light than the weather brought.
#include "tests/support/debug_recorder.h"
#include "tests/support/keep_global_site.h"

#include <insolate/analysis/calculation_point.h>
#include <insolate/analysis/model.h>
#include <insolate/rt/ray_transparency.h>
#include <insolate/sky/period_walk.h>
#include <insolate/solar/solar_position.h>

#include <array>
#include <cmath>
#include <memory>
#include <random>
#include <string>

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
    double latitude;  // degrees
    double longitude; // degrees
    double zone;      // hours
    double north;     // degrees
};

/// The corners of the world first, then anywhere.
Place placeNumber(int number) {
    static constexpr std::array<Place, 14> corners = {{{90, 0, 0, 0},
                                                       {-90, 0, 0, 0},
                                                       {89.1, 180, 12, 10},
                                                       {0, 180, 12, 0},
                                                       {0, -180, -12, 359},
                                                       {10, 179.99, -12, 90},
                                                       {10, -179.99, 12, -90},
                                                       {66.56, 25, 2, 180},
                                                       {-66.56, 140, 10, 45},
                                                       {23.44, 82.5, 5.5, 0},
                                                       {27.7, 85.3, 5.75, 30},
                                                       {-34.9, 138.6, 9.5, 15},
                                                       {47.6, -52.7, -3.5, 270},
                                                       {-43.9, -176.5, 12.75, 0}}};
    if (number < static_cast<int>(corners.size())) {
        return corners[static_cast<std::size_t>(number)];
    }
    std::mt19937 random(static_cast<unsigned>(number));
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    const double longitude = 360.0 * unit(random) - 180.0;
    const double halfHours = std::round(longitude / 7.5 + 2.0 * unit(random) - 1.0);
    return {std::asin(2.0 * unit(random) - 1.0) / degree, longitude, halfHours / 2.0,
            720.0 * unit(random) - 360.0};
}

struct Period {
    const char* name;
    float start, end, step;
    int firstDay, lastDay;
};
constexpr std::array<Period, 9> periods = {
    {{"one instant", 12.0f, 12.0f, 0.1f, 80, 80},
     {"half an hour", 9.0f, 9.5f, 0.1f, 200, 200},
     {"three days in June", 0.0f, 24.0f, 0.25f, 171, 173},
     {"three days in December", 0.0f, 24.0f, 0.25f, 354, 356},
     {"over the new year", 5.0f, 19.0f, 0.5f, 364, 2},
     {"times reversed", 18.0f, 8.0f, 0.5f, 100, 102},
     {"midnight", 0.0f, 0.0f, 0.1f, 1, 1},
     {"one year", 0.0f, 24.0f, 1.0f, 1, 365},
     {"last hour of the year", 23.0f, 24.0f, 0.1f, 365, 365}}};

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
                direct = std::max(direct, static_cast<double>(aDirect));
                diffuse = std::max(diffuse, static_cast<double>(aDiffuse));
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
            light.direct += direct * static_cast<double>(steps.increment);
            light.diffuse += diffuse * static_cast<double>(steps.increment);
        }
    }
    return light;
}

/// Lets all rays pass, or about half of them, always the same ones.
class Foliage final : public GetTransparencyValueOnRay {
public:
    explicit Foliage(bool leaves) : m_leaves(leaves) {}
    bool getSurfaceDoubleSided() override { return false; }
    int initialise() override { return 0; }
    float getTransparencyValue(const XYZf&, const XYZf& d, const XYZf*) override {
        return !m_leaves || std::sin(97.0f * d.x) * std::cos(83.0f * d.y + d.z) > 0.0f ? 1.0f
                                                                                       : 0.0f;
    }

private:
    bool m_leaves;
};

struct Result {
    std::array<float, 3> values{};
    [[nodiscard]] double total() const { return static_cast<double>(values[0]); }
};

class AnySite : public testing::TestWithParam<CalculationMethod> {
protected:
    Result resultOf(ECalculationPoint& point) {
        Result result;
        EXPECT_TRUE(point.calculateInsolation(m_model.getSolarAnalysisController()));
        for (int which = 0; which < 3; ++which) {
            result.values[static_cast<std::size_t>(which)] =
                point.getValue(static_cast<ResultAccumulator>(which));
        }
        return result;
    }

    EModel m_model;
    test::KeepGlobalSite m_keep;
};

TEST_P(AnySite, GivesFiniteResultsWithinTheWeather) {
    ESolarAnalysisController& controller = m_model.getSolarAnalysisController();
    controller.setSolarCalculationMethod(GetParam());
    Foliage bare(false);
    Foliage foliage(true);
    // How much a tilted surface may gather of the open sky's diffuse light: the ground gives a
    // tenth back, and light of a low sun's halo or cell counts up to 1 / sin 2.5 degrees.
    const double gain = GetParam() == CalculationMethod_CumulativeSky ? 1.0
                        : GetParam() == CalculationMethod_PerezPoint  ? 14.0
                                                                      : 23.0;
    int lit = 0;
    for (int number = 0; number < siteCount && !HasFailure(); number += siteStep) {
        const Place place = placeNumber(number);
        ESolarPosition::Global.setLocation(place.latitude * degree, place.longitude * degree,
                                           place.zone * 15.0 * degree);
        ESolarPosition::Global.setNorthOffset(place.north * degree);
        // Light at night, put in proportion to a sliver of an hour with the sun up, takes the
        // tilted-surface model where its fits end: there the results need only be finite.
        const bool wild = number % 4 == 3;
        fillWeather(controller.getWeatherData(), static_cast<unsigned>(number) + 1000, wild);

        std::mt19937 random(static_cast<unsigned>(number) + 5000);
        std::normal_distribution<float> normal;
        struct Pair {
            std::unique_ptr<ECalculationPoint> open;
            std::unique_ptr<ECalculationPoint> shaded;
        };
        std::array<Pair, 5> points;
        for (std::size_t i = 0; i < points.size(); ++i) {
            XYZf n = {normal(random), normal(random), normal(random)};
            const float size = std::sqrt(n.x * n.x + n.y * n.y + n.z * n.z);
            n = i == 0   ? XYZf{0.0f, 0.0f, 1.0f}
                : i == 1 ? XYZf{0.0f, 0.0f, -1.0f}
                         : XYZf{n.x / size, n.y / size, n.z / size};
            points[i].open = std::make_unique<ECalculationPoint>(XYZf{}, n, 0, 0, true);
            points[i].shaded = std::make_unique<ECalculationPoint>(XYZf{}, n, 0, 0, true);
            points[i].open->updateShadingMask(&bare);
            points[i].shaded->updateShadingMask(&foliage);
        }

        for (const Period& period : periods) {
            SCOPED_TRACE(fmt::format("site and seed {} ({}, {}, UTC{:+}, north {}), period '{}'",
                                     number, place.latitude, place.longitude, place.zone,
                                     place.north, period.name));
            const test::DebugRecorder recorder;
            controller.setTimeSpec(period.start, period.end, period.step, period.firstDay,
                                   period.lastDay);
            ASSERT_TRUE(controller.isCumulativeSkyValid());
            const Light light = lightOf(controller.getWeatherData(), controller.getCumulativeSky());
            const double whole = light.direct + light.diffuse;
            const double rounding = 1.0e-4 * whole + 1.0e-3;
            for (std::size_t i = 0; i < points.size(); ++i) {
                const Result open = resultOf(*points[i].open);
                const Result shaded = resultOf(*points[i].shaded);
                for (const Result& result : {open, shaded}) {
                    for (const float value : result.values) {
                        ASSERT_TRUE(std::isfinite(value)) << "point " << i;
                    }
                    if (wild && GetParam() == CalculationMethod_PerezPoint) {
                        continue;
                    }
                    for (const float value : result.values) {
                        // The cosine of a right angle rounds to just below zero.
                        ASSERT_GE(static_cast<double>(value), -1.0e-6 * whole) << "point " << i;
                    }
                    ASSERT_GE(result.values[2], result.values[1] * 0.9999f) << "point " << i;
                    ASSERT_LE(result.total(),
                              light.direct + gain * light.diffuse + 0.1 * whole + rounding)
                        << "point " << i;
                }
                if (wild) {
                    continue;
                }
                ASSERT_LE(shaded.total(), open.total() + rounding) << "point " << i;
                if (i == 0) {
                    // The open sky's diffuse light is shared out, none is made.
                    ASSERT_LE(open.total(), light.direct + 1.3 * light.diffuse + 0.1 * whole)
                        << "point " << i;
                    lit += open.total() > 0.0 ? 1 : 0;
                }
            }
            ASSERT_TRUE(test::DebugRecorder::texts().empty())
                << "said: "
                << std::string(test::DebugRecorder::texts().front().begin(),
                               test::DebugRecorder::texts().front().end());
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
