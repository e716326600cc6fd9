#include "study/model/cityjson_reader.h"
#include "study/model/mesh_import.h"
#include "study/model/winding.h"
#include "study/support/errors.h"
#include "tests/study/support/study_fixture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <map>

namespace insolate::study {
namespace {

using test::messageOf;
using test::StudyFolder;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

/// The corners of a box of 4 by 3 by 2 m in millimetres: below 0 to 3, above 4 to 7; and four of a
/// window in its south wall, 8 to 11.
const std::string boxVertices = "[0,0,0],[4000,0,0],[4000,3000,0],[0,3000,0],"
                                "[0,0,2000],[4000,0,2000],[4000,3000,2000],[0,3000,2000],"
                                "[1000,0,500],[2000,0,500],[2000,0,1500],[1000,0,1500]";
const std::string transform =
    R"("transform":{"scale":[0.001,0.001,0.001],"translate":[85000,446000,10]})";
/// Ground, roof, south with or without the window, east, north, west.
std::string shell(bool hasWindow) {
    return "[[[0,3,2,1]],[[4,5,6,7]],[[0,1,5,4]" + std::string(hasWindow ? ",[8,11,10,9]" : "") +
           "],[[1,2,6,5]],[[2,3,7,6]],[[3,0,4,7]]]";
}
const std::string surfaces =
    R"("surfaces":[{"type":"GroundSurface"},{"type":"RoofSurface"},)"
    R"({"type":"WallSurface"},{"type":"Unused"},{"type":"ClosureSurface"}])";
std::string solid(const std::string& lod, bool hasWindow = false) {
    return R"({"type":"Solid","lod":)" + lod + R"(,"boundaries":[)" + shell(hasWindow) +
           R"(],"semantics":{)" + surfaces + R"(,"values":[[0,1,2,2,2,null]]}})";
}
std::string surface(const std::string& lod, const std::string& boundaries) {
    return R"({"type":"MultiSurface","lod":)" + lod + R"(,"boundaries":)" + boundaries + "}";
}
std::string object(const std::string& id, const std::string& type, const std::string& geometry,
                   const std::string& more = "") {
    return "\"" + id + R"(":{"type":")" + type + "\"" + more +
           (geometry.empty() ? "" : ",\"geometry\":[" + geometry + "]") + "}";
}
std::string city(const std::string& objects, const std::string& version = "2.0",
                 const std::string& more = "") {
    return R"({"type":"CityJSON","version":")" + version + "\"," +
           (version == "1.0" ? "" : transform + ",") + more + "\"CityObjects\":{" + objects +
           "},\"vertices\":[" + boxVertices + "]}";
}

/// Faces and their area [m2] by "object/group/material".
std::map<std::string, std::pair<std::size_t, double>> partsOf(const Mesh& mesh) {
    std::map<std::string, std::pair<std::size_t, double>> parts;
    std::vector<Vector3> polygon;
    const auto name = [&](std::uint32_t i) { return i == Mesh::unnamed ? "-" : mesh.names[i]; };
    for (const Mesh::Face& face : mesh.faces) {
        auto& [faces, area] =
            parts[name(face.object) + "/" + name(face.group) + "/" + name(face.material)];
        ++faces;
        area += 0.5 * length(areaVector(mesh.polygonOf(face, polygon)));
        area = std::round(area * 1e6) * 1e-6;
    }
    return parts;
}
using Parts = std::map<std::string, std::pair<std::size_t, double>>;

class CityJson : public testing::Test {
protected:
    Mesh read(const std::string& text, const std::string& lod = "") {
        return importMesh(folder.write("a.city.json", text),
                          {.unit = LengthUnit::metre, .up = {}, .lod = lod});
    }
    StudyFolder folder;
};

TEST_F(CityJson, ReadsEachVersionWithSemanticsHolesAndTransform) {
    const Parts expected = {{"h/Building/GroundSurface", {1, 12.0}},
                            {"h/Building/RoofSurface", {1, 12.0}},
                            {"h/Building/WallSurface", {3, 8.0 - 1.0 + 6.0 + 8.0}},
                            {"h/Building/-", {1, 6.0}}};
    for (const auto& [version, lod, scale] :
         {std::tuple{"1.0", "2", 1000.0}, {"1.1", "\"2\"", 1.0}, {"2.0.1", "\"2.2\"", 1.0}}) {
        Mesh mesh = read(city(object("h", "Building", solid(lod, true)), version));
        for (Vector3& p : mesh.vertices) { // without a transform the numbers stand for themselves
            p = p * (1.0 / scale);
        }
        EXPECT_EQ(partsOf(mesh), expected) << version;
        EXPECT_THAT(mesh.notes, testing::IsEmpty());
        EXPECT_NEAR(mesh.vertices[0].x, scale == 1.0 ? 85000.0 : 0.0, 1e-9);
        const Bodies bodies = findBodies(mesh); // the window's rim is open
        EXPECT_EQ(bodies.count(Winding::open), 1U);
    }
    // The hole is cut out of the wall, wherever its rings begin.
    const Mesh mesh = read(city(object("h", "Building", solid("\"2\"", true))));
    Scene scene;
    appendTriangles(mesh, scene);
    EXPECT_EQ(scene.triangleCount(), 5U * 2U + 8U);
    // The whole box is closed and wound outwards.
    const Bodies whole = findBodies(read(city(object("h", "Building", solid("\"2\"")))));
    EXPECT_EQ(whole.count(Winding::outward), 1U);
    EXPECT_NEAR(whole.bodies[0].volume, 24.0, 1e-6);
    // A 1.0 file may have a transform; integers beyond 32 bits keep their value; degrees do not
    // come.
    const Mesh far =
        read(R"({"type":"CityJSON","version":"1.0","transform":{"scale":[0.001,0.001,1],)"
             R"("translate":[0,0,0]},"CityObjects":{)" +
             object("h", "Road", surface("1", "[[[0,1,2]]]")) +
             R"(},"vertices":[[4309958777,5309958777,-3],[4309959777,5309958777,-3],)"
             R"([4309958777,5309959777,-3]]})");
    EXPECT_NEAR(far.vertices[0].x, 4309958.777, 1e-6);
    EXPECT_EQ(far.vertices[0].z, -3.0);
}

TEST_F(CityJson, TakesOneLevelOfDetailOfAFamily) {
    const std::string foot = "[[[0,3,2,1]]]";
    const std::string lods = surface("\"0\"", foot) + "," + solid("\"1.2\"") + "," +
                             surface("\"2.2\"", "[[[4,5,6]],[[4,6,7]]]") +
                             R"(,{"type":"MultiPoint","lod":"3","boundaries":[0]})"
                             R"(,{"type":"Solid","lod":"3.1","boundaries":[]})";
    const auto faces = [&](const std::string& objects, const std::string& lod) {
        return read(city(objects), lod).faces.size();
    };
    const std::string one = object("h", "Building", lods);
    EXPECT_EQ(faces(one, ""), 2U);
    EXPECT_EQ(faces(one, "1"), 6U);
    EXPECT_EQ(faces(one, "1.2"), 6U);
    EXPECT_EQ(faces(one, "0"), 1U);
    EXPECT_EQ(faces(one, "1.1"), 1U); // not there: the next lower one
    EXPECT_EQ(faces(one, "3"), 2U);
    EXPECT_THAT(read(city(one), "3").notes,
                ElementsAre(HasSubstr("1 city object: without the level of detail asked for")));
    EXPECT_THAT(messageOf([&] { read(city(one), "high"); }), HasSubstr("--lod: 'high'"));

    // A footprint of the building and solids of its parts; an installation has its own level.
    const std::string family =
        object("h", "Building", surface("\"0\"", foot), R"(,"children":["p","q","c"])") + "," +
        object("p", "BuildingPart", solid("\"2.2\""), R"(,"parents":["h"])") + "," +
        object("q", "BuildingPart", solid("\"1.2\"") + "," + solid("\"2.2\""),
               R"(,"parents":["h"])") +
        "," +
        object("c", "BuildingInstallation", surface("\"2\"", "[[[0,1,5]]]"), R"(,"parents":["h"])");
    EXPECT_EQ(faces(family, ""), 13U);
    EXPECT_EQ(faces(family, "0"), 1U + 1U); // the footprint shows the parts too
    EXPECT_EQ(faces(family, "1.2"), 6U + 6U + 1U);
    const Parts parts = partsOf(read(city(family)));
    EXPECT_EQ(parts.at("h/BuildingPart/RoofSurface").first, 2U);
    EXPECT_EQ(parts.at("h/BuildingInstallation/-").first, 1U);
}

TEST_F(CityJson, NamesGroupsRootsAndWhatIsLeftOut) {
    const std::string wall = surface("\"2\"", "[[[0,1,5,4]]]");
    const Mesh mesh = read(city(
        object("h", "Building", "", R"(,"children":["p"])") + "," +
        object("p", "BuildingPart", wall, R"(,"parents":["quarter","h"])") + "," +
        object("pp", "BuildingPart", wall, R"(,"parents":["p"])") + "," +
        object("loop", "Building", wall, R"(,"parents":["loop"])") + "," +
        object("quarter", "CityObjectGroup", wall, R"(,"children":["h","gone"])") + "," +
        object("room", "BuildingRoom", wall, R"(,"parents":["h"])") + "," +
        object("x", "+Noise", wall) + "," + object("y", "Spaceship", wall) + "," +
        object("none", "Road", "") + "," + object("void", "Road", surface("\"1\"", "[]")) + "," +
        object("dot", "Road", R"({"type":"MultiPoint","lod":"1","boundaries":[0]})") + "," +
        object("thin", "Road", surface("\"1\"", "[[[0,1]],[],[[]],[[0,1,2],[3]]]")) + "," +
        object(
            "gate", "Road",
            R"({"type":"MultiSurface","lod":"1","boundaries":[[[0,1,2]],[[0,1,5]],[[1,2,6]]],"semantics":{)" +
                surfaces + R"(,"values":[4,99,null]}})") +
        R"(,"null":null,"bare":{"type":"Road","geometry":null},)" +
        object("cross", "LandUse", surface("\"1\"", "[[[0,1,2],[0,2,3]]]"))));
    const Parts expected = {{"h/quarter/-", {2, 16.0}},
                            {"loop/Building/-", {1, 8.0}},
                            {"thin/Road/-", {1, 6.0}},
                            {"gate/Road/-", {2, 7.0}},
                            {"cross/LandUse/-", {1, 6.0}}};
    EXPECT_EQ(partsOf(mesh), expected);
    EXPECT_THAT(
        mesh.notes,
        testing::UnorderedElementsAre(
            HasSubstr("a.city.json: 1 city object: points or lines, left out"),
            HasSubstr("1 city object: rooms"), HasSubstr("1 city object: without surfaces"),
            HasSubstr("2 city objects of unknown type ('+Noise', 'Spaceship') were left out"),
            HasSubstr("4 rings with less than three corners"),
            HasSubstr("2 city objects: damaged (no object, or geometry that is no list), left out"),
            HasSubstr("1 surface whose holes cross")));
}

TEST_F(CityJson, PlacesTemplates) {
    const std::string templates =
        R"("geometry-templates":{"templates":[{"type":"MultiSurface","lod":"2",)"
        R"("boundaries":[[[0,1,2]]]}],"vertices-templates":[[0,0,0],[1,0,0.5],[0,1,0]]},)";
    const auto tree = [](const std::string& id, int at, const std::string& matrix) {
        return object(id, "SolitaryVegetationObject",
                      R"({"type":"GeometryInstance","template":0,"boundaries":[)" +
                          std::to_string(at) + R"(],"transformationMatrix":)" + matrix + "}");
    };
    const Mesh mesh = read(city(tree("a", 2, "[2,0,0,5, 0,3,0,0, 0,0,4,1, 0,0,0,1]") + "," +
                                    tree("b", 0, "[-1,0,0,0, 0,1,0,0, 0,0,1,0, 0,0,0,1]"),
                                "2.0", templates));
    ASSERT_EQ(mesh.faces.size(), 2U);
    std::vector<Vector3> polygon;
    // The template's second corner, (1, 0, 0.5), scaled and moved at (85004, 446003, 10).
    const Vector3 p = mesh.polygonOf(mesh.faces[0], polygon)[1];
    EXPECT_NEAR(length(p - Vector3{85011.0, 446003.0, 13.0}), 0.0, 1e-9);
    EXPECT_GT(areaVector(polygon).z, 0.0);
    EXPECT_GT(areaVector(mesh.polygonOf(mesh.faces[1], polygon)).z,
              0.0); // mirrored, and turned back
    EXPECT_THAT(messageOf([&] { read(city(tree("a", 2, "[1,2]"), "2.0", templates)); }),
                HasSubstr("city object 'a': the transformationMatrix"));
    EXPECT_THAT(messageOf([&] { read(city(tree("a", 2, "[]"))); }),
                HasSubstr("city object 'a': it is an instance of a template that is not there"));
}

TEST_F(CityJson, ReadsSequencesOfFeaturesByLine) {
    const std::string head = R"({"type":"CityJSON","version":"2.0",)" + transform +
                             R"(,"CityObjects":{},"vertices":[]})"
                             "\n";
    const auto feature = [](const std::string& id, int x) {
        return R"({"type":"CityJSONFeature","id":")" + id + R"(","CityObjects":{)" +
               object(id, "Building", "", R"(,"children":[")" + id + "-0\"]") + "," +
               object(id + "-0", "BuildingPart", surface("\"2\"", "[[[0,1,2]]]"),
                      R"(,"parents":[")" + id + "\"]") +
               R"(},"vertices":[[)" + std::to_string(x) + ",0,0],[-1000,1000,0],[0,0,1000]]}\n";
    };
    const auto file = folder.write("a.jsonl", "\xEF\xBB\xBF" + head + feature("one", 1000) + "\n" +
                                                  feature("two", 2000));
    const Mesh mesh = importMesh(file, {});
    EXPECT_THAT(mesh.names, ElementsAre("one", "BuildingPart", "two"));
    ASSERT_EQ(mesh.vertices.size(), 6U);
    EXPECT_NEAR(mesh.vertices[3].x, 85002.0, 1e-9);
    EXPECT_NEAR(mesh.vertices[4].x, 84999.0, 1e-9);
    const Mesh twice = read(
        head +
        R"({"type":"CityJSONFeature","CityObjects":{"one":{"type":"Building"}},"vertices":[]})" +
        "\n" + feature("one", 1) + feature("two", 1) + feature("one", 1));
    EXPECT_EQ(twice.faces.size(), 2U);
    EXPECT_THAT(twice.notes,
                ElementsAre(HasSubstr("1 city object: given a second time, left out")));
    EXPECT_THAT(messageOf([&] { read(head + "\n" + feature("one", 1) + "{\"type\":\"X\"}\n"); }),
                HasSubstr("a.city.json:4: a line of the sequence is no CityJSONFeature"));
    EXPECT_THAT(messageOf([&] { read(head + feature("one", 1) + "{\"type\":\n[}\n"); }),
                HasSubstr("a.city.json:4: this is no JSON, or the file is cut off"));
    EXPECT_THAT(messageOf([&] { read(feature("one", 1)); }), HasSubstr("begins with a feature"));
}

TEST_F(CityJson, RefusesWhatItCannotRead) {
    const std::string box = object("h", "Building", solid("\"2\""));
    const auto withSystem = [&](const std::string& system) {
        return city(box, "2.0", R"("metadata":{"referenceSystem":")" + system + "\"},");
    };
    EXPECT_EQ(read(withSystem("https://www.opengis.net/def/crs/EPSG/0/7415")).faces.size(), 6U);
    const std::string degrees =
        R"({"type":"CityJSON","version":"1.0","CityObjects":{)" +
        object("h", "Building", surface("2", "[[[0,1,2]]]")) +
        R"(},"vertices":[[8.4661,49.4871,110],[8.4663,49.4871,110],[8.4662,49.4872,122]]})";
    std::string deep = city(box);
    deep.insert(deep.size() - 1, ",\"x\":" + std::string(200, '[') + std::string(200, ']'));
    for (const auto& [text, message] : std::vector<std::pair<std::string, std::string>>{
             {degrees, "look like degrees"},
             {withSystem("urn:ogc:def:crs:EPSG::4979"),
              "'urn:ogc:def:crs:EPSG::4979', not in metres"},
             {withSystem("EPSG:6697"), "reproject"},
             {deep, "a.city.json:1: more than 100 lists"},
             {"{\"CityObjects\":" + std::string(100'000, '['), "more than 100 lists"},
             {city(box, "0.9"), "version '0.9' is not read"},
             {R"({"type":"CityJSON","version":"1.1","CityObjects":{}})",
              "the transform is missing"},
             {R"({"type":"FeatureCollection","CityObjects":{}})", "this is not CityJSON"},
             {R"({"type":"CityJSON","version":"2.0",)" + transform + R"(,"CityObjects":[]})",
              "\"CityObjects\" is not an object"},
             {R"({"type":"CityJSON","version":"2.0",)" + transform + R"(,"CityObjects":null})",
              "\"CityObjects\" is not an object"},
             {city("").substr(0, 150), "no JSON, or the file is cut off"},
             {city(object("h", "Road", surface("\"1\"", "[[[0,1,12]]]"))),
              "city object 'h': a boundary names vertex 12, but 12 vertices are there"},
             {city(object("h", "Road", surface("\"1\"", "[[[0,-1,2]]]"))), "names vertex -1"},
             {city(object("h", "Road", surface("\"1\"", "[[0,1,2]]"))), "not lists of the form"},
             {city(object("h", "Road", R"({"type":"Cone","lod":"1","boundaries":[0]})")),
              "geometry of the type 'Cone'"},
             {city(object("h", "Road", "")), "the model has no faces"}}) {
        EXPECT_THAT(messageOf([&, t = text] { read(t); }),
                    AllOf(HasSubstr("a.city.json"), HasSubstr(message), HasSubstr("; ")));
    }
}

} // namespace
} // namespace insolate::study
