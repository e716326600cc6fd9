#include "tests/study/output/output_support.h"

#include "study/output/hours_file.h"
#include "study/output/hours_table.h"
#include "study/output/sensor_tables.h"
#include "study/output/sky_output.h"
#include "study/output/summary.h"
#include "study/output/text.h"
#include "study/support/errors.h"
#include "study/support/numbers.h"

#include <cstring>
#include <limits>
#include <numbers>
#include <random>

#include <insolate/geometry/sky_grid.h>
#include <nlohmann/json.hpp>
#include <pugixml.hpp>
#include <sys/stat.h>

namespace insolate::study {
namespace {

using test::readFile;
using test::rowsOf;
using testing::HasSubstr;
using SensorTablesTest = OutputTest;

/// A triangle, a quadrilateral and a pentagon, far from the origin.
SensorField mixedField() {
    SensorField field;
    field.cellStart = {0, 3, 7, 12};
    std::mt19937 random(7); // the seed decides all numbers below
    std::uniform_real_distribution<double> map(5.0e6, 5.1e6);
    for (int i = 0; i < 12; ++i) {
        field.corners.push_back({map(random), map(random), map(random)});
    }
    for (int i = 0; i < 3; ++i) {
        field.positions.push_back({map(random), 0.1 + i, 1.0 / 3.0});
        field.normals.push_back({0.0, 0.6, i == 1 ? -0.8 : 0.8});
    }
    return field;
}

TEST_F(SensorTablesTest, csvReadsBackAsTheSameNumbers) {
    const SensorField field = mixedField();
    const float inf = std::numeric_limits<float>::infinity();
    const std::vector<ResultColumn> columns = {
        {"total", "Wh/m2", "Total", {1.1647e6F, 0.1F, 1.0e-30F}},
        {"sky \"seen\"", "%", "Sky", {-0.0F, inf, 100.0F / 3.0F}}};
    const auto rows = rowsOf(
        written("sensors.csv", [&](OutputFile& file) { writeSensorsCsv(file, field, columns); }));
    ASSERT_EQ(rows.size(), 4U);
    EXPECT_THAT(rows[0], testing::ElementsAre("x [m]", "y [m]", "z [m]", "nx", "ny", "nz",
                                              "total [Wh/m2]", "\"sky \"\"seen\"\" [%]\""));
    for (std::size_t i = 0; i < 3; ++i) {
        const auto& row = rows[i + 1];
        ASSERT_EQ(row.size(), 8U);
        for (std::size_t k = 0; k < 3; ++k) {
            const double Vector3::*axis = std::array{&Vector3::x, &Vector3::y, &Vector3::z}[k];
            EXPECT_EQ(parseNumber<double>(row[k]), field.positions[i].*axis);
            EXPECT_EQ(parseNumber<double>(row[3 + k]), field.normals[i].*axis);
        }
        EXPECT_EQ(parseNumber<float>(row[6]), columns[0].values[i]);
        EXPECT_EQ(parseNumber<float>(row[7]), columns[1].values[i]);
    }
    EXPECT_EQ(rows[2][6], "0.1") << "floats are written as floats, not as the doubles near them";
}

TEST_F(SensorTablesTest, csvPassesOnWhatTheTableHeld) {
    SensorField field = mixedField();
    field.given = {{"name", {"a;b", "=1+1", "-2.5"}},
                   {"total [Wh/m2]", {"1", "", "3"}},
                   {"nx", {"4", "5", "6"}},
                   {"area (sqft)", {"p", "q", "r"}},
                   {"total_cost", {"s", "t", "u"}}};
    const std::vector<ResultColumn> columns = {{"total", "Wh/m2", "", {7, 8, 9}}};
    const auto rows = rowsOf(
        written("sensors.csv", [&](OutputFile& file) { writeSensorsCsv(file, field, columns); }));
    const auto tail = [&](std::size_t row) {
        return std::vector<std::string>(rows[row].begin() + 6, rows[row].end());
    };
    EXPECT_THAT(tail(0),
                testing::ElementsAre("total [Wh/m2]", "name", "total [Wh/m2] of the table",
                                     "nx of the table", "area (sqft) of the table", "total_cost"));
    EXPECT_THAT(tail(1), testing::ElementsAre("7", "a;b", "1", "4", "p", "s"));
    EXPECT_THAT(tail(2), testing::ElementsAre("8", "'=1+1", "", "5", "q", "t"));
    EXPECT_THAT(tail(3), testing::ElementsAre("9", "-2.5", "3", "6", "r", "u"));
    EXPECT_THAT(renamedText(field, columns),
                HasSubstr("in sensors.csv 'total [Wh/m2]' is called 'total [Wh/m2] of the table', "
                          "'nx' is called 'nx of the table'"));
}

TEST_F(SensorTablesTest, csvSaysWhatCellsBelongToAndWhenTheirPeakWas) {
    SensorField field = mixedField();
    field.names = {"a,b", "tile"};
    field.origins = {
        {.face = 7, .object = 0, .material = 1}, {.face = 8}, {.face = 9, .material = 1}};
    const std::vector<ResultColumn> columns = {
        {"peak_hour", "hour of year", "", {12.0F, 0.0F, 8760.0F}}, {"area", "m2", "", {1, 2, 3}}};
    const auto file = written("sensors.csv", [&](OutputFile& out) {
        writeSensorsCsv(out, field, columns, std::array{*peakStarts(columns, 5.75)});
    });
    EXPECT_TRUE(isOurSensorsCsv(file));
    const std::string text = readFile(file);
    EXPECT_THAT(text, HasSubstr("nz,peak_hour [hour of year],peak_start,area [m2],face,object,"
                                "material\n"));
    EXPECT_THAT(text, HasSubstr(",12,2001-01-01T11:00+05:45,1,7,\"a,b\",tile\n"));
    EXPECT_THAT(text, HasSubstr(",0,,2,8,,\n"));
    EXPECT_THAT(text, HasSubstr(",8760,2001-12-31T23:00+05:45,3,9,,tile\n"));
}

TEST(TextTest, namesFromModelsCannotBreakOutOfTheirField) {
    const struct {
        std::string_view raw, csv, xml;
    } cases[] = {
        {"a,b", "\"a,b\"", "a,b"},
        {"say \"hi\"", "\"say \"\"hi\"\"\"", "say &quot;hi&quot;"},
        {"two\nlines", "\"two\nlines\"", "two&#10;lines"},
        {"=cmd|'/c calc'!A0", "'=cmd|'/c calc'!A0", "=cmd|'/c calc'!A0"},
        {"-1+2,@x", "\"'-1+2,@x\"", "-1+2,@x"},
        {"</DataArray>&", "</DataArray>&", "&lt;/DataArray&gt;&amp;"},
        {"\x01\xFF\xC0\xAF", "\x01\xFF\xC0\xAF", "\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"\xED\xA0\x80", "\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD"}, // a surrogate
        {"cut \xE2\x82", "cut \xE2\x82", "cut \uFFFD\uFFFD"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(csvField(c.raw), c.csv);
        EXPECT_EQ(xmlText(c.raw), c.xml);
    }
}

/// The XML of a file written by us and, by offset, the appended bytes behind it.
struct VtpFile {
    explicit VtpFile(const std::string& content) {
        const std::size_t mark = content.find("<AppendedData encoding=\"raw\">\n   _");
        data = content.substr(content.find('_', mark) + 1);
        EXPECT_TRUE(data.ends_with("\n  </AppendedData>\n</VTKFile>\n"));
        EXPECT_TRUE(xml.load_string((content.substr(0, mark) + "</VTKFile>").c_str()));
        piece = xml.select_node("/VTKFile/PolyData/Piece").node();
    }
    template <typename Number>
    [[nodiscard]] std::vector<Number> array(const char* section, const char* name) const {
        const auto node = piece.child(section).find_child_by_attribute("DataArray", "Name", name);
        const std::size_t offset = node.attribute("offset").as_ullong(data.size());
        EXPECT_LT(offset, data.size()) << section << " has no " << name;
        std::uint64_t bytes = 0;
        std::memcpy(&bytes, data.data() + offset, sizeof bytes);
        std::vector<Number> values(bytes / sizeof(Number));
        std::memcpy(values.data(), data.data() + offset + sizeof bytes, bytes);
        return values;
    }

    pugi::xml_document xml;
    pugi::xml_node piece;
    std::string data;
};

TEST_F(SensorTablesTest, vtpHoldsCellsAndValuesAtTheAnnouncedOffsets) {
    SensorField field = mixedField();
    const std::vector<ResultColumn> columns = {{"total", "Wh/m2", "Total", {1.0F, 2.5F, -3.0F}},
                                               {"a<b>&\"", "h", "Odd", {7.0F, 8.0F, 9.0F}}};
    const auto write = [&] {
        return VtpFile(readFile(written("sensors.vtp", [&](OutputFile& file) {
            writeSensorsVtp(file, field, columns, "ü<");
        })));
    };
    const VtpFile cells = write();
    EXPECT_EQ(cells.piece.attribute("NumberOfPoints").as_int(), 12);
    EXPECT_EQ(cells.piece.attribute("NumberOfPolys").as_int(), 3);
    EXPECT_STREQ(cells.piece.child("CellData").attribute("Scalars").value(), "total");
    EXPECT_EQ(cells.array<float>("CellData", "total"), columns[0].values);
    EXPECT_EQ(cells.array<float>("CellData", "a<b>&\""), columns[1].values);
    EXPECT_EQ(cells.array<float>("CellData", "normal")[5], -0.8F);
    const auto points = cells.array<double>("Points", "Points");
    ASSERT_EQ(points.size(), 36U);
    EXPECT_EQ(points[35], field.corners[11].z);
    EXPECT_EQ(cells.array<std::int64_t>("Polys", "offsets"), (std::vector<std::int64_t>{3, 7, 12}));
    EXPECT_EQ(cells.array<std::int64_t>("Polys", "connectivity")[11], 11);
    EXPECT_THAT(cells.xml.select_node("//FieldData/DataArray").node().text().as_string(),
                testing::HasSubstr("195 188 60 0")); // the bytes of the text

    field.names = {"a\xFF", "roof", "tile"};
    field.origins = {
        {.face = 7, .object = 1}, {.face = 8}, {.face = 7, .object = 0, .material = 2}};
    const VtpFile named = write();
    EXPECT_EQ(named.array<std::uint32_t>("CellData", "face")[1], 8U);
    EXPECT_EQ(named.array<std::int32_t>("CellData", "object"), (std::vector{0, -1, 1}));
    EXPECT_EQ(named.array<std::int32_t>("CellData", "material"), (std::vector{-1, -1, 0}));
    EXPECT_EQ(named.array<std::int64_t>("Polys", "offsets")[2], 12);
    EXPECT_THAT(named.xml.select_node("//FieldData/DataArray[@Name='object_names']")
                    .node()
                    .text()
                    .as_string(),
                testing::HasSubstr("114 111 111 102 0")); // "roof"

    field.origins.clear();
    field.corners.clear();
    field.cellStart.clear();
    const VtpFile bare = write();
    EXPECT_EQ(bare.piece.attribute("NumberOfVerts").as_int(), 3);
    EXPECT_EQ(bare.array<double>("Points", "Points")[1], field.positions[0].y);
    EXPECT_EQ(bare.array<std::int64_t>("Verts", "offsets"), (std::vector<std::int64_t>{1, 2, 3}));
}

TEST_F(SensorTablesTest, skyCsvNamesEachCellAndItsSolidAngle) {
    ResultColumn direct{"direct", "Wh/m2", "Direct", std::vector<float>(skyGrid::cellCount)};
    direct.values[static_cast<std::size_t>(skyGrid::cellIndex(36, 12))] = 42.0F;
    const auto rows = rowsOf(
        written("sky.csv", [&](OutputFile& file) { writeSkyCsv(file, std::span(&direct, 1)); }));
    ASSERT_EQ(rows.size(), 1297U);
    double solidAngle = 0.0;
    for (std::size_t i = 1; i < rows.size(); ++i) {
        solidAngle += parseNumber<double>(rows[i][2]).value();
        EXPECT_EQ(rows[i][3] == "42", rows[i][0] == "180" && rows[i][1] == "60");
    }
    EXPECT_NEAR(solidAngle, 2.0 * std::numbers::pi, 1.0e-5); // a half sphere, from single precision
}

TEST_F(SensorTablesTest, tablesAreKnownByTheirContentsAndEndWithAStop) {
    SensorField field = mixedField();
    const std::vector<ResultColumn> columns = {{"total", "Wh/m2", "Total", {1, 2, 3}}};
    const std::vector<ResultColumn> sky = {
        {"direct", "Wh/m2", "Direct", std::vector<float>(skyGrid::cellCount)}};
    const auto csv = written("a.csv", [&](OutputFile& f) { writeSensorsCsv(f, field, columns); });
    const auto vtp =
        written("a.vtp", [&](OutputFile& f) { writeSensorsVtp(f, field, columns, "us"); });
    const auto dome = written("sky.csv", [&](OutputFile& f) { writeSkyCsv(f, sky); });
    const auto summary = written("s.json", [&](OutputFile& f) {
        writeSummaryJson(f, {{"versions", versionsInUse()}});
    });
    const auto points = own.write("points.csv", "x [m],y [m],z [m],nx,ny,nz\n0,0,0,0,0,1\n");
    const auto xml = own.write("other.vtp", "<?xml version=\"1.0\"?>\n<VTKFile>");
    const auto json = own.write("other.json", "{\"insolate\": 1}");
    for (const auto& file : {csv, vtp, dome, summary, points, xml, json}) {
        EXPECT_EQ(isOurSensorsCsv(file), file == csv) << file;
        EXPECT_EQ(isOurSensorsVtp(file), file == vtp) << file;
        EXPECT_EQ(isOurSkyCsv(file), file == dome) << file;
        EXPECT_EQ(isOurSummary(file), file == summary) << file;
    }
    std::stop_source source;
    source.request_stop();
    OutputFile out(folder / "stopped", "stopped");
    EXPECT_THROW(writeSensorsCsv(out, field, columns, {}, source.get_token()), Stopped);
    EXPECT_THROW(writeSensorsVtp(out, field, columns, "", source.get_token()), Stopped);
}

TEST_F(SensorTablesTest, AnythingMayStandUnderTheNameOfHours) {
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0); // opened, it would wait for a writer
    own.write("other.nc", "\x89HDF\r\n\x1A\n of the user");
    own.write("text.nc", "made_by_insolate");
    for (const char* name : {"pipe", "other.nc", "text.nc", "none"}) {
        EXPECT_FALSE(isOurHoursFile(folder / name)) << name;
    }
}

TEST_F(SensorTablesTest, HoursAreReadAsTheyWereWritten) {
    std::vector<HourRow> rows(2);
    rows[0].name = "17";
    rows[1].name = "object \"old\", roof\nof slate";
    float value = 0.1f;
    for (HourRow& row : rows) {
        for (auto* part : {&row.hours.beam, &row.hours.sky, &row.hours.ground}) {
            part->assign(8760, 0.0f);
            (*part)[10] = value += 100.7f;
            (*part)[8759] = value += 100.7f;
        }
    }
    const std::vector<int> hours = {10, 8759};
    const auto file =
        written("hours.csv", [&](OutputFile& out) { writeHoursCsv(out, hours, 1.0, rows); });
    const std::vector<HourRow> back = readHoursCsv(file);
    ASSERT_EQ(back.size(), rows.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        EXPECT_EQ(back[i].name, rows[i].name);
        EXPECT_EQ(back[i].hours.beam, rows[i].hours.beam);
        EXPECT_EQ(back[i].hours.sky, rows[i].hours.sky);
        EXPECT_EQ(back[i].hours.ground, rows[i].hours.ground);
    }
}

TEST_F(SensorTablesTest, DamagedHoursAreRefusedByLine) {
    const std::string head = "hour_of_year,start,beam_1 [Wh/m2],sky_1 [Wh/m2],ground_1 [Wh/m2]\n";
    const std::pair<std::string, const char*> tables[] = {
        {"hour,start\n", ":1: does not begin as a table of hours"},
        // In time that grows with the square of the lines this would take minutes.
        {"hour_of_year,start,\"" + std::string(4'000'000, '\n'), ":1: quotes are opened and not"},
        {"hour_of_year,start,beam_1 [Wh/m2],ground_1 [Wh/m2],sky_1 [Wh/m2]\n", ":1: column 4"},
        {head + "0,t,1,2,3\n", ":2: is not the line of an hour"},
        {head + "8761,t,1,2,3\n", ":2: is not the line of an hour"},
        {head + "1,t,1,2,3\n2,t,1,2\n", ":3: is not the line of an hour"},
        {head + "2,t,1,2,3\n1,t,1,2,3\n", ":3: does not follow the hour before it"},
        {head + "1,t,1,2,-3\n", ":2: field 5 is not an hour's radiation"},
        {head + "1,t,nan,2,3\n", ":2: field 3 is not an hour's radiation"},
        {head + "1,t,1,x,3\n", ":2: field 4 is not an hour's radiation"}};
    for (const auto& [text, problem] : tables) {
        const auto file =
            written("damaged.csv", [&content = text](OutputFile& out) { out.write(content); });
        try {
            readHoursCsv(file);
            ADD_FAILURE() << text;
        } catch (const DataError& error) {
            EXPECT_THAT(error.what(), HasSubstr(problem));
        }
    }
}

} // namespace
} // namespace insolate::study
