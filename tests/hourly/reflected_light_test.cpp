// Light that is reflected, and light that comes through glass and leaves, against closed forms and
// direct evaluation.

#include <insolate/hourly/reflected_light.h>

#include <insolate/platform/simd.h>

#include <bench/scenes.h>

#include "made_weather.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <numbers>
#include <vector>

namespace {

using namespace insolate;
using scenes::Point;
using scenes::Random;
using scenes::Scene;

/// A sky of the same radiance everywhere that gives open ground 1 Wh/m2, and ground of an albedo.
HourlySky uniformSky(double albedo) {
    HourlySky sky;
    sky.valid = true;
    sky.hours = 1;
    sky.options.albedo = albedo;
    sky.report.diffuseHorizontal = 1;
    sky.groundReflected = albedo;
    sky.diffuse.assign(skyGrid::cellCount, static_cast<float>(1 / std::numbers::pi));
    return sky;
}

/// tolerance: finer than the first rays for edges that run along the sky's raster.
HourlyAnalysis uniformAnalysis(double albedo = 0, double tolerance = 0) {
    HourlyAnalysisOptions options;
    options.peak = false;
    options.groundRays = 1024;
    options.skyTolerance = tolerance;
    return HourlyAnalysis(uniformSky(albedo), options);
}

/// Surfaces in groups of one reflectance.
struct MadeScene {
    Scene scene;
    std::vector<std::uint16_t> materialOf;
    std::vector<Material> materials;

    std::uint16_t material(float reflectance) {
        Material one;
        one.reflectance = reflectance;
        materials.push_back(one);
        return static_cast<std::uint16_t>(materials.size() - 1);
    }
    void quad(std::uint16_t material, const Point& a, const Point& b, const Point& c,
              const Point& d) {
        scenes::addQuad(scene, a, b, c, d);
        materialOf.insert(materialOf.end(), 2, material);
    }
    LightScene light() const { return LightScene(scene.coordinates, materialOf, materials); }
};

std::vector<SensorResult> resultsOf(const HourlyAnalysis& analysis, const LightScene& scene,
                                    const std::vector<Sensor>& sensors,
                                    const ReflectionOptions& options = {}) {
    std::vector<SensorResult> results(sensors.size());
    analysis.evaluate(scene, sensors, results);
    const ReflectedLight light(analysis, scene, sensors, options, {}, results);
    for (std::size_t i = 0; i < sensors.size(); ++i) {
        light.addTo(i, results[i]);
    }
    return results;
}

/// More rays and finer cells, where a closed form is to be met closely.
ReflectionOptions fine() {
    ReflectionOptions options;
    options.rays = 128;
    options.cellRays = 1024;
    options.linkRays = 256;
    options.leastCell = 1;
    options.leastLinkCell = 1;
    return options;
}

double meanTotal(const std::vector<SensorResult>& results, std::size_t first, std::size_t step) {
    double sum = 0;
    double count = 0;
    for (std::size_t i = first; i < results.size(); i += step) {
        sum += results[i].total;
        ++count;
    }
    return sum / count;
}

TEST(ReflectedLight, FillsACanyonLikeItsRadiosity) {
    // An endless street of walls of 0.4 and a floor of 0.2 under a uniform sky: radiosity with 400
    // strips on each side, worked out independently (the lumped solution with one value a side
    // gives 0.5048 and 0.3865 at a height of the width).
    const struct {
        double height, floor, wall, floorMiddle, wallMiddle;
    } table[] = {{0.5, 0.689644, 0.478776, 0.765473, 0.478075},
                 {1, 0.496827, 0.385691, 0.531598, 0.373150},
                 {2, 0.295752, 0.267257, 0.305679, 0.227891}};
    const HourlyAnalysis analysis = uniformAnalysis(0, 0.002);
    for (const auto& row : table) {
        constexpr double width = 12;
        constexpr double end = 1500;
        const double high = row.height * width;
        MadeScene made;
        const std::uint16_t floor = made.material(0.2f);
        const std::uint16_t wall = made.material(0.4f);
        made.quad(floor, {0, -end, 0}, {width, -end, 0}, {width, end, 0}, {0, end, 0});
        made.quad(wall, {0, -end, 0}, {0, end, 0}, {0, end, high}, {0, -end, high});
        made.quad(wall, {width, -end, 0}, {width, end, 0}, {width, end, high}, {width, -end, high});
        std::vector<Sensor> sensors;
        Random random(5);
        constexpr int strips = 300;
        for (int i = 0; i < strips; ++i) {
            const double place = (i + 0.5) / strips; // of a side
            const auto y = [&] { return random(-400, 400); };
            sensors.push_back({scenes::toXyz({width * place, y(), 0.001}), {0, 0, 1}});
            sensors.push_back({scenes::toXyz({0.001, y(), high * place}), {1, 0, 0}});
            sensors.push_back({scenes::toXyz({width / 2, y(), 0.001}), {0, 0, 1}});
            sensors.push_back({scenes::toXyz({width - 0.001, y(), high / 2}), {-1, 0, 0}});
        }
        const struct {
            ReflectionOptions options;
            double bound;
        } settings[] = {{{}, 0.005}, {fine(), 0.005}};
        std::vector<SensorResult> results;
        for (const auto& setting : settings) {
            results = resultsOf(analysis, made.light(), sensors, setting.options);
            const double expected[] = {row.floor, row.wall, row.floorMiddle, row.wallMiddle};
            for (std::size_t place = 0; place < 4; ++place) {
                EXPECT_NEAR(meanTotal(results, place, 4) / expected[place], 1, setting.bound)
                    << "height " << row.height << ", place " << place << ", rays "
                    << setting.options.rays;
            }
        }
        EXPECT_EQ(results[0].total,
                  results[0].beam + results[0].sky + results[0].ground + results[0].reflected);
    }
}

/// A sphere of radius 30 whose top is open: a share of its surface.
MadeScene bowl(float reflectance, double opening) {
    MadeScene made;
    const std::uint16_t inside = made.material(reflectance);
    constexpr int rows = 24;
    constexpr int columns = 96;
    const auto at = [&](int row, int column) -> Point {
        const double edge = std::acos(1 - 2 * opening);
        const double down = edge + (std::numbers::pi - edge) * row / rows;
        const double turn = 2 * std::numbers::pi * column / columns;
        return {30 * std::sin(down) * std::cos(turn), 30 * std::sin(down) * std::sin(turn),
                30 * std::cos(down)};
    };
    for (int row = 0; row < rows; ++row) {
        for (int column = 0; column < columns; ++column) {
            made.quad(inside, at(row, column), at(row, column + 1), at(row + 1, column + 1),
                      at(row + 1, column));
        }
    }
    return made;
}

TEST(ReflectedLight, LightsABowlEvenly) {
    // All of a sphere's surface sees every part of it alike: with an opening of a share f of it E =
    // f / (1 - r (1 - f)) at all places. With a small one it is a room that holds its light.
    const HourlyAnalysis analysis = uniformAnalysis();
    const struct {
        double opening;
        float reflectance;
    } bowls[] = {{0.5, 0.2f}, {0.5, 0.9f}, {0.1, 0.5f}, {0.1, 0.8f}, {0.04, 0.95f}};
    for (const auto& [opening, reflectance] : bowls) {
        const MadeScene made = bowl(reflectance, opening);
        std::vector<Sensor> sensors;
        Random random(6);
        for (int i = 0; i < 120; ++i) {
            const double up = -random(2 * opening - 0.95, 0.99);
            const double turn = random(0, 2 * std::numbers::pi);
            const double flat = std::sqrt(1 - up * up);
            const Point inward = {-flat * std::cos(turn), -flat * std::sin(turn), -up};
            // Inside of the flat pieces, which lie up to 0.02 within the sphere.
            sensors.push_back(
                {scenes::toXyz({-29.9 * inward[0], -29.9 * inward[1], -29.9 * inward[2]}),
                 scenes::toXyz(inward)});
        }
        const double closed = (1 - opening) * static_cast<double>(reflectance);
        const double expected = opening / (1 - closed);
        const std::vector<SensorResult> results =
            resultsOf(analysis, made.light(), sensors, fine());
        // Light that stays for 20 reflections shows what each of them gets wrong.
        EXPECT_NEAR(meanTotal(results, 0, 1) / expected, 1, closed < 0.9 ? 0.005 : 0.02)
            << opening << ", " << reflectance;
        double worst = 0;
        for (const SensorResult& result : results) {
            worst = std::max(worst, std::fabs(result.total / expected - 1));
        }
        EXPECT_LT(worst, closed < 0.4 ? 0.03 : 0.06) << opening << ", " << reflectance;

        // Each reflection less is a term of the geometric series less.
        ReflectionOptions once = fine();
        once.bounces = 1;
        const double one = opening * (1 + closed);
        EXPECT_NEAR(meanTotal(resultsOf(analysis, made.light(), sensors, once), 0, 1) / one, 1,
                    closed < 0.9 ? 0.005 : 0.01) // few rays find the small opening
            << reflectance;
    }
}

TEST(ReflectedLight, AddsNothingToLightThatIsEvenAlready) {
    // The furnace: white walls on white ground under a white sky are as bright as these.
    MadeScene made;
    const std::uint16_t white = made.material(1.0f);
    for (const double x : {-8.0, 8.0}) {
        made.quad(white, {x, -80, 0}, {x, 80, 0}, {x, 80, 9}, {x, -80, 9});
    }
    std::vector<Sensor> sensors;
    Random random(11);
    for (int i = 0; i < 150; ++i) {
        const double y = random(-60, 60);
        sensors.push_back({scenes::toXyz({8 - 0.001, y, random(0.1, 8.9)}), {-1, 0, 0}});
        sensors.push_back({scenes::toXyz({random(-7.9, 7.9), y, 0.001}), {0, 0, 1}});
    }
    const std::vector<SensorResult> results =
        resultsOf(uniformAnalysis(1.0), made.light(), sensors, fine());
    for (std::size_t place = 0; place < 2; ++place) {
        EXPECT_NEAR(meanTotal(results, place, 2), 1, 0.005) << place;
    }
}

TEST(ReflectedLight, GoesBetweenPlatesThatLetLightThrough) {
    // A sheet of leaves over a floor without end: the floor gets t / (1 - r1 r2) of the sky's
    // light, and throws r1 of it on the sheet; what lies over the sheet gets its own light back and
    // that of the floor.
    constexpr double through = 0.5;
    constexpr float ofFloor = 0.6f;
    constexpr float ofSheet = 0.4f;
    MadeScene made;
    const std::uint16_t floor = made.material(ofFloor);
    const std::uint16_t sheet = made.material(ofSheet);
    made.materials[sheet].passage = Material::Passage::Leaves;
    made.materials[sheet].passing = static_cast<float>(through);
    constexpr double end = 9000;
    made.quad(floor, {-end, -end, 0}, {end, -end, 0}, {end, end, 0}, {-end, end, 0});
    made.quad(sheet, {-end, -end, 3}, {end, -end, 3}, {end, end, 3}, {-end, end, 3});
    std::vector<Sensor> sensors;
    Random random(12);
    for (int i = 0; i < 100; ++i) {
        const double x = random(-100, 100);
        const double y = random(-100, 100);
        sensors.push_back({scenes::toXyz({x, y, 0.001}), {0, 0, 1}});
        sensors.push_back({scenes::toXyz({x, y, 2.999}), {0, 0, -1}});
        sensors.push_back({scenes::toXyz({x, y, 4}), {0, 0, -1}});
    }
    const double lit = through / (1 - static_cast<double>(ofFloor * ofSheet));
    const double expected[] = {lit, static_cast<double>(ofFloor) * lit,
                               static_cast<double>(ofSheet) +
                                   through * static_cast<double>(ofFloor) * lit};
    const std::vector<SensorResult> results =
        resultsOf(uniformAnalysis(), made.light(), sensors, fine());
    for (std::size_t place = 0; place < 3; ++place) {
        EXPECT_NEAR(meanTotal(results, place, 3) / expected[place], 1, 0.015) << place;
    }
}

TEST(ReflectedLight, ReachesAWallFromStripsOfGround) {
    // A strip from the foot of a wall to w and without end fills F = (1 - z / sqrt(z^2 + w^2)) / 2
    // of what a place at z sees; z = 5, w = 10.
    const double strip = 0.5 * (1 - 5 / std::hypot(5.0, 10.0));
    constexpr double end = 4000;
    std::vector<Sensor> sensors;
    Random random(13);
    for (int i = 0; i < 300; ++i) {
        sensors.push_back({scenes::toXyz({0.001, random(-300, 300), 5}), {1, 0, 0}});
    }
    const auto ground = [&](MadeScene& made, float reflectance, double from, double to) {
        made.quad(made.material(reflectance), {from, -end, 0}, {to, -end, 0}, {to, end, 0},
                  {from, end, 0});
    };
    // Under a uniform sky, of another reflectance than the ground beyond.
    MadeScene paved;
    ground(paved, 0.5f, 0, 10);
    ground(paved, 0.2f, 10, end);
    EXPECT_NEAR(meanTotal(resultsOf(uniformAnalysis(), paved.light(), sensors, fine()), 0, 1),
                0.5 + 0.5 * strip + 0.2 * (0.5 - strip), 0.001);
    // In the shadow of a black wall as high as the strip is wide, with the sun at 45 degrees.
    MadeScene shaded;
    ground(shaded, 0.3f, -end, end);
    shaded.quad(shaded.material(0), {0, -end, 0}, {0, end, 0}, {0, end, 10}, {0, -end, 10});
    HourlySky sky = uniformSky(0);
    sky.diffuse.assign(skyGrid::cellCount, 0.0f);
    sky.report.diffuseHorizontal = 0;
    sky.report.directHorizontal = 1;
    SunCell sun;
    sun.cell = skyGrid::cellIndex(54, 9);
    sun.direction = {-std::sqrt(0.5f), 0, std::sqrt(0.5f)};
    sun.energy = {-1, 0, 1};
    sun.directNormal = std::sqrt(2.0f);
    sky.sunCells = {sun};
    HourlyAnalysisOptions options;
    options.peak = false;
    const std::vector<SensorResult> results =
        resultsOf(HourlyAnalysis(sky, options), shaded.light(), sensors, fine());
    EXPECT_NEAR(meanTotal(results, 0, 1) / (0.3 * (0.5 - strip)), 1, 0.005);
    EXPECT_EQ(results[0].beam, 0.0f);
}

TEST(ReflectedLight, StaysFiniteInAWhiteEnclosure) {
    // Closed, with a hole of a thousandth of its surface, and white: light gets in and goes on.
    MadeScene made;
    const std::uint16_t white = made.material(1.0f);
    constexpr double s = 10;
    made.quad(white, {0, 0, 0}, {s, 0, 0}, {s, s, 0}, {0, s, 0});
    made.quad(white, {0, 0, 0}, {s, 0, 0}, {s, 0, s}, {0, 0, s});
    made.quad(white, {0, s, 0}, {s, s, 0}, {s, s, s}, {0, s, s});
    made.quad(white, {0, 0, 0}, {0, s, 0}, {0, s, s}, {0, 0, s});
    made.quad(white, {s, 0, 0}, {s, s, 0}, {s, s, s}, {s, 0, s});
    made.quad(white, {0, 0, s}, {9.2, 0, s}, {9.2, s, s}, {0, s, s});
    made.quad(white, {9.2, 0, s}, {s, 0, s}, {s, 9.2, s}, {9.2, 9.2, s});
    std::vector<Sensor> sensors;
    Random random(7);
    for (int i = 0; i < 200; ++i) {
        sensors.push_back({scenes::toXyz({random(1, 9), random(1, 9), 0.001}), {0, 0, 1}});
    }
    const HourlyAnalysis analysis = uniformAnalysis();
    const LightScene scene = made.light();
    const ReflectedLight light(analysis, scene, sensors);
    EXPECT_FALSE(light.report().converged);
    EXPECT_EQ(light.report().beyond, 0.0);
    for (std::size_t i = 0; i < sensors.size(); ++i) {
        EXPECT_TRUE(std::isfinite(light.reflected(i)));
        // No more than the sky's own light comes back, but for the few rays that find the hole.
        EXPECT_LT(light.reflected(i), 2.0f);
        EXPECT_GT(light.reflected(i), 0.0f);
    }
}

TEST(ReflectedLight, LaysOpenGroundInTheScenesShadow) {
    // A black wall without end on open ground, under a uniform sky: at a distance x from its foot
    // the ground gets (1 + x / sqrt(x^2 + h^2)) / 2, and a place on the wall at height z sees the
    // strip at x with z x / (z^2 + x^2)^(3/2) dx / 2.
    constexpr double high = 10;
    MadeScene made;
    made.quad(made.material(0), {0, -3000, 0}, {0, 3000, 0}, {0, 3000, high}, {0, -3000, high});
    const HourlyAnalysis analysis = uniformAnalysis(0.3);
    for (const double z : {0.5, 2.0, 5.0, 9.0}) {
        double shadowed = 0;
        double open = 0;
        for (double x = 0.0005; x < 4000; x *= 1.001) {
            const double strip = 0.001 * x * z * x / std::pow(z * z + x * x, 1.5);
            open += strip;
            // Ground beyond four heights is taken as open.
            shadowed += strip * (x < 4 * high ? 0.5 * (1 + x / std::hypot(x, high)) : 1);
        }
        std::vector<Sensor> sensors;
        Random random(8);
        for (int i = 0; i < 200; ++i) {
            sensors.push_back({scenes::toXyz({0.001, random(-300, 300), z}), {1, 0, 0}});
        }
        const LightScene scene = made.light();
        const ReflectedLight light(analysis, scene, sensors);
        double mean = 0;
        for (std::size_t i = 0; i < sensors.size(); ++i) {
            mean += light.groundShare(i) / static_cast<double>(sensors.size());
        }
        EXPECT_NEAR(mean, shadowed / open, 0.012) << z;
        EXPECT_EQ(light.reflected(0), 0.0f);
    }
}

TEST(ReflectedLight, IsTheSameForAnyThreadsAndInstructions) {
    const Scene city = scenes::city(3000, 300);
    const LightScene scene(city.coordinates, {}, {});
    std::vector<Sensor> sensors;
    for (std::size_t i = 0; i < city.sensors.size(); ++i) {
        sensors.push_back({city.sensors[i], city.normals[i]});
    }
    const HourlyAnalysis analysis(
        buildHourlySky(test::clearYear({48.2, 16.4, 1, 200}), {}, {.stepsPerHour = 2}));
    std::vector<float> first;
    for (const SimdLevel level : availableSimdLevels()) {
        setSimdLevel(level);
        for (const int threads : {1, 0}) {
            const ReflectedLight light(analysis, scene, sensors, {}, {.threads = threads});
            ASSERT_TRUE(light.complete());
            std::vector<float> values;
            for (std::size_t i = 0; i < sensors.size(); ++i) {
                values.push_back(light.reflected(i));
                values.push_back(light.groundShare(i));
            }
            if (first.empty()) {
                first = values;
            }
            EXPECT_EQ(values, first) << simdLevelName(level) << ", threads " << threads;
        }
    }
    setSimdLevel(availableSimdLevels().back());
    // The hours add up to the year's light.
    std::vector<SensorResult> results(1);
    std::vector<SensorHours> hours(1);
    analysis.evaluate(scene, std::span(sensors).first(1), results, {}, hours);
    const ReflectedLight light(analysis, scene, sensors);
    light.addTo(0, results[0], hours.data());
    double sum = 0;
    for (const float hour : hours[0].reflected) {
        sum += hour;
    }
    EXPECT_NEAR(sum, results[0].reflected, 1e-4 * results[0].reflected);
    EXPECT_GT(results[0].reflected, 0.0f);
    std::stop_source stop;
    stop.request_stop();
    EXPECT_FALSE(
        ReflectedLight(analysis, scene, sensors, {}, {.stop = stop.get_token()}).complete());
}

TEST(ReflectedLight, LeavesLessErrorWhereLessIsAsked) {
    // Places alike in an endless street differ by their rays alone.
    MadeScene made;
    const std::uint16_t grey = made.material(0.4f);
    made.quad(grey, {0, -900, 0}, {12, -900, 0}, {12, 900, 0}, {0, 900, 0});
    made.quad(grey, {0, -900, 0}, {0, 900, 0}, {0, 900, 15}, {0, -900, 15});
    made.quad(grey, {12, -900, 0}, {12, 900, 0}, {12, 900, 15}, {12, -900, 15});
    std::vector<Sensor> sensors;
    Random random(14);
    for (int i = 0; i < 300; ++i) {
        sensors.push_back({scenes::toXyz({6, random(-300, 300), 0.001}), {0, 0, 1}});
    }
    const LightScene scene = made.light();
    const auto spreadOf = [&](double tolerance, const ReflectionOptions& options = {}) {
        HourlyAnalysisOptions asked;
        asked.tolerance = tolerance;
        const ReflectedLight light(HourlyAnalysis(uniformSky(0), asked), scene, sensors, options);
        double sum = 0;
        double squares = 0;
        for (std::size_t i = 0; i < sensors.size(); ++i) {
            sum += light.reflected(i);
            squares += light.reflected(i) * light.reflected(i);
        }
        const double mean = sum / 300;
        return std::sqrt(squares / 300 - mean * mean) / mean;
    };
    // Sixteen times the rays leave a quarter, half of them 1.4 times as much.
    const double usual = spreadOf(HourlyAnalysisOptions().tolerance);
    EXPECT_LT(spreadOf(0.005), 0.4 * usual);
    EXPECT_GT(spreadOf(0.02), 1.15 * usual);
    // Without a tolerance, and with lengths that are none, nothing changes.
    ReflectionOptions odd;
    odd.leastCell = std::numeric_limits<double>::quiet_NaN();
    odd.leastLinkCell = -1;
    odd.groundReach = std::numeric_limits<double>::infinity();
    EXPECT_EQ(spreadOf(0, odd), usual);
}

TEST(ReflectedLight, ReportsItsWorkAndStopsInAllOfIt) {
    const Scene city = scenes::city(2000, 2000);
    const LightScene scene(city.coordinates, {}, {});
    std::vector<Sensor> sensors;
    for (std::size_t i = 0; i < city.sensors.size(); ++i) {
        sensors.push_back({city.sensors[i], city.normals[i]});
    }
    const HourlyAnalysis analysis = uniformAnalysis();
    std::size_t reported = 0;
    std::stop_source stop;
    EvaluateOptions run;
    run.progress = [&](std::size_t count) { reported += count; };
    EXPECT_TRUE(ReflectedLight(analysis, scene, sensors, {}, run).complete());
    EXPECT_EQ(reported, sensors.size());
    // By a small tolerance sensors are found in groups. Few rays of each are enough here.
    HourlyAnalysisOptions small;
    small.tolerance = 0.003;
    ReflectionOptions few;
    few.rays = 1;
    std::vector<Sensor> many = sensors;
    many.insert(many.end(), sensors.begin(), sensors.begin() + 100);
    reported = 0;
    const ReflectedLight light(HourlyAnalysis(uniformSky(0), small), scene, many, few, run);
    EXPECT_TRUE(light.complete());
    EXPECT_EQ(reported, many.size());
    const auto dark = [&](std::size_t first) {
        std::size_t count = 0;
        for (std::size_t i = first; i < first + 100; ++i) {
            count += light.reflected(i) == 0.0f ? 1 : 0;
        }
        return count;
    };
    EXPECT_EQ(dark(2000), dark(0));
    reported = 0;
    run.stop = stop.get_token();
    run.progress = [&](std::size_t count) {
        reported += count;
        if (10 * reported > 6 * sensors.size()) { // while cells are lit
            stop.request_stop();
        }
    };
    EXPECT_FALSE(ReflectedLight(analysis, scene, sensors, {}, run).complete());
    EXPECT_LT(reported, sensors.size());
}

TEST(ReflectedLight, WeakensTheGroundsLightOnItsWayToOthers) {
    // A white ceiling over leaves over open ground, all of which is beyond its shadow: what comes
    // down from it has passed the leaves once.
    const HourlyAnalysis analysis = uniformAnalysis(0.5);
    ReflectionOptions options = fine();
    options.groundReach = 0;
    std::array<double, 2> light{};
    for (std::size_t i = 0; i < 2; ++i) {
        MadeScene made;
        made.quad(made.material(1), {-4, -4, 10}, {4, -4, 10}, {4, 4, 10}, {-4, 4, 10});
        const std::uint16_t leaves = made.material(0);
        made.materials[leaves].passage = Material::Passage::Leaves;
        made.materials[leaves].passing = i == 0 ? 1.0f : 0.3f;
        made.quad(leaves, {-90, -90, 9}, {90, -90, 9}, {90, 90, 9}, {-90, 90, 9});
        // Ground so far down that its shadow is small beside what the ceiling sees.
        made.quad(leaves, {-1, -1, -900}, {1, -1, -900}, {1, 1, -900}, {-1, 1, -900});
        const std::vector<Sensor> sensors(1, {{0.1f, 0.2f, 9.5f}, {0, 0, 1}});
        light[i] = resultsOf(analysis, made.light(), sensors, options)[0].reflected;
    }
    EXPECT_GT(light[0], 0.1);
    EXPECT_NEAR(light[1] / light[0], 0.3, 0.01);
}

/// A sheet over everything at 1 above the sensor.
LightScene sheet(const Material& material) {
    Scene scene;
    scenes::addQuad(scene, {-9000, -9000, 1}, {9000, -9000, 1}, {9000, 9000, 1}, {-9000, 9000, 1});
    return LightScene(scene.coordinates, std::vector<std::uint16_t>(2, 0), {material});
}

TEST(HourlyThroughGlass, WeakensSunAndSkyByTheirAngles) {
    const HourlySky sky = buildHourlySky(test::clearYear({41.9, 12.5, 1, 20}));
    const HourlyAnalysis analysis(sky);
    Material glass;
    glass.passage = Material::Passage::Pane;
    glass.passing = 0.876f;
    const SensorResult result = analysis.evaluate(sheet(glass), {{0, 0, 0}, {0, 0, 1}});
    const PaneGlass pane(0.876f);
    double beam = 0;
    for (const SunStep& step : sky.sunSteps) {
        const double length = std::hypot(step.energy.x, step.energy.y, step.energy.z);
        beam += length > 0 ? step.energy.z *
                                 pane.at(static_cast<float>(step.energy.z / length)).transmitted
                           : 0;
    }
    const SkyCells cells(0);
    double diffuse = 0;
    for (std::size_t i = 0; i < sky.diffuse.size(); ++i) {
        const double length = std::hypot(cells.momentX[i], cells.momentY[i], cells.momentZ[i]);
        diffuse += sky.diffuse[i] * cells.momentZ[i] *
                   pane.at(static_cast<float>(cells.momentZ[i] / length)).transmitted;
    }
    EXPECT_NEAR(result.beam / beam, 1, 0.003);
    EXPECT_NEAR(result.sky / diffuse, 1, 0.003);
    // Clear leaves change nothing, and an opaque scene is the index that it holds.
    const SensorResult open = analysis.evaluate(OcclusionIndex(), {{0, 0, 0}, {0, 0, 1}});
    Material nothing;
    nothing.passage = Material::Passage::Leaves;
    nothing.passing = 1.0f;
    const SensorResult clear = analysis.evaluate(sheet(nothing), {{0, 0, 0}, {0, 0, 1}});
    EXPECT_FLOAT_EQ(clear.total, open.total);
    EXPECT_FLOAT_EQ(clear.peak, open.peak);
    EXPECT_EQ(clear.peakHour, open.peakHour);
    EXPECT_EQ(analysis.evaluate(LightScene(), {{0, 0, 0}, {0, 0, 1}}).total, open.total);
}

TEST(HourlyThroughGlass, WeakensWhatASecondLookFinds) {
    // Half of the light passes leaves over everything, also in cells whose first rays meet a wall.
    const HourlySky sky = buildHourlySky(test::clearYear({48.2, 16.4, 1, 200}));
    HourlyAnalysisOptions options;
    options.skyTolerance = options.sunTolerance = 0.002;
    const HourlyAnalysis analysis(sky, options);
    const auto resultUnder = [&](float passing) {
        Scene scene;
        for (double x = -41; x < 40; x += 4.3) { // a fence, whose posts cut many cells
            scenes::addQuad(scene, {x, 7, 0}, {x + 2.1, 7, 0}, {x + 2.1, 7, 9}, {x, 7, 9});
            scenes::addQuad(scene, {x, -6, 0}, {x + 2.1, -6, 0}, {x + 2.1, -6, 9}, {x, -6, 9});
        }
        std::vector<std::uint16_t> materials(scene.triangleCount(), 1);
        scenes::addQuad(scene, {-9e3, -9e3, 10}, {9e3, -9e3, 10}, {9e3, 9e3, 10}, {-9e3, 9e3, 10});
        materials.resize(scene.triangleCount(), 0);
        std::vector<Material> kinds(2);
        kinds[0].passage = Material::Passage::Leaves;
        kinds[0].passing = passing;
        return analysis.evaluate(LightScene(scene.coordinates, materials, kinds),
                                 {{0.3f, 0.2f, 0.5f}, {0, 0, 1}});
    };
    const SensorResult open = resultUnder(1.0f);
    const SensorResult half = resultUnder(0.5f);
    EXPECT_NEAR(half.sky / open.sky, 0.5, 1e-4);
    EXPECT_NEAR(half.beam / open.beam, 0.5, 1e-4);
    EXPECT_NEAR(half.directSunHours / open.directSunHours, 0.5, 1e-4);
}

TEST(HourlyThroughGlass, PassesTheCrownOfTheDay) {
    const WeatherSeries weather = test::clearYear({48.2, 16.4, 1, 200});
    const HourlySky sky = buildHourlySky(weather);
    Material crown;
    crown.passage = Material::Passage::Leaves;
    crown.passing = SeasonalValue::leafSeason(0.12f, 0.55f, 105, 304);
    const LightScene scene = sheet(crown);
    HourlyAnalysisOptions options;
    options.seasons = scene.seasons();
    // Of the parts one has leaves on some of its days.
    const std::array<AnalysisPeriod, 2> spans = {{{1, 80, 0, 24}, {81, 200, 0, 24}}};
    const HourlyAnalysis analysis(
        sky, options, {buildHourlySky(weather, spans[0]), buildHourlySky(weather, spans[1])});
    const Sensor sensor{{0, 0, 0}, {0, 0.6f, 0.8f}};
    SensorHours open;
    SensorHours hours;
    std::array<SensorPart, 2> parts;
    std::array<SensorPart, 2> openParts;
    analysis.evaluate(OcclusionIndex(), sensor, &open);
    Material clear = crown;
    clear.passing = SeasonalValue::leafSeason(1.0f, 1.0f, 105, 304);
    HourlyAnalysis(sky, {}, {buildHourlySky(weather, spans[0]), buildHourlySky(weather, spans[1])})
        .evaluate(sheet(clear), sensor, openParts);
    const SensorResult result = analysis.evaluate(scene, sensor, parts, &hours);
    EXPECT_NEAR(parts[0].directSunHours / openParts[0].directSunHours, 0.55, 0.001);
    EXPECT_LT(parts[1].directSunHours / openParts[1].directSunHours, 0.3);
    for (std::size_t p = 0; p < spans.size(); ++p) {
        double sun = 0;
        double light = 0;
        for (int day = spans[p].firstDay; day <= spans[p].lastDay; ++day) {
            for (int hour = 24 * (day - 1); hour < 24 * day; ++hour) {
                const auto k = static_cast<std::size_t>(hour);
                sun += (day >= 105 ? 0.12 : 0.55) * open.beam[k];
                light += (day >= 105 ? 0.12 : 0.55) * open.sky[k];
            }
        }
        EXPECT_NEAR(parts[p].beam / sun, 1, 0.01) << p;
        EXPECT_NEAR(parts[p].sky / light, 1, 0.01) << p;
    }
    double beam = 0;
    double diffuse = 0;
    double peak = 0;
    double off = 0;
    for (int hour = 0; hour < hoursPerYear; ++hour) {
        const auto k = static_cast<std::size_t>(hour);
        const int day = hour / 24 + 1;
        const double passing = day >= 105 && day <= 304 ? 0.12 : 0.55;
        beam += passing * open.beam[k];
        diffuse += passing * open.sky[k];
        peak = std::max(peak, passing * (open.beam[k] + open.sky[k]) + open.ground[k]);
        off = std::max(off, std::fabs(hours.beam[k] - passing * open.beam[k]) +
                                std::fabs(hours.sky[k] - passing * open.sky[k]));
    }
    EXPECT_NEAR(result.beam / beam, 1, 0.005);
    EXPECT_NEAR(result.sky / diffuse, 1, 0.005);
    EXPECT_NEAR(result.peak / peak, 1, 0.01);
    EXPECT_LT(off, 3.0); // Wh/m2 in an hour of some hundreds
    // The floor under the crown throws back the light of its day too.
    MadeScene made;
    made.quad(made.material(0.5f), {-9e3, -9e3, 0}, {9e3, -9e3, 0}, {9e3, 9e3, 0}, {-9e3, 9e3, 0});
    crown.reflectance = 0;
    made.materials.push_back(crown);
    made.quad(1, {-9e3, -9e3, 4}, {9e3, -9e3, 4}, {9e3, 9e3, 4}, {-9e3, 9e3, 4});
    const LightScene garden = made.light();
    constexpr std::size_t places = 8;
    std::vector<Sensor> below;
    std::vector<SensorResult> total(places);
    for (std::size_t i = 0; i < places; ++i) {
        below.push_back({{7.3f * static_cast<float>(i), 0, 2}, {0, 0, -1}});
        total[i] = analysis.evaluate(garden, below[i]);
    }
    SensorHours level;
    analysis.evaluate(OcclusionIndex(), {{0, 0, 2}, {0, 0, 1}}, &level);
    const ReflectedLight bounced(analysis, garden, below, fine(), {}, total);
    std::array<double, 2> found{};
    std::vector<double> foundHours(hoursPerYear, 0.0);
    for (std::size_t i = 0; i < places; ++i) {
        SensorHours reflected;
        total[i] = analysis.evaluate(garden, below[i], parts, &reflected);
        bounced.addTo(i, total[i], &reflected, parts);
        for (std::size_t p = 0; p < parts.size(); ++p) {
            found[p] += static_cast<double>(parts[p].reflected) / places;
        }
        for (std::size_t h = 0; h < foundHours.size(); ++h) {
            foundHours[h] += static_cast<double>(reflected.reflected[h]) / places;
        }
    }
    std::array<double, 2> expected{};
    double worst = 0;
    for (int hour = 0; hour < hoursPerYear; ++hour) {
        const auto k = static_cast<std::size_t>(hour);
        const int day = hour / 24 + 1;
        const double light = (day >= 105 && day <= 304 ? 0.12 : 0.55) * 0.5 *
                             static_cast<double>(level.beam[k] + level.sky[k]);
        expected[0] += light * (day <= 80 ? 1 : 0);
        expected[1] += light * (day > 80 && day <= 200 ? 1 : 0);
        worst = std::max(worst, std::fabs(foundHours[k] - light));
    }
    // All suns of a sixth of the compass above 35 degrees share alike, though the highest bring
    // more on the floor.
    EXPECT_NEAR(found[0] / expected[0], 1, 0.03);
    EXPECT_NEAR(found[1] / expected[1], 1, 0.08);
    EXPECT_LT(worst, 70.0); // Wh/m2 in an hour of up to 250: of a sixth of the compass all alike
    // An analysis that does not know the scene's seasons gives nothing.
    EXPECT_EQ(HourlyAnalysis(sky).evaluate(scene, sensor).total, 0.0f);
}

} // namespace
