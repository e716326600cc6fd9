// What a study left is read back as it was written, and what is damaged or foreign is refused.
#include "study/output/sensor_tables.h"
#include "study/results/label_column.h"
#include "study/results/result_folder.h"
#include "study/results/result_scene.h"
#include "study/run/run_study.h"
#include "study/run/sun_hours.h"
#include "study/support/errors.h"
#include "tests/study/support/study_fixture.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

namespace insolate::study {
namespace {

using test::messageOf;
using test::readFile;
using testing::HasSubstr;

class ResultFolderTest : public testing::Test {
protected:
    ResultFolderTest() {
        m_options.weather = folder.write("a.epw", test::clearYear());
        m_options.scenes = {folder.write("court.obj", test::courtModel())};
        m_options.import.unit = LengthUnit::foot;
        m_options.grid = 1.0;
        m_options.north = 30.0;
        m_options.period = {
            .startDay = 152, .endDay = 152, .startHour = 8.0, .endHour = 18.0, .step = 0.5};
        m_options.out = folder.path() / "out";
        Progress silent;
        runStudy(m_options, silent);
    }

    /// Reads the folder after one of its files was changed, and puts that back.
    [[nodiscard]] std::string messageAfter(const char* name, const std::string& part,
                                           const std::string& replacement) const {
        const std::string whole = readFile(m_options.out / name);
        const std::size_t at = whole.find(part);
        EXPECT_NE(at, std::string::npos) << part;
        std::string changed = whole;
        folder.write(std::string("out/") + name, changed.replace(at, part.size(), replacement));
        std::string message = messageOf([&] { readResultFolder(m_options.out); });
        folder.write(std::string("out/") + name, whole);
        return message;
    }

    test::StudyFolder folder;
    RunOptions m_options;
};

TEST_F(ResultFolderTest, GivesBackWhatWasAskedAndWhatCameOut) {
    const ResultFolder results = readResultFolder(m_options.out);
    EXPECT_EQ(results.facts.question, StudyFacts::Question::radiation);
    EXPECT_EQ(results.facts.site, "Testville");
    EXPECT_EQ(results.facts.latitude, 40.0);
    EXPECT_EQ(results.facts.period, m_options.period.text());
    EXPECT_EQ(results.facts.method, "hourly");
    EXPECT_THAT(results.facts.madeBy, HasSubstr("Testville; 1 June"));
    EXPECT_EQ(results.model.north, 30.0);
    EXPECT_EQ(results.model.sensorFile, 0U);
    EXPECT_EQ(results.model.readings.at(0).import.unit, LengthUnit::foot);
    EXPECT_EQ(results.find("total")->unit, "Wh/m2");
    EXPECT_EQ(results.find("total")->title, "Total radiation");
    EXPECT_EQ(results.find("area"), nullptr);
    EXPECT_THAT(results.columnNames(), testing::Contains("direct_sun_hours"));

    // Written again, the tables are the same bytes.
    ASSERT_EQ(results.field.given.size(), 1U);
    LabelColumn start{results.field.given[0].name, results.field.given[0].values, {}, "peak_hour"};
    EXPECT_EQ(start.name, "peak_start");
    for (std::size_t i = 0; i < results.field.size(); ++i) {
        start.indices.push_back(static_cast<std::int32_t>(i));
    }
    SensorField field = results.field;
    field.given.clear();
    std::vector<ResultColumn> columns = results.columns;
    EXPECT_TRUE(results.included.empty());
    columns.push_back({"enclosed", "0 or 1", "", std::vector<float>(field.size(), 0.0f)});
    columns.push_back({"area", "m2", "Area of the cell", results.areas});
    {
        OutputFile csv(folder.path() / "again.csv", "again.csv");
        writeSensorsCsv(csv, field, columns, std::span(&start, 1));
        csv.finish();
        OutputFile vtp(folder.path() / "again.vtp", "again.vtp");
        writeSensorsVtp(vtp, field, columns, results.facts.madeBy);
        vtp.finish();
    }
    EXPECT_TRUE(readFile(folder.path() / "again.csv") == readFile(m_options.out / "sensors.csv"));
    EXPECT_TRUE(readFile(folder.path() / "again.vtp") == readFile(m_options.out / "sensors.vtp"));
}

TEST_F(ResultFolderTest, FindsTheModelAgainWhereverTheWholeWasMoved) {
    const ResultScene scene = loadResultScene(readResultFolder(m_options.out));
    EXPECT_EQ(scene.problem, "");
    EXPECT_EQ(scene.scene.triangleCount(), 10U);
    EXPECT_NEAR(scene.scene.vertices[1].x, 3.048, 1.0e-12); // 10 ft

    const test::StudyFolder elsewhere;
    std::filesystem::copy(folder.path(), elsewhere.path(),
                          std::filesystem::copy_options::recursive);
    std::filesystem::remove(folder.path() / "court.obj");
    const ResultFolder moved = readResultFolder(elsewhere.path() / "out");
    EXPECT_EQ(loadResultScene(moved).problem, "");
    // A corner moved by a millimetre is another model.
    elsewhere.write("court.obj", test::withLine(test::courtModel(), 2, "v 0 0 0", "v 0 0 0.001"));
    EXPECT_THAT(loadResultScene(moved).problem, HasSubstr("court.obj: has changed since"));
    EXPECT_EQ(loadResultScene(moved).scene.triangleCount(), 0U);
    std::filesystem::remove(elsewhere.path() / "court.obj");
    EXPECT_THAT(loadResultScene(moved).problem, HasSubstr("court.obj: no longer there"));
}

TEST_F(ResultFolderTest, KeepsTheWarningsAndTheRuleOfSunHours) {
    SunHoursOptions options;
    options.model = m_options;
    options.model.import.unit = LengthUnit::metre;
    options.model.scenes = {folder.write("box.obj", test::courtModel() + "f 5 6 7 8\n")};
    options.site.latitude = 40.0;
    options.site.longitude = 0.0;
    options.site.timeZone = 0.0;
    options.rule.days = {80};
    options.out = folder.path() / "sun";
    Progress silent;
    runSunHours(options, silent);
    const ResultFolder results = readResultFolder(options.out);
    EXPECT_EQ(results.facts.question, StudyFacts::Question::sunHours);
    EXPECT_EQ(results.facts.year, "2025");
    EXPECT_EQ(results.facts.latitude, 40.0);
    EXPECT_NE(results.facts.rule, "");
    EXPECT_THAT(results.facts.warnings,
                testing::ElementsAre(HasSubstr("1 closed body look partly inwards")));
}

TEST_F(ResultFolderTest, RefusesWhatIsDamagedOrForeign) {
    const std::string again = "; calculate the results again";
    const struct {
        const char *file, *part, *replacement;
        std::string message;
    } cases[] = {
        {"summary.json", "{", "[", "summary.json: is no summary that insolate wrote" + again},
        {"summary.json", "\"insolate\"", "\"other\"", "summary.json: is no summary"},
        {"summary.json", "_unit\": 0.", "_unit\": 7.", " metres are no unit"},
        {"summary.json", "\"outward\"", "\"sideways\"", "summary.json: --orient"},
        {"summary.json", "\"latitude_deg\": ", "\"latitude_deg\": \"north\", \"was\": ",
         "summary.json: weather.latitude_deg: 'north' is not a number"},
        {"sensors.csv", "x [m],", "x,", "sensors.csv:1: does not begin with the columns"},
        {"sensors.csv", ",material\n", ",material\n1,2\n", "sensors.csv:2: 2 fields where the"},
        {"sensors.csv", ",0,0,1,", ",0,0,up,", "sensors.csv:2: field 6: 'up' is not a number"},
        {"sensors.csv", ",0,0,1,", ",0,1,0,", "sensors.vtp: does not agree with sensors.csv on"},
        {"sensors.csv", ",0,0,1,", ",0,0,1,9", "sensors.vtp: does not agree with sensors.csv on"},
        {"sensors.csv", ",sky [", ",beam [",
         "sensors.csv:1: the column 'beam [Wh/m2]' stands there"},
        {"sensors.csv", ",enclosed [0 or 1],area [m2]", ",area [m2],enclosed [0 or 1]",
         "sensors.csv:2: field 21: "},
        {"sensors.csv", "\n", "\n\"", "sensors.csv:2: quotes are opened and not closed"},
        {"sensors.vtp", "NumberOfPolys=\"", "NumberOfPolys=\"1", "cells, but sensors.csv has "},
        {"sensors.vtp", "NumberOfPoints=\"", "NumberOfPoints=\"9", "is cut off within 'Points'"},
        {"sensors.vtp", "\"LittleEndian\"", "\"BigEndian\"", "has another byte order"},
        {"sensors.vtp", "<CellData", "<CellData <", "is no XML"},
        {"sensors.vtp", "encoding=\"raw\"", "encoding=\"base64\"", "has no appended data"},
        {"sensors.vtp", "Float64", "Float32", "has no array 'Points' of Float64"},
        {"sensors.vtp", "offset=\"0\"", "offset=\"8\"", "has another number of values in 'total'"},
    };
    for (const auto& c : cases) {
        EXPECT_THAT(messageAfter(c.file, c.part, c.replacement), HasSubstr(c.message)) << c.part;
    }
    using namespace std::string_literals;
    EXPECT_THAT(messageAfter("sensors.vtp", "\4\0\0\0\0\0\0\0\10\0\0\0\0\0\0\0"s,
                             "\4\0\0\0\0\0\0\0\4\0\0\0\0\0\0\0"s),
                HasSubstr("sensors.vtp: has cells of fewer than three corners"));
    EXPECT_EQ(messageOf([&] { readResultFolder(m_options.out); }), "nothing is wrong");
    // Areas weigh all means.
    const std::string ownTable = readFile(m_options.out / "sensors.csv");
    const auto column = std::count(
        ownTable.begin(), ownTable.begin() + std::ptrdiff_t(ownTable.find("area [m2]")), ',');
    std::size_t begin = ownTable.find('\n') + 1;
    for (std::ptrdiff_t i = 0; i < column; ++i) {
        begin = ownTable.find(',', begin) + 1;
    }
    for (const char* area : {"nan", "-1", "inf"}) {
        std::string changed = ownTable;
        folder.write("out/sensors.csv",
                     changed.replace(begin, ownTable.find(',', begin) - begin, area));
        EXPECT_THAT(messageOf([&] { readResultFolder(m_options.out); }),
                    HasSubstr("' is no area; "));
    }
    folder.write("out/sensors.csv", ownTable);
    // A pipe would be waited for.
    const std::filesystem::path table = m_options.out / "sensors.csv";
    const std::string sensors = readFile(table);
    std::filesystem::remove(table);
    ASSERT_EQ(mkfifo(table.c_str(), 0600), 0);
    EXPECT_THAT(messageOf([&] { readResultFolder(m_options.out); }),
                HasSubstr("sensors.csv: cannot be read (it is no regular file)"));
    std::filesystem::remove(table);
    folder.write("out/sensors.csv", sensors);

    // Cut at any place, the file is refused; nothing is read beyond its end.
    const std::string vtp = readFile(m_options.out / "sensors.vtp");
    for (std::size_t size = 0; size < vtp.size() - 40; size += vtp.size() / 97) {
        folder.write("out/sensors.vtp", vtp.substr(0, size));
        EXPECT_THROW(readResultFolder(m_options.out), DataError) << size;
    }
    std::filesystem::remove(m_options.out / "sensors.vtp");
    EXPECT_THAT(messageOf([&] { readResultFolder(m_options.out); }),
                HasSubstr("sensors.vtp: no such file; give a folder that 'insolate run' or"));
    EXPECT_THAT(messageOf([&] { readResultFolder(folder.path() / "none"); }),
                HasSubstr("none: no such folder; give one that"));
}

} // namespace
} // namespace insolate::study
