// Reflected light beside path tracing: every sensor's light by tens of thousands of random paths,
// which share nothing with the library's cells but the scene, the sky and the ray casts. Prints the
// differences and the times.
//
//     bench_reflection <weather.epw> [paths, 20000] [scene] [tolerances in percent, 1: 2,1,0.5]
#include <insolate/insolate.h>

#include <bench/scenes.h>

#include <oneapi/tbb/parallel_for.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace insolate;
using scenes::Point;
using scenes::Random;
using scenes::Scene;

float dot(const XYZf& a, const XYZf& b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

XYZf along(const XYZf& origin, const XYZf& direction, double distance) {
    return {static_cast<float>(origin.x + distance * direction.x),
            static_cast<float>(origin.y + distance * direction.y),
            static_cast<float>(origin.z + distance * direction.z)};
}

/// Three numbers of 0..1 that decide how a path goes on: over the sphere and which sun is asked.
struct Draw {
    double u, turn, sun;
};

/// A direction over a surface, evenly by projected solid angle.
XYZf scattered(const XYZf& normal, const Draw& draw) {
    const XYZf aside = std::fabs(normal.x) < 0.7f ? XYZf{1, 0, 0} : XYZf{0, 1, 0};
    XYZf a{normal.y * aside.z - normal.z * aside.y, normal.z * aside.x - normal.x * aside.z,
           normal.x * aside.y - normal.y * aside.x};
    const float length = std::sqrt(dot(a, a));
    a = {a.x / length, a.y / length, a.z / length};
    const XYZf b{normal.y * a.z - normal.z * a.y, normal.z * a.x - normal.x * a.z,
                 normal.x * a.y - normal.y * a.x};
    const double u = draw.u;
    const double turn = 2 * std::numbers::pi * draw.turn;
    const auto x = static_cast<float>(std::sqrt(u) * std::cos(turn));
    const auto y = static_cast<float>(std::sqrt(u) * std::sin(turn));
    const auto z = static_cast<float>(std::sqrt(1 - u));
    return {x * a.x + y * b.x + z * normal.x, x * a.y + y * b.y + z * normal.y,
            x * a.z + y * b.z + z * normal.z};
}

/// Light that surfaces, and the ground in their shadow, throw on sensors, by random paths.
class PathTracing {
public:
    PathTracing(const HourlyAnalysis& analysis, const LightScene& scene, double reach)
        : m_sky(analysis.sky()), m_scene(scene) {
        for (const SunCell& sun : m_sky.sunCells) {
            m_sun.push_back((m_sun.empty() ? 0.0 : m_sun.back()) + sun.directNormal);
        }
        m_open = m_sky.report.directHorizontal + m_sky.report.diffuseHorizontal;
        m_margin = reach * (scene.high().z - scene.low().z);
    }

    struct Light {
        double surfaces = 0, ground = 0, openGround = 0;
    };
    Light of(const Sensor& sensor, int paths, std::uint64_t seed) const {
        Random random(seed);
        Light light;
        // The first reflection of all paths is spread evenly, by a lattice with a random shift
        // (Roberts 2018, the same as the library's in two dimensions, here in three).
        const Draw shift{random(0, 1), random(0, 1), random(0, 1)};
        const auto wrapped = [](double value) { return value - std::floor(value); };
        for (int path = 0; path < paths; ++path) {
            follow(sensor,
                   {wrapped(shift.u + path * 0.8191725133961645),
                    wrapped(shift.turn + path * 0.6710436067037893),
                    wrapped(shift.sun + path * 0.5497004779019703)},
                   random, light);
        }
        light.surfaces /= paths;
        light.ground /= paths;
        light.openGround /= paths;
        return light;
    }

private:
    enum class Met { Sky, Surface, Ground, FarGround };
    Met meet(const XYZf& origin, const XYZf& direction, XYZf& place, XYZf& normal,
             double& reflectance) const {
        const RayHit hit = m_scene.opaque().nearestHit(origin, direction);
        if (hit.triangle != RayHit::none) {
            place = along(origin, direction, hit.distance);
            normal = m_scene.surface(hit.triangle).normal;
            if (dot(normal, direction) > 0) {
                normal = {-normal.x, -normal.y, -normal.z};
            }
            reflectance = m_scene.materials()[m_scene.surface(hit.triangle).material].reflectance;
            return Met::Surface;
        }
        if (direction.z >= 0) {
            return Met::Sky;
        }
        const double distance = (m_scene.low().z - origin.z) / direction.z;
        place = along(origin, direction, distance);
        normal = {0, 0, 1};
        reflectance = m_sky.groundReflected / m_open;
        const bool near = distance > 0 && place.x > m_scene.low().x - m_margin &&
                          place.x < m_scene.high().x + m_margin &&
                          place.y > m_scene.low().y - m_margin &&
                          place.y < m_scene.high().y + m_margin;
        return near ? Met::Ground : Met::FarGround;
    }

    void follow(const Sensor& sensor, Draw draw, Random& random, Light& light) const {
        XYZf origin = sensor.position;
        XYZf normal = sensor.normal;
        double factor = 1;
        double* sum = nullptr;
        for (int bounce = 0; bounce < 200; ++bounce) {
            if (bounce > 0) {
                draw = {random(0, 1), random(0, 1), random(0, 1)};
            }
            const XYZf direction = scattered(normal, draw);
            XYZf place{};
            double reflectance = 0;
            const Met met = meet(origin, direction, place, normal, reflectance);
            if (met == Met::Sky) {
                if (sum != nullptr) {
                    *sum += factor * std::numbers::pi * radiance(direction);
                }
                return;
            }
            if (sum == nullptr) {
                sum = met == Met::Surface ? &light.surfaces : &light.ground;
                light.openGround += met == Met::Surface ? 0.0 : m_sky.groundReflected;
            }
            if (met == Met::FarGround) {
                *sum += factor * m_sky.groundReflected;
                return;
            }
            factor *= reflectance;
            origin = along(place, normal,
                           0.002 + 1e-7 * std::max(std::fabs(place.x), std::fabs(place.y)));
            if (!m_sun.empty()) {
                const double drawn = draw.sun * m_sun.back();
                const auto cell = static_cast<std::size_t>(
                    std::upper_bound(m_sun.begin(), m_sun.end() - 1, drawn) - m_sun.begin());
                const SunCell& sun = m_sky.sunCells[cell];
                const double cosine = dot(sun.energy, normal) / sun.directNormal;
                if (cosine > 0 && !m_scene.opaque().isOccluded(origin, sun.direction)) {
                    *sum += factor * m_sun.back() * cosine;
                }
            }
            if (factor < 0.1) { // some of the weak paths go on for all
                if (random(0, 1) > 0.5) {
                    return;
                }
                factor *= 2;
            }
        }
    }

    double radiance(const XYZf& direction) const {
        const double turn = std::atan2(direction.x, direction.y);
        int azimuth = static_cast<int>(std::floor(turn / skyGrid::cellWidth));
        azimuth = (azimuth + skyGrid::azimuthCount) % skyGrid::azimuthCount;
        const int altitude =
            std::min(static_cast<int>(std::asin(std::min(direction.z, 1.0f)) / skyGrid::cellWidth),
                     skyGrid::altitudeCount - 1);
        return m_sky.diffuse[static_cast<std::size_t>(skyGrid::cellIndex(azimuth, altitude))];
    }

    const HourlySky& m_sky;
    const LightScene& m_scene;
    std::vector<double> m_sun;
    double m_open = 0;
    double m_margin = 0;
};

void addBlock(Scene& scene, double x0, double y0, double x1, double y1, double z) {
    scenes::addQuad(scene, {x0, y0, 0}, {x1, y0, 0}, {x1, y0, z}, {x0, y0, z});
    scenes::addQuad(scene, {x1, y0, 0}, {x1, y1, 0}, {x1, y1, z}, {x1, y0, z});
    scenes::addQuad(scene, {x1, y1, 0}, {x0, y1, 0}, {x0, y1, z}, {x1, y1, z});
    scenes::addQuad(scene, {x0, y1, 0}, {x0, y0, 0}, {x0, y0, z}, {x0, y1, z});
    scenes::addQuad(scene, {x0, y0, z}, {x1, y0, z}, {x1, y1, z}, {x0, y1, z});
}

void addGround(Scene& scene, double half) {
    scenes::addQuad(scene, {-half, -half, 0}, {half, -half, 0}, {half, half, 0}, {-half, half, 0});
}

void addSensors(Scene& scene, std::size_t count, std::size_t first, std::size_t last) {
    Random random(7);
    for (const std::size_t end = scene.sensors.size() + count; scene.sensors.size() < end;) {
        scenes::addSurfaceSensor(scene, random, first, last);
    }
}

/// Sensors on a square grid over each wall and roof, as a study has them.
struct Case {
    std::string name;
    Scene scene;
    double reflectance;
    std::size_t compared; ///< sensors that are traced
    bool hasTerrain;      ///< that goes on below buildings
};

std::vector<Case> cases(const std::string& only) {
    std::vector<Case> all;
    const auto add = [&](const std::string& name, double reflectance, std::size_t compared,
                         const auto& make) {
        if (only.empty() || name.find(only) != std::string::npos) {
            const bool hasTerrain =
                name.find("court") == std::string::npos && name.find("canyon") == std::string::npos;
            all.push_back({name, make(), reflectance, compared, hasTerrain});
        }
    };
    const auto court = [](bool ground) {
        Scene scene;
        if (ground) {
            addGround(scene, 200);
        }
        addBlock(scene, -20, -20, 20, -10, 18);
        addBlock(scene, -20, 10, 20, 20, 18);
        addBlock(scene, -20, -10, -10, 10, 18);
        addBlock(scene, 10, -10, 20, 10, 18);
        // The court's floor, or the walls alone.
        Random random(2);
        for (int i = 0; i < 2000; ++i) {
            const double u = random(-9.9, 9.9);
            const double v = random(-9.9, 9.9);
            const double z = random(0.1, 17.9);
            const int side = ground ? i % 5 : 1 + i % 4;
            const Point places[] = {
                {u, v, 0.05}, {u, 9.95, z}, {u, -9.95, z}, {9.95, u, z}, {-9.95, u, z}};
            const XYZf normals[] = {{0, 0, 1}, {0, -1, 0}, {0, 1, 0}, {-1, 0, 0}, {1, 0, 0}};
            scene.sensors.push_back(scenes::toXyz(places[side]));
            scene.normals.push_back(normals[side]);
        }
        return scene;
    };
    const auto canyon = [] {
        Scene scene;
        addGround(scene, 300);
        addBlock(scene, -150, 8, 150, 20, 20);
        addBlock(scene, -150, -20, 150, -8, 20);
        Random random(3);
        for (int i = 0; i < 3000; ++i) {
            const double u = random(-60, 60);
            const double z = random(0.1, 19.9);
            const Point places[] = {{u, random(-7.9, 7.9), 0.05}, {u, 7.95, z}, {u, -7.95, z}};
            const XYZf normals[] = {{0, 0, 1}, {0, -1, 0}, {0, 1, 0}};
            scene.sensors.push_back(scenes::toXyz(places[i % 3]));
            scene.normals.push_back(normals[i % 3]);
        }
        return scene;
    };
    const auto dense = [] {
        Scene scene = scenes::city(6000, 0, 5);
        for (std::size_t i = 2; i < scene.coordinates.size(); i += 3) {
            scene.coordinates[i] *= 2; // twice the height
        }
        addSensors(scene, 20000, 0, scene.triangleCount());
        return scene;
    };
    for (const double reflectance : {0.2, 0.5}) {
        const std::string text = reflectance < 0.3 ? " 0.2" : " 0.5";
        add("court with ground" + text, reflectance, 150, [&] { return court(true); });
        add("court without ground" + text, reflectance, 150, [&] { return court(false); });
        add("canyon" + text, reflectance, 150, canyon);
        add("Lyon, scattered" + text, reflectance, 300, [] {
            const char* folder = std::getenv("INSOLATE_TEST_DATA");
            return scenes::lyon(folder != nullptr ? folder : "", 10000);
        });
        add("Lyon, dense" + text, reflectance, 300, [] {
            const char* folder = std::getenv("INSOLATE_TEST_DATA");
            return scenes::lyon(folder != nullptr ? folder : "", 60000);
        });
        add("dense city" + text, reflectance, 300, dense);
        add("city, 2 m apart" + text, reflectance, 300, [] { return scenes::city(2000, 28000); });
        add("city of 10000" + text, reflectance, 300, [] { return scenes::city(10000, 20000); });
    }
    add("scattered over 1000000 0.2", 0.2, 100, [] { return scenes::city(1000000, 10000); });
    return all;
}

double secondsOf(const auto& run) {
    const auto start = std::clock(); // of all threads
    run();
    return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

/// What path tracing finds at some sensors of a scene: what reflected light is compared with.
struct Reference {
    std::vector<std::size_t> sensors;
    std::vector<PathTracing::Light> traced;
    std::vector<double> totals; ///< with sun, sky and ground by a small tolerance [Wh/m2]
};

LightScene sceneOf(const Case& one) {
    Material material;
    material.reflectance = static_cast<float>(one.reflectance);
    return LightScene(one.scene.coordinates,
                      std::vector<std::uint16_t>(one.scene.triangleCount(), 0), {material});
}

std::vector<Sensor> sensorsOf(const Case& one) {
    std::vector<Sensor> sensors;
    for (std::size_t i = 0; i < one.scene.sensors.size(); ++i) {
        sensors.push_back({one.scene.sensors[i], one.scene.normals[i]});
    }
    return sensors;
}

/// The total of a result before ReflectedLight::addTo(), with what was traced.
double totalOf(const SensorResult& direct, const PathTracing::Light& traced) {
    const double shadow = traced.openGround > 0 ? traced.ground / traced.openGround : 1.0;
    return direct.beam + direct.sky + direct.ground * shadow + traced.surfaces;
}

Reference trace(const Case& one, const LightScene& scene, const std::vector<Sensor>& sensors,
                const HourlySky& sky, int paths) {
    HourlyAnalysisOptions fine;
    fine.tolerance = 0.001;
    fine.skyTolerance = 0.0005;
    fine.sunTolerance = 0.0002;
    fine.groundRays = 4096;
    fine.peak = false;
    const HourlyAnalysis analysis(sky, fine);
    const PathTracing tracing(analysis, scene, ReflectionOptions().groundReach);
    // Terrain goes on below buildings, and walls of made cities below the terrain: no places for
    // sensors.
    std::vector<std::size_t> places;
    for (std::size_t i = 0; i < sensors.size(); ++i) {
        if (!one.hasTerrain || !scene.opaque().isOccluded(sensors[i].position, {0, 0, 1})) {
            places.push_back(i);
        }
    }
    const std::size_t compared = std::min(one.compared, places.size());
    Reference reference;
    reference.sensors.resize(compared);
    reference.traced.resize(compared);
    reference.totals.resize(compared);
    tbb::parallel_for(std::size_t{0}, compared, [&](std::size_t k) {
        const std::size_t i = places[k * (places.size() / compared)];
        reference.sensors[k] = i;
        reference.traced[k] = tracing.of(sensors[i], paths, 1000 + i);
        reference.totals[k] =
            totalOf(analysis.evaluate(scene.opaque(), sensors[i]), reference.traced[k]);
    });
    return reference;
}

/// Percent of the values that are at most a bound.
double shareWithin(const std::vector<double>& values, double bound) {
    const auto count =
        std::count_if(values.begin(), values.end(), [&](double value) { return value <= bound; });
    return 100.0 * static_cast<double>(count) / static_cast<double>(values.size());
}

/// One row: errors and times by a tolerance.
/// @param first time of evaluate() without any tolerance [s], 0: not known
void compare(const Case& one, const LightScene& scene, const std::vector<Sensor>& sensors,
             const HourlySky& sky, const Reference& reference, double percent, double first) {
    HourlyAnalysisOptions asked;
    asked.tolerance = percent / 100.0;
    const HourlyAnalysis analysis(sky, asked);
    std::vector<SensorResult> results(sensors.size());
    const double direct = secondsOf([&] { analysis.evaluate(scene.opaque(), sensors, results); });
    std::unique_ptr<ReflectedLight> light;
    const double more = secondsOf([&] {
        light = std::make_unique<ReflectedLight>(analysis, scene, sensors, ReflectionOptions(),
                                                 EvaluateOptions(), results);
    });
    const ReflectionReport& report = light->report();
    const auto count = static_cast<double>(sensors.size());
    std::printf("%-24s %g %%: %zu sensors: direct %.1f us, reflected %.1f us (%.2f",
                one.name.c_str(), percent, sensors.size(), direct / count * 1e6, more / count * 1e6,
                1 + more / direct);
    if (first > 0.0) {
        std::printf(", without a tolerance %.2f", 1 + more / first);
    }
    std::printf("), cells %.2f, rays %.0f a sensor, %d bounces, %.1f MB\n",
                static_cast<double>(report.cells) / count, static_cast<double>(report.rays) / count,
                report.bounces, static_cast<double>(report.bytes) / 1e6);
    const auto compared = static_cast<double>(reference.sensors.size());
    double mean = 0;
    for (const double total : reference.totals) {
        mean += total / compared;
    }
    double bias = 0;
    double squares = 0;
    double reflected = 0;
    std::vector<double> relative; // of the reflected light alone, in percent of the total
    std::vector<double> all;      // of all parts
    for (std::size_t k = 0; k < reference.sensors.size(); ++k) {
        SensorResult result = results[reference.sensors[k]];
        const double expected = totalOf(result, reference.traced[k]);
        light->addTo(reference.sensors[k], result);
        const double difference = result.total - expected;
        bias += difference / compared;
        squares += difference * difference / compared;
        reflected += reference.traced[k].surfaces / compared;
        // A total below a twentieth of the mean counts as that.
        const double whole = std::max(reference.totals[k], 0.05 * mean) / 100.0;
        relative.push_back(std::fabs(difference) / whole);
        all.push_back(std::fabs(result.total - reference.totals[k]) / whole);
    }
    std::printf(
        "    mean %.0f kWh/m2, reflected %.1f %%; bias %+.2f %%, rms %.2f %%, within %g %%: "
        "%.1f %%, %g %%: %.1f %%, 5 %%: %.1f %%, worst %.1f %%; all parts within %g %%: "
        "%.1f %%, %g %%: %.1f %%\n",
        mean / 1000, 100 * reflected / mean, 100 * bias / mean, 100 * std::sqrt(squares) / mean,
        percent, shareWithin(relative, percent), 2 * percent, shareWithin(relative, 2 * percent),
        shareWithin(relative, 5), *std::max_element(relative.begin(), relative.end()), percent,
        shareWithin(all, percent), 2 * percent, shareWithin(all, 2 * percent));
    std::fflush(stdout);
}

/// What evaluate() takes where a tenth of the triangles let light through, over an opaque scene;
/// and where they are left out, as the holes alone have more edges of shadows to look at.
void timeThrough(const Case& one, const HourlyAnalysis& analysis) {
    std::vector<Material> materials(3);
    materials[1].passage = Material::Passage::Pane;
    materials[1].passing = 0.72f;
    materials[2].passage = Material::Passage::Leaves;
    materials[2].passing = 0.12f;
    std::vector<std::uint16_t> materialOf(one.scene.triangleCount(), 0);
    std::vector<Sensor> sensors;
    for (std::size_t i = 0; i < one.scene.sensors.size(); ++i) {
        sensors.push_back({one.scene.sensors[i], one.scene.normals[i]});
    }
    std::vector<SensorResult> results(sensors.size());
    std::vector<double> others;
    for (std::size_t i = 0; i < one.scene.coordinates.size(); ++i) {
        if (i / 9 % 10 != 0) {
            others.push_back(one.scene.coordinates[i]);
        }
    }
    const LightScene without(others, std::vector<std::uint16_t>(others.size() / 9, 0), materials);
    const double holes = secondsOf([&] { analysis.evaluate(without, sensors, results); });
    double seconds[3] = {};
    for (std::uint16_t kind = 0; kind < 3; ++kind) {
        for (std::size_t i = 0; i < materialOf.size(); i += 10) {
            materialOf[i] = kind;
        }
        const LightScene scene(one.scene.coordinates, materialOf, materials);
        seconds[kind] = secondsOf([&] { analysis.evaluate(scene, sensors, results); });
    }
    std::printf("%-24s a tenth of glass %.2f, of leaves %.2f, left out %.2f times the time of the"
                " opaque scene\n",
                one.name.c_str(), seconds[1] / seconds[0], seconds[2] / seconds[0],
                holes / seconds[0]);
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "bench_reflection <weather.epw> [paths] [scene] [tolerances]\n");
        return 2;
    }
    const WeatherReading weather = readWeatherSeries(argv[1]);
    if (!weather.ok) {
        return 1;
    }
    const HourlySky sky = buildHourlySky(weather.series);
    const int paths = argc > 2 ? std::atoi(argv[2]) : 20000;
    std::vector<double> tolerances;
    for (std::istringstream text(argc > 4 ? argv[4] : "1"); !text.eof() && text.good();) {
        std::string one;
        std::getline(text, one, ',');
        tolerances.push_back(std::atof(one.c_str()));
    }
    HourlyAnalysisOptions none;
    none.tolerance = 0.0;
    const HourlyAnalysis quick(sky, none);
    const HourlyAnalysis usual(sky);
    for (const Case& one : cases(argc > 3 ? argv[3] : "")) {
        const LightScene scene = sceneOf(one);
        const std::vector<Sensor> sensors = sensorsOf(one);
        const Reference reference = trace(one, scene, sensors, sky, paths);
        std::vector<SensorResult> results(sensors.size());
        const double first = secondsOf([&] { quick.evaluate(scene.opaque(), sensors, results); });
        for (const double percent : tolerances) {
            compare(one, scene, sensors, sky, reference, percent, first);
        }
        if (argc <= 4 && one.reflectance < 0.3 && one.hasTerrain) {
            timeThrough(one, usual);
        }
    }
    return 0;
}
