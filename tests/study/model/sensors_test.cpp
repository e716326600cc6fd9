#include "study/model/selection.h"
#include "study/model/sensor_csv.h"
#include "study/model/sensor_grid.h"
#include "study/support/errors.h"
#include "tests/study/support/study_fixture.h"
#include "tests/study/support/test_mesh.h"

#include <gmock/gmock.h>

#include <numeric>
#include <random>

namespace insolate::study {
namespace {

using test::meshOf;
using test::StudyFolder;
using testing::HasSubstr;

SensorGrid cutAll(const Mesh& mesh, const SensorGridOptions& options) {
    return cutIntoSensors(mesh, selectFaces(mesh, {}, 0.0, "test").faces, options);
}

std::span<const Vector3> cell(const SensorField& field, std::size_t i) {
    return {field.corners.data() + field.cellStart[i], field.cellStart[i + 1] - field.cellStart[i]};
}

TEST(SensorGrid, CutsARectangleIntoEqualRectangles) {
    const Mesh mesh = meshOf({{{0, 0, 1}, {10, 0, 1}, {10, 3, 1}, {0, 3, 1}}});
    const SensorField field = cutAll(mesh, {.spacing = 2.0, .offset = 0.1}).field;
    ASSERT_EQ(field.size(), 10U); // 5 columns of 2 m, 2 rows of 1.5 m
    EXPECT_EQ(field.cellStart.back(), 40U);
    EXPECT_NEAR(length(field.positions[0] - Vector3{1.0, 0.75, 1.1}), 0.0, 1e-12);
    EXPECT_NEAR(field.normals[9].z, 1.0, 1e-12);
    // An edge of exactly the spacing is one cell, wherever the model stands.
    const double x = 5e6;
    const double y = 4e6;
    const Mesh far = meshOf({{{x, y, 1}, {x + 0.3, y, 1}, {x + 0.3, y + 0.1, 1}, {x, y + 0.1, 1}}});
    EXPECT_EQ(cutAll(far, {.spacing = 0.1}).field.size(), 3U);
}

TEST(SensorGrid, CoversEveryFaceWithSmallCellsAndNoSlivers) {
    std::mt19937 random(20260101);
    std::uniform_real_distribution<double> place(-20.0, 20.0);
    const SensorGridOptions options{.spacing = 1.5, .offset = 0.05};
    for (int round = 0; round < 50; ++round) {
        std::vector<Vector3> polygon(3);
        for (Vector3& p : polygon) {
            p = {place(random), place(random), place(random)};
        }
        const double whole = length(areaVector(polygon));
        const Vector3 normal = areaVector(polygon) * (1.0 / whole);
        const auto smallestSine = [](std::span<const Vector3> t) {
            double least = 1.0;
            for (std::size_t i = 0; i < 3; ++i) {
                const Vector3 a = t[(i + 1) % 3] - t[i];
                const Vector3 b = t[(i + 2) % 3] - t[i];
                least = std::min(least, length(cross(a, b)) / (length(a) * length(b)));
            }
            return least;
        };
        const double narrowest = smallestSine(polygon);
        const Mesh mesh = meshOf({polygon});
        const SensorGrid grid = cutAll(mesh, options);
        double covered = 0.0;
        for (std::size_t i = 0; i < grid.field.size(); ++i) {
            const auto corners = cell(grid.field, i);
            const double area = length(areaVector(corners));
            covered += area;
            EXPECT_LE(area * 0.5, 1.5 * 1.5 * 1.00001);
            if (corners.size() == 3) {
                EXPECT_GE(smallestSine(corners), 0.49 * narrowest);
            }
            const Vector3 centre = std::accumulate(corners.begin(), corners.end(), Vector3()) *
                                   (1.0 / static_cast<double>(corners.size()));
            EXPECT_NEAR(length(grid.field.positions[i] - (centre + normal * 0.05)), 0.0, 1e-9);
        }
        EXPECT_NEAR(covered / whole, 1.0, 1e-9);
        const double estimate =
            estimatedSensorCount(mesh, selectFaces(mesh, {}, 0.0, "test").faces, options);
        EXPECT_NEAR(std::log2(estimate / static_cast<double>(grid.field.size())), 0.0, 1.2);
    }
}

TEST(SensorGrid, CellsKnowTheirFaceObjectAndMaterial) {
    Mesh mesh = meshOf({{{0, 0, 0}, {1, 0, 0}, {1, 1, 0}},
                        {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}},
                        {{0, 0, 0}, {4, 0, 0}, {4, 2, 0}, {0, 2, 0}}});
    mesh.faces[0].group = mesh.nameIndex("yard");
    mesh.faces[2].object = mesh.nameIndex("house");
    mesh.faces[2].group = mesh.nameIndex("wing");
    mesh.faces[2].material = mesh.nameIndex("tile");
    const SensorField field = cutIntoSensors(mesh, std::array{2U, 1U, 0U}, {.spacing = 2.0}).field;
    std::vector<std::string> found;
    for (const CellOrigin& origin : field.origins) {
        const auto name = [&](std::uint32_t i) {
            return i == CellOrigin::unnamed ? "-" : field.names.at(i);
        };
        found.push_back(std::to_string(origin.face) + name(origin.object) + name(origin.material));
    }
    EXPECT_THAT(found, testing::ElementsAre("2housetile", "2housetile", "0yard-"));
}

TEST(SensorGrid, LeavesOutFacesWithoutAreaAndTreatsWarpedQuadsAsTriangles) {
    const Mesh mesh = meshOf({{{0, 0, 0}, {1, 0, 0}, {2, 0, 0}},
                              {{3, 3, 3}, {3, 3, 3}, {3, 3, 3}, {3, 3, 3}},
                              {{0, 0, 0}, {1, 0, 0}, {1, 1, 1}, {0, 1, 0}}});
    const SensorGrid grid = cutAll(mesh, {.spacing = 5.0});
    EXPECT_EQ(grid.emptyFaces, 2U);
    EXPECT_EQ(grid.field.size(), 2U);
    EXPECT_EQ(cell(grid.field, 1).size(), 3U);
}

TEST(SensorGrid, NeedlesAndEndlessCoordinatesGiveFewCells) {
    // A convex sliver whose long edges meet: rows and columns would be 8,000 times 8,000. A kite
    // that is not convex. A flat triangle: halving would cover its length thirty times.
    const SensorGridOptions options{.spacing = 5.0};
    for (const Mesh& mesh : {meshOf({{{0, 0, 0}, {40000, 0, 0}, {80000, 3, 0}, {40000, 3, 0}}}),
                             meshOf({{{0, 0, 0}, {40000, 3, 0}, {1, 3, 0}, {1, 2, 0}}}),
                             meshOf({{{0, 0, 0}, {860, 1e-3, 0}, {86000, 0, 0}}})}) {
        const std::size_t cells = cutAll(mesh, options).field.size();
        EXPECT_LT(cells, 50'000U);
        const double estimate =
            estimatedSensorCount(mesh, selectFaces(mesh, {}, 0.0, "test").faces, options);
        EXPECT_NEAR(std::log2(estimate / static_cast<double>(cells)), 0.0, 1.2);
    }
    // Neighbouring numbers at 1e12 are 1e-4 apart: halving ends there.
    const double step = 0x1p-13;
    const Mesh far =
        meshOf({{{9e11, 9e11, 0}, {9e11 + 4 * step, 9e11, 0}, {9e11, 9e11 + 4 * step, 0}}});
    EXPECT_LT(cutAll(far, {.spacing = 1e-6}).field.size(), 100U);
}

TEST(SensorGrid, OffsetSuitsTheScene) {
    EXPECT_EQ(defaultSensorOffset({30, 5, 2}), 0.05);
    EXPECT_EQ(defaultSensorOffset({0, 0, 0}), 0.05);
    EXPECT_DOUBLE_EQ(defaultSensorOffset({0.1, 0.3, 0.2}), 0.003);
    EXPECT_DOUBLE_EQ(defaultSensorOffset({4.999999, 0, 0}), 0.04999999);
}

TEST(SensorCsv, ReadsPointsWithAndWithoutNormals) {
    const StudyFolder folder;
    const auto full = folder.write("a.csv", "\xEF\xBB\xBFx,y,z,nx,ny,nz\r\n# roof\r\n\r\n"
                                            "1000, 2000 ,3000,0,0,-2\r\n+1e3;2;3;1;0;0\r\n"
                                            "\t1 2\t 3  0\t0 1 \r\n");
    const SensorField field = readSensorCsv(full, LengthUnit::millimetre, UpAxis::y);
    ASSERT_EQ(field.size(), 3U);
    EXPECT_FALSE(field.hasCells());
    EXPECT_NEAR(field.positions[0].y, -3.0, 1e-12); // the file's -Z is the plan's +Y
    EXPECT_NEAR(field.positions[0].z, 2.0, 1e-12);
    EXPECT_NEAR(field.normals[0].y, 1.0, 1e-12);
    EXPECT_NEAR(field.positions[2].z, 0.002, 1e-12);
    EXPECT_NEAR(field.normals[2].y, -1.0, 1e-12);
    const SensorField bare = readSensorCsv(folder.write("b.csv", "\xEF\xBB\xBF"
                                                                 "1,2,3\n"),
                                           LengthUnit::metre, UpAxis::z);
    ASSERT_EQ(bare.size(), 1U) << "a byte order mark makes no header of numbers";
    EXPECT_EQ(bare.normals[0].x, 0.0);
    EXPECT_EQ(bare.positions[0].z, 3.0);
}

TEST(SensorCsv, FindsColumnsByTheirNamesAndUnits) {
    const StudyFolder folder;
    const auto read = [&](const std::string& text) {
        return readSensorCsv(folder.write("a.csv", text), LengthUnit::metre, UpAxis::z);
    };
    const SensorField named = read("# by hand\nname,NZ,z [ft],y,\"x [mm]\",nx,ny,id,\n"
                                   "\"Roof, \"\"A\"\"\",2,10,7,1000,0,0,17,\n"
                                   "b;c,0, 0 ,\"8\",0,-3,0,,left\n");
    ASSERT_EQ(named.size(), 2U);
    EXPECT_DOUBLE_EQ(named.positions[0].x, 1.0);
    EXPECT_DOUBLE_EQ(named.positions[0].y, 7.0);
    EXPECT_DOUBLE_EQ(named.positions[0].z, 3.048);
    EXPECT_EQ(named.normals[0].z, 1.0);
    EXPECT_EQ(named.normals[1].x, -1.0);
    ASSERT_EQ(named.given.size(), 3U);
    EXPECT_EQ(named.given[0].name, "name");
    EXPECT_EQ(named.given[0].values, (std::vector<std::string>{"Roof, \"A\"", "b;c"}));
    EXPECT_EQ(named.given[1].values, (std::vector<std::string>{"17", ""}));
    EXPECT_EQ(named.given[2].name, "column_9");

    const SensorField tabbed = read("z [m]\tplace of it\tx\ty\n3\tupper floor\t1\t2\n4\t\t1\t2\n");
    EXPECT_EQ(tabbed.given.at(0).values, (std::vector<std::string>{"upper floor", ""}));
    EXPECT_EQ(tabbed.positions[1].z, 4.0);
    EXPECT_EQ(read("z (cm) y x\n300 2 1\n").positions[0].z, 3.0);
}

TEST(SensorCsv, NamesTheLineOfAFault) {
    const StudyFolder folder;
    for (const auto& [content, message] :
         {std::pair{"x,y,z\n1,2\n", "a.csv:2: 2 fields"},
          {"1,2,3\n1,2,3,0,0,1\n", "a.csv:2: 6 fields where the lines above"},
          {"1.o,2,3\n4,5,6\n", "a.csv:1: field 1: '1.o'"},
          {"1,2,nan\n", "a.csv:1: field 3: 'nan'"},
          {"1,2,1e15\n", "field 3: '1e15'"},
          {"1,2,3,0,0,0\n", "a.csv:1: the normal is zero"},
          {"x,y,z\n", "a.csv: the table has no sensors"},
          {"1,2,3,0,0,1,7,8,9\n", "a.csv:1: 9 fields"},
          {"1\n", "a.csv:1: 1 field where"},
          {"1,5\t2,5\t3,5\n", "write decimals with a point"},
          {"1,2,3 0,0,1\n", "a.csv:1: 5 fields where x,y,z or x,y,z,nx,ny,nz is "
                            "expected; separate all fields alike"},
          {"east,north,height\n1,2,3\n", "a.csv:1: the header has no column x, y, z; known are x, "
                                         "y and z, which are needed, nx, ny and nz, a unit"},
          {"x,y,z,nx,nz\n1,2,3,0,1\n", "a.csv:1: the header has no column ny; known are"},
          {"x,y,z,Normal X\n1,2,3,0\n", "a.csv:1: there is no column 'Normal X'; if it is part of "
                                        "the normal, write nx; known"},
          {"x [yd],y,z\n1,2,3\n",
           "a.csv:1: column 'x [yd]': there is no unit 'yd'; choose from mm"},
          {"x,y,z,X\n1,2,3,4\n", "a.csv:1: the header has two columns 'x'"},
          {"x,y,z,name\n1,2,3,a\n1,2,3\n", "a.csv:3: 3 fields where the lines above have 4"},
          {"x,y,z,name\n1,,3,a\n", "a.csv:2: field 2: '' is not a usable number"},
          {"x,y,z,name\n1,2,3,\"a \"\"b\"\"\"\n1,2,3,\"a\n", "a.csv:3: field 4: quotes are"},
          {"x,y,z,name\n1,2,3,caf\xE9\n", "a.csv:2: field 4: the text is not UTF-8; save the"},
          {"x,y,z,name\n1,2,3,\"a\"\"\n", "a.csv:2: field 4: quotes are opened and not closed"},
          {"x,y,z,\"name\n1,2,3,4\n", "a.csv:1: field 4: quotes are opened and not closed"},
          {"x y z temp [\xB0"
           "C]\n1 2 3 4\n",
           "a.csv:1: field 5: the text is not UTF-8; save the"},
          {"x,y,z,h\xF6he\n1,2,3,4\n", "a.csv:1: field 4: the text is not UTF-8; save the"},
          {"\xFF\xFEx", "a.csv: the text is UTF-16; save the sensor table as UTF-8"},
          {"", "a.csv: the table has no sensors"}}) {
        const auto file = folder.write("a.csv", content);
        EXPECT_THAT(test::messageOf([&] { readSensorCsv(file, LengthUnit::metre, UpAxis::z); }),
                    HasSubstr(message));
    }
    EXPECT_THROW(readSensorCsv(folder.path() / "none.csv", LengthUnit::metre, UpAxis::z),
                 DataError);
}

} // namespace
} // namespace insolate::study
