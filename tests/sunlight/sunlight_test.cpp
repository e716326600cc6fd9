#include <insolate/rt/occlusion_index.h>
#include <insolate/sunlight/span_set.h>
#include <insolate/sunlight/sunlight_index.h>

#include "tests/rt/scenes.h"
#include "tests/sunlight/sunlight_cases.h"

#include <cmath>
#include <functional>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>

namespace insolate::test {
namespace {

constexpr double degree = std::numbers::pi / 180.0;
constexpr double tenth = 0.1; // minutes: what the search promises
constexpr TimeSpan wholeDay{0.0, 1440.0};
constexpr double endless = 1.0e8; // metres

double sumOf(const std::vector<TimeSpan>& spans) {
    double sum = 0.0;
    for (const TimeSpan& span : spans) {
        sum += span.length();
    }
    return sum;
}

/// Spans at the origin with a sun of constant declination, in minutes of solar time.
std::vector<TimeSpan> litAt(double latitude, double declination, const Scene& scene,
                            std::vector<Direction> facings = {}, double leastAltitude = 0.0) {
    const SkyAxes axes{latitude, 0.0};
    const SunPath path(sunOfDeclination(declination * degree, latitude * degree), wholeDay, axes,
                       leastAltitude * degree);
    return SunlightIndex(scene, axes).sunlight({0.0, 0.0, 0.0}, facings, path);
}

TEST(SpanSet, JoinsSpansThatTouchInAnyOrder) {
    for (const bool isLaterFirst : {false, true}) {
        SpanSet set;
        set.add(isLaterFirst ? TimeSpan{10, 20} : TimeSpan{0, 10});
        set.add(isLaterFirst ? TimeSpan{0, 10} : TimeSpan{10, 20});
        EXPECT_TRUE(set.covers(0, 20)) << isLaterFirst;
    }
}

TEST(Sunlight, AgreesWithClosedForms) {
    for (const SunlightCase& one : sunlightCases()) {
        SCOPED_TRACE(one.what);
        const std::vector<TimeSpan> lit = litAt(one.latitude, one.declination, one.obstacle.scene,
                                                one.facings, one.leastAltitude);
        ASSERT_EQ(lit.size(), one.lit.size());
        for (std::size_t i = 0; i < lit.size(); ++i) {
            // Most of the figures are rounded to a second.
            EXPECT_NEAR(lit[i].begin, one.lit[i].begin, 0.02);
            EXPECT_NEAR(lit[i].end, one.lit[i].end, 0.02);
        }
    }
}

// The real sun, whose declination drifts, with and without the air: chords against the ephemeris.
TEST(Sunlight, FollowsTheRealSun) {
    const struct {
        double latitude, longitude, timeZone;
        int month, day;
        bool refraction;
    } cases[] = {{52.0, 5.0, 1.0, 3, 21, false},
                 {52.0, 5.0, 1.0, 3, 21, true},
                 {68.0, 20.0, 1.0, 6, 21, true},
                 {-33.9, 151.2, 10.0, 6, 21, false},
                 {1.3, 103.8, 8.0, 12, 21, true}};
    for (const auto& one : cases) {
        SCOPED_TRACE(one.latitude);
        const Site site{one.latitude, one.longitude, one.timeZone, 0.0};
        const SkyAxes axes{one.latitude, 0.0};
        const SunPath::Sun sun = sunOfDate(2025, one.month, one.day, site, one.refraction);
        Scene scene;
        const double side = one.latitude > 0.0 ? -1.0 : 1.0;
        addWall(scene, side * 5.0, endless, 3.0);
        const SunPath path(sun, wholeDay, axes, 4.0 * degree);
        const double wanted = minutesAbove(sun, [&](const Direction& s) {
            const double clear = 5.0 * s[2] - 3.0 * side * s[1];
            return std::min(s[2] - std::sin(4.0 * degree), side * s[1] > 0.0 ? clear : 1.0);
        });
        const double found = sumOf(SunlightIndex(scene, axes).sunlight({0, 0, 0}, {}, path));
        EXPECT_GT(wanted, 30.0);
        EXPECT_NEAR(found, wanted, 0.03);
    }
}

// Around a culmination the sun may be up for less than the two minutes between looks.
TEST(Sunlight, FindsTheShortestAppearances) {
    const SkyAxes axes{60.0, 0.0};
    const double noon = 90.0 - 60.0 - 20.0; // degrees
    for (const double wanted : {0.5, 1.5, 5.0}) {
        const SunPath::Sun sun = sunOfDeclination(-20.0 * degree, 60.0 * degree);
        const Direction at = sun(720.0 + wanted / 2.0);
        const SunPath path(sun, {1.0, 1440.0}, axes, std::asin(at[2]));
        EXPECT_LT(std::asin(at[2]), noon * degree);
        EXPECT_NEAR(sumOf(path.spans()), wanted, 0.01);
    }
    // And below the horizon for as short at midnight, in summer.
    const SunPath::Sun sun = sunOfDeclination(20.0 * degree, 70.0 * degree);
    const double low = std::asin(sun(1440.0 + 0.5)[2]);
    const SunPath path(sun, {720.0, 2160.0}, {70.0, 0.0}, low);
    EXPECT_NEAR(1440.0 - sumOf(path.spans()), 1.0, 0.01);
}

// The slow twin: the ray caster's own rays, one for every second of the day.
TEST(Sunlight, AgreesWithARayForEverySecond) {
    std::mt19937 random(5);
    const Scene scene = madeCity(random);
    const SkyAxes axes{49.5, 0.4};
    const Site site{49.5, 8.5, 1.0, 0.0};
    const SunlightIndex index(scene, axes);
    const OcclusionIndex rays(scene);
    std::uniform_real_distribution<float> place(0.0f, 160.0f);
    double worst = 0.0;
    for (int i = 0; i < 24; ++i) {
        const SunPath::Sun sun = sunOfDate(2025, i % 2 == 0 ? 3 : 12, 21, site, i % 3 == 0);
        const SunPath path(sun, wholeDay, axes, 2.0 * degree);
        XYZf origin{place(random), place(random), i % 4 == 0 ? 5.3f : 0.02f};
        if (i < 6) { // behind a blind
            origin = {48.0f + 0.3f * static_cast<float>(i), 2.0f, 1.0f};
        }
        const Direction facing = i % 4 == 0 ? Direction{0.3, -1.0, 0.1} : Direction{0.0, 0.0, 1.0};
        const double found =
            sumOf(index.sunlight({origin.x, origin.y, origin.z}, {&facing, 1}, path));
        double counted = 0.0;
        constexpr double second = 1.0 / 60.0;
        for (const TimeSpan& span : path.spans()) {
            for (double time = span.begin + 0.5 * second; time < span.end; time += second) {
                const Direction s = axes.model(sun(time));
                const double before = s[0] * facing[0] + s[1] * facing[1] + s[2] * facing[2];
                const XYZf towards{static_cast<float>(s[0]), static_cast<float>(s[1]),
                                   static_cast<float>(s[2])};
                counted += before > 0.0 && !rays.isOccluded(origin, towards) ? second : 0.0;
            }
        }
        worst = std::max(worst, std::fabs(found - counted));
        EXPECT_NEAR(found, counted, tenth) << "sensor " << i;
    }
    RecordProperty("worst minutes", std::to_string(worst));
}

// Turning the scene and north together, or moving all far away, changes nothing.
TEST(Sunlight, DoesNotDependOnTheModelsAxes) {
    std::mt19937 random(9);
    const Scene scene = madeCity(random);
    const Site site{49.5, 8.5, 1.0, 0.0};
    const SunPath::Sun sun = sunOfDate(2025, 2, 20, site, false);
    const SkyAxes straight{49.5, 0.0};
    const SkyAxes turned{49.5, 1.1};
    const auto moved = [&](double x, double y, double z) {
        return Vector3d{x * std::cos(1.1) + y * std::sin(1.1) + 3.1e5,
                        y * std::cos(1.1) - x * std::sin(1.1) + 5.4e6, z};
    };
    Scene other;
    for (std::size_t i = 0; i < scene.size(); i += 3) {
        const Vector3d p = moved(scene[i], scene[i + 1], scene[i + 2]);
        other.insert(other.end(), p.begin(), p.end());
    }
    const SunlightIndex index(scene, straight);
    const SunlightIndex otherIndex(other, turned);
    const SunPath path(sun, wholeDay, straight);
    const SunPath otherPath(sun, wholeDay, turned);
    for (const Vector3d& origin :
         {Vector3d{20, 35, 0.1}, Vector3d{65, 36, 0.1}, Vector3d{49, 2, 1}}) {
        const Vector3d there = moved(origin[0], origin[1], origin[2]);
        EXPECT_NEAR(sumOf(index.sunlight(origin, {}, path)),
                    sumOf(otherIndex.sunlight(there, {}, otherPath)), 1.0e-3);
    }
    EXPECT_TRUE(index.sunlight({20, 35, 0.1}, {}, otherPath).empty()) << "a path of other axes";
}

TEST(Sunlight, TakesAHitForWhatTheRayCasterTakesIt) {
    const auto above = [](double height) {
        Scene scene;
        addQuad(scene, {-1.0, -1.0, height}, {2.0, 0.0, 0.0}, {0.0, 2.0, 0.0});
        return scene;
    };
    const auto noon = [](const Scene& scene) {
        const SkyAxes axes{0.0, 0.0};
        const SunPath path(sunOfDeclination(0.0, 0.0), {700.0, 740.0}, axes);
        return sumOf(SunlightIndex(scene, axes).sunlight({0.0, 0.0, 0.0}, {}, path));
    };
    EXPECT_NEAR(noon(above(0.0099)), 40.0, 0.2) << "nearer than 0.01";
    EXPECT_EQ(noon(above(0.011)), 0.0);
    EXPECT_NEAR(noon(above(-0.011)), 40.0, 1e-9) << "behind the sensor";
    Scene far = above(0.5);
    far.insert(far.end(), {2.0e9, 0, 0, 0, 2.0e9, 1, 0, 0, 1});
    far.insert(far.end(), {std::nan(""), 0, 0, 0, 1, 0, 1, 0, 0});
    EXPECT_EQ(noon(far), 0.0);
    EXPECT_TRUE(SunlightIndex(SkyAxes{}).sunlight({std::nan(""), 0, 0}, {}, SunPath()).empty());
}

// A union of spans does not depend on the order in which they come.
TEST(SpanSet, IsTheUnionInAnyOrder) {
    std::mt19937 random(3);
    std::uniform_int_distribution<int> place(0, 999);
    for (int round = 0; round < 200; ++round) {
        std::vector<bool> covered(1000, false);
        SpanSet set;
        for (int i = 0; i < 12; ++i) {
            const int begin = place(random);
            const int end = std::min(1000, begin + 1 + place(random) / 12);
            std::fill(covered.begin() + begin, covered.begin() + end, true);
            // A crack that counts as closed.
            set.add({begin + 0.4 * SpanSet::closedGap, static_cast<double>(end)});
        }
        std::vector<TimeSpan> gaps;
        set.appendGaps(0.0, 1000.0, gaps);
        std::vector<bool> open(1000, false);
        for (const TimeSpan& gap : gaps) {
            for (int i = static_cast<int>(gap.begin + 0.5); i + 0.5 < gap.end; ++i) {
                open[static_cast<std::size_t>(i)] = true;
            }
        }
        covered.flip();
        EXPECT_EQ(open, covered);
    }
}

} // namespace
} // namespace insolate::test
