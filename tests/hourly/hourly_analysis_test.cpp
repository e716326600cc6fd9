#include <insolate/hourly/hourly_analysis.h>

#include <insolate/geometry/vector_math.h>
#include <insolate/hourly/first_rays.h>
#include <insolate/hourly/peak_hours.h>
#include <insolate/platform/simd.h>

#include <tests/hourly/made_weather.h>
#include <tests/support/test_data.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>
#include <random>
#include <set>
#include <stop_token>
#include <string>
#include <utility>

namespace insolate {
namespace {

using test::degree;
using test::Vector;

/// A scene given by a formula: whether a direction is free, or what it lets through.
class FormulaScene final : public GetTransparencyValueOnRay {
public:
    explicit FormulaScene(std::function<float(const XYZf&)> passing, bool doubleSided = false)
        : m_passing(std::move(passing)), m_doubleSided(doubleSided) {}
    bool getSurfaceDoubleSided() override { return m_doubleSided; }
    float getTransparencyValue(const XYZf&, const XYZf& direction, const XYZf*) override {
        ++rays;
        return m_passing(direction);
    }
    int initialise() override { return 0; }

    std::atomic<int> rays = 0;

private:
    std::function<float(const XYZf&)> m_passing;
    bool m_doubleSided;
};

WeatherSeries chicago() {
    const std::filesystem::path file = test::testDataFile("weather/chicago.epw");
    return file.empty() ? test::clearYear({41.98, -87.92, -6.0, 201.0})
                        : readWeatherSeries(file).series;
}

const HourlySky& chicagoSky() {
    static const HourlySky sky = [] {
        HourlySkyOptions options;
        options.sunshineThreshold = 1.0; // so that every step that counts has energy
        return buildHourlySky(chicago(), {}, options);
    }();
    return sky;
}

void addQuad(std::vector<double>& triangles, const Vector& a, const Vector& b, const Vector& c,
             const Vector& d) {
    for (const Vector& corner : {a, b, c, a, c, d}) {
        triangles.insert(triangles.end(), corner.begin(), corner.end());
    }
}

void addBox(std::vector<double>& triangles, const Vector& low, const Vector& high) {
    const auto at = [&](bool x, bool y, bool z) {
        return Vector{x ? high[0] : low[0], y ? high[1] : low[1], z ? high[2] : low[2]};
    };
    addQuad(triangles, at(false, false, false), at(true, false, false), at(true, false, true),
            at(false, false, true));
    addQuad(triangles, at(false, true, false), at(true, true, false), at(true, true, true),
            at(false, true, true));
    addQuad(triangles, at(false, false, false), at(false, true, false), at(false, true, true),
            at(false, false, true));
    addQuad(triangles, at(true, false, false), at(true, true, false), at(true, true, true),
            at(true, false, true));
    addQuad(triangles, at(false, false, true), at(true, false, true), at(true, true, true),
            at(false, true, true));
}

TEST(HourlyAnalysis, SplitsTheViewOfOpenTiltsIntoSkyAndGround) {
    const HourlyAnalysis analysis(chicagoSky());
    const HourlySkyReport& report = analysis.sky().report;
    const SensorResult open = analysis.evaluate(OcclusionIndex(), Sensor{});
    const auto total = static_cast<double>(open.total);
    EXPECT_NEAR(total / (report.diffuseHorizontal + report.directHorizontal), 1.0, 5e-4);
    EXPECT_NEAR(static_cast<double>(open.averagePeriod) * 8760.0 / total, 1.0, 1e-5);
    EXPECT_NEAR(static_cast<double>(open.averageDaylight) * analysis.sky().daylightHours / total,
                1.0, 1e-5);
    for (const double tilt : {0.0, 20.0, 90.0, 135.0, 180.0}) {
        const XYZf normal = test::narrowed(test::direction(205.0, 90.0 - tilt));
        const SensorResult result = analysis.evaluate(OcclusionIndex(), {{0, 0, 1}, normal});
        EXPECT_NEAR(static_cast<double>(result.skyViewFactor),
                    0.5 * (1.0 + std::cos(tilt * degree)), 2e-3);
        EXPECT_NEAR(static_cast<double>(result.groundViewFactor),
                    0.5 * (1.0 - std::cos(tilt * degree)), 1e-4);
        EXPECT_NEAR(static_cast<double>(result.ground),
                    0.2 * analysis.sky().report.globalHorizontal *
                        static_cast<double>(result.groundViewFactor),
                    10.0);
    }
    // Of the ground a wall opposite hides what lies behind it; it stands 1 m away and reaches down
    // 3 m.
    std::vector<double> wall;
    addQuad(wall, {-500, -1, -3}, {500, -1, -3}, {500, -1, 50}, {-500, -1, 50});
    HourlyAnalysisOptions fine;
    fine.groundRays = 4000;
    const OcclusionIndex scene(wall);
    const Sensor south{{0, 0, 0}, {0, -1, 0}};
    const double hidden =
        0.5 * (3.0 / std::sqrt(10.0)); // view to the part of the wall below the sensor
    EXPECT_NEAR(static_cast<double>(
                    HourlyAnalysis(chicagoSky(), fine).evaluate(scene, south).groundViewFactor),
                0.5 - hidden, 0.003);
    EXPECT_NEAR(static_cast<double>(analysis.evaluate(scene, south).groundViewFactor), 0.5 - hidden,
                0.05);
    fine.groundRays = 0;
    EXPECT_EQ(HourlyAnalysis(chicagoSky(), fine).evaluate(scene, south).groundViewFactor, 0.5f);
}

/// What a sensor gets from the sky and the sun behind a formula, by small steps over the dome and
/// the sky's own sub-steps.
struct Reference {
    double sky = 0.0;
    double beam = 0.0;
    double sunHours = 0.0;
};

Reference bruteForce(const HourlySky& sky, const XYZf& normal,
                     const std::function<bool(const XYZf&)>& isFree) {
    Reference sum;
    constexpr int split = 20; // quarters of a degree
    for (std::size_t i = 0; i < sky.diffuse.size(); ++i) {
        const double azimuth = static_cast<double>(i % 72) * 5.0;
        const double altitude = static_cast<double>(i / 72) * 5.0;
        double view = 0.0;
        for (int v = 0; v < split; ++v) {
            const double h = altitude + (v + 0.5) * 5.0 / split;
            for (int u = 0; u < split; ++u) {
                const XYZf d =
                    test::narrowed(test::direction(azimuth + (u + 0.5) * 5.0 / split, h));
                const float cosine = normal.x * d.x + normal.y * d.y + normal.z * d.z;
                view += cosine > 0.0f && isFree(d)
                            ? static_cast<double>(cosine) * std::cos(h * degree)
                            : 0.0;
            }
        }
        sum.sky += static_cast<double>(sky.diffuse[i]) * view * std::pow(5.0 / split * degree, 2);
    }
    for (const SunStep& step : sky.sunSteps) {
        const XYZf& e = step.energy;
        const float length = std::sqrt(e.x * e.x + e.y * e.y + e.z * e.z);
        const float power = normal.x * e.x + normal.y * e.y + normal.z * e.z;
        if (length > 0.0f && power > 0.0f && isFree({e.x / length, e.y / length, e.z / length})) {
            sum.beam += static_cast<double>(power);
            sum.sunHours += static_cast<double>(step.sunHours);
        }
    }
    return sum;
}

struct Shade {
    const char* name;
    XYZf normal;
    std::function<bool(const XYZf&)> isFree;
    double skyView; // closed form
};

/// An endless wall of the given height over distance, across the compass direction, with its top
/// turned away from the axes.
bool behindWall(const XYZf& d, double compass, double slope) {
    const Vector towards = test::direction(compass, 0.0);
    const double level =
        static_cast<double>(d.x) * towards[0] + static_cast<double>(d.y) * towards[1];
    return level > 0.0 && static_cast<double>(d.z) < slope * level;
}

std::vector<Shade> shades() {
    const XYZf up{0, 0, 1};
    const XYZf south{0, -1, 0};
    return {
        {"wall to the south", up, [](const XYZf& d) { return !behindWall(d, 180.0, 1.0); },
         0.5 * (1.0 + std::cos(45.0 * degree))},
        {"wall to the south-west", up, [](const XYZf& d) { return !behindWall(d, 217.0, 0.7); },
         0.5 * (1.0 + std::cos(std::atan(0.7)))},
        {"low wall to the east", up, [](const XYZf& d) { return !behindWall(d, 95.0, 0.3); },
         0.5 * (1.0 + std::cos(std::atan(0.3)))},
        {"canyon along 20 degrees", up,
         [](const XYZf& d) { return !behindWall(d, 110.0, 1.3) && !behindWall(d, 290.0, 0.8); },
         0.5 * (std::cos(std::atan(1.3)) + std::cos(std::atan(0.8)))},
        // Facade opposite a parallel one: the strip of sky above it.
        {"facade in a canyon", south, [](const XYZf& d) { return !behindWall(d, 180.0, 0.9); },
         0.5 * (1.0 - std::sin(std::atan(0.9)))},
    };
}

/// By the first rays alone, and with tolerances of sky and sun.
struct Analyses {
    HourlyAnalysis usual = with(0.0, 0.0);
    HourlyAnalysis close = with(0.01, 0.02);
    HourlyAnalysis fine = with(0.0025, 0.0025);

    static HourlyAnalysis with(double skyTolerance, double sunTolerance) {
        HourlyAnalysisOptions options;
        options.tolerance = 0.0;
        options.skyTolerance = skyTolerance;
        options.sunTolerance = sunTolerance;
        return HourlyAnalysis(chicagoSky(), options);
    }
    static const Analyses& get() {
        static const Analyses analyses;
        return analyses;
    }
};

void expectNear(const SensorResult& result, const Reference& expected, double sky,
                const std::string& name) {
    EXPECT_NEAR(static_cast<double>(result.sky) / expected.sky, 1.0, sky) << name;
    EXPECT_NEAR(static_cast<double>(result.beam) / expected.beam, 1.0, 0.02) << name;
}

void expectWithinTolerances(const SensorResult& close, const SensorResult& fine,
                            const Reference& expected, const std::string& name) {
    expectNear(close, expected, 0.01, name);
    EXPECT_NEAR(static_cast<double>(fine.sky) / expected.sky, 1.0, 0.005) << name;
    EXPECT_NEAR(static_cast<double>(fine.beam) / expected.beam, 1.0, 0.005) << name;
    EXPECT_NEAR(static_cast<double>(fine.directSunHours) / expected.sunHours, 1.0, 0.01) << name;
}

TEST(HourlyAnalysis, MeetsClosedFormsAndBruteForceBehindWalls) {
    const Analyses& analyses = Analyses::get();
    for (const Shade& shade : shades()) {
        const Reference expected = bruteForce(chicagoSky(), shade.normal, shade.isFree);
        FormulaScene scene(shade.isFree);
        const Sensor sensor{{0, 0, 0}, shade.normal};
        // Of a facade's few columns of sky the heaviest lie side by side.
        expectNear(analyses.usual.evaluate(scene, sensor), expected,
                   shade.normal.z > 0.0f ? 0.01 : 0.02, shade.name);
        const SensorResult close = analyses.close.evaluate(scene, sensor);
        expectWithinTolerances(close, analyses.fine.evaluate(scene, sensor), expected, shade.name);
        EXPECT_NEAR(static_cast<double>(close.skyViewFactor) / shade.skyView, 1.0, 0.01)
            << shade.name;
    }
}

TEST(HourlyAnalysis, AsksMoreOnlyWhereEdgesMatter) {
    std::mt19937 random(7);
    std::uniform_real_distribution<double> slope(0.0, 2.0);
    const Analyses& analyses = Analyses::get();
    // Two for each cell but for those near the horizon and the zenith.
    constexpr int raysOfUsual = 2 * skyGrid::cellCount - 8 * skyGrid::azimuthCount;
    double worstUsual = 0.0;
    for (int i = 0; i < 12; ++i) {
        const std::array<double, 4> walls{slope(random), slope(random), slope(random),
                                          slope(random)};
        const auto isFree = [&](const XYZf& d) {
            for (std::size_t w = 0; w < 4; ++w) {
                if (behindWall(d, 11.0 * i + 90.0 * static_cast<double>(w), walls[w])) {
                    return false;
                }
            }
            return true;
        };
        const Reference expected = bruteForce(chicagoSky(), {0, 0, 1}, isFree);
        FormulaScene scene(isFree);
        const SensorResult usual = analyses.usual.evaluate(scene, Sensor{});
        const int raysUsual = scene.rays.exchange(0);
        const SensorResult close = analyses.close.evaluate(scene, Sensor{});
        const int raysClose = scene.rays.exchange(0);
        const SensorResult fine = analyses.fine.evaluate(scene, Sensor{});
        const std::string name = "court " + std::to_string(i);
        expectNear(usual, expected, 0.012, name);
        expectWithinTolerances(close, fine, expected, name);
        worstUsual =
            std::max({worstUsual, std::abs(static_cast<double>(usual.sky) / expected.sky - 1.0),
                      std::abs(static_cast<double>(usual.beam) / expected.beam - 1.0)});
        EXPECT_EQ(raysUsual, raysOfUsual);
        EXPECT_LT(raysClose, raysUsual * 3 / 2);
        EXPECT_LT(scene.rays, raysUsual * 7 / 2);
    }
    EXPECT_GT(worstUsual, 0.005);
    FormulaScene open([](const XYZf&) { return true; });
    analyses.fine.evaluate(open, Sensor{});
    EXPECT_EQ(open.rays, raysOfUsual);
}

// On one day a square of 1.25 degrees holds five minutes of the sun, up to a percent of it; and the
// plane of an open surface may cut most cells that hold any.
TEST(HourlyAnalysis, KeepsTheTolerancesOfAnyPeriod) {
    HourlySkyOptions options;
    options.sunshineThreshold = 1.0;
    std::vector<Shade> places = shades();
    for (const auto& [compass, altitude] : {std::pair{320.0, -35.0}, {80.0, -30.0}, {0.0, -20.0}}) {
        places.push_back({"open", test::narrowed(test::direction(compass, altitude)),
                          [](const XYZf&) { return true; }, 0.0});
    }
    const WeatherSeries weather = test::clearYear({41.98, -87.92, -6.0, 201.0});
    struct Case {
        AnalysisPeriod period;
        double tolerance;
        double bound = tolerance; // the bound of so many cells is one of chance
    };
    for (const Case& c : {Case{{80, 80}, 0.02}, Case{{80, 80}, 0.002}, Case{{172, 172}, 0.02},
                          Case{{355, 355}, 0.002}, Case{{1, 365}, 0.0005, 0.0015}}) {
        const HourlyAnalysis analysis(buildHourlySky(weather, c.period, options),
                                      {.sunTolerance = c.tolerance});
        const HourlySkyReport& report = analysis.sky().report;
        for (const Shade& shade : places) {
            SCOPED_TRACE(shade.name + std::to_string(c.period.firstDay));
            const Reference expected = bruteForce(analysis.sky(), shade.normal, shade.isFree);
            FormulaScene scene(shade.isFree);
            const SensorResult result = analysis.evaluate(scene, {{0, 0, 0}, shade.normal});
            const double least = 0.1 * std::max(static_cast<double>(result.total),
                                                report.directHorizontal + report.diffuseHorizontal);
            EXPECT_NEAR(static_cast<double>(result.beam), expected.beam,
                        c.bound * std::max(expected.beam, least));
            EXPECT_NEAR(static_cast<double>(result.directSunHours), expected.sunHours,
                        0.35 + 0.04 * expected.sunHours);
        }
    }
}

// One number for sky, sun and ground together, in places where the first rays are off by ten
// percent: floors of courts with slopes to 6 and facades of streets, at eight bearings. The default
// and a finer tolerance against half-degree rays, each step of the sun and the ground's closed
// form.
TEST(HourlyAnalysis, KeepsTheToleranceOfTheTotalInDeepPlaces) {
    const HourlyAnalysis first(chicagoSky(), {.tolerance = 0.0, .peak = false});
    const HourlyAnalysis usual(chicagoSky(), {.peak = false});
    const HourlyAnalysis fine(chicagoSky(), {.tolerance = 0.003, .peak = false});
    std::mt19937 random(3);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    constexpr int cases = 32;
    std::array<double, 3> worst{};
    std::array<double, 3> squares{};
    for (int i = 0; i < cases; ++i) {
        const double compass = 22.5 * i;
        const bool facade = i >= cases / 2;
        const std::array<double, 4> slopes{6.0 * unit(random), 6.0 * unit(random),
                                           6.0 * unit(random), 6.0 * unit(random)};
        const double foot = facade ? 0.2 + 2.0 * unit(random) : 0.0; // depth of the street's end
        const XYZf normal = facade ? test::narrowed(test::direction(compass, 0.0)) : XYZf{0, 0, 1};
        const auto isFree = [&](const XYZf& d) {
            if (facade) {
                const double along = static_cast<double>(dotProduct(d, normal));
                return along > 0.0 && (d.z < 0.0f ? -static_cast<double>(d.z) > foot * along
                                                  : !behindWall(d, compass, 0.3 * slopes[0]));
            }
            for (std::size_t w = 0; w < 4; ++w) {
                if (behindWall(d, compass + 90.0 * static_cast<double>(w), slopes[w])) {
                    return false;
                }
            }
            return true;
        };
        const Reference reference = bruteForce(chicagoSky(), normal, isFree);
        const double groundLight =
            facade ? chicagoSky().groundReflected * 0.5 * (1.0 - foot / std::hypot(1.0, foot))
                   : 0.0;
        const double expected = reference.sky + reference.beam + groundLight;
        FormulaScene scene(isFree);
        std::size_t k = 0;
        for (const HourlyAnalysis* analysis : {&first, &usual, &fine}) {
            const SensorResult result = analysis->evaluate(scene, {{0, 0, 0}, normal});
            const double error = static_cast<double>(result.total) / expected - 1.0;
            worst[k] = std::max(worst[k], std::abs(error));
            squares[k++] += error * error;
        }
    }
    EXPECT_GT(worst[0], 0.04);
    EXPECT_LT(worst[1], 0.018);
    EXPECT_LT(std::sqrt(squares[1] / cases), 0.006);
    EXPECT_LT(worst[2], 0.007);
    EXPECT_LT(std::sqrt(squares[2] / cases), 0.003);
}

// The columns of the sky begin at north: a neighbour beyond it counts like any other.
TEST(HourlyAnalysis, SeesEdgesAcrossNorth) {
    const auto isFree = [](const XYZf& d) {
        const double compass = std::atan2(static_cast<double>(d.x), static_cast<double>(d.y));
        return compass > 1.25 * degree && compass < 21.25 * degree;
    };
    FormulaScene gap(isFree);
    const SensorResult result =
        HourlyAnalysis(chicagoSky(), {.skyTolerance = 0.001}).evaluate(gap, {{0, 0, 0}, {0, 1, 0}});
    const double expected = bruteForce(chicagoSky(), {0, 1, 0}, isFree).sky;
    EXPECT_NEAR(static_cast<double>(result.sky) / expected, 1.0, 0.008);
}

// A court of boxes through the ray index: the same by triangles and by formula.
TEST(HourlyAnalysis, MeetsBruteForceInABoxCourt) {
    std::vector<double> court;
    addBox(court, {-9, 6, 0}, {9, 9, 7});
    addBox(court, {-9, -9, 0}, {9, -6, 4});
    addBox(court, {6, -6, 0}, {9, 6, 9});
    addBox(court, {-9, -6, 0}, {-6, 6, 5});
    const OcclusionIndex scene(court);
    const Analyses& analyses = Analyses::get();
    for (const Sensor& sensor :
         {Sensor{{1.0f, 2.3f, 0.1f}, {0, 0, 1}}, Sensor{{-3.3f, -1.7f, 0.1f}, {0, 0, 1}},
          Sensor{{0.7f, 5.9f, 2.1f}, {0, -1, 0}}}) {
        const auto isFree = [&](const XYZf& d) { return !scene.isOccluded(sensor.position, d); };
        const Reference expected = bruteForce(chicagoSky(), sensor.normal, isFree);
        const SensorResult fine = analyses.fine.evaluate(scene, sensor);
        expectNear(analyses.usual.evaluate(scene, sensor), expected, 0.01, "boxes");
        expectWithinTolerances(analyses.close.evaluate(scene, sensor), fine, expected, "boxes");
        // Ray by ray gives the same as whole skies.
        FormulaScene single(isFree);
        EXPECT_EQ(analyses.fine.evaluate(single, sensor).beam, fine.beam);
        EXPECT_EQ(analyses.fine.evaluate(single, sensor).sky, fine.sky);
    }
}

// What a surface's own wall hides it does not see anyway. Time with the sun up counts without
// radiation too, so also where most days are dark.
TEST(HourlyAnalysis, LosesNothingToAWallBehindTheSensor) {
    WeatherSeries weather = chicago();
    for (const bool dark : {false, true}) {
        HourlyAnalysisOptions options;
        if (dark) {
            test::keepDays(weather, 40);
            options.skyTolerance = options.sunTolerance = 0.001;
        }
        const HourlyAnalysis analysis(buildHourlySky(weather), options);
        for (const auto& [compass, altitude] : {std::pair{3.0, 0.0},
                                                {80.0, 40.0},
                                                {250.0, 12.0},
                                                {0.0, -40.0},
                                                {352.0, -10.0},
                                                {205.0, -20.0}}) {
            const Sensor sensor{{0, 0, 0}, test::narrowed(test::direction(compass, altitude))};
            const XYZf& n = sensor.normal;
            FormulaScene wall(
                [&](const XYZf& d) { return n.x * d.x + n.y * d.y + n.z * d.z > -5e-5f; });
            FormulaScene empty([](const XYZf&) { return true; });
            SensorHours hours;
            const SensorResult result = analysis.evaluate(wall, sensor, &hours);
            const SensorResult open = analysis.evaluate(empty, sensor);
            const float allowed = dark ? 0.03f : 0.005f;
            const std::string name = std::to_string(compass) + (dark ? " dark" : "");
            EXPECT_NEAR(result.directSunHours, open.directSunHours, allowed * open.directSunHours)
                << name;
            EXPECT_NEAR(result.beam, open.beam, allowed * open.beam) << name;
            EXPECT_GE(*std::min_element(hours.beam.begin(), hours.beam.end()), 0.0f) << name;
            EXPECT_LE(result.peak, open.peak * 1.02f) << name;
        }
    }
}

// Time with the sun up is one of geometry: under dark skies, in half a cell that the surface's own
// plane cuts, no more of it counts than what lies before the plane.
TEST(HourlyAnalysis, CountsDarkHoursBeforeTheSurfaceAlone) {
    WeatherSeries weather = test::clearYear({41.98, -87.92, -6.0, 201.0});
    const HourlySky clear = buildHourlySky(weather);
    test::keepDays(weather, 10);
    const HourlyAnalysis dark(buildHourlySky(weather), {.tolerance = 0.0, .sunTolerance = 5e-4});
    const auto isFree = [](const XYZf&) { return true; };
    FormulaScene scene(isFree);
    for (int compass = 0; compass < 360; compass += 20) {
        for (const double altitude : {-30.0, 0.0, 30.0}) {
            const XYZf normal = test::narrowed(test::direction(compass, altitude));
            const double expected = bruteForce(clear, normal, isFree).sunHours;
            const SensorResult result = dark.evaluate(scene, {{0, 0, 0}, normal});
            // Cells that bring too little to be looked at again leave up to 13 hours.
            EXPECT_NEAR(static_cast<double>(result.directSunHours), expected, 15.0)
                << compass << " " << altitude;
        }
    }
}

/// Whether part of an hour's sun stands within 7.5 degrees of the surface's plane, where the hours
/// are scaled to the sums.
bool isGrazed(const HourlySky& sky, int hour, const XYZf& normal) {
    return std::ranges::any_of(sky.skyHours, [&](const SkyHour& of) {
        const auto first = sky.beams.begin() + of.firstBeam;
        return of.hour == hour &&
               std::any_of(first, first + of.beamCount, [&](const BeamPart& part) {
                   return std::abs(dotProduct(normal, part.energy)) <
                          0.13f * vectorLength(part.energy);
               });
    });
}

// The peak is searched through bounds; the hours of the sensor are computed without them.
TEST(HourlyAnalysis, FindsThePeakOfTheHours) {
    std::mt19937 random(17);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    const HourlyAnalysis analysis(chicagoSky());
    for (int i = 0; i < 150; ++i) {
        const double compass = 360.0 * unit(random);
        const double slope = 3.0 * unit(random);
        const double gap = unit(random);
        FormulaScene scene(
            [=](const XYZf& d) {
                return !behindWall(d, compass, slope) &&
                       !(i % 3 == 0 && behindWall(d, compass + 180.0, 2.0 * gap));
            },
            i % 10 == 9);
        const double altitude = 180.0 * unit(random) - 90.0;
        Sensor sensor{{0, 0, 0}, test::narrowed(test::direction(360.0 * unit(random), altitude))};
        if (i % 10 == 8) {
            sensor.normal = {0, 0, 0};
        }
        SensorHours hours;
        const SensorResult result = analysis.evaluate(scene, sensor, &hours);
        double sum = 0.0;
        float highest = 0.0f;
        int hourOfHighest = -1;
        for (int k = 0; k < hoursPerYear; ++k) {
            const auto at = static_cast<std::size_t>(k);
            const float hour = hours.beam[at] + hours.sky[at] + hours.ground[at];
            hourOfHighest = hour > highest ? k : hourOfHighest;
            highest = std::max(highest, hour);
            sum += static_cast<double>(hour);
        }
        EXPECT_NEAR(sum, static_cast<double>(result.total), 1e-4 * sum) << i;
        const bool grazed = isGrazed(analysis.sky(), result.peakHour, sensor.normal) ||
                            isGrazed(analysis.sky(), hourOfHighest, sensor.normal);
        EXPECT_NEAR(result.peak, highest, (grazed ? 0.03f : 2e-6f) * highest) << i;
        EXPECT_TRUE(grazed || result.peakHour == hourOfHighest) << i;
    }
}

// Splitting counts on knowing which of the first rays are the lattice's.
TEST(FirstRays, KnowTheLattice) {
    const FirstRays first(chicagoSky());
    const auto lattice = rayLattice::pair(0.0, 0.0, 0.0);
    for (std::size_t half = 0; half < 2; ++half) {
        for (int cell = 0; cell < skyGrid::cellCount; ++cell) {
            const int azimuth = cell % skyGrid::azimuthCount;
            const int altitude = cell / skyGrid::azimuthCount;
            const XYZf& ray = first.directions[half].direction(azimuth, altitude);
            const XYZf& own = lattice[half][static_cast<std::size_t>(cell)];
            EXPECT_EQ(first.ofLattice[half].contains(azimuth, altitude),
                      vectorLength(difference(ray, own)) == 0.0f);
        }
    }
}

// No hour may give a sensor in the open more sky than its block's first bound, nor more sun than
// its whole beam; the search would miss it.
TEST(FirstRays, AreAllThatAnAnalysisWithoutTolerancesCasts) {
    const HourlyAnalysis analysis(chicagoSky(), {.tolerance = 0.0});
    std::set<std::array<float, 3>> known;
    for (const SkyDirections& set : analysis.firstRays()) {
        for (int cell = 0; cell < skyGrid::cellCount; ++cell) {
            const XYZf& d =
                set.direction(cell % skyGrid::azimuthCount, cell / skyGrid::azimuthCount);
            known.insert({d.x, d.y, d.z});
        }
    }
    std::set<std::array<float, 3>> cast;
    for (const bool doubleSided : {false, true}) {
        FormulaScene scene(
            [&](const XYZf& d) {
                cast.insert({d.x, d.y, d.z});
                return d.x > 0.3f;
            },
            doubleSided);
        for (const double tilt : {0.0, 20.0, 40.0, 90.0, 150.0, 180.0}) {
            analysis.evaluate(scene,
                              {{0, 0, 1}, test::narrowed(test::direction(205.0, 90.0 - tilt))});
        }
        analysis.evaluate(scene, {{0, 0, 1}, {0, 0, 0}});
    }
    EXPECT_TRUE(std::includes(known.begin(), known.end(), cast.begin(), cast.end()));
    EXPECT_GT(cast.size(), static_cast<std::size_t>(2 * skyGrid::cellCount)); // and the ground's
}

TEST(PeakHours, BoundWhatHoursGiveInTheOpen) {
    const SkyCells cells(0.0);
    const PeakHours hours(chicagoSky(), cells);
    for (int i = 0; i < 40; ++i) {
        const XYZf n = test::narrowed(test::direction(137.5 * i, 4.0 * i - 78.0));
        std::array<float, skyPatches::count> weights{};
        for (int c = 0; c < skyGrid::cellCount; ++c) {
            const auto at = static_cast<std::size_t>(c);
            weights[static_cast<std::size_t>(skyPatches::ofCell(c))] += std::max(
                dotProduct(n, {cells.momentX[at], cells.momentY[at], cells.momentZ[at]}), 0.0f);
        }
        for (std::size_t h = 0; h < hours.hours.size(); ++h) {
            const PeakHours::Hour& hour = hours.hours[h];
            const auto term = [&](BlockTerms::Field field) {
                return hours.blockTerms.at(h / PeakHours::lanes, field);
            };
            const XYZf open{term(BlockTerms::openX), term(BlockTerms::openY),
                            term(BlockTerms::openZ)};
            float beam = 0.0f;
            for (std::size_t b = hour.firstBeam; b < hour.firstBeam + hour.beamCount; ++b) {
                beam += std::max(dotProduct(n, hours.beams[b].energy), 0.0f);
            }
            const WholeBeams& whole = hours.wholeBeams[h / PeakHours::lanes];
            const std::size_t lane = h % PeakHours::lanes;
            const float p = dotProduct(n, {whole.x[lane], whole.y[lane], whole.z[lane]});
            ASSERT_LE(beam, std::max({p, 0.5f * (p + whole.swing[lane]), 0.0f}) +
                                1e-4f * whole.swing[lane] + 1e-6f);
            const float* radiance = hours.patches + hour.skyHour * skyPatches::count;
            ASSERT_TRUE(hour.skyHour < 0 ||
                        hour.shareInverse * std::inner_product(weights.begin(), weights.end(),
                                                               radiance, 0.0f) <=
                            (term(BlockTerms::open) + dotProduct(n, open)) * 1.00001f);
        }
    }
}

// Over a year little sun stands near a surface's plane; of single days it may be most.
TEST(HourlyAnalysis, AddsUpItsHoursInShortPeriods) {
    std::mt19937 random(23);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    WeatherSeries weather = test::clearYear({41.98, -87.92, -6.0, 201.0});
    for (float& direct : weather.directNormal) {
        direct *= unit(random) < 0.3f ? unit(random) : 0.0f;
    }
    for (int i = 0; i < 60; ++i) {
        const int day = 1 + 6 * i;
        const double start = i % 3 == 0 ? 6.7 : 0.0;
        HourlyAnalysisOptions options;
        options.sunTolerance = i % 4 == 0 ? 0.002 : 0.0;
        const HourlyAnalysis analysis(buildHourlySky(weather, {day, day + i % 2, start, 24.0}),
                                      options);
        FormulaScene scene([](const XYZf& d) { return !behindWall(d, 200.0, 0.4); }, i % 7 == 6);
        for (int n = 0; n < 12; ++n) {
            const Sensor sensor{{0, 0, 0}, test::narrowed(test::direction(30.0 * n, 20.0 - 5 * n))};
            SensorHours hours;
            const SensorResult result = analysis.evaluate(scene, sensor, &hours);
            double beam = 0.0;
            for (std::size_t k = 0; k < hoursPerYear; ++k) {
                beam += static_cast<double>(hours.beam[k]);
                ASSERT_GE(hours.beam[k], 0.0f);
                ASSERT_LE(hours.beam[k], weather.directNormal[k] * 1.0001f);
            }
            EXPECT_NEAR(beam, static_cast<double>(result.beam),
                        1e-4 * static_cast<double>(result.total))
                << i << ' ' << n;
        }
    }
}

TEST(HourlyAnalysis, ChangesNothingWhenModelAndNorthTurnTogether) {
    const WeatherSeries weather = chicago();
    for (const double turn : {17.0 * degree, -1.1}) {
        HourlySkyOptions options;
        options.northOffset = turn;
        const HourlyAnalysis turned(buildHourlySky(weather, {}, options));
        const HourlyAnalysis straight(buildHourlySky(weather));
        const auto rotated = [&](double compass) { return compass + turn / degree; };
        for (const double facing : {10.0, 100.0, 233.0}) {
            FormulaScene before([](const XYZf& d) { return !behindWall(d, 150.0, 0.8); });
            FormulaScene after([&](const XYZf& d) { return !behindWall(d, rotated(150.0), 0.8); });
            const SensorResult a = straight.evaluate(
                before, {{0, 0, 0}, test::narrowed(test::direction(facing, 30.0))});
            const SensorResult b = turned.evaluate(
                after, {{0, 0, 0}, test::narrowed(test::direction(rotated(facing), 30.0))});
            EXPECT_NEAR(b.total / a.total, 1.0f, 0.002f);
            EXPECT_NEAR(b.beam / a.beam, 1.0f, 0.002f);
            EXPECT_NEAR(b.peak / a.peak, 1.0f, 0.002f);
            EXPECT_NEAR(b.directSunHours / a.directSunHours, 1.0f, 0.002f);
        }
    }
}

TEST(HourlyAnalysis, GivesTwoSidesTheSumAndHiddenSensorsNothing) {
    const HourlyAnalysis analysis(chicagoSky());
    const XYZf normal = test::narrowed(test::direction(70.0, 25.0));
    FormulaScene one([](const XYZf&) { return true; });
    FormulaScene two([](const XYZf&) { return true; }, true);
    FormulaScene closed([](const XYZf&) { return false; });
    const SensorResult front = analysis.evaluate(one, {{0, 0, 0}, normal});
    const SensorResult back =
        analysis.evaluate(one, {{0, 0, 0}, {-normal.x, -normal.y, -normal.z}});
    const SensorResult both = analysis.evaluate(two, {{0, 0, 0}, normal});
    EXPECT_NEAR(both.total / (front.total + back.total), 1.0f, 1e-4f);
    const SensorResult point = analysis.evaluate(one, {{0, 0, 0}, {0, 0, 0}});
    EXPECT_FLOAT_EQ(point.skyViewFactor, 1.0f);
    EXPECT_EQ(point.groundViewFactor, 1.0f);
    const SensorResult none = analysis.evaluate(closed, {{0, 0, 0}, normal});
    EXPECT_EQ(none.total, 0.0f);
    EXPECT_EQ(none.peak, 0.0f);
    EXPECT_EQ(none.peakHour, -1);
    EXPECT_EQ(HourlyAnalysis(HourlySky{}).evaluate(one, Sensor{}).total, 0.0f);
    WeatherSeries overcast = chicago();
    std::fill(overcast.directNormal.begin(), overcast.directNormal.end(), 0.0f);
    const SensorResult grey = HourlyAnalysis(buildHourlySky(overcast)).evaluate(one, Sensor{});
    EXPECT_EQ(grey.beam, 0.0f);
    EXPECT_GT(grey.directSunHours, 4000.0f);
}

// Months and a window of hours by the rays of the year: the months add up to it on every kind of
// sensor, also where its plane cuts the sun's cells, and each part is what it gives by rays of its
// own but for the edges of shadows.
TEST(HourlyAnalysis, PartsAddUpAndAreWhatTheyGiveAlone) {
    const WeatherSeries weather = chicago();
    std::vector<HourlySky> parts;
    for (int month = 1; month <= 12; ++month) {
        parts.push_back(buildHourlySky(
            weather, {dayIndex(month, 1) + 1, month < 12 ? dayIndex(month + 1, 1) : 365}));
    }
    parts.push_back(buildHourlySky(weather, {152, 243, 9.0, 17.0}));
    const HourlySky year = buildHourlySky(weather);
    for (const double tolerance : {0.0, 0.005}) {
        const HourlyAnalysis analysis(
            year, {.tolerance = 0.0, .skyTolerance = tolerance, .sunTolerance = tolerance}, parts);
        ASSERT_EQ(analysis.partCount(), 13U);
        for (int kind = 0; kind < 8; ++kind) { // walls, roofs, two sides, a point
            SCOPED_TRACE(kind);
            const XYZf normal = kind == 7 ? XYZf{0, 0, 0}
                                          : test::narrowed(test::direction(
                                                90.0 * kind + 5.0, kind < 4 ? 0.0 : 30.0 * kind));
            FormulaScene scene([](const XYZf& d) { return !behindWall(d, 150.0, 0.8); }, kind == 6);
            std::vector<SensorPart> got(13);
            const SensorResult whole = analysis.evaluate(scene, {{0, 0, 0}, normal}, got);
            const double slack = 1e-5 * static_cast<double>(whole.total);
            for (const auto& [part, of] : {std::pair{&SensorPart::total, whole.total},
                                           {&SensorPart::beam, whole.beam},
                                           {&SensorPart::sky, whole.sky},
                                           {&SensorPart::ground, whole.ground}}) {
                double sum = 0.0;
                for (std::size_t month = 0; month < 12; ++month) {
                    sum += static_cast<double>(got[month].*part);
                }
                EXPECT_NEAR(sum, static_cast<double>(of), slack);
            }
            double hours = 0.0;
            for (std::size_t month = 0; month < 12; ++month) {
                EXPECT_GE(got[month].beam, 0.0f);
                hours += static_cast<double>(got[month].directSunHours);
            }
            EXPECT_NEAR(hours, static_cast<double>(whole.directSunHours), 0.01);
            for (const std::size_t p : {0U, 5U, 12U}) {
                const SensorResult alone =
                    HourlyAnalysis(parts[p],
                                   {.tolerance = 0.0, .skyTolerance = 0.002, .sunTolerance = 0.002})
                        .evaluate(scene, {{0, 0, 0}, normal});
                // Two rays for a cell leave that much where a wall's top runs along the way of the
                // sun.
                EXPECT_NEAR(got[p].total, alone.total,
                            (tolerance > 0.0 ? 0.04f : 0.1f) * alone.total)
                    << p;
                EXPECT_NEAR(got[p].ground, alone.ground, 1e-4f * alone.total) << p;
                EXPECT_NEAR(got[p].sky, alone.sky, 0.02f * alone.total) << p;
            }
        }
    }
    // Hours that no first ray sees: the rays to the sun are blocked, all beside them is free.
    const HourlyAnalysis analysis(year, {.tolerance = 0.0, .sunTolerance = 0.005}, parts);
    const std::vector<SkyDirections> rays = analysis.firstRays();
    std::vector<XYZf> hidden;
    for (const SunCell& cell : year.sunCells) {
        for (std::size_t half = 0; half < 2; ++half) {
            hidden.push_back(rays[half].direction(cell.cell % skyGrid::azimuthCount,
                                                  cell.cell / skyGrid::azimuthCount));
        }
    }
    FormulaScene scene([&](const XYZf& d) {
        return std::ranges::none_of(hidden, [&](const XYZf& other) {
            return d.x == other.x && d.y == other.y && d.z == other.z;
        });
    });
    EXPECT_EQ(HourlyAnalysis(year, {.tolerance = 0.0}).evaluate(scene, Sensor{}).directSunHours,
              0.0f);
    std::vector<SensorPart> got(13);
    const SensorResult whole = analysis.evaluate(scene, Sensor{}, got);
    EXPECT_GT(whole.directSunHours, 100.0f);
    EXPECT_NEAR(std::accumulate(
                    got.begin(), got.begin() + 12, 0.0f,
                    [](float sum, const SensorPart& month) { return sum + month.directSunHours; }),
                whole.directSunHours, 0.01f);
}

// Half of a cell that is looked at again leaves the other half its own weight, whatever both let
// through.
TEST(HourlyAnalysis, WeighsHalvesOfCellsByTheirOwn) {
    const auto sine = [](double altitude) {
        return static_cast<float>(std::sin(altitude * degree));
    };
    FormulaScene scene([&](const XYZf& d) {
        return d.z < sine(22.5) ? 0.9f : d.z < sine(25.0) ? 0.1f : 1.0f;
    });
    const float view = Analyses::with(0.001, 0.0).evaluate(scene, Sensor{}).skyViewFactor;
    EXPECT_NEAR(view,
                1.0f - 0.1f * sine(22.5) * sine(22.5) -
                    0.9f * (sine(25.0) * sine(25.0) - sine(22.5) * sine(22.5)),
                1e-4f);
}

// What a sensor sees, and for how long the sun stands before it, is a matter of site and scene.
TEST(HourlyAnalysis, CloudsDoNotMoveTheHoursOfSun) {
    const WeatherSeries some = chicago();
    WeatherSeries none = some;
    std::fill(none.directNormal.begin(), none.directNormal.end(), 0.0f);
    const HourlyAnalysis clear(buildHourlySky(some));
    const HourlyAnalysis overcast(buildHourlySky(none));
    for (int i = 0; i < 24; ++i) {
        const double wall = 15.0 * i;
        FormulaScene scene([&](const XYZf& d) { return !behindWall(d, wall, 1.1); });
        const Sensor sensor{{0, 0, 0}, test::narrowed(test::direction(37.0 * i, 4.0 * i - 10.0))};
        const SensorResult a = clear.evaluate(scene, sensor);
        const SensorResult b = overcast.evaluate(scene, sensor);
        EXPECT_EQ(a.directSunHours, b.directSunHours) << i;
        EXPECT_EQ(a.skyViewFactor, b.skyViewFactor) << i;
        EXPECT_GT(a.beam, b.beam) << i;
    }
}

// Many sensors at once, half of them neighbours on a face that ask the scene together: the bytes of
// one after the other on every number of threads and at every instruction level, their parts too,
// all of them counted, and none begun after a stop.
TEST(HourlyAnalysis, SharesSensorsAmongThreads) {
    std::vector<double> wall;
    addBox(wall, {-50, 3, 0}, {50, 5, 9});
    const OcclusionIndex scene(wall);
    std::vector<Sensor> sensors;
    for (int i = 0; i < 300; ++i) {
        sensors.push_back({{0.1f * static_cast<float>(i) - 20.0f, 0.0f, 0.1f},
                           test::narrowed(test::direction(27.0 * i, 3.0 * (i % 60) - 90.0))});
        if (i % 2 == 0) {
            sensors.back() = {{1.0f, -0.2f, 0.1f}, {0, 1, 0}};
            sensors.back().position.x += 0.1f * static_cast<float>(i / 2 % 15);
            sensors.back().position.z += 0.1f * static_cast<float>(i / 30);
        }
    }
    const HourlyAnalysis analysis(chicagoSky(), {}, {chicagoSky()});
    std::vector<SensorResult> expected;
    std::vector<SensorPart> expectedParts(sensors.size());
    std::vector<SensorHours> expectedHours(1);
    FastRayTransparency caster(scene);
    for (std::size_t i = 0; i < sensors.size(); ++i) {
        expected.push_back(analysis.evaluate(caster, sensors[i], std::span(&expectedParts[i], 1),
                                             i == 0 ? expectedHours.data() : nullptr));
    }
    for (const int threads : {1, 2}) {
        for (const SimdLevel level : availableSimdLevels()) {
            setSimdLevel(level);
            std::vector<SensorResult> results(sensors.size());
            std::vector<SensorHours> hours(1);
            std::vector<SensorPart> parts(sensors.size());
            std::size_t reported = 0;
            EXPECT_TRUE(
                analysis.evaluate(scene, sensors, results,
                                  {.threads = threads,
                                   .progress = [&](std::size_t finished) { reported += finished; }},
                                  hours, parts));
            EXPECT_EQ(reported, sensors.size());
            EXPECT_EQ(
                std::memcmp(results.data(), expected.data(), sensors.size() * sizeof(SensorResult)),
                0)
                << threads << ' ' << simdLevelName(level);
            EXPECT_EQ(
                std::memcmp(parts.data(), expectedParts.data(), parts.size() * sizeof(SensorPart)),
                0);
            EXPECT_EQ(hours[0].sky, expectedHours[0].sky);
        }
        std::stop_source stop;
        std::atomic<int> rays = 0;
        FormulaScene stopping(
            [&](const XYZf&) { return ++rays != 200'000 || !stop.request_stop(); });
        std::size_t reported = 0;
        std::vector<SensorResult> results(sensors.size(), SensorResult{.total = -1.0f});
        const auto count = [&](std::size_t finished) { reported += finished; };
        EXPECT_FALSE(
            analysis.evaluate(stopping, sensors, results,
                              {.threads = threads, .progress = count, .stop = stop.get_token()}));
        EXPECT_EQ(std::ranges::count_if(results, [](const auto& r) { return r.total >= 0.0f; }),
                  static_cast<std::ptrdiff_t>(reported));
        EXPECT_LT(reported, sensors.size());
    }
    setSimdLevel(availableSimdLevels().back());
}

// Input that is no radiation study has an answer all the same.
TEST(HourlyAnalysis, AnswersImpossibleInput) {
    const float nan = std::nanf("");
    HourlySky turned = chicagoSky();
    turned.options.northOffset = std::numeric_limits<double>::infinity();
    HourlyAnalysisOptions many;
    many.groundRays = std::numeric_limits<int>::max();
    HourlyAnalysis analysis(turned, many);
    const OcclusionIndex scene;
    const SensorResult south = analysis.evaluate(scene, {{0, 0, 1}, {0, -1, 0}});
    EXPECT_GT(south.beam, 0.0f);
    for (const float length : {1e-30f, 1e30f}) {
        EXPECT_FLOAT_EQ(analysis.evaluate(scene, {{0, 0, 1}, {0, -length, 0}}).total, south.total);
    }
    SensorHours hours;
    const SensorResult lost = analysis.evaluate(scene, {{0, nan, 1}, {0, -1, 0}}, &hours);
    EXPECT_EQ(lost.total, 0.0f);
    EXPECT_EQ(lost.peakHour, -1);
    EXPECT_EQ(hours.beam, std::vector<float>(hoursPerYear, 0.0f));
    EXPECT_EQ(analysis.evaluate(scene, {{0, 0, 1}, {nan, -1, 0}}).skyViewFactor, 0.0f);
    const HourlyAnalysis taken = std::move(analysis);
    EXPECT_EQ(analysis.evaluate(scene, Sensor{}).total, 0.0f); // NOLINT(bugprone-use-after-move)
    EXPECT_FALSE(analysis.sky().valid);
    EXPECT_TRUE(taken.sky().valid);
}

} // namespace
} // namespace insolate
