#include "study/model/winding.h"
#include "tests/study/support/study_fixture.h"
#include "tests/study/support/test_mesh.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <random>

namespace insolate::study {
namespace {

using test::boxFaces;
using testing::HasSubstr;
using Faces = std::vector<std::vector<Vector3>>;

Faces turned(Faces faces) {
    for (auto& face : faces) {
        std::reverse(face.begin(), face.end());
    }
    return faces;
}

Faces together(std::initializer_list<Faces> parts) {
    Faces all;
    for (const Faces& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

std::string textOf(const Bodies& found) {
    std::string text;
    for (const Body& body : found.bodies) {
        const char* names[] = {"outward", "inward", "mixed", "open"};
        text += fmt::format("{}{} {:.6g};", names[static_cast<int>(body.winding)],
                            body.isHollow ? " hollow" : "", body.volume);
    }
    return text;
}

TEST(Winding, TellsClosedBodiesAndTheirSides) {
    const Faces house = boxFaces({0, 0, 0}, {2, 3, 4});
    const Faces inner = boxFaces({0.5, 0.5, 0.5}, {1.5, 2.5, 3.5});
    const Faces next = boxFaces({2, 0, 0}, {4, 3, 5}); // shares the lower half of a wall's outline
    const Faces shed = boxFaces({2, 3, 0}, {3, 4, 1}); // touches the house along an edge
    Faces tent = house;
    tent.erase(tent.begin()); // no floor
    Faces muddled = house;
    std::reverse(muddled[3].begin(), muddled[3].end());
    // A roof with a court, bridged; the court's walls close it below.
    Faces ring = turned(boxFaces({1, 1, 0}, {2, 2, 1}));
    ring.erase(ring.begin(), ring.begin() + 2);
    const Faces outer = boxFaces({0, 0, 0}, {3, 3, 1});
    ring.insert(ring.end(), outer.begin() + 2, outer.end());
    ring.push_back({{0, 0, 1},
                    {3, 0, 1},
                    {3, 3, 1},
                    {0, 3, 1},
                    {0, 0, 1},
                    {1, 1, 1},
                    {1, 2, 1},
                    {2, 2, 1},
                    {2, 1, 1},
                    {1, 1, 1}});
    ring.push_back({{0, 0, 0},
                    {1, 1, 0},
                    {2, 1, 0},
                    {2, 2, 0},
                    {1, 2, 0},
                    {1, 1, 0},
                    {0, 0, 0},
                    {0, 3, 0},
                    {3, 3, 0},
                    {3, 0, 0}});
    const std::vector<Vector3> sheet = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}};
    for (const auto& [faces, expected] : std::vector<std::pair<Faces, std::string>>{
             {house, "outward 24;"},
             {turned(house), "inward 24;"},
             {muddled, "mixed 24;"},
             {tent, "open 0;"},
             {{sheet, {sheet[0], sheet[2], sheet[1]}}, "open 0;"}, // both sides of a sheet
             {ring, "outward 8;"},
             {together({house, shed}), "outward 24;outward 1;"},
             {together({house, turned(inner)}), "outward 24;outward hollow 6;"},
             {together({turned(house), inner}), "inward 24;inward hollow 6;"},
             {together({house, inner}), "outward 24;outward 6;"},
             {together({turned(inner), turned(house)}), "inward 6;inward 24;"},
             {together({house, turned(next)}), "outward 24;inward 30;"},
             {{}, ""}}) {
        for (const Vector3& moved : {Vector3{}, Vector3{4.5e6, 5.6e6, 200}}) {
            Mesh mesh = test::meshOf(faces);
            for (Vector3& p : mesh.vertices) {
                p = p + moved;
            }
            EXPECT_EQ(textOf(findBodies(mesh)), expected);
            EXPECT_EQ(textOf(findBodies(test::triangulated(mesh))), expected);
            // Turned outward, nothing is left to turn.
            orientFaces(mesh, Orient::outward);
            const Bodies after = findBodies(mesh);
            EXPECT_EQ(std::count(after.isTurned.begin(), after.isTurned.end(), 1), 0) << expected;
            EXPECT_EQ(after.count(Winding::inward) + after.count(Winding::mixed), 0U) << expected;
        }
    }
}

TEST(Winding, ObjectsThatShareAWholeWallCloseByThemselves) {
    Mesh mesh;
    for (int i = 0; i < 3; ++i) {
        for (auto polygon : boxFaces({2.0 * i, 0, 0}, {2.0 * i + 2.0, 2, 2})) {
            if (i == 1) {
                std::reverse(polygon.begin(), polygon.end());
            }
            test::addFace(mesh, polygon).object = mesh.nameIndex(fmt::format("house {}", i));
        }
    }
    EXPECT_EQ(textOf(findBodies(mesh)), "outward 8;inward 8;outward 8;");
}

TEST(Winding, TurnsWhatIsAskedForAndSaysSo) {
    const Faces faces = together({boxFaces({0, 0, 0}, {1, 1, 1}),
                                  turned(boxFaces({3, 0, 0}, {4, 1, 1})),
                                  {{{9, 9, 9}, {8, 8, 8}, {9, 8, 9}}}});
    const auto normals = [](const Mesh& mesh) {
        std::vector<int> outward;
        std::vector<Vector3> polygon;
        for (std::size_t f = 0; f < 12; ++f) {
            const Vector3 normal = areaVector(mesh.polygonOf(mesh.faces[f], polygon));
            const Vector3 centre = f < 6 ? Vector3{0.5, 0.5, 0.5} : Vector3{3.5, 0.5, 0.5};
            outward.push_back(dot(normal, polygon[0] - centre) > 0.0 ? 1 : 0);
        }
        return outward;
    };
    for (const auto& [orient, first, second, text] :
         {std::tuple{Orient::outward, 1, 1, "6 faces were turned"},
          {Orient::keep, 1, 0,
           "a.obj: the faces of 1 of 2 closed bodies look inwards: their sensors "
           "stand inside; --orient outward turns 6 faces"},
          {Orient::flip, 0, 1, "every face was turned"}}) {
        Mesh mesh = test::meshOf(faces);
        const OrientReport report = orientFaces(mesh, orient);
        EXPECT_THAT(orientText(report, orient, "a.obj"), HasSubstr(text));
        const std::vector<int> now = normals(mesh);
        EXPECT_EQ(std::count(now.begin(), now.begin() + 6, first), 6) << text;
        EXPECT_EQ(std::count(now.begin() + 6, now.end(), second), 6) << text;
        EXPECT_EQ(report.open, 1U);
        EXPECT_EQ(parseOrient(orient == Orient::keep ? "keep" : "outward") == Orient::keep,
                  orient == Orient::keep);
    }
    EXPECT_THAT(test::messageOf([] { parseOrient("out"); }), HasSubstr("outward, flip, keep"));
}

TEST(Winding, NestsByAllBodiesOfARandomCity) {
    // Blocks at random places of a grid, each turned or not, each with a hollow, turned or not
    // against it, or none: the winding of every one is known.
    std::mt19937 random(5);
    Mesh mesh;
    std::string expected;
    std::vector<int> places(400);
    std::iota(places.begin(), places.end(), 0);
    std::shuffle(places.begin(), places.end(), random);
    for (const int place : places) {
        const Vector3 low = {place % 20 * 10.0, place / 20 * 10.0, place % 7 * 1.0};
        const Faces block = boxFaces(low, low + Vector3{10, 10, 8}); // walls stand on each other
        const Faces room = boxFaces(low + Vector3{1, 1, 1}, low + Vector3{2, 3, 4});
        const bool isInward = random() % 2 == 0;
        const bool isAgainst = random() % 2 == 0;
        const std::string object = fmt::format("{}", place);
        for (const auto& part :
             {isInward ? turned(block) : block, isInward != isAgainst ? turned(room) : room}) {
            for (const auto& polygon : part) {
                test::addFace(mesh, polygon).object = mesh.nameIndex(object);
            }
        }
        const char* winding = isInward ? "inward" : "outward";
        expected += fmt::format("{} 800;{}{} 6;", winding, winding, isAgainst ? " hollow" : "");
    }
    EXPECT_EQ(textOf(findBodies(mesh)), expected);
}

} // namespace
} // namespace insolate::study
