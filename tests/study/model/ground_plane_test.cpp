#include "study/model/ground_plane.h"
#include "study/model/sensor_grid.h"
#include "tests/study/support/study_fixture.h"
#include "tests/study/support/test_mesh.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <numeric>

namespace insolate::study {
namespace {

using testing::HasSubstr;
using Faces = std::vector<std::vector<Vector3>>;

Scene sceneOf(const Faces& faces) {
    Scene scene;
    appendTriangles(test::meshOf(faces), scene);
    return scene;
}

/// Cells of 1 m on a lawn of 20 by 10, seen from above from south to north: a dot for each sensor.
std::vector<std::string> mapOf(const GroundPlaneSensors& sensors) {
    std::vector<std::string> rows(10, std::string(20, '#'));
    for (const Vector3& p : sensors.field.positions) {
        rows.at(static_cast<std::size_t>(p.y)).at(static_cast<std::size_t>(p.x)) = '.';
    }
    return rows;
}

TEST(GroundPlane, LeavesOutWhatLiesInBuildings) {
    const Faces lawn = {{{0, 0, 0}, {20, 0, 0}, {20, 10, 0}, {0, 10, 0}}};
    const Faces house = test::boxFaces({2, 1, 0}, {6, 5, 6});
    Faces open = test::boxFaces({8, 1, 0}, {14, 5, 6}); // without a floor
    open.erase(open.begin());
    // The roof is a part of its own, whose corners are not those of the walls.
    Faces loose = open;
    loose[0] = {{7.9, 0.9, 6}, {14.1, 0.9, 6}, {14.1, 5.1, 6}, {7.9, 5.1, 6}};
    const Faces carport = {{{1, 6, 2.5}, {9, 6, 2.5}, {9, 9, 2.5}, {1, 9, 2.5}}};
    // A row of houses, each with its own copy of the shared walls.
    Faces row;
    for (const double x : {8.0, 11.0, 14.0}) {
        const Faces one = test::boxFaces({x, 1, 0}, {x + 3, 5, 6});
        row.insert(row.end(), one.begin(), one.end());
    }
    const auto hole = [](std::vector<std::string> rows, int x0, int x1) {
        for (std::size_t y = 1; y < 5; ++y) {
            std::fill(rows[y].begin() + x0, rows[y].begin() + x1, '#');
        }
        return rows;
    };
    const std::vector<std::string> empty(10, std::string(20, '.'));
    struct Case {
        const char* name;
        std::vector<Faces> parts;
        std::vector<std::string> map;
    };
    for (const Case& c :
         std::vector<Case>{{"closed", {lawn, house}, hole(empty, 2, 6)},
                           {"no floor", {lawn, open}, hole(empty, 8, 14)},
                           {"loose roof", {lawn, loose}, hole(empty, 8, 14)},
                           {"carport", {lawn, carport}, empty},
                           {"all", {carport, open, lawn, house}, hole(hole(empty, 2, 6), 8, 14)}}) {
        Faces all;
        for (const Faces& part : c.parts) {
            all.insert(all.end(), part.begin(), part.end());
        }
        // The winding of whole parts does not matter.
        for (const bool isTurned : {false, true}) {
            for (auto& polygon : all) {
                if (isTurned) {
                    std::reverse(polygon.begin(), polygon.end());
                }
            }
            const auto sensors = cutGroundPlane({.z = 1.5, .grid = 1.0}, sceneOf(all));
            EXPECT_EQ(mapOf(sensors), c.map) << c.name << isTurned;
            EXPECT_EQ(sensors.field.size() + sensors.inside, 200U);
        }
    }
    // Above the houses everything is free, below the lawn nothing.
    const Scene scene =
        sceneOf({lawn[0], house[0], house[1], house[2], house[3], house[4], house[5]});
    EXPECT_EQ(cutGroundPlane({.z = 6.5, .grid = 1.0}, scene).field.size(), 200U);
    EXPECT_EQ(cutGroundPlane({.z = -0.5, .grid = 1.0}, scene).buried, 200U);
}

TEST(GroundPlane, CrownsOfLooseLeavesAreNoBuildings) {
    Faces faces = {{{0, 0, 0}, {20, 0, 0}, {20, 10, 0}, {0, 10, 0}}};
    for (int layer = 0; layer < 6; ++layer) {
        const double z = 3.5 + 0.5 * layer;
        for (double x = 10.0 + 0.1 * layer; x < 18.0; x += 0.9) {
            for (double y = 1.0 + 0.1 * layer; y < 9.0; y += 0.9) {
                faces.push_back({{x, y, z}, {x + 0.8, y, z + 0.2}, {x + 0.4, y + 0.8, z}});
            }
        }
    }
    EXPECT_EQ(cutGroundPlane({.z = 1.5, .grid = 1.0}, sceneOf(faces)).field.size(), 200U);
}

TEST(GroundPlane, WallsOfAWideHallCountThoughTheyHideLittle) {
    // 100 by 100 by 6 m, of walls and a roof that do not touch.
    constexpr double gap = 0.02;
    Faces faces = test::boxFaces({0, 0, 0}, {100, 100, 6});
    for (std::size_t i = 0; i < faces.size(); ++i) {
        for (Vector3& p : faces[i]) {
            const Vector3 middle{50, 50, 3};
            p = middle + (p - middle) * (1.0 + gap / 100.0 * static_cast<double>(i));
        }
    }
    faces.push_back({{-10, -10, 0}, {110, -10, 0}, {110, 110, 0}, {-10, 110, 0}});
    const GroundPlaneSensors found = cutGroundPlane({.z = 1.5, .grid = 5.0}, sceneOf(faces));
    EXPECT_EQ(found.inside, 400U);
}

TEST(GroundPlane, CellsAreEqualLevelAndCoverTheScene) {
    const Scene scene = sceneOf({{{-3, 2, 7}, {7.5, 2, 7}, {7.5, 4.9, 8}}});
    const GroundPlane plane{.z = 9.0, .grid = 2.0};
    const SensorField field = cutGroundPlane(plane, scene).field;
    EXPECT_EQ(static_cast<double>(field.size()), groundPlaneCells(plane, scene));
    ASSERT_EQ(field.size(), 12U); // 10.5 m in 6, 2.9 m in 2
    const std::vector<float> areas = cellAreas(field);
    EXPECT_NEAR(std::accumulate(areas.begin(), areas.end(), 0.0), 10.5 * 2.9, 1e-4);
    EXPECT_EQ(field.corners[1].x, -1.25);
    EXPECT_NEAR(field.positions[7].y, 2.0 + 0.75 * 2.9, 1e-12);
    EXPECT_EQ(field.positions[7].z, 9.0);
    EXPECT_EQ(field.normals[7].z, 1.0);
    EXPECT_EQ(cutGroundPlane(plane, Scene()).field.size(), 0U);
}

TEST(GroundPlane, IsReadFromText) {
    EXPECT_FALSE(parseGroundPlane("plane.obj"));
    EXPECT_EQ(parseGroundPlane("plane: grid = 0.5 , z=-2")->grid, 0.5);
    EXPECT_EQ(parseGroundPlane("plane:z=-2")->z, -2.0);
    for (const auto& [text, message] :
         {std::pair{"plane:", "'' is not known; write plane:z=1.5,grid=1"},
          {"plane:z=1,gird=2", "'gird' is not known; did you mean 'grid'?"},
          {"plane:grid=1", "its height is missing"},
          {"plane:z=1,z=2", "z is given twice"},
          {"plane:z=high", "z is 'high', where metres are wanted"},
          {"plane:z=1,grid=0", "grid is '0', where metres above 0 are wanted"},
          {"plane:z", "z is ''"},
          {"plane:z=nan", "z is 'nan'"}}) {
        EXPECT_THAT(test::messageOf([t = text] { parseGroundPlane(t); }),
                    testing::AllOf(HasSubstr("--sensors plane: "), HasSubstr(message)));
    }
}

} // namespace
} // namespace insolate::study
