// What glass and crowns let through, against closed forms and direct evaluation.

#include <insolate/rt/light_scene.h>

#include <bench/scenes.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <vector>

namespace {

using namespace insolate;
using scenes::Point;
using scenes::Scene;

constexpr double degrees = std::numbers::pi / 180;

float cosineOf(double angle) {
    return static_cast<float>(std::cos(angle * degrees));
}

Material made(Material::Passage passage, SeasonalValue passing, float reflectance = 0.2f) {
    Material material;
    material.passage = passage;
    material.passing = std::move(passing);
    material.reflectance = reflectance;
    return material;
}

TEST(PaneGlass, FollowsFresnelAtAllAngles) {
    // Duffie and Beckman's one cover of index 1.526 with an extinction times thickness of 0.045,
    // worked out independently: transmittance and reflectance.
    const PaneGlass pane(0.876f);
    const struct {
        double angle, transmitted, reflected;
    } table[] = {{0, 0.876, 0.080},
                 {40, 0.864, 0.088},
                 {60, 0.796, 0.151},
                 {70, 0.680, 0.265},
                 {80, 0.421, 0.524}};
    for (const auto& row : table) {
        const PaneGlass::Shares shares = pane.at(cosineOf(row.angle));
        EXPECT_NEAR(shares.transmitted, row.transmitted, 1e-3) << row.angle;
        EXPECT_NEAR(shares.reflected, row.reflected, 1e-3) << row.angle;
    }
    EXPECT_NEAR(pane.hemispherical().transmitted, 0.802, 1e-3);
    EXPECT_NEAR(pane.hemispherical().reflected, 0.149, 1e-3);
}

TEST(PaneGlass, KeepsItsTransmittanceAtNormalIncidenceAndLosesNothing) {
    for (const float index : {1.0f, 1.3f, 1.526f, 2.4f}) {
        for (const float transmittance : {0.0f, 0.05f, 0.4f, 0.65f}) {
            const PaneGlass pane(transmittance, index);
            EXPECT_NEAR(pane.at(1).transmitted, transmittance, 1e-6);
            for (double angle = 0; angle <= 90; angle += 5) {
                const PaneGlass::Shares shares = pane.at(cosineOf(angle));
                EXPECT_GE(shares.transmitted, 0.0f);
                EXPECT_LE(shares.transmitted + shares.reflected, 1.00001f);
            }
        }
    }
    // Glass that absorbs nothing: all light is either reflected or transmitted.
    const PaneGlass clear(1.0f);
    for (double angle = 0; angle < 90; angle += 7) {
        const PaneGlass::Shares shares = clear.at(cosineOf(angle));
        EXPECT_NEAR(shares.transmitted + shares.reflected, 1.0, 1e-5);
    }
    EXPECT_FLOAT_EQ(clear.at(0).transmitted, 0.0f);
}

TEST(SeasonalValue, ChangesOnItsDays) {
    const SeasonalValue north = SeasonalValue::leafSeason(0.1f, 0.6f, 105, 304);
    const SeasonalValue south = SeasonalValue::leafSeason(0.1f, 0.6f, 280, 118);
    const SeasonalValue months = SeasonalValue::monthly({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
    const struct {
        int day;
        float north, south, month;
    } table[] = {{1, 0.6f, 0.1f, 1},    {31, 0.6f, 0.1f, 1},   {32, 0.6f, 0.1f, 2},
                 {104, 0.6f, 0.1f, 4},  {105, 0.1f, 0.1f, 4},  {118, 0.1f, 0.1f, 4},
                 {119, 0.1f, 0.6f, 4},  {279, 0.1f, 0.6f, 10}, {280, 0.1f, 0.1f, 10},
                 {304, 0.1f, 0.1f, 10}, {305, 0.6f, 0.1f, 11}, {365, 0.6f, 0.1f, 12}};
    for (const auto& row : table) {
        EXPECT_EQ(north.on(row.day), row.north) << row.day;
        EXPECT_EQ(south.on(row.day), row.south) << row.day;
        EXPECT_EQ(months.on(row.day), row.month) << row.day;
    }
    EXPECT_EQ(months.lowest(), 1.0f);
    EXPECT_EQ(months.highest(), 12.0f);
}

void addBox(Scene& scene, const Point& low, const Point& high, bool outward = true) {
    const auto corner = [&](int i) {
        return Point{(i & 1) != 0 ? high[0] : low[0], (i & 2) != 0 ? high[1] : low[1],
                     (i & 4) != 0 ? high[2] : low[2]};
    };
    const int faces[6][4] = {{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4},
                             {2, 6, 7, 3}, {0, 4, 6, 2}, {1, 3, 7, 5}};
    for (const auto& face : faces) {
        if (outward) {
            scenes::addQuad(scene, corner(face[0]), corner(face[1]), corner(face[2]),
                            corner(face[3]));
        } else {
            scenes::addQuad(scene, corner(face[3]), corner(face[2]), corner(face[1]),
                            corner(face[0]));
        }
    }
}

/// The path of a ray within a box, by its slabs.
double pathInBox(const XYZf& origin, const XYZf& direction, const Point& low, const Point& high) {
    double from = 0;
    double to = std::numeric_limits<double>::infinity();
    const double o[3] = {origin.x, origin.y, origin.z};
    const double d[3] = {direction.x, direction.y, direction.z};
    for (std::size_t k = 0; k < 3; ++k) {
        const double a = (low[k] - o[k]) / d[k];
        const double b = (high[k] - o[k]) / d[k];
        from = std::max(from, std::min(a, b));
        to = std::min(to, std::max(a, b));
    }
    return std::max(to - from, 0.0);
}

TEST(LightScene, WeakensByThePathThroughCrowns) {
    // Two crowns that overlap, one of them inside out, and one far from the origin.
    const struct {
        Point low, high;
        bool outward;
    } boxes[] = {{{-3, -3, 2}, {3, 3, 8}, true},
                 {{1, -2, 4}, {7, 2, 9}, false},
                 {{1000, 1000, 2}, {1004, 1004, 6}, true}};
    Scene scene;
    for (const auto& box : boxes) {
        addBox(scene, box.low, box.high, box.outward);
    }
    constexpr double extinction = 0.17;
    const LightScene light(
        scene.coordinates, std::vector<std::uint16_t>(scene.triangleCount(), 0),
        {made(Material::Passage::Crown, SeasonalValue(static_cast<float>(extinction)))});
    EXPECT_EQ(light.openCrowns(), 0U);
    EXPECT_EQ(light.opaque().triangleCount(), 0U);
    scenes::Random random(3);
    int inside = 0;
    for (int i = 0; i < 4000; ++i) {
        const double shift = i % 8 == 0 ? 1002 : 0;
        const XYZf origin =
            scenes::toXyz({shift + random(-9, 9), shift + random(-9, 9), random(-1, 11)});
        const double up = random(-1, 1);
        const double turn = random(0, 2 * std::numbers::pi);
        const double flat = std::sqrt(1 - up * up);
        const XYZf direction = scenes::toXyz({flat * std::cos(turn), flat * std::sin(turn), up});
        double path = 0;
        for (const auto& box : boxes) {
            path += pathInBox(origin, direction, box.low, box.high);
            inside += pathInBox(origin, direction, box.low, box.high) > 0 ? 1 : 0;
        }
        EXPECT_NEAR(light.transmittance(origin, direction, 0), std::exp(-extinction * path), 2e-3);
    }
    EXPECT_GT(inside, 400);
    // Up to a surface within the crown only that far.
    EXPECT_NEAR(light.transmittance({0.3f, 0.1f, 0}, {0, 0, 1}, 0, 5.0), std::exp(-extinction * 3),
                1e-5);
    EXPECT_NEAR(light.transmittance({0.3f, 0.1f, 5}, {0, 0, 1}, 0, 1.0), std::exp(-extinction),
                1e-5);
}

TEST(LightScene, TellsCrownsApartThatTouch) {
    // Two crowns of one kind side by side, wall against wall; one in front that shares a corner
    // with the first and overlaps the second; another kind on top of them; and a triangle of no
    // place.
    const struct {
        Point low, high;
        std::uint16_t material;
    } boxes[] = {{{0, 0, 2}, {4, 4, 6}, 0},
                 {{4, 0, 2}, {8, 4, 6}, 0},
                 {{4, -3, 2}, {7, 4, 5}, 0},
                 {{0, 0, 6}, {4, 4, 9}, 1}};
    Scene scene;
    std::vector<std::uint16_t> materials;
    for (const auto& box : boxes) {
        addBox(scene, box.low, box.high);
        materials.resize(scene.triangleCount(), box.material);
    }
    scene.coordinates.insert(scene.coordinates.end(), 9, std::numeric_limits<double>::quiet_NaN());
    materials.push_back(1);
    const double extinctions[] = {0.2, 0.5};
    const LightScene light(
        scene.coordinates, materials,
        {made(Material::Passage::Crown, 0.2f), made(Material::Passage::Crown, 0.5f)});
    EXPECT_EQ(light.openCrowns(), 0U);
    scenes::Random random(4);
    for (int i = 0; i < 4000; ++i) {
        const XYZf origin = scenes::toXyz({random(-4, 12), random(-6, 8), random(0, 11)});
        const double up = random(-1, 1);
        const double turn = random(0, 2 * std::numbers::pi);
        const double flat = std::sqrt(1 - up * up);
        const XYZf direction = scenes::toXyz({flat * std::cos(turn), flat * std::sin(turn), up});
        double depth = 0;
        for (const auto& box : boxes) {
            depth += extinctions[box.material] * pathInBox(origin, direction, box.low, box.high);
        }
        ASSERT_NEAR(light.transmittance(origin, direction, 0), std::exp(-depth), 5e-3)
            << origin.x << " " << origin.y << " " << origin.z << " to " << direction.x << " "
            << direction.y << " " << direction.z;
    }
    // From within what overlaps, and up to a surface there.
    EXPECT_NEAR(light.transmittance({5, 2, 4}, {0, -1, 0}, 0), std::exp(-0.2 * (2 + 5)), 1e-5);
    EXPECT_NEAR(light.transmittance({5, 2, 4}, {0, -1, 0}, 0, 3), std::exp(-0.2 * (2 + 3)), 1e-5);
}

TEST(LightScene, FindsHullsThatAreNotClosed) {
    Scene scene;
    addBox(scene, {0, 0, 0}, {1, 1, 1});
    const std::size_t closed = scene.triangleCount();
    addBox(scene, {2, 0, 0}, {3, 1, 1});
    scene.coordinates.resize(scene.coordinates.size() - 9);
    addBox(scene, {4, 0, 0}, {5, 1, 1});
    std::swap(scene.coordinates[scene.coordinates.size() - 3],
              scene.coordinates[scene.coordinates.size() - 6]);
    std::swap(scene.coordinates[scene.coordinates.size() - 2],
              scene.coordinates[scene.coordinates.size() - 5]);
    std::swap(scene.coordinates[scene.coordinates.size() - 1],
              scene.coordinates[scene.coordinates.size() - 4]);
    const std::vector<Material> crown{made(Material::Passage::Crown, 0.3f)};
    EXPECT_EQ(LightScene(std::span(scene.coordinates).first(9 * closed),
                         std::vector<std::uint16_t>(closed, 0), crown)
                  .openCrowns(),
              0U);
    const LightScene light(scene.coordinates, std::vector<std::uint16_t>(scene.triangleCount(), 0),
                           crown);
    EXPECT_EQ(light.openCrowns(), 2U); // a hole, and a triangle turned around
    // What is entered and left through a hole counts nothing, whatever stands behind.
    Scene sheet;
    scenes::addQuad(sheet, {-1, -1, 1}, {-1, 1, 1}, {1, 1, 1}, {1, -1, 1});
    const LightScene open(sheet.coordinates, std::vector<std::uint16_t>(2, 0), crown);
    EXPECT_EQ(open.openCrowns(), 1U);
    EXPECT_EQ(open.transmittance({0.1f, 0.2f, 0}, {0, 0, 1}, 0), 1.0f);
    EXPECT_EQ(open.transmittance({0.1f, 0.2f, 0}, {0, 0, 1}, 0, 5.0), 1.0f);
}

TEST(LightScene, MultipliesWhatARayCrosses) {
    // Ten panes in a row, a screen of leaves, and an opaque roof over a part.
    Scene scene;
    std::vector<std::uint16_t> materials;
    const auto addSheet = [&](double z, double from, std::uint16_t material) {
        scenes::addQuad(scene, {from, -500, z}, {500, -500, z}, {500, 500, z}, {from, 500, z});
        materials.insert(materials.end(), 2, material);
    };
    for (int i = 0; i < 10; ++i) {
        addSheet(1.0 + 0.02 * i, -500, 0);
    }
    addSheet(2, -500, 1);
    addSheet(3, 200, 9); // a place without a material
    const LightScene light(
        scene.coordinates, materials,
        {made(Material::Passage::Pane, 0.9f),
         made(Material::Passage::Leaves, SeasonalValue::leafSeason(0.12f, 0.55f, 105, 304))});
    EXPECT_EQ(light.opaque().triangleCount(), 2U);
    EXPECT_EQ(light.translucent().triangleCount(), 22U);
    EXPECT_FLOAT_EQ(light.materials()[light.surface(0).material].reflectance, 0.2f);
    EXPECT_FLOAT_EQ(light.surface(0).normal.z, 1.0f);

    ASSERT_EQ(light.seasons().count, 2);
    const int january = light.seasons().ofDay[0];
    const int july = light.seasons().ofDay[200];
    EXPECT_EQ(light.seasons().ofDay[364], january);
    EXPECT_NE(january, july);
    const PaneGlass pane(0.9f);
    for (const double angle : {0.5, 30.0, 60.0, 80.0}) {
        const XYZf direction = {-std::sin(static_cast<float>(angle * degrees)) * 0.8f,
                                std::sin(static_cast<float>(angle * degrees)) * 0.6f,
                                cosineOf(angle)};
        const double panes = std::pow(pane.at(direction.z).transmitted, 10);
        std::vector<float> both(2);
        light.transmittances({0.1f, 0.2f, 0}, direction, both);
        EXPECT_NEAR(both[static_cast<std::size_t>(january)], 0.55 * panes, 1e-5);
        EXPECT_NEAR(both[static_cast<std::size_t>(july)], 0.12 * panes, 1e-5);
        EXPECT_EQ(light.transmittance({0.1f, 0.2f, 0}, direction, july),
                  both[static_cast<std::size_t>(july)]);
        // From above the panes only the leaves are left.
        EXPECT_NEAR(light.transmittance({0.1f, 0.2f, 1.5f}, direction, january), 0.55, 1e-6);
    }
    LightSceneTransparency rays(light, july);
    EXPECT_NEAR(rays.getTransparencyValue({0.1f, 0.2f, 1.5f}, {0, 0, 1}, nullptr), 0.12, 1e-6);
    EXPECT_EQ(rays.getTransparencyValue({300.1f, 0.2f, 1.5f}, {0, 0, 1}, nullptr), 0.0f);
}

} // namespace
