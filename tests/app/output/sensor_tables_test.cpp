#include "output_support.h"

#include "app/output/sensor_tables.h"
#include "app/output/sky_output.h"
#include "app/output/text.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <numbers>
#include <random>
#include <sstream>

#include <insolate/geometry/sky_grid.h>
#include <pugixml.hpp>

namespace insolate::app {

namespace {

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

std::vector<std::vector<std::string>> rowsOf(const std::string& text) {
    std::vector<std::vector<std::string>> rows;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        rows.emplace_back();
        for (std::string field; std::getline(fields, field, ',');) {
            rows.back().push_back(field);
        }
    }
    return rows;
}

template <typename Number>
Number numberIn(const std::string& text) {
    Number value = {};
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    EXPECT_EQ(result.ptr, text.data() + text.size()) << text;
    return value;
}

TEST_F(SensorTablesTest, csvReadsBackAsTheSameNumbers) {
    const SensorField field = mixedField();
    const float inf = std::numeric_limits<float>::infinity();
    const std::vector<ResultColumn> columns = {
        {"total", "Wh/m2", "Total", {1.1647e6F, 0.1F, 1.0e-30F}},
        {"sky, \"seen\"", "%", "Sky", {-0.0F, inf, 100.0F / 3.0F}}};
    OutputFile file(folder / "sensors.csv", "sensors.csv");
    writeSensorsCsv(file, field, columns);
    file.finish();
    const std::string text = contentOf(folder / "sensors.csv");
    EXPECT_EQ(text.substr(0, text.find('\n')),
              "x [m],y [m],z [m],nx,ny,nz,total [Wh/m2],\"sky, \"\"seen\"\" [%]\"");
    const auto rows = rowsOf(text.substr(text.find('\n') + 1));
    ASSERT_EQ(rows.size(), 3U);
    for (std::size_t i = 0; i < 3; ++i) {
        ASSERT_EQ(rows[i].size(), 8U);
        EXPECT_EQ(numberIn<double>(rows[i][0]), field.positions[i].x);
        EXPECT_EQ(numberIn<double>(rows[i][1]), field.positions[i].y);
        EXPECT_EQ(numberIn<double>(rows[i][2]), field.positions[i].z);
        EXPECT_EQ(numberIn<double>(rows[i][5]), field.normals[i].z);
        EXPECT_EQ(numberIn<float>(rows[i][6]), columns[0].values[i]);
        EXPECT_EQ(numberIn<float>(rows[i][7]), columns[1].values[i]);
    }
    EXPECT_EQ(rows[1][6], "0.1") << "floats are written as floats, not as the doubles near them";
}

TEST(TextTest, namesFromModelsCannotBreakOutOfTheirField) {
    const struct {
        std::string_view raw, csv, xml;
    } cases[] = {
        {"wall", "wall", "wall"},
        {"a,b", "\"a,b\"", "a,b"},
        {"say \"hi\"", "\"say \"\"hi\"\"\"", "say &quot;hi&quot;"},
        {"two\nlines", "\"two\nlines\"", "two&#10;lines"},
        {"=cmd|'/c calc'!A0", "'=cmd|'/c calc'!A0", "=cmd|'/c calc'!A0"},
        {"-1+2,@x", "\"'-1+2,@x\"", "-1+2,@x"},
        {"</DataArray>&", "</DataArray>&", "&lt;/DataArray&gt;&amp;"},
        {"Zürich €", "Zürich €", "Zürich €"},
        {"\x01\xFF\xC0\xAF", "\x01\xFF\xC0\xAF", "\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"\xED\xA0\x80", "\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD"}, // a surrogate
        {"cut \xE2\x82", "cut \xE2\x82", "cut \uFFFD\uFFFD"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(csvField(c.raw), c.csv);
        EXPECT_EQ(xmlText(c.raw), c.xml);
    }
}

/// The appended blocks of a file written by us: the XML before them parsed, the bytes by offset.
class VtpFile {
public:
    explicit VtpFile(const std::string& content) {
        const std::size_t mark = content.find("<AppendedData encoding=\"raw\">\n   _");
        EXPECT_NE(mark, std::string::npos);
        m_data = content.substr(content.find('_', mark) + 1);
        const std::string head = content.substr(0, mark) + "</VTKFile>";
        const pugi::xml_parse_result result = m_xml.load_string(head.c_str());
        EXPECT_TRUE(result) << result.description();
        EXPECT_TRUE(m_data.ends_with("\n  </AppendedData>\n</VTKFile>\n"));
    }
    [[nodiscard]] pugi::xml_node piece() const {
        return m_xml.child("VTKFile").child("PolyData").child("Piece");
    }
    template <typename Number>
    [[nodiscard]] std::vector<Number> array(const char* section, const char* name) const {
        const pugi::xml_node node =
            piece().child(section).find_child_by_attribute("DataArray", "Name", name);
        EXPECT_TRUE(node) << section << " has no " << name;
        const auto offset = node.attribute("offset").as_ullong();
        std::uint64_t bytes = 0;
        std::memcpy(&bytes, m_data.data() + offset, sizeof bytes);
        EXPECT_LE(offset + sizeof bytes + bytes, m_data.size());
        std::vector<Number> values(bytes / sizeof(Number));
        std::memcpy(values.data(), m_data.data() + offset + sizeof bytes, bytes);
        return values;
    }
    [[nodiscard]] std::string fieldText() const {
        std::istringstream numbers(m_xml.child("VTKFile")
                                       .child("PolyData")
                                       .child("FieldData")
                                       .child("DataArray")
                                       .text()
                                       .as_string());
        std::string text;
        for (int code = 0; numbers >> code && code != 0;) {
            text += static_cast<char>(code);
        }
        return text;
    }

private:
    pugi::xml_document m_xml;
    std::string m_data;
};

TEST_F(SensorTablesTest, vtpHoldsCellsAndValuesAtTheAnnouncedOffsets) {
    SensorField field = mixedField();
    const std::vector<ResultColumn> columns = {{"total", "Wh/m2", "Total", {1.0F, 2.5F, -3.0F}},
                                               {"a<b>&\"", "h", "Odd", {7.0F, 8.0F, 9.0F}}};
    const auto write = [&] {
        OutputFile file(folder / "sensors.vtp", "sensors.vtp");
        writeSensorsVtp(file, field, columns, "weather Zürich, <all year>");
        file.finish();
        return VtpFile(contentOf(folder / "sensors.vtp"));
    };
    const VtpFile cells = write();
    EXPECT_EQ(cells.piece().attribute("NumberOfPoints").as_int(), 12);
    EXPECT_EQ(cells.piece().attribute("NumberOfPolys").as_int(), 3);
    EXPECT_STREQ(cells.piece().child("CellData").attribute("Scalars").value(), "total");
    EXPECT_EQ(cells.array<float>("CellData", "total"), columns[0].values);
    EXPECT_EQ(cells.array<float>("CellData", "a<b>&\""), columns[1].values);
    EXPECT_EQ(cells.array<float>("CellData", "normal")[5], -0.8F);
    const auto points = cells.array<double>("Points", "Points");
    ASSERT_EQ(points.size(), 36U);
    EXPECT_EQ(points[35], field.corners[11].z);
    EXPECT_EQ(cells.array<std::int64_t>("Polys", "offsets"), (std::vector<std::int64_t>{3, 7, 12}));
    EXPECT_EQ(cells.array<std::int64_t>("Polys", "connectivity")[11], 11);
    EXPECT_EQ(cells.fieldText(), "weather Zürich, <all year>");

    field.corners.clear();
    field.cellStart.clear();
    const VtpFile points3 = write();
    EXPECT_EQ(points3.piece().attribute("NumberOfVerts").as_int(), 3);
    EXPECT_EQ(points3.array<double>("Points", "Points")[1], field.positions[0].y);
    EXPECT_EQ(points3.array<std::int64_t>("Verts", "offsets"),
              (std::vector<std::int64_t>{1, 2, 3}));
}

TEST_F(SensorTablesTest, skyCsvNamesEachCellAndItsSolidAngle) {
    ResultColumn direct{"direct", "Wh/m2", "Direct", std::vector<float>(skyGrid::cellCount)};
    direct.values[static_cast<std::size_t>(skyGrid::cellIndex(36, 12))] =
        42.0F; // south, 60 degrees
    OutputFile file(folder / "sky.csv", "sky.csv");
    writeSkyCsv(file, std::span(&direct, 1));
    file.finish();
    const auto rows = rowsOf(contentOf(folder / "sky.csv"));
    ASSERT_EQ(rows.size(), 1297U);
    double solidAngle = 0.0;
    int found = 0;
    for (std::size_t i = 1; i < rows.size(); ++i) {
        solidAngle += numberIn<double>(rows[i][2]);
        if (rows[i][3] == "42") {
            EXPECT_EQ(rows[i][0] + "/" + rows[i][1], "180/60");
            ++found;
        }
    }
    EXPECT_EQ(found, 1);
    EXPECT_NEAR(solidAngle, 2.0 * std::numbers::pi, 1.0e-5); // a half sphere, from single precision
}

} // namespace

} // namespace insolate::app
