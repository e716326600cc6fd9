/// Writes the tables of docs/validation.md and its plot.
///
///     bench_validation <folder with amsterdam.epw, chicago.epw, mannheim.epw, tokyo.epw>
///     <plot.svg> [section...]
///
/// Sections are closure, walls, symmetry, shading, scenes, totals, ground and methods (which draws
/// the plot); all of them when none is named.
#include <insolate/insolate.h>

#include <insolate/weather/all_weather_luminance.h>

#include <bench/scenes.h>
#include <bench/total_accuracy.h>
#include <tests/hourly/made_weather.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace insolate;
using test::direction;
using test::narrowed;
using test::Vector;

const std::vector<std::string> cities{"amsterdam", "chicago", "mannheim", "tokyo"};
struct Face {
    const char* name;
    XYZf normal;
};
const std::vector<Face> faces{{"horizontal", {0, 0, 1}},
                              {"north", {0, 1, 0}},
                              {"east", {1, 0, 0}},
                              {"south", {0, -1, 0}},
                              {"west", {-1, 0, 0}}};

class OpenScene final : public GetTransparencyValueOnRay {
public:
    bool getSurfaceDoubleSided() override { return false; }
    float getTransparencyValue(const XYZf&, const XYZf&, const XYZf*) override { return 1.0f; }
    int initialise() override { return 0; }
};

class FormulaScene final : public GetTransparencyValueOnRay {
public:
    explicit FormulaScene(std::function<bool(const Vector&)> isFree)
        : m_isFree(std::move(isFree)) {}
    bool getSurfaceDoubleSided() override { return false; }
    float getTransparencyValue(const XYZf&, const XYZf& d, const XYZf*) override {
        ++rays;
        return m_isFree(
                   {static_cast<double>(d.x), static_cast<double>(d.y), static_cast<double>(d.z)})
                   ? 1.0f
                   : 0.0f;
    }
    int initialise() override { return 0; }

    int rays = 0;

private:
    std::function<bool(const Vector&)> m_isFree;
};

class Host final : public EUiController {
public:
    explicit Host(EModel& model) : m_model(model) {}
    int getPointCount() override { return m_model.getJobSize(); }
    ECalculationPoint* getPoint(int index) override { return m_model.getCalculationPoint(index); }
    void onPointsRemaining(int) override {}
    void onPointTime(double) override {}
    void onResultRange(float, float, float, float, float, float) override {}
    void onUnusedCallback() override {}

private:
    EModel& m_model;
};

/// Totals of the open faces by one of the three defined methods [kWh/m2].
std::vector<double> definedMethod(const std::string& file, CalculationMethod method) {
    EModel model;
    OpenScene rays;
    model.setGetTransparencyValueOnRay(&rays);
    for (std::size_t i = 0; i < faces.size(); ++i) {
        model.addCalculationPoint({0, 0, 1}, faces[i].normal, static_cast<int>(i));
    }
    ESolarAnalysisController& controller = model.getSolarAnalysisController();
    controller.setSolarCalculationMethod(method);
    ResultLoadWeatherData problem{};
    if (!controller.setWeatherFile(std::wstring(file.begin(), file.end()), problem)) {
        return std::vector<double>(faces.size(), 0.0);
    }
    controller.setTimeSpec(0.0f, 24.0f, 0.1f, 1, 365);
    for (int key = 0; key < model.getJobSize(); ++key) {
        model.updateCalculationPointShadingMask(key);
    }
    Host host(model);
    controller.calculate(&host);
    std::vector<double> totals;
    for (int key = 0; key < model.getJobSize(); ++key) {
        totals.push_back(
            static_cast<double>(model.getCalculationPoint(key)->getValue(ResultAccumulator_Total)) /
            1000.0);
    }
    return totals;
}

void closure(const std::string& folder) {
    std::printf("## Closure\n\n| city | sensor | diffuse + direct x sine | difference | file's "
                "global | difference |\n"
                "|---|---|---|---|---|---|\n");
    for (const std::string& city : cities) {
        const WeatherSeries weather = readWeatherSeries(folder + "/" + city + ".epw").series;
        const HourlyAnalysis analysis(buildHourlySky(weather));
        const HourlySkyReport& report = analysis.sky().report;
        const double total =
            static_cast<double>(analysis.evaluate(OcclusionIndex(), Sensor{}).total);
        const double expected = report.diffuseHorizontal + report.directHorizontal;
        std::printf("| %s | %.1f | %.1f | %+.4f %% | %.1f | %+.2f %% |\n", city.c_str(),
                    total / 1000.0, expected / 1000.0, 100.0 * (total / expected - 1.0),
                    report.globalHorizontal / 1000.0,
                    100.0 * (total / report.globalHorizontal - 1.0));
    }
}

/// Radiation on open surfaces without cells, hour by hour: the beam at each sub-step's own sun.
struct OpenSurfaces {
    std::vector<double> beam;
    std::vector<double> sky1993; ///< Perez et al. (1993), the dome integrated degree by degree
    std::vector<double> sky1990; ///< Perez et al. (1990), tilted-surface model
};

OpenSurfaces openSurfaces(const WeatherSeries& weather, const std::vector<Vector>& normals,
                          int steps) {
    OpenSurfaces result;
    result.beam.assign(normals.size(), 0.0);
    result.sky1993 = result.sky1990 = result.beam;
    struct Element {
        Vector direction;
        double solidAngle;
    };
    std::vector<Element> dome;
    for (int h = 0; h < 90; ++h) {
        for (int a = 0; a < 360; ++a) {
            dome.push_back(
                {direction(a + 0.5, h + 0.5),
                 (std::sin((h + 1) * test::degree) - std::sin(h * test::degree)) * test::degree});
        }
    }
    for (int k = 0; k < hoursPerYear; ++k) {
        const double direct = weather.directNormal[static_cast<std::size_t>(k)];
        const double diffuse = weather.diffuseHorizontal[static_cast<std::size_t>(k)];
        if (!(direct > 0.0) && !(diffuse > 0.0)) {
            continue;
        }
        const std::vector<SunPosition> suns = test::sunsOfHour(weather.site, k, steps);
        const double share = 1.0 / static_cast<double>(suns.size());
        const double rate = steps * share; // of the sun's time
        for (const SunPosition& sun : suns) {
            const Vector s = test::vectorOf(sun);
            for (std::size_t i = 0; i < normals.size(); ++i) {
                result.beam[i] += direct * share * std::max(test::product(normals[i], s), 0.0);
            }
            if (!(diffuse > 0.0)) {
                continue;
            }
            const double zenith = 90.0 * test::degree - sun.altitude;
            const AllWeatherSky sky =
                allWeatherSky(direct * rate, diffuse * rate, zenith, sun.distance);
            std::vector<double> onSurface(normals.size(), 0.0);
            double horizontal = 0.0;
            for (const Element& e : dome) {
                const double fromSun =
                    std::acos(std::clamp(test::product(e.direction, s), -1.0, 1.0));
                const double L =
                    horizonFactor(sky, e.direction[2]) * sunFactor(sky, fromSun) * e.solidAngle;
                horizontal += L * e.direction[2];
                for (std::size_t i = 0; i < normals.size(); ++i) {
                    onSurface[i] += L * std::max(test::product(normals[i], e.direction), 0.0);
                }
            }
            for (std::size_t i = 0; i < normals.size(); ++i) {
                result.sky1993[i] += onSurface[i] / horizontal * diffuse * share;
                EPerezInput input;
                input.direct = direct * rate;
                input.diffuse = diffuse * rate;
                input.groundReflectance = 0.0;
                input.incidenceAngle =
                    std::acos(std::clamp(test::product(normals[i], s), -1.0, 1.0));
                input.tilt = std::acos(normals[i][2]);
                input.zenithAngle = zenith;
                EPerezResults parts;
                ESolarRadiation().getPerezAllWeatherSkyData(&input, &parts);
                result.sky1990[i] +=
                    (parts.isotropic + parts.circumsolar + parts.horizonBrightening) * share / rate;
            }
        }
    }
    return result;
}

void openWalls(const std::string& folder) {
    std::printf("\n## Open walls and tilts\n\n| surface | beam | beam, cells | sky 1993, 1 degree "
                "| sky, cells | difference | sky 1990 | difference |\n"
                "|---|---|---|---|---|---|---|---|\n");
    WeatherSeries weather = readWeatherSeries(folder + "/chicago.epw").series;
    std::fill(weather.pressure.begin(), weather.pressure.end(), std::nanf(""));
    std::fill(weather.dryBulb.begin(), weather.dryBulb.end(), std::nanf(""));
    test::keepDays(weather, 4);
    const std::vector<std::pair<const char*, Vector>> surfaces{
        {"north wall", direction(0, 0)},    {"east wall", direction(90, 0)},
        {"south wall", direction(180, 0)},  {"west wall", direction(270, 0)},
        {"wall to 137", direction(137, 0)}, {"south, tilt 40", direction(180, 50)},
        {"63, tilt 20", direction(63, 70)}, {"horizontal", {0, 0, 1}}};
    std::vector<Vector> normals;
    for (const auto& surface : surfaces) {
        normals.push_back(surface.second);
    }
    const OpenSurfaces plain = openSurfaces(weather, normals, 10);
    HourlyAnalysisOptions options;
    options.groundRays = 0;
    const HourlyAnalysis analysis(buildHourlySky(weather), options);
    for (std::size_t i = 0; i < surfaces.size(); ++i) {
        const SensorResult result =
            analysis.evaluate(OcclusionIndex(), {{0, 0, 1}, narrowed(normals[i])});
        const double sky = static_cast<double>(result.sky);
        std::printf("| %s | %.1f | %.1f | %.1f | %.1f | %+.2f %% | %.1f | %+.1f %% |\n",
                    surfaces[i].first, plain.beam[i] / 1000.0,
                    static_cast<double>(result.beam) / 1000.0, plain.sky1993[i] / 1000.0,
                    sky / 1000.0, 100.0 * (sky / plain.sky1993[i] - 1.0), plain.sky1990[i] / 1000.0,
                    100.0 * (sky / plain.sky1990[i] - 1.0));
    }
}

void symmetry() {
    std::printf(
        "\n## Morning and evening\n\n| latitude | east | west | difference |\n|---|---|---|---|\n");
    for (const double latitude : {42.0, 10.0, -35.0, 60.0}) {
        const HourlyAnalysis analysis(buildHourlySky(test::clearYear({latitude, 82.5, 5.5, 0.0})));
        const double east =
            static_cast<double>(analysis.evaluate(OcclusionIndex(), {{0, 0, 1}, {1, 0, 0}}).total);
        const double west =
            static_cast<double>(analysis.evaluate(OcclusionIndex(), {{0, 0, 1}, {-1, 0, 0}}).total);
        std::printf("| %g | %.1f | %.1f | %+.3f %% |\n", latitude, east / 1000.0, west / 1000.0,
                    100.0 * (east / west - 1.0));
    }
}

/// Errors of many cases.
class Errors {
public:
    void add(double error) { m_errors.push_back(std::abs(error)); }
    void print(double limit) const {
        double squares = 0.0;
        double within = 0.0;
        for (const double error : m_errors) {
            squares += error * error;
            within += error <= limit ? 1.0 : 0.0;
        }
        const auto count = static_cast<double>(m_errors.size());
        std::printf(" %.2f / %.2f / %.1f |", 100.0 * std::sqrt(squares / count),
                    100.0 * *std::max_element(m_errors.begin(), m_errors.end()),
                    100.0 * within / count);
    }

private:
    std::vector<double> m_errors;
};

/// Walls of random height around a sensor on the ground, or before one on a facade.
struct Surroundings {
    const char* name;
    int walls;
    double turn; ///< from a wall to the next [degrees]
    bool facade;
};

/// Random walls, canyons and courts against quarters of a degree and the sky's own steps.
void shading(const std::string& folder) {
    constexpr int cases = 500;
    std::printf(
        "\n## Shading\n\nRoot mean square / largest error / share of %d random cases within "
        "the target in the heading, all in percent.\n\n"
        "| case | sky (1) | beam (2) | sky, 1 %% (1) | beam, 2 %% (2) | beam, 0.5 %% (0.5) | "
        "beam, 0.25 %% (0.5) | rays, usual / 1 and 2 / 0.5 / 0.25 %% |\n"
        "|---|---|---|---|---|---|---|---|\n",
        cases);
    const HourlySky sky = buildHourlySky(readWeatherSeries(folder + "/chicago.epw").series);
    const auto analysis = [&](double skyTolerance, double sunTolerance) {
        HourlyAnalysisOptions options;
        options.tolerance = 0.0;
        options.skyTolerance = skyTolerance;
        options.sunTolerance = sunTolerance;
        options.groundRays = 0;
        options.peak = false;
        return HourlyAnalysis(sky, options);
    };
    std::vector<HourlyAnalysis> analyses;
    const HourlyAnalysisOptions usual;
    analyses.push_back(analysis(usual.skyTolerance, usual.sunTolerance));
    for (const double sunTolerance : {0.02, 0.005, 0.0025}) {
        analyses.push_back(analysis(0.01, sunTolerance));
    }
    constexpr int parts = 20;
    std::vector<Vector> dome;
    for (int h = 0; h < 18 * parts; ++h) {
        for (int a = 0; a < 72 * parts; ++a) {
            dome.push_back(direction((a + 0.5) * 5.0 / parts, (h + 0.5) * 5.0 / parts));
        }
    }
    std::mt19937 random(11);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    for (const Surroundings& around :
         {Surroundings{"endless wall", 1, 0.0, false}, Surroundings{"canyon", 2, 180.0, false},
          Surroundings{"court", 4, 90.0, false}, Surroundings{"facade before a wall", 1, 0.0, true},
          Surroundings{"facade in a court", 3, 90.0, true}}) {
        std::vector<Errors> skyErrors(analyses.size());
        std::vector<Errors> beamErrors(analyses.size());
        std::vector<double> rays(analyses.size());
        for (int n = 0; n < cases; ++n) {
            const double compass = 360.0 * unit(random);
            std::vector<std::pair<Vector, double>> walls;
            for (int w = 0; w < around.walls; ++w) {
                const double turn = around.facade ? w - around.walls / 2 : w;
                walls.emplace_back(direction(compass + around.turn * turn, 0.0),
                                   2.0 * unit(random));
            }
            const auto isFree = [&](const Vector& d) {
                for (const auto& [towards, slope] : walls) {
                    const double level = d[0] * towards[0] + d[1] * towards[1];
                    if (level > 0.0 && d[2] < slope * level) {
                        return false;
                    }
                }
                return true;
            };
            const Vector normal = around.facade ? direction(compass, 0.0) : Vector{0, 0, 1};
            double skySum = 0.0;
            for (std::size_t i = 0; i < dome.size(); ++i) {
                const double weight = test::product(normal, dome[i]);
                if (weight > 0.0 && isFree(dome[i])) {
                    const std::size_t cell =
                        i / (72 * parts) / parts * 72 + i % (72 * parts) / parts;
                    skySum += static_cast<double>(sky.diffuse[cell]) * weight *
                              std::hypot(dome[i][0], dome[i][1]);
                }
            }
            skySum *= std::pow(5.0 / parts * test::degree, 2);
            double beamSum = 0.0;
            for (const SunStep& step : sky.sunSteps) {
                const Vector e{static_cast<double>(step.energy.x),
                               static_cast<double>(step.energy.y),
                               static_cast<double>(step.energy.z)};
                if (isFree(e)) {
                    beamSum += std::max(test::product(normal, e), 0.0);
                }
            }
            // As the tolerances do: a part counts as a tenth of the total at least.
            const double least = 0.1 * std::max(skySum + beamSum, sky.report.diffuseHorizontal +
                                                                      sky.report.directHorizontal);
            FormulaScene scene(isFree);
            for (std::size_t k = 0; k < analyses.size(); ++k) {
                const SensorResult result =
                    analyses[k].evaluate(scene, {{0, 0, 0}, narrowed(normal)});
                skyErrors[k].add((static_cast<double>(result.sky) - skySum) /
                                 std::max(skySum, least));
                beamErrors[k].add((static_cast<double>(result.beam) - beamSum) /
                                  std::max(beamSum, least));
                rays[k] += std::exchange(scene.rays, 0) / static_cast<double>(cases);
            }
        }
        std::printf("| %s |", around.name);
        skyErrors[0].print(0.01);
        beamErrors[0].print(0.02);
        skyErrors[1].print(0.01);
        beamErrors[1].print(0.02);
        beamErrors[2].print(0.005);
        beamErrors[3].print(0.005);
        std::printf(" %.0f / %.0f / %.0f / %.0f |\n", rays[0], rays[1], rays[2], rays[3]);
    }
}

/// Real and dense surroundings against a hundred rays a cell and the sky's own steps.
void denseScenes(const std::string& folder) {
    constexpr std::size_t sensors = 400;
    constexpr int parts = 10;
    std::printf(
        "\n## Dense scenes\n\nRoot mean square / largest error / share of %zu sensors within "
        "the target in the heading, in percent; microseconds a sensor.\n\n"
        "| scene | sky (1) | beam (2) | time | sky, 1 %% (1) | beam, 2 %% (2) | time |\n"
        "|---|---|---|---|---|---|---|\n",
        sensors);
    const HourlySky sky = buildHourlySky(readWeatherSeries(folder + "/chicago.epw").series);
    const double open = sky.report.diffuseHorizontal + sky.report.directHorizontal;
    std::vector<scenes::Scene> places;
    if (std::filesystem::exists(folder + "/../meshes")) {
        places.push_back(scenes::lyon(folder + "/..", sensors));
    }
    places.push_back(scenes::city(10'000, sensors));
    std::vector<std::vector<XYZf>> rays;
    std::vector<SkyDirections> sets;
    for (int part = 0; part < parts * parts; ++part) {
        std::vector<XYZf>& set = rays.emplace_back();
        for (int cell = 0; cell < skyGrid::cellCount; ++cell) {
            set.push_back(narrowed(direction((cell % 72 + (part % parts + 0.5) / parts) * 5.0,
                                             (cell / 72 + (part / parts + 0.5) / parts) * 5.0)));
        }
        sets.emplace_back(std::span<const XYZf, skyGrid::cellCount>(set.data(), set.size()));
    }
    for (const scenes::Scene& place : places) {
        const OcclusionIndex index(place.coordinates);
        std::vector<std::array<double, 2>> expected(sensors);
        for (std::size_t i = 0; i < sensors; ++i) {
            const XYZf& n = place.normals[i];
            const auto cosine = [&](const XYZf& d) {
                return std::max(
                    static_cast<double>(n.x * d.x + n.y * d.y + n.z * d.z) /
                        std::sqrt(static_cast<double>(n.x * n.x + n.y * n.y + n.z * n.z)),
                    0.0);
            };
            std::vector<SkyCellSet> free(sets.size(), SkyCellSet::all());
            index.visibleSkies(place.sensors[i], sets, free);
            for (std::size_t set = 0; set < sets.size(); ++set) {
                for (int cell = 0; cell < skyGrid::cellCount; ++cell) {
                    const auto at = static_cast<std::size_t>(cell);
                    const XYZf& d = rays[set][at];
                    if (free[set].contains(cell % 72, cell / 72)) {
                        expected[i][0] += cosine(d) * static_cast<double>(sky.diffuse[at]) *
                                          static_cast<double>(std::hypot(d.x, d.y)) *
                                          std::pow(5.0 / parts * test::degree, 2);
                    }
                }
            }
            for (const SunStep& step : sky.sunSteps) {
                const double power = cosine(step.energy);
                if (power > 0.0) {
                    const float size = std::hypot(step.energy.x, step.energy.y, step.energy.z);
                    const XYZf towards{step.energy.x / size, step.energy.y / size,
                                       step.energy.z / size};
                    expected[i][1] += index.isOccluded(place.sensors[i], towards) ? 0.0 : power;
                }
            }
        }
        std::printf("| %s |", place.name.c_str());
        for (const bool tolerances : {false, true}) {
            HourlyAnalysisOptions options;
            options.tolerance = 0.0;
            options.peak = false;
            options.groundRays = 0;
            if (tolerances) {
                options.skyTolerance = 0.01;
                options.sunTolerance = 0.02;
            }
            const HourlyAnalysis analysis(sky, options);
            std::vector<Sensor> list;
            for (std::size_t i = 0; i < sensors; ++i) {
                list.push_back({place.sensors[i], place.normals[i]});
            }
            std::vector<SensorResult> results(sensors);
            const auto start = std::chrono::steady_clock::now();
            analysis.evaluate(index, list, results, {.threads = 1});
            const std::chrono::duration<double, std::micro> time =
                std::chrono::steady_clock::now() - start;
            Errors skyErrors;
            Errors beamErrors;
            for (std::size_t i = 0; i < sensors; ++i) {
                const auto& [skyPart, beam] = expected[i];
                const double least = 0.1 * std::max(skyPart + beam, open);
                skyErrors.add((static_cast<double>(results[i].sky) - skyPart) /
                              std::max(skyPart, least));
                beamErrors.add((static_cast<double>(results[i].beam) - beam) /
                               std::max(beam, least));
            }
            skyErrors.print(0.01);
            beamErrors.print(0.02);
            std::printf(" %.0f |", time.count() / static_cast<double>(sensors));
        }
        std::printf("\n");
    }
}

/// The ground that facades of an endless canyon see, against the closed form.
void ground(const std::string& folder) {
    std::printf(
        "\n## Ground\n\nFacades of a canyon 12 m wide and 18 m high, at 60 heights and three "
        "bearings. Error of the ground's part, in percent of the sensor's total: root mean "
        "square / largest.\n\n| rays | tolerance | error |\n|---|---|---|\n");
    const HourlySky sky = buildHourlySky(readWeatherSeries(folder + "/chicago.epw").series);
    const int usual = HourlyAnalysisOptions().groundRays;
    for (const auto& [rays, tolerance] :
         {std::pair{48, 0.0}, {128, 0.0}, {usual, 0.0}, {usual, 0.01}, {usual, 0.003}}) {
        HourlyAnalysisOptions options;
        options.groundRays = rays;
        options.tolerance = tolerance;
        options.peak = false;
        const HourlyAnalysis analysis(sky, options);
        double squares = 0.0;
        double largest = 0.0;
        int count = 0;
        for (const double compass : {0.0, 37.0, 200.0}) {
            const Vector facing = direction(compass, 0.0);
            for (int i = 0; i < 60; ++i) {
                const double height = 0.2 + 0.29 * i;
                FormulaScene canyon([&](const Vector& d) {
                    const double level = d[0] * facing[0] + d[1] * facing[1];
                    return level > 0.0 && (d[2] < 0.0 ? -d[2] * 12.0 > height * level
                                                      : d[2] * 12.0 > (18.0 - height) * level);
                });
                const SensorResult result =
                    analysis.evaluate(canyon, {{0, 0, 0}, narrowed(facing)});
                const double view = 0.5 * (1.0 - height / std::hypot(height, 12.0));
                const double expected = sky.groundReflected * view;
                const double error = (static_cast<double>(result.ground) - expected) /
                                     (static_cast<double>(result.total) -
                                      static_cast<double>(result.ground) + expected);
                squares += error * error;
                largest = std::max(largest, std::abs(error));
                ++count;
            }
        }
        std::printf("| %d | %g | %.2f / %.2f |\n", rays, 100.0 * tolerance,
                    100.0 * std::sqrt(squares / count), 100.0 * largest);
    }
}

void fourMethods(const std::string& folder, const char* plot) {
    std::printf(
        "\n## The four methods\n\nOpen surfaces, kWh/m2 a year, the ground's light included.\n");
    const std::array<const char*, 4> names{"hourly", "cumulative-sky", "perez-sky", "perez-point"};
    std::array<std::vector<double>, 4> chicago;
    for (const std::string& city : cities) {
        const std::string file = folder + "/" + city + ".epw";
        const HourlyAnalysis analysis(buildHourlySky(readWeatherSeries(file).series));
        std::array<std::vector<double>, 4> totals;
        for (const Face& face : faces) {
            totals[0].push_back(
                static_cast<double>(
                    analysis.evaluate(OcclusionIndex(), {{0, 0, 1}, face.normal}).total) /
                1000.0);
        }
        totals[1] = definedMethod(file, CalculationMethod_CumulativeSky);
        totals[2] = definedMethod(file, CalculationMethod_PerezSky);
        totals[3] = definedMethod(file, CalculationMethod_PerezPoint);
        std::printf("\n| %s |", city.c_str());
        for (const Face& face : faces) {
            std::printf(" %s |", face.name);
        }
        std::printf("\n|---|---|---|---|---|---|\n");
        for (std::size_t method = 0; method < 4; ++method) {
            std::printf("| %s |", names[method]);
            for (std::size_t i = 0; i < faces.size(); ++i) {
                std::printf(" %.0f", totals[method][i]);
                if (method > 0) {
                    std::printf(" (%+.0f %%)", 100.0 * (totals[method][i] / totals[0][i] - 1.0));
                }
                std::printf(" |");
            }
            std::printf("\n");
        }
        if (city == "chicago") {
            chicago = totals;
        }
    }
    std::ofstream svg(plot);
    const std::array<const char*, 4> colours{"#1b6ca8", "#e0a030", "#5fa55a", "#b05090"};
    svg << "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 760 380\" "
           "font-family=\"sans-serif\" font-size=\"13\">\n"
        << "<rect width=\"760\" height=\"380\" fill=\"white\"/>\n"
        << "<text x=\"60\" y=\"24\" font-size=\"15\">Chicago, open surfaces: kWh/m² a year by the "
           "four methods</text>\n";
    const auto y = [](double value) { return 330.0 - value / 1600.0 * 270.0; };
    for (int value = 0; value <= 1600; value += 200) {
        svg << "<line x1=\"60\" x2=\"740\" y1=\"" << y(value) << "\" y2=\"" << y(value)
            << "\" stroke=\"#ddd\"/>"
            << "<text x=\"52\" y=\"" << y(value) + 4 << "\" text-anchor=\"end\">" << value
            << "</text>\n";
    }
    for (std::size_t i = 0; i < faces.size(); ++i) {
        for (std::size_t method = 0; method < 4; ++method) {
            const double x =
                75.0 + 134.0 * static_cast<double>(i) + 28.0 * static_cast<double>(method);
            svg << "<rect x=\"" << x << "\" y=\"" << y(chicago[method][i])
                << "\" width=\"25\" height=\"" << 330.0 - y(chicago[method][i]) << "\" fill=\""
                << colours[method] << "\"/>\n";
        }
        svg << "<text x=\"" << 130 + 134 * i << "\" y=\"350\" text-anchor=\"middle\">"
            << faces[i].name << "</text>\n";
    }
    for (std::size_t method = 0; method < 4; ++method) {
        svg << "<rect x=\"" << 60 + 150 * method
            << "\" y=\"360\" width=\"12\" height=\"12\" fill=\"" << colours[method]
            << "\"/><text x=\"" << 77 + 150 * method << "\" y=\"371\">" << names[method]
            << "</text>\n";
    }
    svg << "</svg>\n";
}

} // namespace

int main(int argc, char** argv) {
    const std::vector<std::pair<std::string, std::function<void()>>> sections{
        {"closure", [&] { closure(argv[1]); }},
        {"walls", [&] { openWalls(argv[1]); }},
        {"symmetry", [] { symmetry(); }},
        {"shading", [&] { shading(argv[1]); }},
        {"scenes", [&] { denseScenes(argv[1]); }},
        {"totals",
         [&] {
             std::printf("\n## Totals\n");
             printTotalAccuracy(argv[1], {"chicago", "tokyo", "south"},
                                {0.0, HourlyAnalysisOptions().tolerance, 0.005, 0.002});
         }},
        {"ground", [&] { ground(argv[1]); }},
        {"methods", [&] { fourMethods(argv[1], argv[2]); }}};
    const std::vector<std::string> wanted(argv + std::min(argc, 3), argv + argc);
    const bool known = std::all_of(wanted.begin(), wanted.end(), [&](const std::string& name) {
        return std::any_of(sections.begin(), sections.end(),
                           [&](const auto& section) { return section.first == name; });
    });
    if (argc < 3 || !known) {
        std::fprintf(stderr, "usage: bench_validation <weather folder> <plot.svg> [closure] "
                             "[walls] [symmetry] [shading] [scenes] [totals] [ground] [methods]\n");
        return 2;
    }
    for (const auto& [name, run] : sections) {
        if (wanted.empty() || std::find(wanted.begin(), wanted.end(), name) != wanted.end()) {
            run();
        }
    }
    return 0;
}
