#include "study/model/materials.h"
#include "study/model/mesh.h"
#include "study/support/errors.h"
#include "tests/study/support/study_fixture.h"
#include "tests/study/support/test_mesh.h"

#include <gmock/gmock.h>

namespace insolate::study {
namespace {

using test::messageOf;
using testing::HasSubstr;

MaterialRules rulesOf(const std::string& text) {
    const std::vector<std::string> others = {"weather", "reflectance"};
    return parseMaterials(text, "m.toml", others);
}

TEST(Materials, AreReadWithTheirSeasons) {
    const MaterialRules rules = rulesOf(R"(weather = "a.epw"
[material."glass*"]
transmittance = 0.72
index = 1.6
[material.tree]
transmittance = { leaf = 0.1, bare = 0.6 }
leaf = "11/1-2/28"
[material.crown]
density = [1, 1, 1, 1, 1, 1, 2, 2, 2, 1, 1, 1]
[material.pine]
transmittance = { leaf = 0.3 }
[material.white]
reflectance = 1
[ground]
albedo = 0.3
)");
    const MaterialRules line = rulesOf("material = { tree_1 = {}, \"tree_*\" = {}, b = {} }");
    ASSERT_EQ(line.rules.size(), 3U);
    EXPECT_EQ(line.rules[1].pattern, "tree_*"); // the order of the file
    ASSERT_EQ(rules.rules.size(), 5U);
    EXPECT_EQ(rules.albedo, 0.3);
    const Material& glass = rules.rules[0].material;
    EXPECT_EQ(rules.rules[0].pattern, "glass*");
    EXPECT_EQ(glass.passage, Material::Passage::Pane);
    EXPECT_FLOAT_EQ(glass.passing.on(40), 0.72f);
    EXPECT_FLOAT_EQ(glass.refractiveIndex, 1.6f);
    EXPECT_FLOAT_EQ(glass.reflectance, PaneGlass(0.72f, 1.6f).hemispherical().reflected);
    const Material& tree = rules.rules[1].material;
    EXPECT_EQ(tree.passage, Material::Passage::Leaves);
    for (const auto& [day, value] : std::vector<std::pair<int, float>>{
             {304, 0.6f}, {305, 0.1f}, {1, 0.1f}, {59, 0.1f}, {60, 0.6f}}) {
        EXPECT_FLOAT_EQ(tree.passing.on(day), value) << day;
    }
    const Material& crown = rules.rules[2].material;
    EXPECT_EQ(crown.passage, Material::Passage::Crown);
    EXPECT_FLOAT_EQ(crown.passing.on(181), 0.5f); // half of the leaf area is in the way
    EXPECT_FLOAT_EQ(crown.passing.on(182), 1.0f);
    EXPECT_EQ(crown.reflectance, 0.0f);
    EXPECT_FLOAT_EQ(rules.rules[3].material.passing.on(1), 0.3f);
    EXPECT_EQ(rules.rules[4].material.passage, Material::Passage::Opaque);
    EXPECT_FLOAT_EQ(rules.rules[4].material.reflectance, 1.0f);
}

TEST(Materials, AreRefusedWithLineAndFix) {
    const std::string head = "[material.a]\n";
    for (const auto& [text, message] : std::vector<std::pair<std::string, std::string>>{
             {head + "reflectanse = 0.3", "m.toml:2: material 'a': a material has no "
                                          "'reflectanse'; did you mean 'reflectance'?"},
             {head + "reflectance = 1.2", "m.toml:2: material 'a': reflectance is 1.2; give a "
                                          "number from 0 to 1"},
             {head + "reflectance = nan", "reflectance is n"},
             {head + "reflectance = \"dark\"", "reflectance is n"},
             {head + "transmittance = 0.8\nreflectance = 0.3", "m.toml:3: "},
             {head + "transmittance = 0.8\nreflectance = 0.3", "add up to more than 1"},
             {head + "transmittance = 0.8\ndensity = 1", "keep one of them"},
             {head + "transmittance = [0.1, 0.2]", "has 2 values; give twelve"},
             {head + "transmittance = { leaf = 0.1, bare = 0.5 }", "write leaf = \"4/15-10/31\""},
             {head + "transmittance = { bare = 0.5 }", "has no leaf"},
             {head + "density = { leaf = 1, full = 2 }", "has no 'full'"},
             {head + "transmittance = { leaf = 0.1, bare = 0.5 }\nleaf = \"4/31-9/1\"", "m.toml:3"},
             {head + "density = 1\nindex = 1.5", "index belongs to a pane"},
             {head + "density = 1\nreflectance = 0.1", "reflectance belongs to a surface"},
             {head + "reflectance = 0.3\nleaf = \"4/1-9/1\"", "leaf belongs to"},
             {"[materials.a]\n",
              "m.toml:1: no material and no [ground]: 'materials'; did you mean"},
             {"reflectance = 0.5\n" + head, "m.toml:1: no material and no [ground]: 'reflectance'"},
             {head + "transmittance = 0.93", "m.toml:2: material 'a': transmittance 0.93 is more "
                                             "than glass of refractive index 1.526 lets through, "
                                             "0.917"},
             {"material = 3\n", "begin each with a line"},
             {"[ground]\nalbedo = 2\n", "m.toml:2: albedo is out of range"},
             {"[ground]\nreflectance = 0.2\n", "[ground] has one key"},
             {head + "reflectance = \n", "m.toml:2"}}) {
        EXPECT_THAT(messageOf([&rules = text] { rulesOf(rules); }), HasSubstr(message)) << text;
    }
}

TEST(Materials, FitTheTrianglesOfTheirNames) {
    Mesh mesh = test::meshOf(test::boxFaces({0, 0, 0}, {1, 2, 3}));
    for (std::size_t i = 0; i < mesh.faces.size(); ++i) {
        mesh.faces[i].object = mesh.nameIndex("house");
        mesh.faces[i].material = i < 2 ? mesh.nameIndex("tile") : mesh.nameIndex("brick");
    }
    Mesh tree = test::meshOf(test::boxFaces({5, 0, 0}, {6, 2, 3}));
    tree.faces[0].material = tree.nameIndex("tile");
    Scene scene;
    appendTriangles(mesh, scene);
    appendTriangles(tree, scene);
    const MaterialRules rules = rulesOf("[material.tile]\nreflectance = 0.6\n"
                                        "[material.house]\nreflectance = 0.4\n");
    const SceneMaterials found = sceneMaterials(scene, &rules, 0.1);
    ASSERT_EQ(found.ofTriangle.size(), 24U);
    for (std::size_t i = 0; i < 24; ++i) {
        // The first rule that fits holds; faces without names have none.
        const float expected = i < 4 || i / 2 == 6 ? 0.6f : i < 12 ? 0.4f : 0.1f;
        EXPECT_FLOAT_EQ(found.materials[found.ofTriangle[i]].reflectance, expected) << i;
    }
    EXPECT_EQ(found.uses[0].triangles, 6U);
    EXPECT_NEAR(found.uses[0].area, 2.0 + 2.0 + 2.0, 1e-9); // bottom, top and the other bottom
    EXPECT_EQ(found.uses[1].text, "opaque, reflects 0.4");
    const SceneMaterials black = sceneMaterials(scene, &rules, 0.0);
    EXPECT_EQ(black.ofTriangle, found.ofTriangle);
    EXPECT_EQ(black.materials[1].reflectance, 0.0f);
    EXPECT_EQ(black.uses[1].text, "opaque, reflects 0");
    const MaterialRules wrong = rulesOf("[material.houze]\nreflectance = 0.4\n");
    EXPECT_THAT(messageOf([&] { sceneMaterials(scene, &wrong, 0.1); }),
                HasSubstr("m.toml:1: no object, group or material is called 'houze'; did you mean "
                          "'house'?"));
}

} // namespace
} // namespace insolate::study
