/// Scenes for hours of sun: set-ups whose answer is known in closed form, and a city with all that
/// makes shadows difficult.
#pragma once

#include <insolate/sunlight/sunlight_index.h>

#include "tests/rt/scenes.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <numbers>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace insolate::test {

/// What stands about a sensor at the origin, and when it lets the sun through: where the function
/// of the sun's direction (east, north, up) is above 0.
struct Obstacle {
    Scene scene;
    std::function<double(const Direction&)> passes = [](const Direction&) { return 1.0; };
};

/// A sensor at the origin under a sun of constant declination.
struct SunlightCase {
    std::string what;
    double latitude, declination; ///< degrees
    Obstacle obstacle;
    std::vector<Direction> facings;
    double leastAltitude; ///< degrees
    /// Minutes of solar time, from cos w = ... of each set-up; most are solved by hand to a second.
    std::vector<TimeSpan> lit;

    /// Above 0 where the sun shines on the sensor from: what a sun whose declination drifts is held
    /// against.
    double shines(const Direction& sun) const {
        constexpr double degree = std::numbers::pi / 180.0;
        double least = std::min(sun[2] - std::sin(leastAltitude * degree), obstacle.passes(sun));
        for (const Direction& facing : facings) {
            least = std::min(least, sun[0] * facing[0] + sun[1] * facing[1] + sun[2] * facing[2]);
        }
        return least;
    }
};

/// A wall along x at y, from the ground up.
inline void addWall(Scene& scene, double y, double halfWidth, double height) {
    addQuad(scene, {-halfWidth, y, 0.0}, {2.0 * halfWidth, 0.0, 0.0}, {0.0, 0.0, height});
}

/// Altitudes, walls, facades, slabs, the pole; and walls whose top the sun passes about noon.
inline std::vector<SunlightCase> sunlightCases() {
    constexpr double degree = std::numbers::pi / 180.0;
    constexpr double endless = 1.0e8; // metres
    const auto hourOf = [](int hours, int minutes, int seconds) {
        return hours * 60.0 + minutes + seconds / 60.0;
    };
    const auto wall = [](double height, double distance) {
        Obstacle o;
        addWall(o.scene, -distance, endless, height);
        o.passes = [=](const Direction& s) {
            return std::max(s[1], s[2] * distance + s[1] * height);
        };
        return o;
    };
    const auto eastWall = [](double height, double distance) {
        Obstacle o;
        addQuad(o.scene, {distance, -endless, 0.0}, {0.0, 2.0 * endless, 0.0}, {0.0, 0.0, height});
        o.passes = [=](const Direction& s) {
            return std::max(-s[0], s[2] * distance - s[0] * height);
        };
        return o;
    };
    const auto slab = [](double width, double distance) {
        Obstacle o;
        addWall(o.scene, -distance, width / 2.0, 1.0e4);
        o.passes = [=](const Direction& s) {
            return std::max(s[1], std::fabs(s[0]) * distance + s[1] * width / 2.0);
        };
        return o;
    };
    const auto screen = [&](double angle) { return slab(20.0 * std::tan(angle * degree), 10.0); };
    const Obstacle nothing;
    const Direction south = {0.0, -1.0, 0.0};
    const Direction east = {1.0, 0.0, 0.0};
    const Direction north = {0.0, 1.0, 0.0};
    const double turn = 4.0 * 64.293; // minutes of 64.293 degrees
    std::vector<SunlightCase> cases = {
        {"least altitude", 52, 0, nothing, {}, 10, {{hourOf(7, 5, 32), hourOf(16, 54, 28)}}},
        {"least altitude", 50, 0, nothing, {}, 13, {{hourOf(7, 21, 56), hourOf(16, 38, 4)}}},
        {"winter", 52, -23.45, nothing, {}, 10, {{hourOf(9, 58, 28), hourOf(14, 1, 32)}}},
        {"wall in summer",
         50,
         23.45,
         wall(6, 2),
         {},
         0,
         {{hourOf(3, 55, 29), hourOf(8, 59, 40)}, {hourOf(15, 0, 20), hourOf(20, 4, 31)}}},
        {"wall in winter",
         50,
         -23.45,
         wall(1, 4),
         {},
         0,
         {{hourOf(10, 11, 54), hourOf(13, 48, 6)}}},
        {"wall in spring",
         50,
         10,
         wall(6, 2),
         {},
         0,
         {{hourOf(5, 11, 29), hourOf(7, 6, 43)}, {hourOf(16, 53, 17), hourOf(18, 48, 31)}}},
        // At the equinox the shadow's edge stands still all day, at 3 tan 50 = 3.5753 m.
        {"before the still edge", 50, 0, wall(3, 3.56), {}, 0, {}},
        {"behind the still edge", 50, 0, wall(3, 3.59), {}, 0, {{360, 1080}}},
        {"east wall, equator", 0, 0, eastWall(5, 5), {}, 0, {{hourOf(9, 0, 0), 1080}}},
        {"east wall", 52, 0, eastWall(4, 3), {}, 0, {{hourOf(10, 20, 52), 1080}}},
        {"facade south", 50, 23.45, nothing, {south}, 0, {{hourOf(7, 25, 23), hourOf(16, 34, 37)}}},
        {"facade east", 50, 23.45, nothing, {east}, 0, {{hourOf(3, 55, 29), 720}}},
        {"facade north",
         50,
         23.45,
         nothing,
         {north},
         0,
         {{hourOf(3, 55, 29), hourOf(7, 25, 23)}, {hourOf(16, 34, 37), hourOf(20, 4, 31)}}},
        {"slab",
         50,
         0,
         slab(20, 10),
         {},
         0,
         {{360, hourOf(9, 30, 11)}, {hourOf(14, 29, 49), 1080}}},
        {"narrow slab",
         30,
         0,
         slab(10, 10),
         {},
         0,
         {{360, hourOf(11, 3, 51)}, {hourOf(12, 56, 9), 1080}}},
        {"screen at the pole", 90, 23.45, screen(30), {}, 0, {{0, 600}, {840, 1440}}},
        {"wide screen at the pole", 90, 10, screen(45), {}, 0, {{0, 540}, {900, 1440}}},
        {"wall at the pole", 90, 23.45, wall(7, 7), {}, 0, {{0, 720 - turn}, {720 + turn, 1440}}},
    };
    // Walls 10 m away over which the sun looks for so many minutes before and after noon. The
    // angle between sun and edge changes with the square of time there.
    for (const double minutes : {0.5, 2.0, 6.0}) {
        const double latitude = 50.0 * degree;
        const double declination = -20.0 * degree;
        const double equator = std::cos(declination) * std::cos(minutes / 4.0 * degree);
        const double height =
            10.0 * (std::sin(declination) * std::sin(latitude) + equator * std::cos(latitude)) /
            (equator * std::sin(latitude) - std::sin(declination) * std::cos(latitude));
        cases.push_back({"wall that the noon sun grazes",
                         50,
                         -20,
                         wall(height, 10),
                         {},
                         0,
                         {{720.0 - minutes, 720.0 + minutes}}});
    }
    return cases;
}

/// The minutes of a day in which a condition on the sun's direction is above 0, by looks a second
/// apart and straight lines between them.
inline double minutesAbove(const SunPath::Sun& sun,
                           const std::function<double(const Direction&)>& condition) {
    constexpr double second = 1.0 / 60.0;
    double sum = 0.0;
    double before = condition(sun(0.0));
    for (double time = second; time <= 1440.0; time += second) {
        const double now = condition(sun(time));
        const double share = (before > 0.0) == (now > 0.0)
                                 ? (now > 0.0 ? 1.0 : 0.0)
                                 : std::max(before, now) / std::fabs(now - before);
        sum += share * second;
        before = now;
    }
    return sum;
}

/// Blocks of a city with balconies, blinds with slits of centimetres, and leaves of a tree.
inline Scene madeCity(std::mt19937& random) {
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    Scene scene;
    const auto box = [&](Vector3d corner, Vector3d size) {
        const auto [x, y, z] = corner;
        const auto [a, b, c] = size;
        addQuad(scene, {x, y, z + c}, {a, 0, 0}, {0, b, 0});
        addQuad(scene, {x, y, z}, {a, 0, 0}, {0, 0, c});
        addQuad(scene, {x, y + b, z}, {a, 0, 0}, {0, 0, c});
        addQuad(scene, {x, y, z}, {0, b, 0}, {0, 0, c});
        addQuad(scene, {x + a, y, z}, {0, b, 0}, {0, 0, c});
    };
    for (int i = 0; i < 16; ++i) {
        const double x = 40.0 * (i % 4) + 8.0 * unit(random);
        const double y = 40.0 * (i / 4) + 8.0 * unit(random);
        const double height = 9.0 + 20.0 * unit(random);
        box({x, y, 0}, {15, 12, height});
        for (double floor = 3.0; floor < height; floor += 3.0) {
            box({x + 2, y - 1.5, floor}, {4, 1.5, 0.2});
        }
        for (int slat = 0; slat < 20; ++slat) {
            box({x + 8 + 0.12 * slat, y - 0.4, 0.5}, {0.09, 0.02, 2.0});
        }
    }
    for (int leaf = 0; leaf < 400; ++leaf) {
        const Vector3d at = {60 + 6 * unit(random), 28 + 6 * unit(random), 4 + 5 * unit(random)};
        const auto near = [&] {
            return Vector3d{at[0] + 0.4 * unit(random), at[1] + 0.4 * unit(random),
                            at[2] + 0.4 * unit(random)};
        };
        addTriangle(scene, at, near(), near());
    }
    return scene;
}

} // namespace insolate::test
