#include "fuzz/memory_file.h"
#include "study/files/input_file.h"
#include "study/model/assimp_reader.h"
#include "study/model/mesh_import.h"
#include "study/model/model_formats.h"
#include "study/model/selection.h"
#include "study/support/errors.h"
#include "tests/study/support/study_fixture.h"
#include "tests/support/test_data.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <numbers>
#include <numeric>
#include <random>
#include <set>
#include <span>

#include <sys/time.h>
#include <unistd.h>

namespace insolate::study {
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
        EXPECT_GE(dot(areaVector(triangle), areaVector(polygon)), -1e-12);
    }
    return area;
}

TEST(Mesh, CutsConcavePolygonsIntoTrianglesThatCoverThem) {
    // An L in each of the three planes and both windings; a fan from its first corner would reach
    // outside.
    const double shape[][2] = {{0, 3}, {0, 0}, {3, 0}, {3, 1}, {1, 1}, {1, 3}};
    std::array<std::vector<Vector3>, 3> planes;
    for (const auto& [u, v] : shape) {
        planes[0].push_back({u, v, 7.0});
        planes[1].push_back({7.0, u, v});
        planes[2].push_back({v, 7.0, u});
    }
    for (std::vector<Vector3>& polygon : planes) {
        EXPECT_NEAR(areaOf(polygon), 5.0, 1e-12);
        std::reverse(polygon.begin(), polygon.end());
        EXPECT_NEAR(areaOf(polygon), 5.0, 1e-12);
    }
    // A wall with a window, which a bridge joins to its edge: their corners come twice.
    const std::vector<Vector3> window = {{1, 1, 0}, {1, 3, 0}, {3, 3, 0}, {3, 1, 0}, {1, 1, 0}};
    for (const int bridge : {0, 1, 3}) { // from the third corner it would cross the window
        std::vector<Vector3> polygon = {{0, 0, 0}, {4, 0, 0}, {4, 4, 0}, {0, 4, 0}};
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
    const auto at = [](double r, double angle) {
        return Vector3{r * std::cos(angle), r * std::sin(angle), 0.0};
    };
    for (int i = 0; i < 2000; ++i) {
        star.push_back(at(radius(random), i * 2.0 * std::numbers::pi / 2000.0));
        const bool inward = i >= 1000;
        const double turn = (inward ? 1999 - i : i) * 0.03;
        spiral.push_back(at(1.0 + turn + (inward ? 1.0 : 0.0), turn));
        comb.push_back({1999.5 - i, i % 2 == 0 ? 1000.0 + radius(random) : 0.0, 0.0});
    }
    for (const auto& polygon : {star, spiral, comb}) {
        EXPECT_NEAR(areaOf(polygon) / (0.5 * length(areaVector(polygon))), 1.0, 1e-9);
    }
}

/// Whether a ray from the point crosses the ring an odd number of times.
bool isInside(std::span<const Vector3> ring, const Vector3& p) {
    bool inside = false;
    for (std::size_t i = 0; i < ring.size(); ++i) {
        const Vector3& a = ring[i];
        const Vector3& b = ring[(i + 1) % ring.size()];
        const bool crosses =
            (a.y > p.y) != (b.y > p.y) && p.x < a.x + (b.x - a.x) * (p.y - a.y) / (b.y - a.y);
        inside = inside != crosses;
    }
    return inside;
}

TEST(Mesh, CutsAroundHolesThatShareCorners) {
    std::mt19937 random(13);
    const auto upTo = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
    for (int round = 0; round < 300; ++round) {
        // Square holes along the diagonal, each meeting the next at a corner. A hole hangs on the
        // one before by that corner, or on the outline by a bridge down or up.
        const int holes = 1 + upTo(7);
        const double size = holes + 2.0;
        std::vector<Vector3> polygon;
        for (int i = 0; i <= holes + 2; ++i) {
            polygon.push_back({i * 1.0, 0, 0});
        }
        for (int i = holes + 2; i >= 0; --i) {
            polygon.push_back({i * 1.0, size, 0});
        }
        std::vector<double> order(static_cast<std::size_t>(holes));
        std::iota(order.begin(), order.end(), 1.0);
        std::shuffle(order.begin(), order.end(), random);
        for (const double k : order) {
            const std::array<Vector3, 4> hole = {
                Vector3{k, k, 0}, {k, k + 1, 0}, {k + 1, k + 1, 0}, {k + 1, k, 0}};
            const auto find = [&](const Vector3& p) {
                return std::find_if(polygon.begin(), polygon.end(),
                                    [&](const Vector3& q) { return q.x == p.x && q.y == p.y; });
            };
            const int way = upTo(3);
            std::size_t first = way == 0 ? 0 : way == 1 ? 3 : 1;
            auto at = find(hole[first]);
            if (way != 0 || at == polygon.end()) {
                first = way == 1 ? 3 : 1;
                at = find({hole[first].x, first == 3 ? 0.0 : size, 0});
            }
            std::vector<Vector3> loop = {*at};
            for (std::size_t i = 0; i <= 4; ++i) {
                loop.push_back(hole[(first + i) % 4]);
            }
            polygon.insert(at, loop.begin(), loop.end());
        }
        const double angle = round % 2 == 0 ? 0.0 : upTo(1000) * 0.01; // exact, and with rounding
        for (Vector3& p : polygon) {
            p = {std::cos(angle) * p.x - std::sin(angle) * p.y,
                 std::sin(angle) * p.x + std::cos(angle) * p.y, 0.0};
        }
        std::rotate(polygon.begin(), polygon.begin() + upTo(static_cast<int>(polygon.size())),
                    polygon.end());
        ASSERT_NEAR(areaOf(polygon), size * size - holes, 1e-9) << round;
        const auto triangles = triangulate(polygon);
        std::uniform_real_distribution<double> place(-size, size);
        for (int i = 0; i < 40; ++i) {
            const Vector3 p = {place(random), place(random), 0.0};
            int covers = 0;
            for (const auto& t : triangles) {
                covers += isInside(std::array{polygon[t[0]], polygon[t[1]], polygon[t[2]]}, p);
            }
            ASSERT_EQ(covers, isInside(polygon, p) ? 1 : 0) << round;
        }
    }
}

TEST(Mesh, CutsDegeneratePolygonsOfManyCornersInTime) {
    EXPECT_EQ(triangulate(std::vector<Vector3>(5)).size(), 3U); // all corners in one place
    const std::size_t count = 100'000;
    std::mt19937 random(12);
    std::uniform_real_distribution<double> place(-1.0, 1.0);
    // A line, a tangle, there and back, round and round.
    std::array<std::vector<Vector3>, 4> polygons;
    for (std::size_t i = 0; i < count; ++i) {
        polygons[0].push_back({static_cast<double>(i), 0.0, 0.0});
        polygons[1].push_back({place(random), place(random), 0.0});
        polygons[2].push_back({i % 2 == 0 ? 0.0 : 1.0, 0.0, i % 3 == 0 ? 1.0 : 0.0});
        polygons[3].push_back({i % 4 < 2 ? 0.0 : 1.0, i % 4 % 3 == 0 ? 0.0 : 1.0, 0.0});
    }
    for (const auto& polygon : polygons) {
        EXPECT_EQ(triangulate(polygon).size(), count - 2);
    }
    // A thousand lenses side by side between the same two places are no such case.
    std::vector<Vector3> lenses;
    for (int i = 0; i < 1000; ++i) {
        lenses.push_back({-1.0, 0.0, 0.0});
        lenses.push_back({0.0, 2.0 * i, 0.0});
        lenses.push_back({1.0, 0.0, 0.0});
        lenses.push_back({0.0, 2.0 * i + 1.0, 0.0});
    }
    double covered = 0.0;
    for (const auto& t : triangulate(lenses)) {
        covered += 0.5 * length(areaVector(std::array{lenses[t[0]], lenses[t[1]], lenses[t[2]]}));
    }
    EXPECT_NEAR(covered, 1000.0, 1e-6);
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
        return selectFaces(mesh, {.patterns = {name}}, 0.0, "a.obj").faces;
    };
    EXPECT_THAT(pick("house"), ElementsAre(0, 1));
    EXPECT_THAT(pick("blue"), ElementsAre(1));
    EXPECT_THAT(pick("red tiles, blue"), ElementsAre(0, 1));
    EXPECT_THAT(selectFaces(mesh, {}, 0.0, "a.obj").faces, ElementsAre(0, 1));
    for (const auto& [name, message] :
         {std::pair{"tower", "'tower'; choose from 'house', 'roof', 'red tiles'"},
          {"roof,bleu", "'bleu'; did you mean 'blue'?"},
          {"Hose", "did you mean 'house'?"},
          {"red", "did you mean 'red tiles'?"}}) {
        EXPECT_THAT(messageOf([&, n = name] { pick(n); }), HasSubstr(message));
    }
}

std::string repeated(std::string_view text, int count) {
    std::string all;
    for (int i = 0; i < count; ++i) {
        all += text;
    }
    return all;
}

TEST(MeshImport, NamesFilePlaceAndFixOfABadModel) {
    struct Case {
        std::string name, content, message;
    };
    const StudyFolder folder;
    std::filesystem::create_directory(folder.path() / "folder.obj");
    const std::string triangle = "v 0 0 0\nv 1 0 0\nv 0 1 0\n";
    for (const Case& c : std::vector<Case>{
             {"nan.obj", "v 0 0 0\nv nan 0 0\n", "nan.obj:2: 'nan' is not a coordinate"},
             {"inf.obj", "v 0 0 1e999\n", "inf.obj:1: '1e999' is not a coordinate"},
             {"short.obj", "\nv 0 0\n", "short.obj:2: the vertex has less than three"},
             {"index.obj", triangle + "f 1 2 4\n", "index.obj:4: the face names"},
             {"index0.obj", triangle + "f 0 0 0\n", "index0.obj:4: the face names vertex 0"},
             {"back.obj", triangle + "f -2 -3 -4\n", "back.obj:4: the face names vertex -4"},
             {"bare.obj", triangle + "v\nv 1 1 0\nf 1 2 3\n", "bare.obj:4: the vertex has less"},
             {"none.obj", triangle + " f\nf 1 2 3\n", "none.obj:4: the face has less than three"},
             {"two.obj", triangle + "f 1 2\n", "two.obj:4: the face has less than three"},
             {"points.obj", triangle + "l 1 2\n", "points.obj: the model has no faces"},
             {"far.obj", "v 1e13 0 0\n" + triangle + "f 1 2 3\n", "far.obj: vertex 1"},
             {"large.obj", triangle + "f 1 2 4294967299\n",
              "large.obj:4: the face names vertex 42"},
             {"larger.obj", triangle + "f 999999999999999999999 1 2\n", "4: '9999999999999999999"},
             {"part.obj", triangle + "\nf 1 3.7 2\n", "part.obj:5: '3.7' is no number of a vertex"},
             {"word.obj", triangle + "f 1/1 2/2 3abc/3\n", "word.obj:4: '3abc' is no number"},
             {"mac.obj", "v 0 0 0\rv 1 0 0\rv 0 1 0\rf 1 2 4\r", "mac.obj:4: the face names"},
             {"wide.stl", "\xFF\xFEs", "wide.stl: the text is UTF-16; save the model as UTF-8"},
             {"empty.stl", "", "empty.stl: cannot be read as STL (File is empty)"},
             {"long.stl", // the importer's message quotes all of it
              "solid a\nfacet normal x" + std::string(5000, 'x') + "\nendsolid\n",
              "xxx...); the file may be cut off or damaged: export the model again"},
             {"bytes.obj", triangle + "f 1 2 x" + repeated("\u00e4", 40) + "\n",
              "'x" + repeated("\u00e4", 29) + "...'"}, // no half of a character
             {"model.blend", "BLENDER", "model.blend: models of this name's ending are not read"},
             {"cut.ply", "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\n",
              "cut.ply: the PLY header has no line end_header"},
             {"nan.ply",
              "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
              "property float z\nelement face 1\nproperty list uchar int vertex_indices\n"
              "end_header\nnan 0 0\n1 0 0\n0 1 0\n3 0 1 2\n",
              "nan.ply: vertex 1 is at (nan"}}) {
        const auto file = folder.write(c.name, c.content);
        EXPECT_THAT(messageOf([&] { importMesh(file, {}); }),
                    testing::AllOf(HasSubstr(c.message), HasSubstr("; "),
                                   testing::SizeIs(testing::Lt(file.string().size() + 420))));
    }
    for (const char* name : {"none.obj", "folder.obj"}) {
        EXPECT_THROW(importMesh(folder.path() / name, {}), DataError);
    }
}

/// One triangle in the file's xy plane, under a node that moves by (10, 20, 30) and scales by 2;
/// the buffer holds (0 0 0) (1 0 0) (0 1 0) and the indices 0 1 2.
std::string gltfTriangle(const std::string& bufferUri, const std::string& scale = "[2,2,2]") {
    return R"({"asset":{"version":"2.0"},"scene":0,"scenes":[{"nodes":[0]}],"nodes":[
{"name":"moved","translation":[10,20,30],"children":[1],"scale":)" +
           scale + R"(},{"name":"leaf","mesh":0}],
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
    const auto file = folder.write("a.gltf", gltfTriangle(uri, "[2,2,2]"));
    /// The second corner, (12, 20, 30) in the file.
    const auto expectCorner = [](const Mesh& mesh, double x, double y, double z) {
        const Vector3 p = mesh.vertices[mesh.cornersOf(mesh.faces.at(0))[1]];
        EXPECT_NEAR(length(p - Vector3{x, y, z}), 0.0, 1e-9) << p.x << ' ' << p.y << ' ' << p.z;
    };
    const Mesh turned = importMesh(file, {});
    expectCorner(turned, 12.0, -30.0, 20.0);
    EXPECT_THAT(turned.names, testing::IsSupersetOf({"leaf", "part", "paint"}));
    for (const auto& [unit, metres] : {std::pair{LengthUnit::millimetre, 0.001},
                                       {LengthUnit::centimetre, 0.01},
                                       {LengthUnit::metre, 1.0},
                                       {LengthUnit::foot, 0.3048},
                                       {LengthUnit::inch, 0.0254}}) {
        expectCorner(importMesh(file, {.unit = unit, .up = UpAxis::z}), 12 * metres, 20 * metres,
                     30 * metres);
    }
    // A mirroring node turns its faces inside out, unless their corners are turned as well.
    const Mesh mirrored = importMesh(folder.write("m.gltf", gltfTriangle(uri, "[-2,2,2]")), {});
    std::vector<Vector3> corners;
    for (const std::uint32_t corner : mirrored.cornersOf(mirrored.faces.at(0))) {
        corners.push_back(mirrored.vertices[corner]);
    }
    EXPECT_LT(areaVector(corners).y, 0.0); // the file's +Z

    // The same through a file beside it, and one outside its folder that must not be opened.
    const std::string bytes("\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x80\x3f\0\0\0\0\0\0\0\0\0\0\0\0"
                            "\0\0\x80\x3f\0\0\0\0\0\0\x01\0\x02\0",
                            42);
    std::filesystem::create_directory(folder.path() / "in");
    folder.write("in/b.bin", bytes);
    folder.write("out.bin", bytes);
    expectCorner(importMesh(folder.write("in/b.gltf", gltfTriangle("b.bin")), {}), 12.0, -30.0,
                 20.0);
    // By the reader's own look, and by the program's bounds.
    std::filesystem::create_symlink("../out.bin", folder.path() / "in/link.bin");
    for (const char* name : {"../out.bin", "link.bin", "/etc/passwd"}) {
        const auto outside = folder.write("in/c.gltf", gltfTriangle(name));
        const InputFile in(outside, inputKinds::model);
        EXPECT_THROW(readWithAssimp(outside, in.descriptor()), DataError) << name;
        EXPECT_THROW(importMesh(outside, {}), DataError) << name;
    }
}

/// The file of fuzz/corpus/models as a model of its format.
struct Seed {
    std::filesystem::path file;
    const ModelFormat& format;
    std::string content;
};
std::vector<Seed> seeds() {
    const std::filesystem::path source = insolate::test::sourceFolder();
    std::vector<Seed> result;
    for (const auto& entry : std::filesystem::directory_iterator(source / "fuzz/corpus/models")) {
        const std::string bytes = test::readFile(entry.path());
        const ModelFormat& format = modelFormats.at(static_cast<unsigned char>(bytes.at(0)));
        result.push_back({entry.path().filename().string() + std::string(format.extension), format,
                          bytes.substr(1)});
    }
    return result;
}

TEST(MeshImport, ReadsEachFormatStanding) {
    const StudyFolder folder;
    std::set<std::string_view> read;
    for (const Seed& seed : seeds()) {
        SCOPED_TRACE(seed.file);
        const auto file = folder.write(seed.file, seed.content);
        const auto areaOf = [&](const std::optional<UpAxis>& up) {
            const Mesh mesh = importMesh(file, {.up = up});
            EXPECT_EQ(mesh.faces.size(), 1U);
            std::vector<Vector3> corners;
            for (const std::uint32_t corner : mesh.cornersOf(mesh.faces.at(0))) {
                corners.push_back(mesh.vertices[corner]);
            }
            return areaVector(corners);
        };
        // All hold the level triangle (0 0 0) (10 0 0) (0 10 0); in glTF, whose y is up, it stands.
        // With an axis it is the one of the file, whatever the reader makes of it.
        const bool isYUp = seed.format.name == "glTF";
        for (const auto& [up, stands] : {std::pair{std::optional<UpAxis>(), isYUp},
                                         {std::optional(UpAxis::z), false},
                                         {std::optional(UpAxis::y), true}}) {
            const Vector3 area = areaOf(up);
            EXPECT_NEAR(stands ? -area.y : area.z, 100.0, 1e-3);
            EXPECT_NEAR(length(area), 100.0, 1e-3);
        }
        EXPECT_EQ(defaultUpAxis(file), isYUp ? UpAxis::y : UpAxis::z);
        read.insert(seed.format.extension);
    }
    EXPECT_EQ(read.size(), modelFormats.size());
    EXPECT_EQ(upAxisText(), "y for glTF, what the file says for Collada, z for all others");
    EXPECT_EQ(defaultUpAxis(folder.write("y.dae", "<asset><up_axis> Y_UP</up_axis></asset>")),
              UpAxis::y);
}

TEST(MeshImport, ReadsOrRefusesWhatIsCutOffInTime) {
    const StudyFolder folder;
    const auto readCut = [&](const Seed& seed, std::size_t length) {
        const fuzz::MemoryFile cut(seed.content.data(), length);
        try {
            InputFile in(cut.name(), inputKinds::model);
            placedMesh(seed.format.extension == ".obj" ? readObj(cut.name())
                                                       : readWithAssimp(seed.file, in.descriptor()),
                       seed.file, {});
        } catch (const DataError&) {
        }
    };
    const auto readEachCut = [&](const Seed& seed) {
        itimerval twoSeconds = {}; // of processor time
        twoSeconds.it_value.tv_sec = 2;
        for (std::size_t length = 0; length < seed.content.size(); ++length) {
            std::fprintf(stderr, "%zu bytes\n", length);
            setitimer(ITIMER_PROF, &twoSeconds, nullptr);
            readCut(seed, length);
        }
        _exit(0);
    };
    for (const Seed& seed : seeds()) {
        SCOPED_TRACE(seed.file);
        // Every cut, without the import program around the reader, in a process that may fail.
        EXPECT_EXIT(readEachCut(seed), testing::ExitedWithCode(0), "");
        // Some as a run reads them.
        // An end mark may lack its last characters.
        for (auto length = std::ssize(seed.content) - 4; length > 0; length -= 97) {
            const auto file =
                folder.write(seed.file, seed.content.substr(0, static_cast<std::size_t>(length)));
            const std::string message = messageOf([&] { importMesh(file, {}); });
            EXPECT_THAT(message, testing::Not(HasSubstr("importer")));
            EXPECT_NE(message, "nothing is wrong") << length;
        }
    }
}

/// A number as the bytes of a binary file.
template <typename Number>
std::string bytesOf(Number value, bool bigEndian = false) {
    std::string bytes(reinterpret_cast<const char*>(&value), sizeof value);
    if (bigEndian) {
        std::ranges::reverse(bytes);
    }
    return bytes;
}

TEST(MeshImport, RefusesWhatEndsBeforeItsOwnCountOrMark) {
    const auto plyHead = [](const char* kind) {
        return fmt::format("ply\nformat {} 1.0\nelement vertex 4\nproperty float x\nproperty float "
                           "y\nproperty float z\nelement face 3\nproperty list uchar int "
                           "vertex_indices\nend_header\n",
                           kind);
    };
    const std::string points = "0 0 0\n9 0 0\n9 9 0\n0 9 5\n";
    const std::string faces = "3 0 1 2\n3 0 2 3\n3 1 2 3\n";
    const auto plyBinary = [&](bool bigEndian) {
        std::string bytes = plyHead(bigEndian ? "binary_big_endian" : "binary_little_endian");
        for (const int value : {0, 0, 0, 9, 0, 0, 9, 9, 0, 0, 9, 5}) {
            bytes += bytesOf(static_cast<float>(value), bigEndian);
        }
        for (const int first : {0, 1, 0}) {
            bytes += '\3';
            for (const int corner : {first, 2, 3}) {
                bytes += bytesOf(corner, bigEndian);
            }
        }
        return bytes;
    };
    std::string stlText = "solid court\n";
    std::string stlBinary = "solid" + std::string(75, ' ') + bytesOf(std::uint32_t{3});
    std::string dxf = "0\nSECTION\n2\nENTITIES\n";
    for (int i = 1; i <= 3; ++i) {
        stlText += fmt::format("facet normal 0 0 1\nouter loop\nvertex 0 0 {0}\nvertex {0} 0 0\n"
                               "vertex 0 {0} 0\nendloop\nendfacet\n",
                               i);
        for (int k = 0; k < 12; ++k) {
            stlBinary += bytesOf(static_cast<float>(k * k % (i + 3)));
        }
        stlBinary += std::string(2, '\0');
        dxf += fmt::format("0\n3DFACE\n8\nroof\n10\n0\n20\n0\n30\n{0}\n11\n{0}\n21\n0\n31\n0\n12\n"
                           "0\n22\n{0}\n32\n0\n13\n0\n23\n{0}\n33\n0\n",
                           i);
    }
    const auto chunk = [](std::uint16_t id, const std::string& content) {
        return bytesOf(id) + bytesOf(static_cast<std::uint32_t>(content.size() + 6)) + content;
    };
    std::string corners = bytesOf(std::uint16_t{3});
    for (const int value : {0, 0, 0, 9, 0, 0, 0, 9, 5}) {
        corners += bytesOf(static_cast<float>(value));
    }
    std::string face;
    for (const std::uint16_t value :
         std::array<std::uint16_t, 5>{1, 0, 1, 2, 7}) { // a count, corners, visible edges
        face += bytesOf(value);
    }
    std::string objects;
    for (const char* name : {"a", "b", "c"}) {
        objects += chunk(0x4000, name + std::string(1, '\0') +
                                     chunk(0x4100, chunk(0x4110, corners) + chunk(0x4120, face)));
    }
    const std::string ifc =
        test::readFile(insolate::test::sourceFolder() / "fuzz/corpus/models/ifc").substr(1);
    const std::string threeDs = chunk(0x4D4D, chunk(0x3D3D, objects));
    const auto read = [](const char* name, const std::string& content) {
        const fuzz::MemoryFile file(content.data(), content.size());
        const InputFile in(file.name(), inputKinds::model);
        return readWithAssimp(name, in.descriptor());
    };
    const std::string plyText = plyHead("ascii") + points + faces;
    const std::string stl = stlText + "endsolid court\n";
    dxf += "0\nENDSEC\n0\nEOF\n";
    const struct {
        const char* name;
        std::string content;
        std::vector<std::pair<std::size_t, const char*>> cuts; ///< bytes taken off, what is said
    } cases[] = {
        {"a.ply",
         plyText,
         {{16, "elements 'face' is said to be 3, but the file has 1; "},
          {3, "a.ply:16: the line of a face ends early; "}}},
        {"b.ply",
         plyBinary(false),
         {{27, "elements 'face' is said to be 3, but the file has 0; "}}},
        {"c.ply",
         plyBinary(true),
         {{40, "elements 'vertex' is said to be 4, but the file has 3; "}}},
        {"a.off",
         "OFF # a court\n4 3 0\n" + points + "\n" + faces,
         {{8, "faces is said to be 3, but the file has 2; "},
          {27, "a.off:6: the line of a vertex ends early; "}}},
        {"a.stl", stl, {{15, "a.stl: does not end with endsolid; "}}},
        {"b.stl", stlBinary, {{1, "triangles is said to be 3, but the file has 2; "}}},
        {"a.3ds", threeDs, {{1, "a.3ds: cannot be read as 3DS"}}},
        {"a.dxf", dxf, {{4, "a.dxf: does not end with EOF; "}}},
        {"a.ifc", ifc, {{18, "a.ifc: does not end with END-ISO-10303-21; "}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        for (const auto& [bytes, message] : c.cuts) {
            const std::string cut = c.content.substr(0, c.content.size() - bytes);
            EXPECT_THAT(messageOf([&] { read(c.name, cut); }), HasSubstr(message));
        }
        const Mesh whole = read(c.name, c.content);
        for (std::size_t length = 1; length < c.content.size(); ++length) {
            try {
                const Mesh mesh = read(c.name, c.content.substr(0, length));
                EXPECT_EQ(mesh.corners, whole.corners) << length;
                EXPECT_EQ(mesh.vertices.back().z, whole.vertices.back().z) << length;
            } catch (const DataError&) {
            }
        }
    }
    // Whole files as other programs write them.
    const auto with = [](std::string text, const std::string& part, const std::string& other) {
        for (auto at = text.find(part); at != text.npos; at = text.find(part, at + other.size())) {
            text.replace(at, part.size(), other);
        }
        return text;
    };
    const std::string littleEndian = plyBinary(false);
    const std::size_t data = littleEndian.find("end_header\n") + 11;
    const std::string lineEndsWithin = with(littleEndian.substr(data), bytesOf(5.0F), "\n\n\n\n");
    for (const auto& [name, content] : std::initializer_list<std::pair<const char*, std::string>>{
             {"crlf.ply", with(plyText, "\n", "\r\n")},
             {"blank.ply", with(plyText, "\n9", "\n\n 9") + "\n\n"},
             {"cr.ply", with(littleEndian.substr(0, data), "\n", "\r") + lineEndsWithin},
             {"counts.off", "OFF 4 3 0\n" + points + faces},
             {"colours.off", "OFF\n4 3 0\n" + points + with(faces, "\n", " 9 9 9 # grey\n")},
             {"padded.stl", stl + "\x1A" + std::string(5000, '\0')},
             {"name.stl", with(stl, "court", std::string(1000, 'c') + " facet")},
             {"mark.stl", "\xEF\xBB\xBF" + stl},
             {"line.stl", with(stl, "\nend", " end")},
             {"small.dxf", with(dxf, "EOF", "eof")},
             {"comment.dxf", dxf + "999\nmade by hand\n"},
             {"line.ifc",
              with(ifc, "ENDSEC;\nEND-", "ENDSEC; /* all */ END-") + "/* of it */\n"}}) {
        std::size_t count = 0;
        const auto take = [&, named = name, &whole = content] {
            count = read(named, whole).faces.size();
        };
        EXPECT_EQ(messageOf(take), "nothing is wrong") << name;
        EXPECT_EQ(count, content.front() == 'I' ? 1U : 3U) << name;
    }
}

TEST(MeshImport, ReportsWhatSinglePrecisionCost) {
    // Triangles of 0.2 m in map coordinates: single precision has steps of half a metre there.
    const auto strip = [](double x, double y, const char* name, bool asObj) {
        std::string points;
        std::string faces;
        for (int i = 0; i < 40; ++i) {
            points += fmt::format("{}{} {} 0\n", asObj ? "v " : "", x + 0.1 * i, y + 0.2 * (i % 2));
            if (i >= 2) {
                faces += fmt::format("{} {} {} {}\n", asObj ? "f" : "3", i - 2 + asObj,
                                     i - 1 + asObj, i + asObj);
            }
        }
        static const StudyFolder folder;
        return folder.write(name, (asObj ? "" : "OFF\n40 38 0\n") + points + faces);
    };
    const auto text = [](const std::filesystem::path& file, LengthUnit unit) {
        return precisionText(importMesh(file, {.unit = unit}), file);
    };
    const auto far = strip(5e6, 5e6, "far.off", false);
    const Mesh mesh = importMesh(far, {});
    EXPECT_EQ(mesh.coordinateStep, 0.5);
    EXPECT_EQ(countFacesWithoutArea(mesh), 38U);
    EXPECT_THAT(text(far, LengthUnit::metre), HasSubstr("steps of 0.5 m where this model stands, "
                                                        "and 38 faces have no area; move"));
    EXPECT_THAT(text(far, LengthUnit::millimetre), testing::IsEmpty());
    EXPECT_THAT(text(strip(0, 0, "near.off", false), LengthUnit::metre), testing::IsEmpty());
    const auto exact = strip(5e6, 5e6, "far.obj", true);
    EXPECT_EQ(countFacesWithoutArea(importMesh(exact, {})), 0U);
    EXPECT_THAT(text(exact, LengthUnit::metre), testing::IsEmpty());
}

} // namespace
} // namespace insolate::study
