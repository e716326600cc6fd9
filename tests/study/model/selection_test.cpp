#include "study/model/selection.h"
#include "study/support/errors.h"
#include "tests/study/support/study_fixture.h"
#include "tests/study/support/test_mesh.h"

#include <gmock/gmock.h>

namespace insolate::study {
namespace {

using test::messageOf;
using testing::ElementsAre;
using testing::HasSubstr;

/// Two boxes of one by two by three metres; faces 0 to 5 and 6 to 11: bottom, top, south, east,
/// north, west.
Mesh village() {
    Mesh mesh = test::meshOf(test::boxFaces({0, 0, 0}, {1, 2, 3}));
    for (const auto& polygon : test::boxFaces({5, 0, 0}, {6, 2, 3})) {
        test::addFace(mesh, polygon);
    }
    for (std::size_t i = 0; i < 12; ++i) {
        mesh.faces[i].object = mesh.nameIndex(i < 6 ? "house 1" : "house:2");
        mesh.faces[i].group = i < 6 ? mesh.nameIndex("old") : Mesh::unnamed;
        mesh.faces[i].material = mesh.nameIndex(i % 6 == 1   ? "tile*"
                                                : i % 6 == 0 ? "soil"
                                                             : "brick");
    }
    mesh.nameIndex("tiled");
    return mesh;
}

TEST(Selection, TakesPatternsPairsAndDirections) {
    struct Case {
        FaceSelection selection;
        std::vector<std::uint32_t> faces;
        double north = 0.0;
    };
    const Mesh mesh = village();
    for (const Case& c : std::vector<Case>{
             {{.patterns = {"ho*1"}}, {0, 1, 2, 3, 4, 5}},
             {{.patterns = {"*o*:so*"}}, {0, 6}},
             {{.patterns = {"house:2"}}, {6, 7, 8, 9, 10, 11}}, // a name before a pair
             {{.patterns = {"house:2:soil"}}, {6}},
             {{.patterns = {"old : tile*"}}, {1}}, // a group will do; the name has a * of its own
             {{.patterns = {"house 1:soil, house:2:brick"}, .exclude = {"soil"}}, {8, 9, 10, 11}},
             {{.exclude = {"old", "*:brick"}}, {6, 7}},
             {{.patterns = {"brick"}, .facing = {Facing::north, Facing::east}}, {3, 4, 9, 10}},
             {{.patterns = {"old"}, .facing = {Facing::north}}, {3}, 90.0}, // +X is north
             {{.patterns = {"old"}, .facing = {Facing::north}}, {4}, 45.0}, // +X+Y: one of the two
             {{.patterns = {"old"}, .facing = {Facing::up}}, {1}},
             {{.patterns = {"old"}, .facing = {Facing::down}}, {0}},
             {{.patterns = {"old"}, .tilt = TiltRange{90, 180}}, {0, 2, 3, 4, 5}}}) {
        EXPECT_EQ(selectFaces(mesh, c.selection, c.north, "a.obj").faces, c.faces)
            << testing::PrintToString(c.selection.patterns) << c.north;
    }
}

TEST(Selection, CountsFacesAndAreasOfEachPattern) {
    const SelectedFaces found = selectFaces(
        village(),
        {.patterns = {"old,tile*"}, .exclude = {"*:soil", "brick"}, .facing = {Facing::up}}, 0.0,
        "a.obj");
    EXPECT_THAT(found.faces, ElementsAre(1, 7));
    EXPECT_NEAR(found.area, 4.0, 1e-12);
    ASSERT_EQ(found.taken.size(), 2U);
    EXPECT_EQ(found.taken[0].faces, 6U);
    EXPECT_NEAR(found.taken[0].area, 22.0, 1e-12);
    EXPECT_NEAR(found.taken[1].area, 4.0, 1e-12);
    ASSERT_EQ(found.excluded.size(), 2U);
    EXPECT_EQ(found.excluded[0].faces, 1U); // the soil of house 2 was not selected
    EXPECT_NEAR(found.excluded[1].area, 18.0, 1e-12);
}

TEST(Selection, PitchedRoofsLookUpAndToTheirSide) {
    // Roofs of 45 degrees to the south and of 9 degrees to the east; the latter is flat.
    const Mesh mesh = test::meshOf({{{0, 0, 0}, {1, 0, 0}, {1, 1, 1}, {0, 1, 1}},
                                    {{0, 0, 0.158}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0.158}}});
    const auto faces = [&](Facing facing) {
        FaceSelection selection;
        selection.facing = {facing};
        return selectFaces(mesh, selection, 0.0, "a").faces;
    };
    EXPECT_THAT(faces(Facing::up), ElementsAre(0, 1));
    EXPECT_THAT(faces(Facing::south), ElementsAre(0));
    EXPECT_THROW(faces(Facing::east), DataError);
    FaceSelection steep;
    steep.tilt = parseTiltRange("45-90");
    EXPECT_THAT(selectFaces(mesh, steep, 0.0, "a").faces, ElementsAre(0));
}

TEST(Selection, RefusesWhatTakesNothing) {
    const Mesh mesh = village();
    for (const auto& [pattern, message] :
         {std::pair{"roof", "a.obj: no object, group or material is called 'roof'; choose from "},
          {"hous*3", "no object, group or material matches 'hous*3'; "},
          {"house 1:brik", "is called 'brik'; did you mean 'brick'?"},
          {"hose 1:brick", "is called 'hose 1'; did you mean 'house 1'?"},
          {"house 1:tiled",
           "no face has the object (or group) and the material of 'house 1:tiled'"},
          {"tiled", "a.obj: the selection holds no face; choose another name"}}) {
        EXPECT_THAT(
            messageOf([&, p = pattern] { selectFaces(mesh, {.patterns = {p}}, 0.0, "a.obj"); }),
            HasSubstr(message));
    }
    EXPECT_THAT(messageOf([&] { selectFaces(mesh, {.exclude = {"*"}}, 0.0, "a.obj"); }),
                HasSubstr("leave out less with --exclude"));
    EXPECT_THAT(messageOf([&] {
                    selectFaces(mesh, {.tilt = TiltRange{20.0, 30.0}}, 0.0, "a.obj");
                }),
                HasSubstr("widen --facing or --tilt"));
    EXPECT_THAT(messageOf([] { parseFacing("north,sauth"); }),
                HasSubstr("--facing: 'sauth' is no direction; did you mean 'south'?"));
    for (const char* text : {"30-0", "0-200", "-5-10", "steep", "", "10-", "nan"}) {
        EXPECT_THAT(messageOf([&] { parseTiltRange(text); }), HasSubstr("--tilt: ")) << text;
    }
    EXPECT_EQ(parseTiltRange("30").least, 29.0);
    EXPECT_THAT(parseFacing("up, west"), ElementsAre(Facing::up, Facing::west));
}

} // namespace
} // namespace insolate::study
