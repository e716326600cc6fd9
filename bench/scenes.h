/// Seeded scenes for the tests and benchmarks of the ray casters: triangles and sensor points.
#pragma once

#include <insolate/geometry/sky_grid.h>
#include <insolate/geometry/xyzf.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace insolate::scenes {

/// Triangles as nine doubles each, and points from which masks are taken, in random order.
struct Scene {
    std::string name;
    std::vector<double> coordinates;
    std::vector<XYZf> sensors;
    std::vector<XYZf> normals; ///< of the surfaces they stand on, where they all stand on one

    std::size_t triangleCount() const { return coordinates.size() / 9; }
};

using Point = std::array<double, 3>;

/// The same numbers on every machine, which the standard distributions do not promise.
class Random {
public:
    explicit Random(std::uint64_t seed) : engine(seed) {}
    /// Uniform in [low, high).
    double operator()(double low, double high) {
        return low + (high - low) * (static_cast<double>(engine() >> 11U) * 0x1p-53);
    }
    std::size_t below(std::size_t count) { return static_cast<std::size_t>(engine() % count); }

private:
    std::mt19937_64 engine;
};

inline void addTriangle(Scene& scene, const Point& a, const Point& b, const Point& c) {
    for (const Point* p : {&a, &b, &c}) {
        scene.coordinates.insert(scene.coordinates.end(), p->begin(), p->end());
    }
}

inline void addQuad(Scene& scene, const Point& a, const Point& b, const Point& c, const Point& d) {
    addTriangle(scene, a, b, c);
    addTriangle(scene, a, c, d);
}

inline XYZf toXyz(const Point& p) {
    return {static_cast<float>(p[0]), static_cast<float>(p[1]), static_cast<float>(p[2])};
}

/// A sensor 0.05 off a random triangle from [first, last), on the side of its normal, or on the
/// upper side where that points down.
inline void addSurfaceSensor(Scene& scene, Random& random, std::size_t first, std::size_t last) {
    const double* v = scene.coordinates.data() + 9 * (first + random.below(last - first));
    double a = random(0.05, 0.95);
    double b = random(0.05, 0.95);
    if (a + b > 1) {
        a = 1 - a;
        b = 1 - b;
    }
    Point e1{};
    Point e2{};
    Point p{};
    for (std::size_t i = 0; i < 3; ++i) {
        e1[i] = v[3 + i] - v[i];
        e2[i] = v[6 + i] - v[i];
        p[i] = v[i] + a * e1[i] + b * e2[i];
    }
    const Point n = {e1[1] * e2[2] - e1[2] * e2[1], e1[2] * e2[0] - e1[0] * e2[2],
                     e1[0] * e2[1] - e1[1] * e2[0]};
    const double length = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
    if (!(length > 0)) {
        return;
    }
    const double offset = (n[2] < -1e-6 * length ? -0.05 : 0.05) / length;
    scene.sensors.push_back(
        toXyz({p[0] + offset * n[0], p[1] + offset * n[1], p[2] + offset * n[2]}));
    const double turned = std::copysign(1 / length, offset);
    scene.normals.push_back(toXyz({turned * n[0], turned * n[1], turned * n[2]}));
}

/// Blocks of gabled houses and flat-roofed towers on gently rolling ground, about `triangles` in
/// all; its extent grows with the square root of the count. Half of the sensors stand in the
/// streets, half on the facades and roofs.
inline Scene city(std::size_t triangles, std::size_t sensorCount, std::uint64_t seed = 1) {
    Scene scene;
    scene.name = "city of " + std::to_string(triangles);
    Random random(seed);
    constexpr double pitch = 24; // metres between buildings
    // 10 ground triangles and 12 of a building per plot.
    const auto side = static_cast<std::size_t>(
        std::max(1.0, std::round(std::sqrt(static_cast<double>(triangles) / 22))));
    const double half = static_cast<double>(side) * pitch / 2;
    const auto ground = [](double x, double y) {
        return 3 * std::sin(x / 90) + 2 * std::cos(y / 70);
    };
    for (std::size_t j = 0; j < side; ++j) {
        for (std::size_t i = 0; i < side; ++i) {
            const double x = static_cast<double>(i) * pitch - half;
            const double y = static_cast<double>(j) * pitch - half;
            for (int k = 0; k < 5; ++k) {
                const double x0 = x + pitch * k / 5;
                const double x1 = x + pitch * (k + 1) / 5;
                addQuad(scene, {x0, y, ground(x0, y)}, {x1, y, ground(x1, y)},
                        {x1, y + pitch, ground(x1, y + pitch)},
                        {x0, y + pitch, ground(x0, y + pitch)});
            }
        }
    }
    const std::size_t groundTriangles = scene.triangleCount();
    for (std::size_t j = 0; j < side; ++j) {
        for (std::size_t i = 0; i < side; ++i) {
            const double cx = (static_cast<double>(i) + 0.5) * pitch - half;
            const double cy = (static_cast<double>(j) + 0.5) * pitch - half;
            const double width = random(5, 9);
            const double depth = random(4, 8);
            const double turn = random(-0.3, 0.3);
            const bool tower = random(0, 1) < 0.08;
            const double low = ground(cx, cy) - 2;
            const double eaves = low + (tower ? random(25, 70) : random(6, 18));
            const double ridge = eaves + (tower ? 0 : random(1.5, 4));
            const auto at = [&](double u, double v, double z) -> Point {
                return {cx + u * std::cos(turn) - v * std::sin(turn),
                        cy + u * std::sin(turn) + v * std::cos(turn), z};
            };
            const std::array<std::array<double, 2>, 4> corner = {
                {{-width, -depth}, {width, -depth}, {width, depth}, {-width, depth}}};
            for (std::size_t k = 0; k < 4; ++k) {
                const auto& a = corner[k];
                const auto& b = corner[(k + 1) % 4];
                addQuad(scene, at(a[0], a[1], low), at(b[0], b[1], low), at(b[0], b[1], eaves),
                        at(a[0], a[1], eaves));
            }
            addQuad(scene, at(-width, -depth, eaves), at(width, -depth, eaves), at(width, 0, ridge),
                    at(-width, 0, ridge));
            addQuad(scene, at(width, depth, eaves), at(-width, depth, eaves), at(-width, 0, ridge),
                    at(width, 0, ridge));
        }
    }
    while (scene.sensors.size() < sensorCount) {
        const bool street = scene.sensors.size() % 2 == 0;
        addSurfaceSensor(scene, random, street ? 0 : groundTriangles,
                         street ? groundTriangles : scene.triangleCount());
    }
    return scene;
}

/// A bumpy sphere as a scanner delivers it, of about `triangles` facets.
inline void addScannedObject(Scene& scene, std::size_t triangles, const Point& centre,
                             double radius) {
    const auto bands = static_cast<std::size_t>(std::sqrt(static_cast<double>(triangles) / 4));
    const std::size_t sectors = 2 * bands;
    const auto at = [&](std::size_t band, std::size_t sector) -> Point {
        const double polar =
            std::numbers::pi * static_cast<double>(band) / static_cast<double>(bands);
        const double turn = 2 * std::numbers::pi * static_cast<double>(sector % sectors) /
                            static_cast<double>(sectors);
        const double r = radius * (1 + 0.05 * std::sin(9 * polar) * std::cos(7 * turn) +
                                   0.005 * std::sin(61 * polar) * std::sin(53 * turn));
        return {centre[0] + r * std::sin(polar) * std::cos(turn),
                centre[1] + r * std::sin(polar) * std::sin(turn), centre[2] + r * std::cos(polar)};
    };
    for (std::size_t band = 0; band < bands; ++band) {
        for (std::size_t sector = 0; sector < sectors; ++sector) {
            addQuad(scene, at(band, sector), at(band + 1, sector), at(band + 1, sector + 1),
                    at(band, sector + 1));
        }
    }
}

inline Scene scannedObject(std::size_t triangles, std::size_t sensorCount) {
    Scene scene;
    scene.name = "scanned object";
    addScannedObject(scene, triangles, {0, 0, 0}, 10);
    Random random(3);
    while (scene.sensors.size() < sensorCount) {
        addSurfaceSensor(scene, random, 0, scene.triangleCount());
    }
    return scene;
}

/// A fine object of 1 m in a corner of a ground of 2 km; sensors on and around the object.
inline Scene uneven(std::size_t triangles, std::size_t sensorCount) {
    Scene scene;
    scene.name = "uneven scene";
    addQuad(scene, {0, 0, 0}, {2000, 0, 0}, {2000, 2000, 0}, {0, 2000, 0});
    addScannedObject(scene, triangles, {10, 10, 0.8}, 1);
    Random random(4);
    while (scene.sensors.size() < sensorCount) {
        if (scene.sensors.size() % 2 == 0) {
            addSurfaceSensor(scene, random, 2, scene.triangleCount());
        } else {
            scene.sensors.push_back(toXyz({random(6, 14), random(6, 14), 0.05}));
        }
    }
    return scene;
}

/// Adds the faces of a Wavefront file, polygons as fans; false when it cannot be read.
inline bool addObjFile(Scene& scene, const std::filesystem::path& file) {
    std::ifstream in(file);
    std::vector<Point> vertices;
    for (std::string line; std::getline(in, line);) {
        std::istringstream words(line);
        std::string kind;
        words >> kind;
        if (kind == "v") {
            Point& p = vertices.emplace_back();
            words >> p[0] >> p[1] >> p[2];
        } else if (kind == "f") {
            std::vector<std::size_t> corners;
            for (std::string word; words >> word;) {
                const long index = std::stol(word);
                corners.push_back(index > 0 ? static_cast<std::size_t>(index - 1)
                                            : vertices.size() - static_cast<std::size_t>(-index));
            }
            for (std::size_t i = 2; i < corners.size(); ++i) {
                addTriangle(scene, vertices.at(corners[0]), vertices.at(corners[i - 1]),
                            vertices.at(corners[i]));
            }
        }
    }
    return !vertices.empty();
}

/// Lyon's terrain and buildings from the folder of the real data; empty when they are not there.
inline Scene lyon(const std::filesystem::path& dataFolder, std::size_t sensorCount) {
    Scene scene;
    scene.name = "Lyon";
    if (!addObjFile(scene, dataFolder / "meshes" / "lyon_terrain.obj") ||
        !addObjFile(scene, dataFolder / "meshes" / "lyon_buildings.obj")) {
        return scene;
    }
    Random random(5);
    while (scene.sensors.size() < sensorCount) {
        addSurfaceSensor(scene, random, 0, scene.triangleCount());
    }
    return scene;
}

/// Cuts a triangle as a study cuts faces of a model: halves across the longest edge until the area
/// is at most the spacing's square and the longest edge at most twice the spacing.
inline void cutTriangle(const std::array<Point, 3>& p, double spacing,
                        std::vector<Point>& centres) {
    std::array<Point, 3> edge{};
    std::array<double, 3> length{};
    std::size_t longest = 0;
    for (std::size_t k = 0; k < 3; ++k) {
        const Point& from = p[k];
        const Point& to = p[(k + 1) % 3];
        edge[k] = {to[0] - from[0], to[1] - from[1], to[2] - from[2]};
        length[k] = std::hypot(edge[k][0], edge[k][1], edge[k][2]);
        longest = length[k] > length[longest] ? k : longest;
    }
    const Point& a = edge[0];
    const Point& b = edge[1];
    const double area = 0.5 * std::hypot(a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2],
                                         a[0] * b[1] - a[1] * b[0]);
    if (area <= spacing * spacing && length[longest] <= 2 * spacing) {
        centres.push_back({(p[0][0] + p[1][0] + p[2][0]) / 3, (p[0][1] + p[1][1] + p[2][1]) / 3,
                           (p[0][2] + p[1][2] + p[2][2]) / 3});
        return;
    }
    const Point& from = p[longest];
    const Point& to = p[(longest + 1) % 3];
    const Point& apex = p[(longest + 2) % 3];
    const Point middle = {(from[0] + to[0]) / 2, (from[1] + to[1]) / 2, (from[2] + to[2]) / 2};
    cutTriangle({from, middle, apex}, spacing, centres);
    cutTriangle({middle, to, apex}, spacing, centres);
}

/// Replaces the sensors by those of a study of the whole scene, face after face, 0.05 off each on
/// the side of its normal: `runs` runs of `length` sensors that follow each other, at even
/// distances in the order of the faces.
inline void takeStudySensors(Scene& scene, double spacing, std::size_t runs, std::size_t length) {
    scene.sensors.clear();
    scene.normals.clear();
    for (std::size_t run = 0; run < runs; ++run) {
        const std::size_t end = (run + 1) * length;
        for (std::size_t t = (2 * run + 1) * scene.triangleCount() / (2 * runs);
             t < scene.triangleCount() && scene.sensors.size() < end; ++t) {
            const double* v = scene.coordinates.data() + 9 * t;
            const std::array<Point, 3> p = {Point{v[0], v[1], v[2]}, Point{v[3], v[4], v[5]},
                                            Point{v[6], v[7], v[8]}};
            const Point a = {v[3] - v[0], v[4] - v[1], v[5] - v[2]};
            const Point b = {v[6] - v[0], v[7] - v[1], v[8] - v[2]};
            Point n = {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2],
                       a[0] * b[1] - a[1] * b[0]};
            const double size = std::hypot(n[0], n[1], n[2]);
            if (!(size > 0)) {
                continue;
            }
            std::vector<Point> centres;
            cutTriangle(p, spacing, centres);
            for (Point& c : centres) {
                if (scene.sensors.size() == end) {
                    break;
                }
                for (std::size_t k = 0; k < 3; ++k) {
                    c[k] += 0.05 * n[k] / size;
                }
                scene.sensors.push_back(toXyz(c));
                scene.normals.push_back(toXyz({n[0] / size, n[1] / size, n[2] / size}));
            }
        }
    }
}

/// The unit vectors through the centres of the sky cells, with north along y.
inline std::array<XYZf, skyGrid::cellCount> cellCentres() {
    std::array<XYZf, skyGrid::cellCount> directions{};
    for (int altitude = 0; altitude < skyGrid::altitudeCount; ++altitude) {
        for (int azimuth = 0; azimuth < skyGrid::azimuthCount; ++azimuth) {
            const double up = (altitude + 0.5) * std::numbers::pi / 36;
            const double turn = std::numbers::pi / 2 - (azimuth + 0.5) * std::numbers::pi / 36;
            directions[static_cast<std::size_t>(skyGrid::cellIndex(azimuth, altitude))] =
                toXyz({std::cos(up) * std::cos(turn), std::cos(up) * std::sin(turn), std::sin(up)});
        }
    }
    return directions;
}

} // namespace insolate::scenes
