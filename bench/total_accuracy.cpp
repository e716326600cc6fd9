#include <bench/total_accuracy.h>

#include <insolate/insolate.h>

#include <bench/scenes.h>
#include <tests/hourly/made_weather.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <memory>
#include <utility>

namespace insolate {
namespace {

using test::degree;
using test::direction;
using test::narrowed;

/// Sensors, each before one of some scenes.
struct Places {
    std::string name;
    std::vector<std::unique_ptr<OcclusionIndex>> scenes;
    struct Place {
        std::size_t scene;
        Sensor sensor;
    };
    std::vector<Place> sensors;
};

/// A plan of upright walls, turned about the origin.
class Walls {
public:
    explicit Walls(double turn) : m_sine(std::sin(turn)), m_cosine(std::cos(turn)) {}

    /// x and y before the turn.
    scenes::Point at(double x, double y, double z) const {
        return {m_cosine * x + m_sine * y, m_cosine * y - m_sine * x, z};
    }
    XYZf turned(double x, double y, double z) const { return scenes::toXyz(at(x, y, z)); }
    void add(double x0, double y0, double x1, double y1, double top) {
        if (top > 0.0) {
            scenes::addQuad(m_scene, at(x0, y0, 0), at(x1, y1, 0), at(x1, y1, top),
                            at(x0, y0, top));
        }
    }
    void addBox(double x0, double y0, double x1, double y1, double top) {
        add(x0, y0, x1, y0, top);
        add(x1, y0, x1, y1, top);
        add(x1, y1, x0, y1, top);
        add(x0, y1, x0, y0, top);
        scenes::addQuad(m_scene, at(x0, y0, top), at(x1, y0, top), at(x1, y1, top),
                        at(x0, y1, top));
    }
    std::unique_ptr<OcclusionIndex> index() const {
        return std::make_unique<OcclusionIndex>(m_scene.coordinates);
    }

private:
    double m_sine, m_cosine;
    scenes::Scene m_scene;
};

constexpr double endless = 3000.0;

/// A court of 16 by 16 m with walls of 15 m, a street of 12 m beside it; turned by 20 degrees.
Places courtAndStreet(std::size_t sensors) {
    Places places{"court and street", {}, {}};
    Walls walls(20.0 * degree);
    walls.addBox(-18, -18, 18, -8, 15);
    walls.addBox(-18, 8, 18, 18, 15);
    walls.addBox(-18, -8, -8, 8, 15);
    walls.addBox(8, -8, 18, 8, 15);
    walls.addBox(30, -60, 40, 60, 18);
    places.scenes.push_back(walls.index());
    scenes::Random random(21);
    for (std::size_t i = 0; i < sensors; ++i) {
        Sensor sensor;
        if (i % 4 == 3) { // the street's floor and its facades
            const double y = random(-16, 16);
            const std::size_t kind = i / 4 % 3;
            const double z = kind == 0 ? 0.05 : random(0.5, 14.5);
            sensor.position = walls.turned(kind == 0   ? random(18.5, 29.5)
                                           : kind == 1 ? 18.05
                                                       : 29.95,
                                           y, z);
            sensor.normal = kind == 0   ? XYZf{0, 0, 1}
                            : kind == 1 ? walls.turned(1, 0, 0)
                                        : walls.turned(-1, 0, 0);
        } else if (i % 4 == 2) { // the court's walls
            const double along = random(-7.9, 7.9);
            const double z = random(0.5, 14.9);
            const std::array<std::array<double, 2>, 4> to{{{1, 0}, {-1, 0}, {0, 1}, {0, -1}}};
            const auto& [x, y] = to[i / 4 % 4];
            sensor.position =
                walls.turned(7.95 * x + along * std::abs(y), 7.95 * y + along * std::abs(x), z);
            sensor.normal = walls.turned(-x, -y, 0);
        } else {
            sensor.position = walls.turned(random(-7.9, 7.9), random(-7.9, 7.9), 0.05);
        }
        places.sensors.push_back({0, sensor});
    }
    return places;
}

/// Floors and facades before walls of random slopes, at eight bearings. The sensor stands at the
/// origin, or upright above it with its back to the south of the plan.
Places rooms(const char* name, bool court, bool facade, double steepest, std::size_t sensors,
             std::uint64_t seed) {
    Places places{name, {}, {}};
    scenes::Random random(seed);
    for (std::size_t i = 0; i < sensors; ++i) {
        Walls walls(static_cast<double>(i % 8) * 22.5 * degree);
        const double height = facade ? random(0.3, 12.0) : 0.05;
        const auto top = [&](double distance) { return height + distance * random(0.0, steepest); };
        const double north = random(3.0, 15.0);
        const double south = facade ? -0.05 : -random(3.0, 15.0);
        const double east = court ? random(2.0, 12.0) : endless;
        const double west = court ? -random(2.0, 12.0) : -endless;
        walls.add(west, north, east, north, top(north));
        const double back = facade ? height + random(0.1, 10.0) : top(-south);
        walls.add(west, south, east, south, back);
        if (court) {
            walls.add(east, south, east, north, top(east));
            walls.add(west, south, west, north, top(-west));
        }
        places.sensors.push_back(
            {places.scenes.size(),
             {{0, 0, static_cast<float>(height)}, facade ? walls.turned(0, 1, 0) : XYZf{0, 0, 1}}});
        places.scenes.push_back(walls.index());
    }
    return places;
}

/// Sensors with something straight above them are left out: they lie on the ground that goes on
/// under houses, and on the feet of walls below it.
Places scattered(const scenes::Scene& scene) {
    Places places{scene.name, {}, {}};
    places.scenes.push_back(std::make_unique<OcclusionIndex>(scene.coordinates));
    for (std::size_t i = 0; i < scene.sensors.size(); ++i) {
        if (!places.scenes.front()->isOccluded(scene.sensors[i], {0, 0, 1})) {
            places.sensors.push_back({0, {scene.sensors[i], scene.normals[i]}});
        }
    }
    return places;
}

/// The rays of the reference: 196 for each sky cell, 16,384 to the ground, one to each step of the
/// sun.
class Reference {
public:
    explicit Reference(const HourlySky& sky) : m_sky(sky) {
        for (int part = 0; part < parts * parts; ++part) {
            std::vector<XYZf> set;
            for (int cell = 0; cell < skyGrid::cellCount; ++cell) {
                set.push_back(
                    narrowed(direction((cell % 72 + (part % parts + 0.5) / parts) * 5.0,
                                       (cell / 72 + (part / parts + 0.5) / parts) * 5.0)));
            }
            m_sets.emplace_back(std::span<const XYZf, skyGrid::cellCount>(set.data(), set.size()));
        }
        for (int band = 0; band < groundParts; ++band) {
            const double sine = (band + 0.5) / groundParts;
            for (int sector = 0; sector < groundParts; ++sector) {
                const double turn = 2.0 * std::numbers::pi * (sector + 0.5) / groundParts;
                const double level = std::sqrt(1.0 - sine * sine);
                m_down.push_back({static_cast<float>(level * std::sin(turn)),
                                  static_cast<float>(level * std::cos(turn)),
                                  static_cast<float>(-sine)});
            }
        }
        for (const SunStep& step : sky.sunSteps) {
            const float size = std::hypot(step.energy.x, step.energy.y, step.energy.z);
            if (size > 0.0f) {
                m_suns.push_back(
                    {step.energy.x / size, step.energy.y / size, step.energy.z / size});
                m_energies.push_back(static_cast<double>(size));
            }
        }
    }

    struct Total {
        double sky = 0, beam = 0, ground = 0;
        double sum() const { return sky + beam + ground; }
    };
    Total of(const OcclusionIndex& scene, const Sensor& sensor) const {
        Total total;
        const XYZf& n = sensor.normal;
        const double length = std::sqrt(static_cast<double>(n.x * n.x + n.y * n.y + n.z * n.z));
        const auto cosine = [&](const XYZf& d) {
            return std::max(static_cast<double>(n.x * d.x + n.y * d.y + n.z * d.z) / length, 0.0);
        };
        std::vector<SkyCellSet> free(m_sets.size(), SkyCellSet::all());
        scene.visibleSkies(sensor.position, m_sets, free);
        for (std::size_t set = 0; set < m_sets.size(); ++set) {
            for (int cell = 0; cell < skyGrid::cellCount; ++cell) {
                const XYZf& d = m_sets[set].direction(cell % 72, cell / 72);
                if (free[set].contains(cell % 72, cell / 72)) {
                    total.sky +=
                        cosine(d) *
                        static_cast<double>(m_sky.diffuse[static_cast<std::size_t>(cell)]) *
                        static_cast<double>(std::hypot(d.x, d.y));
                }
            }
        }
        total.sky *= std::pow(5.0 / parts * degree, 2);
        total.beam = freeSum(scene, sensor.position, m_suns,
                             [&](std::size_t i) { return m_energies[i] * cosine(m_suns[i]); });
        total.ground = freeSum(scene, sensor.position, m_down,
                               [&](std::size_t i) { return cosine(m_down[i]); }) *
                       2.0 / (groundParts * groundParts) * m_sky.groundReflected;
        return total;
    }

private:
    static constexpr int parts = 14;
    static constexpr int groundParts = 128;

    template <typename Weight>
    static double freeSum(const OcclusionIndex& scene, const XYZf& origin,
                          const std::vector<XYZf>& rays, Weight&& weightOf) {
        std::vector<XYZf> asked;
        std::vector<double> weights;
        for (std::size_t i = 0; i < rays.size(); ++i) {
            if (const double weight = weightOf(i); weight > 0.0) {
                asked.push_back(rays[i]);
                weights.push_back(weight);
            }
        }
        std::vector<std::uint8_t> hidden(asked.size());
        scene.areOccluded(origin, asked, hidden);
        double sum = 0.0;
        for (std::size_t i = 0; i < asked.size(); ++i) {
            sum += hidden[i] == 0 ? weights[i] : 0.0;
        }
        return sum;
    }

    const HourlySky& m_sky;
    std::vector<SkyDirections> m_sets;
    std::vector<XYZf> m_down, m_suns;
    std::vector<double> m_energies;
};

/// Asks ray by ray and counts.
class CountedRays final : public GetTransparencyValueOnRay {
public:
    explicit CountedRays(const OcclusionIndex& scene) : m_scene(scene) {}
    bool getSurfaceDoubleSided() override { return false; }
    float getTransparencyValue(const XYZf& origin, const XYZf& direction, const XYZf*) override {
        ++count;
        return m_scene.isOccluded(origin, direction) ? 0.0f : 1.0f;
    }
    int initialise() override { return 0; }

    std::size_t count = 0;

private:
    const OcclusionIndex& m_scene;
};

WeatherSeries weatherOf(const std::string& folder, const std::string& city) {
    constexpr double south = -33.9;
    return city == "south" ? test::clearYear({south, 18.4, 2.0, 40.0})
                           : readWeatherSeries(folder + "/" + city + ".epw").series;
}

} // namespace

void printTotalAccuracy(const std::string& folder, const std::vector<std::string>& cities,
                        const std::vector<double>& tolerances) {
    constexpr std::size_t sensors = 200;
    std::vector<Places> all;
    all.push_back(courtAndStreet(2 * sensors));
    all.push_back(rooms("courts, slopes to 2", true, false, 2.0, sensors, 31));
    all.push_back(rooms("courts, slopes to 6", true, false, 6.0, sensors, 32));
    all.push_back(rooms("canyons, slopes to 2", false, false, 2.0, sensors, 33));
    all.push_back(rooms("canyons, slopes to 6", false, false, 6.0, sensors, 34));
    all.push_back(rooms("facades of streets, slopes to 2", false, true, 2.0, sensors, 35));
    all.push_back(rooms("facades of streets, slopes to 6", false, true, 6.0, sensors, 36));
    all.push_back(rooms("facades of courts, slopes to 2", true, true, 2.0, sensors, 37));
    all.push_back(rooms("facades of courts, slopes to 6", true, true, 6.0, sensors, 38));
    if (std::filesystem::exists(folder + "/../meshes")) {
        all.push_back(scattered(scenes::lyon(folder + "/..", 2 * sensors)));
    }
    all.push_back(scattered(scenes::city(10'000, 2 * sensors)));
    for (const std::string& city : cities) {
        const HourlySky sky = buildHourlySky(weatherOf(folder, city));
        const Reference reference(sky);
        std::vector<HourlyAnalysis> analyses;
        std::printf(
            "\n%s, percent of the total: within 1 / within 2 / within the tolerance / largest "
            "/ root mean square; rays; microseconds a sensor\n\n| scene |",
            city.c_str());
        for (const double tolerance : tolerances) {
            HourlyAnalysisOptions options;
            options.tolerance = tolerance;
            analyses.emplace_back(sky, options);
            std::printf(" %g %% |", 100.0 * tolerance);
        }
        std::printf("\n|---|");
        for (std::size_t k = 0; k < analyses.size(); ++k) {
            std::printf("---|");
        }
        std::printf("\n");
        for (const Places& places : all) {
            std::vector<double> totals;
            for (const Places::Place& place : places.sensors) {
                totals.push_back(reference.of(*places.scenes[place.scene], place.sensor).sum());
            }
            std::vector<std::vector<double>> errors(analyses.size());
            std::vector<double> times(analyses.size(), std::numeric_limits<double>::infinity());
            for (int turn = 0; turn < 5; ++turn) { // mixed, so that the machine's moods fall on all
                for (std::size_t k = 0; k < analyses.size(); ++k) {
                    std::vector<double>& own = errors[k];
                    own.clear();
                    const auto start = std::chrono::steady_clock::now();
                    for (std::size_t i = 0; i < places.sensors.size(); ++i) {
                        const Places::Place& place = places.sensors[i];
                        const SensorResult result =
                            analyses[k].evaluate(*places.scenes[place.scene], place.sensor);
                        if (totals[i] > 0.0) {
                            own.push_back(
                                std::abs(static_cast<double>(result.total) / totals[i] - 1.0));
                        }
                    }
                    const std::chrono::duration<double, std::micro> time =
                        std::chrono::steady_clock::now() - start;
                    times[k] = std::min(times[k],
                                        time.count() / static_cast<double>(places.sensors.size()));
                }
            }
            std::vector<double> rays;
            for (const HourlyAnalysis& analysis : analyses) {
                std::size_t count = 0;
                for (const Places::Place& place : places.sensors) {
                    CountedRays counted(*places.scenes[place.scene]);
                    analysis.evaluate(counted, place.sensor);
                    count += counted.count;
                }
                rays.push_back(static_cast<double>(count) /
                               static_cast<double>(places.sensors.size()));
            }
            std::printf("| %s |", places.name.c_str());
            for (std::size_t k = 0; k < analyses.size(); ++k) {
                const std::vector<double>& own = errors[k];
                const auto within = [&](double limit) {
                    return 100.0 *
                           static_cast<double>(std::ranges::count_if(
                               own, [&](double error) { return error <= limit; })) /
                           static_cast<double>(own.size());
                };
                double squares = 0.0;
                for (const double error : own) {
                    squares += error * error;
                }
                std::printf(" %.1f / %.1f / %.1f / %.2f / %.2f; %.0f; %.1f |", within(0.01),
                            within(0.02), within(tolerances[k]),
                            100.0 * *std::ranges::max_element(own),
                            100.0 * std::sqrt(squares / static_cast<double>(own.size())), rays[k],
                            times[k]);
            }
            std::printf("\n");
            std::fflush(stdout);
        }
    }
}

} // namespace insolate
