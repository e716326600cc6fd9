/// How exact hours of sun are, and what they take: the tables of docs/validation.md.
///
///     bench_sun_hours <folder with meshes/lyon_*.obj> [exact] [rays] [worst]
///
/// exact: set-ups with an answer in closed form, under a sun of constant declination and under the
/// real one, with decisions a minute to either side of the answer. rays: 1,000 sensors each in Lyon
/// and in a made city of balconies, blinds and leaves against a ray a second, with the same
/// decisions. worst: the sensors that differ most, against exact rays twenty times a second. The
/// first two unless others are named.
#include <insolate/insolate.h>

#include <bench/scenes.h>
#include <study/run/sunlight_rules.h>
#include <tests/sunlight/sunlight_cases.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <numbers>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <oneapi/tbb/parallel_for.h>

namespace {

using namespace insolate;

constexpr double degree = std::numbers::pi / 180.0;
constexpr double second = 1.0 / 60.0; // minutes
constexpr TimeSpan wholeDay{0.0, 1440.0};

double sumOf(const std::vector<TimeSpan>& spans) {
    double sum = 0.0;
    for (const TimeSpan& span : spans) {
        sum += span.length();
    }
    return sum;
}

/// Whether thresholds a minute below and above an answer are decided as the answer says.
bool decidesRightly(const std::vector<TimeSpan>& found, double answer) {
    const auto passes = [&](double minutes) {
        study::SunlightRule rule;
        rule.hours = minutes / 60.0;
        return dayPasses(dayOfSun(found, std::span(&wholeDay, 1), rule), rule);
    };
    return (answer < 1.0 || passes(answer - 1.0)) && !passes(answer + 1.0);
}

void exactCases() {
    std::printf(
        "| set-up | latitude | declination | minutes | found | difference | real sun, day | "
        "minutes | difference |\n|---|---|---|---|---|---|---|---|---|\n");
    double worst = 0.0;
    int decided = 0;
    int decisions = 0;
    const auto judge = [&](const std::vector<TimeSpan>& lit, double answer) {
        worst = std::max(worst, std::fabs(sumOf(lit) - answer));
        decided += decidesRightly(lit, answer) ? 1 : 0;
        ++decisions;
    };
    for (const test::SunlightCase& one : test::sunlightCases()) {
        const SkyAxes axes{one.latitude, 0.0};
        const SunlightIndex index(one.obstacle.scene, axes);
        const auto litUnder = [&](const SunPath::Sun& sun) {
            const SunPath path(sun, wholeDay, axes, one.leastAltitude * degree);
            return index.sunlight({0.0, 0.0, 0.0}, one.facings, path);
        };
        const auto shines = [&](const Direction& s) { return one.shines(s); };
        const auto lit =
            litUnder(sunOfDeclination(one.declination * degree, one.latitude * degree));
        judge(lit, sumOf(one.lit));
        const auto [month, day] = one.declination > 20.0    ? std::pair(6, 21)
                                  : one.declination > 5.0   ? std::pair(4, 16)
                                  : one.declination > -5.0  ? std::pair(3, 20)
                                  : one.declination > -22.0 ? std::pair(1, 20)
                                                            : std::pair(12, 21);
        const SunPath::Sun real = sunOfDate(2025, month, day, {one.latitude, 0.0, 0.0, 0.0}, false);
        const double answer = test::minutesAbove(real, shines);
        const auto litReally = litUnder(real);
        judge(litReally, answer);
        std::printf("| %s | %g | %g | %.3f | %.3f | %+.3f | %d/%d | %.3f | %+.3f |\n",
                    one.what.c_str(), one.latitude, one.declination, sumOf(one.lit), sumOf(lit),
                    sumOf(lit) - sumOf(one.lit), month, day, answer, sumOf(litReally) - answer);
    }
    std::printf("\nlargest difference %.3f minutes; thresholds a minute to either side decided "
                "rightly: %d of %d\n\n",
                worst, decided, decisions);
}

/// The nearest thing to a definition: every triangle by itself, in double precision.
bool isHidden(const std::vector<double>& triangles, const Direction& origin, const Direction& way) {
    for (std::size_t i = 0; i + 9 <= triangles.size(); i += 9) {
        const double* v = triangles.data() + i;
        const Vector3d e1 = {v[3] - v[0], v[4] - v[1], v[5] - v[2]};
        const Vector3d e2 = {v[6] - v[0], v[7] - v[1], v[8] - v[2]};
        const Vector3d p = {way[1] * e2[2] - way[2] * e2[1], way[2] * e2[0] - way[0] * e2[2],
                            way[0] * e2[1] - way[1] * e2[0]};
        const double determinant = e1[0] * p[0] + e1[1] * p[1] + e1[2] * p[2];
        if (determinant == 0.0) {
            continue;
        }
        const Vector3d t = {origin[0] - v[0], origin[1] - v[1], origin[2] - v[2]};
        const double a = (t[0] * p[0] + t[1] * p[1] + t[2] * p[2]) / determinant;
        if (a < 0.0 || a > 1.0) {
            continue;
        }
        const Vector3d q = {t[1] * e1[2] - t[2] * e1[1], t[2] * e1[0] - t[0] * e1[2],
                            t[0] * e1[1] - t[1] * e1[0]};
        const double b = (way[0] * q[0] + way[1] * q[1] + way[2] * q[2]) / determinant;
        const double distance = (e2[0] * q[0] + e2[1] * q[1] + e2[2] * q[2]) / determinant;
        if (b >= 0.0 && a + b <= 1.0 && distance > 0.01) {
            return true;
        }
    }
    return false;
}

struct Day {
    int month, day;
    bool refraction;
};

/// Looks at the middle of each second of the path, in order.
struct Looks {
    std::vector<double> times;
    std::vector<bool> free;

    double minutes() const {
        return second * static_cast<double>(std::count(free.begin(), free.end(), true));
    }
};

template <typename IsFree>
Looks lookEverySecond(const SunPath& path, const IsFree& isFree) {
    Looks looks;
    for (const TimeSpan& span : path.spans()) {
        for (double time = span.begin + 0.5 * second; time < span.end; time += second) {
            looks.times.push_back(time);
            looks.free.push_back(isFree(time));
        }
    }
    return looks;
}

/// The same with twenty exact looks in each second that is near a change of either.
template <typename IsFree>
double exactMinutes(const Looks& looks, const std::vector<TimeSpan>& found, const IsFree& isFree) {
    constexpr std::size_t near = 3; // seconds
    constexpr int parts = 20;
    double sum = 0.0;
    for (std::size_t i = 0; i < looks.times.size(); ++i) {
        const double time = looks.times[i];
        const auto isNear = [&](double change) {
            return std::fabs(change - time) <= static_cast<double>(near) * second;
        };
        bool isOpen = std::any_of(found.begin(), found.end(), [&](const TimeSpan& span) {
            return isNear(span.begin) || isNear(span.end);
        });
        for (std::size_t k = i > near ? i - near : 0;
             k <= std::min(i + near, looks.times.size() - 1); ++k) {
            isOpen = isOpen || looks.free[k] != looks.free[i];
        }
        for (int part = 0; isOpen && part < parts; ++part) {
            sum += isFree(time + ((part + 0.5) / parts - 0.5) * second) ? second / parts : 0.0;
        }
        sum += !isOpen && looks.free[i] ? second : 0.0;
    }
    return sum;
}

Direction directionOf(const XYZf& v) {
    return {v.x, v.y, v.z};
}

void againstRays(const scenes::Scene& scene, const Site& site, double north, const Day& date,
                 bool showWorst) {
    const SkyAxes axes{site.latitude, north};
    const SunlightIndex index(scene.coordinates, axes);
    const OcclusionIndex rays(scene.coordinates);
    const SunPath::Sun sun = sunOfDate(2025, date.month, date.day, site, date.refraction);
    const SunPath path(sun, wholeDay, axes);
    const std::size_t count = scene.sensors.size();
    std::vector<double> found(count);
    std::vector<double> differences(count);
    std::vector<std::size_t> order(count);
    std::atomic<int> decided{0};
    SunlightIndex::Workspace workspace;
    std::vector<TimeSpan> lit;
    const auto start = std::chrono::steady_clock::now();
    for (std::size_t i = 0; i < count; ++i) {
        const Direction facing = directionOf(scene.normals[i]);
        index.sunlight(directionOf(scene.sensors[i]), {&facing, 1}, path, workspace, lit);
    }
    const double micros =
        std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
            .count() /
        static_cast<double>(count);
    // The sun's direction where it stands before the sensor's surface.
    const auto sunBefore = [&](std::size_t sensor, double time) {
        const Direction s = axes.model(sun(time));
        const Direction n = directionOf(scene.normals[sensor]);
        return s[0] * n[0] + s[1] * n[1] + s[2] * n[2] > 0.0 ? std::optional(s) : std::nullopt;
    };
    const auto looksAt = [&](std::size_t sensor) {
        return lookEverySecond(path, [&](double time) {
            const auto s = sunBefore(sensor, time);
            return s && !rays.isOccluded(scene.sensors[sensor],
                                         {static_cast<float>((*s)[0]), static_cast<float>((*s)[1]),
                                          static_cast<float>((*s)[2])});
        });
    };
    tbb::parallel_for(std::size_t{0}, count, [&](std::size_t i) {
        const Direction facing = directionOf(scene.normals[i]);
        const auto spans = index.sunlight(directionOf(scene.sensors[i]), {&facing, 1}, path);
        const double sampled = looksAt(i).minutes();
        found[i] = sumOf(spans);
        differences[i] = std::fabs(found[i] - sampled);
        order[i] = i;
        decided += decidesRightly(spans, sampled) ? 1 : 0;
    });
    std::sort(order.begin(), order.end(),
              [&](std::size_t a, std::size_t b) { return differences[a] < differences[b]; });
    const auto quantile = [&](double share) {
        const auto place = static_cast<std::size_t>(std::ceil(share * static_cast<double>(count)));
        return differences[order[place - 1]];
    };
    const auto within = std::count_if(differences.begin(), differences.end(),
                                      [](double difference) { return difference <= 0.1; });
    std::printf("| %s | %d/%d%s | %zu | %.3f | %.3f | %.3f | %.3f | %.1f %% | %d | %.0f |\n",
                scene.name.c_str(), date.month, date.day, date.refraction ? ", refraction" : "",
                count, quantile(0.5), quantile(0.99), quantile(0.999), quantile(1.0),
                100.0 * static_cast<double>(within) / static_cast<double>(count), decided.load(),
                micros);
    std::fflush(stdout);
    constexpr std::size_t mostShown = 3;
    for (std::size_t k = 0; showWorst && k < std::min(mostShown, count); ++k) {
        const std::size_t i = order[count - 1 - k];
        const Direction origin = directionOf(scene.sensors[i]);
        const Direction facing = directionOf(scene.normals[i]);
        const auto spans = index.sunlight(origin, {&facing, 1}, path);
        const double exact = exactMinutes(looksAt(i), spans, [&](double time) {
            const auto s = sunBefore(i, time);
            return s && !isHidden(scene.coordinates, origin, *s);
        });
        std::printf("  sensor %zu: found %.4f, a ray a second differs by %.4f, exact rays by "
                    "%+.4f minutes\n",
                    i, found[i], differences[i], found[i] - exact);
        std::fflush(stdout);
    }
}

/// The made city of the tests; sensors on all its surfaces, leaves and blinds among them.
scenes::Scene madeCity(std::size_t sensors) {
    scenes::Scene scene;
    scene.name = "made city";
    std::mt19937 random(5);
    scene.coordinates = test::madeCity(random);
    test::Scene ground;
    test::addQuad(ground, {-20, -20, 0}, {200, 0, 0}, {0, 200, 0});
    const std::size_t first = scene.triangleCount();
    scene.coordinates.insert(scene.coordinates.end(), ground.begin(), ground.end());
    scenes::Random place(7);
    while (scene.sensors.size() < sensors) {
        // Half of them on the ground.
        const bool isGround = scene.sensors.size() % 2 == 0;
        scenes::addSurfaceSensor(scene, place, isGround ? first : 0,
                                 isGround ? scene.triangleCount() : first);
    }
    return scene;
}

void rays(const std::string& folder, bool showWorst) {
    constexpr std::size_t sensors = 1000;
    std::printf("Differences to a ray a second, in minutes; decisions a minute to either side that "
                "are right; microseconds a sensor on one thread.\n\n"
                "| scene | day | sensors | median | 99 %% | 99.9 %% | worst | within 0.1 | right | "
                "us |\n|---|---|---|---|---|---|---|---|---|---|\n");
    const scenes::Scene lyon = scenes::lyon(folder, sensors);
    const scenes::Scene city = madeCity(sensors);
    for (const Day& day :
         {Day{3, 21, false}, Day{6, 21, false}, Day{12, 21, false}, Day{2, 21, true}}) {
        if (!lyon.coordinates.empty()) {
            againstRays(lyon, {45.76, 4.84, 1.0, 0.0}, 0.0, day, showWorst);
        }
        againstRays(city, {49.5, 8.5, 1.0, 0.0}, 0.4, day, showWorst);
    }
}

} // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> sections(argv + std::min(argc, 2), argv + argc);
    const auto isWanted = [&](const char* name) {
        return sections.empty() ||
               std::find(sections.begin(), sections.end(), name) != sections.end();
    };
    const bool showWorst = !sections.empty() && isWanted("worst");
    if (argc < 2) {
        std::fprintf(stderr, "usage: bench_sun_hours <folder with meshes/lyon_*.obj> [exact] "
                             "[rays] [worst]\n");
        return 2;
    }
    if (isWanted("exact")) {
        exactCases();
    }
    if (isWanted("rays") || showWorst) {
        rays(argv[1], showWorst);
    }
    return 0;
}
