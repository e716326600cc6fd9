// Models and tables as a study takes them, by its options.
#include "study/run/run_option_table.h"
#include "study/run/study_inputs.h"
#include "study/run/study_record.h"
#include "study/support/errors.h"
#include "tests/study/support/study_fixture.h"

#include <fstream>
#include <map>
#include <set>
#include <thread>

#include <sys/stat.h>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace insolate::study {
namespace {

using test::messageOf;
using test::StudyFolder;
using testing::HasSubstr;

/// What the options of these names and texts read.
StudyInputs inputsBy(const std::multimap<std::string, std::string>& given) {
    ModelOptions options;
    OptionTable table;
    addModelOptions(table, options);
    for (const auto& [name, text] : given) {
        OptionTable::give(*table.find(name), std::span(&text, 1));
    }
    test::Heard heard;
    return readInputs(options, heard, {});
}

/// A square of 4 m in level 1 at a height of 5 m, and in level 2 at 6 m.
const std::string twoLevels = R"({"type":"CityJSON","version":"1.0","CityObjects":{"house":{
    "type":"Building","geometry":[
        {"type":"MultiSurface","lod":1,"boundaries":[[[0,1,2,3]]]},
        {"type":"MultiSurface","lod":2,"boundaries":[[[4,5,6,7]]]}]}},
    "vertices":[[0,0,5],[4,0,5],[4,4,5],[0,4,5],[0,0,6],[4,0,6],[4,4,6],[0,4,6]]})";

TEST(StudyInputs, TakeTheLevelOfDetail) {
    const StudyFolder folder;
    const std::string city = folder.write("a.city.json", twoLevels).string();
    const auto heightOf = [&](const std::multimap<std::string, std::string>& given) {
        return std::lround(inputsBy(given).field.positions.at(0).z);
    };
    EXPECT_EQ(heightOf({{"scene", city}}), 6);
    EXPECT_EQ(heightOf({{"scene", city}, {"lod", "1"}}), 5);
    const std::string court = folder.write("a.obj", test::courtModel()).string();
    EXPECT_EQ(heightOf({{"scene", court}, {"sensors", city}, {"lod", "1"}}), 5);
    EXPECT_THAT(messageOf([&] {
                    inputsBy({{"scene", court}, {"lod", "1"}});
                }),
                HasSubstr("--lod 1: chooses among levels of detail, but none"));
    EXPECT_THAT(messageOf([&] {
                    inputsBy({{"scene", city}, {"lod", "high"}});
                }),
                HasSubstr("--lod: 'high' is no level of detail"));
}

TEST(StudyInputs, TakeAPipeOfAnyNameForATableOfSensors) {
    const StudyFolder folder;
    const std::string court = folder.write("a.obj", test::courtModel()).string();
    const std::string pipe = (folder.path() / "pipe").string();
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const std::jthread writer([&] { std::ofstream(pipe) << "x,y,z\n1,2,3\n4,5,6\n"; });
    const StudyInputs inputs = inputsBy({{"scene", court}, {"sensors", pipe}});
    ASSERT_EQ(inputs.field.size(), 2U);
    EXPECT_EQ(inputs.field.positions[1].z, 6.0);
}

TEST(StudyInputs, WarnOfLengthsInAnotherUnit) {
    const StudyFolder folder;
    const auto warningsOf = [&](const std::string& model, const std::string& unit) {
        ModelOptions options;
        OptionTable table;
        addModelOptions(table, options);
        OptionTable::give(*table.find("units"), std::span(&unit, 1));
        options.scenes = {folder.write("a.obj", model)};
        options.force = true;
        options.grid = 1.0e6;
        test::Heard heard;
        readInputs(options, heard, {});
        return heard.warnings;
    };
    EXPECT_THAT(warningsOf(test::courtModel(), "m"), testing::IsEmpty());
    EXPECT_THAT(warningsOf(test::courtModel(), "mm"),
                testing::ElementsAre(HasSubstr("the scene measures 0.01 x 0.01 x 0.01 m with its "
                                               "lengths read as mm, but they look like m: give "
                                               "--units m if that is right")));
    const std::string house = "v 0 0 0\nv 9000 0 0\nv 9000 0 7000\nv 0 0 7000\nv 0 8000 0\n"
                              "f 1 2 3 4\nf 1 2 5\n";
    EXPECT_THAT(warningsOf(house, "m"), testing::ElementsAre(HasSubstr("look like mm")));
    EXPECT_THAT(warningsOf(house, "mm"), testing::IsEmpty());
}

TEST(StudyInputs, CutTrianglesInOnePlaneAsThePolygonThatTheyMake) {
    const StudyFolder folder;
    const std::string corners = "v 0 0 0\nv 9 0 0\nv 9 6 0\nv 0 6 0\nv 0 0 3\nv 9 0 3\n";
    const std::string whole = folder.write("a.obj", corners + "f 1 2 3 4\nf 1 5 6 2\n").string();
    const std::string triangles =
        folder.write("b.obj", corners + "f 1 2 3\nf 1 5 6\nf 6 2 1\nf 3 4 1\n").string();
    const auto fieldOf = [&](const std::string& scene, const std::string& merge) {
        return inputsBy({{"scene", scene}, {"merge-faces", merge}, {"grid", "3"}});
    };
    const StudyInputs polygons = fieldOf(whole, "yes");
    const StudyInputs merged = fieldOf(triangles, "yes");
    const auto placesOf = [](const SensorField& field) {
        std::set<std::array<long, 3>> places; // millimetres
        for (const Vector3& p : field.positions) {
            places.insert({std::lround(p.x * 1e3), std::lround(p.y * 1e3), std::lround(p.z * 1e3)});
        }
        return places;
    };
    EXPECT_EQ(polygons.field.size(), 9U);
    EXPECT_EQ(placesOf(merged.field), placesOf(polygons.field));
    // Faces keep the numbers of the file: the first of those that were put together.
    EXPECT_EQ(merged.field.origins.front().face, 0U);
    EXPECT_EQ(merged.field.origins.back().face, 1U);
    EXPECT_EQ(merged.scene.triangleCount(), 4U);

    const StudyInputs single = fieldOf(triangles, "no");
    EXPECT_GT(single.field.size(), 9U);
    EXPECT_EQ(single.field.origins.back().face, 3U);
}

// What the sensors did not come from must not stand in their record, nor be asked for.
TEST(StudyInputs, RecordHowTheSensorsWereMade) {
    const StudyFolder folder;
    const std::string court = folder.write("a.obj", test::courtModel()).string();
    const std::string table = folder.write("a.csv", "x,y,z\n1,2,3\n").string();
    struct Case {
        std::string sensors;
        std::vector<std::string> keys;
        double grid;
        std::string refusal; ///< of --grid
    };
    for (const Case& c :
         {Case{court, {"grid_m", "offset_m", "merge_faces", "select"}, 2.0, "nothing is wrong"},
          Case{"plane:z=20,grid=4", {"grid_m"}, 4.0, "from a plane; give the grid with it: plane:"},
          Case{table, {}, 0.0, "from a table; leave it out"}}) {
        SCOPED_TRACE(c.sensors);
        ModelOptions options;
        options.scenes = {court};
        options.sensors = c.sensors;
        Progress silent;
        nlohmann::ordered_json record;
        describeModel(record, options, readInputs(options, silent, {}), folder.path());
        for (const char* key : {"grid_m", "offset_m", "merge_faces", "select"}) {
            EXPECT_EQ(record["sensors"].contains(key), std::ranges::count(c.keys, key) == 1) << key;
        }
        EXPECT_EQ(record["sensors"].value("grid_m", 0.0), c.grid);
        const auto refusalOf = [&](const char* option, const char* text) {
            return messageOf([&] {
                inputsBy({{"scene", court}, {"sensors", c.sensors}, {option, text}});
            });
        };
        EXPECT_THAT(refusalOf("grid", "3"), HasSubstr(c.refusal));
        for (const auto& [option, text] :
             {std::pair{"offset", "0.1"}, {"merge-faces", "no"}, {"facing", "up"}}) {
            EXPECT_EQ(refusalOf(option, text) == "nothing is wrong", c.sensors == court) << option;
        }
    }
}

} // namespace
} // namespace insolate::study
