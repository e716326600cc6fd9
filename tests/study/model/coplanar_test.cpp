#include "study/model/coplanar.h"
#include "study/model/polygon_rings.h"
#include "study/model/sensor_grid.h"
#include "tests/study/support/test_mesh.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <numbers>
#include <numeric>
#include <random>

namespace insolate::study {
namespace {

using Ring = std::vector<Vector3>;

Ring rectangle(double x0, double y0, double x1, double y1) {
    return {{x0, y0, 0}, {x1, y0, 0}, {x1, y1, 0}, {x0, y1, 0}};
}

/// Positions to a hundredth of a millimetre and areas to the same of a square metre, each with its
/// count.
std::map<std::array<long, 4>, int> cellsOf(const Mesh& mesh, double spacing) {
    std::vector<std::uint32_t> faces(mesh.faces.size());
    std::iota(faces.begin(), faces.end(), 0U);
    const SensorField field = cutIntoSensors(mesh, faces, {.spacing = spacing}).field;
    const std::vector<float> areas = cellAreas(field);
    std::map<std::array<long, 4>, int> cells;
    for (std::size_t i = 0; i < field.size(); ++i) {
        const Vector3& p = field.positions[i];
        ++cells[{std::lround(p.x * 1e5), std::lround(p.y * 1e5), std::lround(p.z * 1e5),
                 std::lround(areas[i] * 1e5)}];
    }
    return cells;
}

/// A court between walls, one of them with a window, an L-shaped terrace, and a roof around a light
/// well, moved and turned.
Mesh courtyard(double angle, const Vector3& place) {
    const std::vector<std::vector<Ring>> faces = {
        // outlines with their holes
        {rectangle(0, 0, 10, 10)},
        {{{0, 0, 0}, {0, 0, 10}, {10, 0, 10}, {10, 0, 0}},
         {{4, 0, 4}, {6, 0, 4}, {6, 0, 6}, {4, 0, 6}}},
        {{{10, 0, 0}, {10, 0, 10}, {10, 10, 10}, {10, 10, 0}}},
        {{{10, 10, 0}, {10, 10, 10}, {5, 10, 10}, {0, 10, 10}, {0, 10, 0}}}, // a corner on an edge
        {{{0, 10, 0}, {0, 10, 10}, {0, 0, 10}, {0, 0, 0}}},
        {{{12, 0, 1}, {18, 0, 1}, {18, 2, 1}, {14, 2, 1}, {14, 7, 1}, {12, 7, 1}}},
        {rectangle(20, 0, 29, 8), rectangle(22, 2, 24, 5), rectangle(26, 3, 27, 7)}};
    Mesh mesh;
    for (std::size_t f = 0; f < faces.size(); ++f) {
        std::vector<Ring> rings = faces[f];
        for (Ring& ring : rings) {
            for (Vector3& p : ring) {
                const double tilted = p.y * 0.8 - p.z * 0.6;
                p = place + Vector3{std::cos(angle) * p.x - std::sin(angle) * tilted,
                                    std::sin(angle) * p.x + std::cos(angle) * tilted,
                                    p.y * 0.6 + p.z * 0.8};
            }
        }
        Mesh::Face& face =
            test::addFace(mesh, *bridged(rings[0], {rings.begin() + 1, rings.end()}));
        face.object = mesh.nameIndex("court");
        face.material = mesh.nameIndex(f < 4 ? "stone" : "brick");
    }
    return mesh;
}

TEST(Coplanar, ATriangulatedCourtyardGivesTheCellsOfItsPolygonModel) {
    for (const double angle : {0.0, 0.3, 2.0}) {
        const Mesh polygons = courtyard(angle, {5.0, -3.0, 1.0});
        Mesh triangles = test::triangulated(polygons);
        for (const double spacing : {0.7, 2.0, 30.0}) {
            EXPECT_TRUE(cellsOf(mergeCoplanarTriangles(triangles).mesh, spacing) ==
                        cellsOf(polygons, spacing))
                << angle << ' ' << spacing;
        }
        const MergedMesh merged = mergeCoplanarTriangles(triangles);
        EXPECT_EQ(merged.mesh.faces.size(), polygons.faces.size());
        EXPECT_EQ(merged.triangles, triangles.faces.size());
        EXPECT_EQ(merged.mesh.names[merged.mesh.faces.back().material], "brick");
        EXPECT_EQ(merged.firstFace[1], 2U); // behind the two triangles of the floor
        // Single precision moves corners by some hundredths of a millimetre and joins the same.
        for (Vector3& p : triangles.vertices) {
            p = {static_cast<float>(p.x + 300.0), static_cast<float>(p.y), static_cast<float>(p.z)};
        }
        EXPECT_EQ(mergeCoplanarTriangles(triangles).mesh.faces.size(), polygons.faces.size());
    }
}

TEST(Coplanar, KeepsApartWhatIsNotOnePlaneOrNotOnePart) {
    // A fan of gentle slopes about the z axis, half a degree from one to the next.
    Mesh dome;
    const auto at = [](int i) {
        const double angle = i * std::numbers::pi / 360.0;
        return Vector3{10.0 * std::cos(angle), 0.0, 10.0 * std::sin(angle)};
    };
    for (int i = 0; i < 360; ++i) {
        const Vector3 deep{0, 5, 0};
        for (const Ring& t : {Ring{at(i), at(i + 1), at(i + 1) + deep},
                              Ring{at(i), at(i + 1) + deep, at(i) + deep}}) {
            test::addFace(dome, t);
        }
    }
    const Mesh quads = mergeCoplanarTriangles(dome).mesh;
    EXPECT_EQ(quads.faces.size(), 360U);
    EXPECT_EQ(quads.faces[7].cornerCount, 4U);

    Mesh two = test::meshOf({{{0, 0, 0}, {1, 0, 0}, {1, 1, 0}}, {{0, 0, 0}, {1, 1, 0}, {0, 1, 0}}});
    two.faces[1].material = two.nameIndex("other");
    EXPECT_EQ(mergeCoplanarTriangles(two).mesh.faces.size(), 2U);
    two.faces[0].material = two.faces[1].material;
    EXPECT_EQ(mergeCoplanarTriangles(two).mesh.faces.size(), 1U);
    std::swap(two.corners[1], two.corners[2]); // back to back
    EXPECT_EQ(mergeCoplanarTriangles(two).mesh.faces.size(), 2U);
    // Polygons stay, and so do triangles beside them.
    two = test::meshOf({rectangle(0, 0, 1, 1), {{1, 0, 0}, {2, 0, 0}, {1, 1, 0}}});
    EXPECT_EQ(mergeCoplanarTriangles(two).mesh.faces.size(), 2U);
}

TEST(Coplanar, KeepsTrianglesApartWhoseOutlineWouldOverlapItself) {
    // Triangles around one corner, each hanging on the one before: for less than a full turn they
    // are one polygon, for more the last ones would lie on the first.
    const auto fan = [](int count) {
        Mesh mesh;
        mesh.vertices.push_back({0, 0, 0});
        for (int i = 0; i <= count; ++i) {
            const double angle = i * std::numbers::pi / 4.0;
            const double reach = 1.0 + 0.1 * i;
            mesh.vertices.push_back({reach * std::cos(angle), reach * std::sin(angle), 0});
        }
        for (std::uint32_t i = 1; i <= static_cast<std::uint32_t>(count); ++i) {
            mesh.faces.push_back({.firstCorner = 3 * (i - 1), .cornerCount = 3});
            mesh.corners.insert(mesh.corners.end(), {0U, i, i + 1});
        }
        return mesh;
    };
    EXPECT_EQ(mergeCoplanarTriangles(fan(7)).mesh.faces.size(), 1U);
    EXPECT_EQ(mergeCoplanarTriangles(fan(10)).mesh.faces.size(), 10U);
}

TEST(PolygonRings, BridgesCoverThePolygonWithoutItsHolesWhereverRingsBegin) {
    std::mt19937 random(3);
    std::uniform_real_distribution<double> size(0.2, 0.49);
    for (int round = 0; round < 60; ++round) {
        // Holes about the middles of a grid of unit squares, some of full size: these touch.
        std::vector<Ring> holes;
        double area = 36.0;
        for (int i = 0; i < 16; ++i) {
            const double x = 1.5 + i % 4;
            const double y = 1.5 + i / 4;
            if (random() % 3 == 0) {
                continue;
            }
            const double half = random() % 4 == 0 && (i % 4 + i / 4) % 2 == 0 ? 0.5 : size(random);
            holes.push_back(rectangle(x - half, y - half, x + half, y + half));
            area -= 4.0 * half * half;
        }
        const auto ring = bridged(rectangle(0, 0, 6, 6), holes);
        ASSERT_TRUE(ring);
        double covered = 0.0;
        for (const auto& t : triangulate(*ring)) {
            const std::array<Vector3, 3> triangle = {(*ring)[t[0]], (*ring)[t[1]], (*ring)[t[2]]};
            EXPECT_GE(areaVector(triangle).z, 0.0);
            covered += 0.5 * areaVector(triangle).z;
        }
        EXPECT_NEAR(covered, area, 1e-9);
        std::shuffle(holes.begin(), holes.end(), random);
        for (Ring& hole : holes) {
            std::rotate(hole.begin(), hole.begin() + random() % 4, hole.end());
            if (random() % 2 == 0) {
                std::reverse(hole.begin(), hole.end());
            }
        }
        const auto again = bridged({{6, 6, 0}, {0, 6, 0}, {0, 0, 0}, {6, 0, 0}}, holes);
        ASSERT_TRUE(again && again->size() == ring->size());
        for (std::size_t i = 0; i < ring->size(); ++i) {
            EXPECT_EQ(length((*ring)[i] - (*again)[i]), 0.0);
        }
    }
    std::vector<Ring> windows;
    for (int i = 0; i < 63 * 63; ++i) {
        const double x = 0.25 + i % 63;
        const double y = 0.25 + i / 63;
        windows.push_back(rectangle(x, y, x + 0.5, y + 0.5));
    }
    const auto facade = bridged(rectangle(0, 0, 63, 63), windows);
    ASSERT_TRUE(facade);
    double wall = 0.0;
    for (const auto& t : triangulate(*facade)) {
        wall +=
            0.5 * length(areaVector(std::array{(*facade)[t[0]], (*facade)[t[1]], (*facade)[t[2]]}));
    }
    EXPECT_NEAR(wall, 63.0 * 63.0 * 0.75, 1e-6);
    EXPECT_FALSE(bridged(rectangle(0, 0, 2, 2), {rectangle(3, 0, 4, 1)})); // outside
    EXPECT_FALSE(bridged(rectangle(0, 0, 2, 2), {{{1, 1, 0}, {1, 1.5, 0}}}));
}

} // namespace
} // namespace insolate::study
