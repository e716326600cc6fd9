#include "app/errors.h"
#include "app/input/mesh_import.h"
#include "tests/app/support/study_fixture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <numbers>
#include <random>

namespace insolate::app {
namespace {

using test::messageOf;
using test::StudyFolder;
using testing::ElementsAre;
using testing::HasSubstr;

double areaOf(const std::vector<Vector3>& polygon) {
    double area = 0.0;
    for (const auto& t : triangulate(polygon)) {
        const std::array<Vector3, 3> triangle = {polygon[t[0]], polygon[t[1]], polygon[t[2]]};
        // Signed against the whole: overlapping or turned triangles would not add up.
        area += dot(areaVector(triangle), areaVector(polygon)) / length(areaVector(polygon)) * 0.5;
        EXPECT_GE(dot(areaVector(triangle), areaVector(polygon)), 0.0);
    }
    return area;
}

TEST(Mesh, CutsConcavePolygonsIntoTrianglesThatCoverThem) {
    // An L in each of the three planes and both windings; a fan from its first corner would reach
    // outside.
    const std::vector<std::pair<double, double>> shape = {{0, 3}, {0, 0}, {3, 0},
                                                          {3, 1}, {1, 1}, {1, 3}};
    for (int plane = 0; plane < 3; ++plane) {
        std::vector<Vector3> polygon;
        for (const auto& [u, v] : shape) {
            polygon.push_back(plane == 0   ? Vector3{u, v, 7.0}
                              : plane == 1 ? Vector3{7.0, u, v}
                                           : Vector3{v, 7.0, u});
        }
        EXPECT_NEAR(areaOf(polygon), 5.0, 1e-12);
        std::reverse(polygon.begin(), polygon.end());
        EXPECT_NEAR(areaOf(polygon), 5.0, 1e-12);
    }
    // A wall with windows, which bridges join to its edge: their corners come twice.
    const std::vector<Vector3> wall = {{0, 0, 0}, {4, 0, 0}, {4, 4, 0}, {0, 4, 0}};
    const std::vector<Vector3> window = {{1, 1, 0}, {1, 3, 0}, {3, 3, 0}, {3, 1, 0}, {1, 1, 0}};
    for (const int bridge : {0, 1, 3}) { // from the third corner it would cross the window
        std::vector<Vector3> polygon = wall;
        const auto at = polygon.begin() + bridge;
        const Vector3 corner = *at;
        polygon.insert(polygon.insert(at, corner) + 1, window.begin(), window.end());
        EXPECT_NEAR(areaOf(polygon), 12.0, 1e-12) << bridge;
    }
    // Stars of random points, windings of a spiral and the teeth of a comb.
    std::mt19937 random(11);
    std::uniform_real_distribution<double> radius(0.1, 10.0);
    std::vector<Vector3> star;
    std::vector<Vector3> spiral;
    std::vector<Vector3> comb = {{0, -1, 0}, {2000, -1, 0}};
    for (int i = 0; i < 2000; ++i) {
        const double angle = i * 2.0 * std::numbers::pi / 2000.0;
        const double r = radius(random);
        star.push_back({r * std::cos(angle), r * std::sin(angle), 0.0});
        const bool inward = i >= 1000;
        const double turn = (inward ? 1999 - i : i) * 0.03;
        const double from = 1.0 + turn + (inward ? 1.0 : 0.0);
        spiral.push_back({from * std::cos(turn), from * std::sin(turn), 0.0});
        comb.push_back({1999.5 - i, i % 2 == 0 ? 1000.0 + radius(random) : 0.0, 0.0});
    }
    for (const auto& polygon : {star, spiral, comb}) {
        EXPECT_NEAR(areaOf(polygon) / (0.5 * length(areaVector(polygon))), 1.0, 1e-9);
    }
}

TEST(Mesh, CutsDegeneratePolygonsOfManyCornersInTime) {
    EXPECT_EQ(triangulate(std::vector<Vector3>(5)).size(), 3U); // all corners in one place
    const std::size_t count = 100'000;
    std::mt19937 random(12);
    std::uniform_real_distribution<double> place(-1.0, 1.0);
    std::vector<Vector3> line;
    std::vector<Vector3> tangle;
    std::vector<Vector3> thereAndBack;
    for (std::size_t i = 0; i < count; ++i) {
        line.push_back({static_cast<double>(i), 0.0, 0.0});
        tangle.push_back({place(random), place(random), 0.0});
        thereAndBack.push_back({i % 2 == 0 ? 0.0 : 1.0, 0.0, i % 3 == 0 ? 1.0 : 0.0});
    }
    for (const auto& polygon : {line, tangle, thereAndBack}) {
        EXPECT_EQ(triangulate(polygon).size(), count - 2);
    }
}

TEST(ObjImport, KeepsNamesPolygonsAndDoublePrecision) {
    const StudyFolder folder;
    const auto file = folder.write("a.obj", "# map coordinates\r\n"
                                            "mtllib ../../etc/passwd\r\n"
                                            "o house\r\ng roof top\r\nusemtl red tiles\r\n"
                                            "v 5000000.001 6000000.002 0.003\r\n"
                                            "v 5000001 6000000 0 1 0 0\r\n"
                                            "v 5000001 6000001 \\\r\n 0\r\nv 5e6 6000001 0\r\n"
                                            "vn 0 0 1\r\nf 1//1 2//1 3//1 4//1\r\n"
                                            "usemtl blue\r\nf -4/1 -2/2 -1/3");
    const Mesh mesh = importMesh(file, {});
    ASSERT_EQ(mesh.faces.size(), 2U);
    EXPECT_EQ(mesh.vertices[0].x, 5000000.001);
    EXPECT_EQ(mesh.vertices[0].y, 6000000.002);
    EXPECT_THAT(mesh.cornersOf(mesh.faces[0]), ElementsAre(0, 1, 2, 3));
    EXPECT_THAT(mesh.cornersOf(mesh.faces[1]), ElementsAre(0, 2, 3));
    EXPECT_THAT(mesh.names, ElementsAre("house", "roof", "red tiles", "blue"));

    const auto pick = [&](const char* name) {
        return selectFaces(mesh, std::vector<std::string>{name}, "a.obj");
    };
    EXPECT_THAT(pick("house"), ElementsAre(0, 1));
    EXPECT_THAT(pick("blue"), ElementsAre(1));
    EXPECT_THAT(pick("red tiles, blue"), ElementsAre(0, 1));
    EXPECT_THAT(selectFaces(mesh, {}, "a.obj"), ElementsAre(0, 1));
    for (const auto& [name, message] :
         {std::pair{"tower", "'tower'; choose from 'house', 'roof', 'red tiles'"},
          {"roof,bleu", "'bleu'; did you mean 'blue'?"},
          {"Hose", "did you mean 'house'?"},
          {"red", "did you mean 'red tiles'?"}}) {
        EXPECT_THAT(messageOf([&, n = name] { pick(n); }), HasSubstr(message));
    }
}

TEST(MeshImport, NamesFilePlaceAndMendOfABadModel) {
    struct Case {
        const char* name;
        const char* content;
        const char* message;
    };
    const StudyFolder folder;
    std::filesystem::create_directory(folder.path() / "folder.obj");
    for (const Case& c :
         {Case{"nan.obj", "v 0 0 0\nv nan 0 0\n", "nan.obj:2: 'nan' is not a coordinate"},
          Case{"inf.obj", "v 0 0 1e999\n", "inf.obj:1: '1e999' is not a coordinate"},
          Case{"short.obj", "\nv 0 0\n", "short.obj:2: the vertex has less than three"},
          Case{"text.obj", "v 0 zero 0\n", "text.obj:1: 'zero'"},
          Case{"index.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 4\n", "index.obj:4: the face names"},
          Case{"index0.obj", "v 0 0 0\nf 0 0 0\n", "index0.obj:2: the face names vertex 0"},
          Case{"back.obj", "v 0 0 0\nf -1 -2 -3\n", "back.obj:2: the face names vertex -2"},
          Case{"two.obj", "v 0 0 0\nv 1 0 0\nf 1 2\n", "two.obj:3: the face has less than three"},
          Case{"points.obj", "v 0 0 0\nv 1 0 0\nl 1 2\n", "points.obj: the model has no faces"},
          Case{"empty.obj", "", "no faces"},
          Case{"far.obj", "v 1e13 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n", "far.obj: vertex 1"},
          Case{"empty.stl", "", "empty.stl: cannot be read as a model"},
          Case{"model.xyz", "what", "model.xyz: cannot be read as a model"},
          Case{"nan.ply",
               "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
               "property float z\nelement face 1\nproperty list uchar int vertex_indices\n"
               "end_header\nnan 0 0\n1 0 0\n0 1 0\n3 0 1 2\n",
               "nan.ply: vertex 1 is at (nan"}}) {
        const auto file = folder.write(c.name, c.content);
        EXPECT_THAT(messageOf([&] { importMesh(file, {}); }),
                    testing::AllOf(HasSubstr(c.message), HasSubstr("; ")));
    }
    for (const char* name : {"none.obj", "folder.obj"}) {
        EXPECT_THROW(importMesh(folder.path() / name, {}), DataError);
    }
}

/// One triangle in the file's xy plane, under a node that moves by (10, 20, 30) and scales by 2;
/// the buffer holds (0 0 0) (1 0 0) (0 1 0) and the indices 0 1 2.
std::string gltfTriangle(const std::string& bufferUri) {
    return R"({"asset":{"version":"2.0"},"scene":0,"scenes":[{"nodes":[0]}],"nodes":[
{"name":"moved","translation":[10,20,30],"scale":[2,2,2],"children":[1]},{"name":"leaf","mesh":0}],
"meshes":[{"name":"part","primitives":[{"attributes":{"POSITION":0},"indices":1,"material":0}]}],
"materials":[{"name":"paint"}],
"accessors":[{"bufferView":0,"componentType":5126,"count":3,"type":"VEC3","min":[0,0,0],"max":[1,1,0]},
{"bufferView":1,"componentType":5123,"count":3,"type":"SCALAR"}],
"bufferViews":[{"buffer":0,"byteOffset":0,"byteLength":36},{"buffer":0,"byteOffset":36,"byteLength":6}],
"buffers":[{"byteLength":42,"uri":")" +
           bufferUri + "\"}]}";
}

TEST(MeshImport, AppliesNodesUnitsAndUpAxis) {
    const StudyFolder folder;
    const std::string uri = "data:application/octet-stream;base64,"
                            "AAAAAAAAAAAAAAAAAACAPwAAAAAAAAAAAAAAAAAAgD8AAAAAAAABAAIA";
    const auto file = folder.write("a.gltf", gltfTriangle(uri));
    const auto first = [](const Mesh& mesh) {
        return mesh.vertices[mesh.cornersOf(mesh.faces.at(0))[1]]; // (12, 20, 30) in the file
    };
    const auto expectPoint = [](const Vector3& p, double x, double y, double z) {
        EXPECT_NEAR(p.x, x, 1e-9);
        EXPECT_NEAR(p.y, y, 1e-9);
        EXPECT_NEAR(p.z, z, 1e-9);
    };
    const Mesh turned = importMesh(file, {});
    expectPoint(first(turned), 12.0, -30.0, 20.0);
    EXPECT_THAT(turned.names, testing::IsSupersetOf({"leaf", "part", "paint"}));
    expectPoint(first(importMesh(file, {.unit = LengthUnit::foot, .up = UpAxis::z})), 12 * 0.3048,
                20 * 0.3048, 30 * 0.3048);

    // The same through a file beside it, and one outside its folder that must not be opened.
    const std::string bytes("\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x80\x3f\0\0\0\0\0\0\0\0\0\0\0\0"
                            "\0\0\x80\x3f\0\0\0\0\0\0\x01\0\x02\0",
                            42);
    std::filesystem::create_directory(folder.path() / "in");
    folder.write("in/b.bin", bytes);
    folder.write("out.bin", bytes);
    expectPoint(first(importMesh(folder.write("in/b.gltf", gltfTriangle("b.bin")), {})), 12.0,
                -30.0, 20.0);
    EXPECT_THROW(importMesh(folder.write("in/c.gltf", gltfTriangle("../out.bin")), {}), DataError);
}

} // namespace
} // namespace insolate::app
