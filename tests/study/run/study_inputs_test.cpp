// Models and tables as a study takes them, by its options.
#include "study/run/run_option_table.h"
#include "study/run/study_inputs.h"
#include "study/support/errors.h"
#include "tests/study/support/study_fixture.h"

#include <map>
#include <set>

#include <gmock/gmock.h>

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

} // namespace
} // namespace insolate::study
