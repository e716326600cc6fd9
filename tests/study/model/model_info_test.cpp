#include "study/model/likely_unit.h"
#include "study/model/model_info.h"
#include "tests/study/support/test_mesh.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <algorithm>

namespace insolate::study {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

/// A house of 10 by 8 by 6 m, wound inwards, with a shed's open roof to the south at 30 degrees,
/// twice, and a face without area.
Mesh plot() {
    Mesh mesh;
    for (auto polygon : test::boxFaces({0, 0, 0}, {10, 8, 6})) {
        std::reverse(polygon.begin(), polygon.end());
        Mesh::Face& face = test::addFace(mesh, polygon);
        face.object = mesh.nameIndex("house");
        face.material = mesh.nameIndex("brick");
    }
    const double rise = 4.0 * std::tan(30.0 / 57.295779513);
    std::vector<Vector3> roof = {{20, 0, 2}, {26, 0, 2}, {26, 4, 2 + rise}, {20, 4, 2 + rise}};
    test::addFace(mesh, roof).object = mesh.nameIndex("shed");
    std::rotate(roof.begin(), roof.begin() + 1, roof.end());
    test::addFace(mesh, roof).object = mesh.nameIndex("shed");
    std::reverse(roof.begin(), roof.end());
    test::addFace(mesh, roof).object = mesh.nameIndex("shed");
    test::addFace(mesh, {roof[0], roof[1], roof[1]});
    return mesh;
}

TEST(ModelInfo, CountsPartsBodiesAndFaults) {
    Mesh mesh = plot();
    mesh.coordinateStep = 0.5;
    const ModelInfo info = modelInfo(mesh, "a.obj", LengthUnit::metre);
    EXPECT_EQ(info.faces, 10U);
    EXPECT_EQ(info.triangles, 19U);
    EXPECT_EQ(info.vertices, 12U);
    EXPECT_EQ(info.inward, 1U);
    EXPECT_EQ(info.outward + info.mixed, 0U);
    EXPECT_NEAR(info.volume, 480.0, 1e-9);
    EXPECT_EQ(info.doubles, 2U);
    EXPECT_EQ(info.backToBack, 1U);
    EXPECT_EQ(info.facesWithoutArea, 1U);
    EXPECT_EQ(info.high.x, 26.0);
    ASSERT_EQ(info.objects.size(), 3U);
    EXPECT_EQ(info.objects[0].name, "house");
    EXPECT_NEAR(info.objects[0].area, 2 * (80 + 60 + 48), 1e-9);
    EXPECT_NEAR(length(info.objects[0].meanNormal), 0.0, 1e-12);
    EXPECT_NEAR(length(info.objects[1].meanNormal), 1.0 / 3.0, 1e-9); // one of three looks back
    EXPECT_TRUE(info.groups.empty());
    EXPECT_EQ(info.materials[1].name, "");

    const std::string text = modelInfoText(info, 0.0);
    EXPECT_THAT(text,
                AllOf(HasSubstr("a.obj\n10 faces, 19 triangles, 12 places"),
                      HasSubstr("extent 26 x 8 x 6 m, from (0, 0, 0)"),
                      HasSubstr("units: m, which fits"),
                      HasSubstr("closed bodies: 1, 480 m3; 0 wound outward, 1 inward, 0 mixed; "
                                "open surfaces: "),
                      HasSubstr("--orient outward turns them"),
                      HasSubstr("double faces: 2, 1 of them back to back"),
                      HasSubstr("faces without area: 1"),
                      HasSubstr("in steps of 0.5 m; move the model to its origin"),
                      HasSubstr("groups: none"), HasSubstr("all around"),
                      HasSubstr("mainly south, tilt 30")));
    // True north is the model's +X: its south is the east.
    EXPECT_THAT(modelInfoText(info, 90.0), HasSubstr("mainly east, tilt 30"));
    const auto json = nlohmann::json::parse(modelInfoJson(info, 90.0));
    EXPECT_EQ(json["bodies"]["inward"], 1);
    EXPECT_NEAR(json["objects"][1]["orientation"]["azimuth"].get<double>(), 90.0, 1e-6);
    EXPECT_NEAR(json["objects"][1]["orientation"]["tilt"].get<double>(), 30.0, 1e-6);
    EXPECT_EQ(json["units"]["likely"], "m");
}

TEST(ModelInfo, GuessesTheUnit) {
    for (const auto& [edge, read, expected] :
         {std::tuple{10.0, LengthUnit::metre, "units: m, which fits"},
          {10000.0, LengthUnit::metre, "look like mm: try --units mm"},
          {1000.0, LengthUnit::metre, "look like cm: try --units cm"},
          {10.0, LengthUnit::millimetre, "units: mm, which fits"}, // 10 m after the conversion
          {0.01, LengthUnit::millimetre, "read as mm, but the lengths look like m: "},
          {1e-5, LengthUnit::metre, "fit no building"}}) {
        Mesh mesh = test::meshOf(test::boxFaces({0, 0, 0}, {edge * 3, edge * 2, edge}));
        EXPECT_THAT(modelInfoText(modelInfo(mesh, "a", read), 0.0), HasSubstr(expected)) << edge;
    }
    // Terrain may have faces of any size, and so may a plain block that is no tower.
    for (const auto& [lengths, unit] :
         {std::pair{ModelLengths{{9.0e4, 9.0e4, 2500.0}, 250.0, false}, LengthUnit::metre},
          {ModelLengths{{150.0, 150.0, 20.0}, 150.0, true}, LengthUnit::metre},
          {ModelLengths{{60.0, 60.0, 400.0}, 60.0, true}, LengthUnit::metre},
          {ModelLengths{{5.0e5, 5.0e5, 2.0e4}, 9000.0, true}, LengthUnit::millimetre}}) {
        EXPECT_EQ(likelyUnit(LengthUnit::metre, lengths), unit) << lengths.extent.x;
    }
    EXPECT_THAT(modelInfoText(modelInfo(Mesh(), "a", LengthUnit::metre), 0.0),
                Not(HasSubstr("nan")));
}

} // namespace
} // namespace insolate::study
