#include "study/output/page.h"

#include "study/output/color_map.h"
#include "study/output/page_bytes.h"
#include "study/output/page_model.h"
#include "tests/study/output/output_support.h"
#include "tests/support/test_data.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <limits>
#include <sstream>

#include <nlohmann/json.hpp>
#include <zlib.h>

namespace insolate::study {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr float noValue = std::numeric_limits<float>::quiet_NaN();

/// Level cells of one square metre, from the left to the right and upwards, those of a plan "#".
SensorField plan(const std::vector<std::string>& rows) {
    SensorField field;
    for (std::size_t y = 0; y < rows.size(); ++y) {
        for (std::size_t x = 0; x < rows[y].size(); ++x) {
            if (rows[y][x] == '#') {
                const double u = static_cast<double>(x);
                const double v = static_cast<double>(y);
                addCell(field, {u, v, 3}, {u + 1, v, 3}, {u + 1, v + 1, 3}, {u, v + 1, 3},
                        {0, 0, 1});
            }
        }
    }
    return field;
}

class NumberReader {
public:
    explicit NumberReader(std::string bytes) : m_bytes(std::move(bytes)) {}
    std::uint64_t number() {
        std::uint64_t value = 0;
        for (unsigned shift = 0;; shift += 7) {
            const auto byte = static_cast<unsigned char>(m_bytes.at(m_at++));
            value |= std::uint64_t{byte & 0x7FU} << shift;
            if (byte < 0x80) {
                return value;
            }
        }
    }
    std::int64_t difference() {
        const std::uint64_t folded = number();
        return static_cast<std::int64_t>(folded >> 1U) ^ -static_cast<std::int64_t>(folded & 1U);
    }
    [[nodiscard]] bool done() const { return m_at == m_bytes.size(); }

private:
    std::string m_bytes;
    std::size_t m_at = 0;
};

/// Undoes packColumn() by its definition.
std::vector<double> unpacked(const PackedColumn& packed, std::span<const CellBlock> blocks) {
    const std::size_t count = packed.bytes.size() / 2;
    std::vector<std::uint16_t> levels(count);
    std::vector<double> values;
    for (const CellBlock& block : blocks) {
        const bool isFull = block.kind == CellBlock::Kind::grid && block.present.empty();
        for (std::size_t k = 0; k < block.count; ++k) {
            const std::size_t cell = block.first + k;
            const bool left = isFull ? k % block.columns != 0 : cell > 0;
            const bool upper = isFull && k >= block.columns;
            const unsigned guess = left && upper
                                       ? (levels[cell - 1] + levels[cell - block.columns]) / 2U
                                   : left  ? levels[cell - 1]
                                   : upper ? levels[cell - block.columns]
                                           : 0U;
            const auto byte = [&](std::size_t i) {
                return static_cast<unsigned>(static_cast<unsigned char>(packed.bytes[i]));
            };
            const unsigned folded = byte(cell) | byte(count + cell) << 8U;
            const unsigned rest = folded & 1U ? ~(folded >> 1U) : folded >> 1U;
            levels[cell] = static_cast<std::uint16_t>(guess + rest);
            values.push_back(levels[cell] == 0xFFFF ? std::nan("")
                                                    : (packed.lowest + levels[cell]) * packed.step);
        }
    }
    return values;
}

std::string contentOf(const std::filesystem::path& file) {
    std::ostringstream text;
    text << std::ifstream(file, std::ios::binary).rdbuf();
    return text.str();
}

/// The record of a page's first result.
nlohmann::json recordOf(const std::string& page) {
    const std::string mark = "id=\"result0\">";
    const std::size_t begin = page.find(mark) + mark.size();
    const std::string text = page.substr(begin, page.find('<', begin) - begin);
    std::string packed;
    unsigned bits = 0;
    unsigned value = 0;
    for (const char c : text) {
        const std::string digits =
            "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        const std::size_t digit = digits.find(c);
        if (digit == std::string::npos) {
            break;
        }
        value = value << 6U | static_cast<unsigned>(digit);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            packed.push_back(static_cast<char>(value >> bits & 0xFFU));
        }
    }
    std::string bytes(std::size_t{1} << 22U, '\0');
    auto size = static_cast<uLongf>(bytes.size());
    EXPECT_EQ(uncompress(reinterpret_cast<Bytef*>(bytes.data()), &size,
                         reinterpret_cast<const Bytef*>(packed.data()), packed.size()),
              Z_OK);
    std::uint32_t length = 0;
    std::memcpy(&length, bytes.data(), sizeof length);
    return nlohmann::json::parse(bytes.substr(sizeof length, length));
}

} // namespace

TEST(PageBytes, AreThoseOfTheStandards) {
    EXPECT_EQ(base64(""), "");
    EXPECT_EQ(base64("f"), "Zg=="); // RFC 4648, section 10
    EXPECT_EQ(base64("fo"), "Zm8=");
    EXPECT_EQ(base64("foobar"), "Zm9vYmFy");
    EXPECT_EQ(base64("\xFF\xFE\xFD"), "//79");
    ByteWriter writer;
    const std::vector<std::int64_t> numbers = {0,   -1, 1,      63,
                                               -64, 64, 300000, -(std::int64_t{1} << 40)};
    for (const std::int64_t number : numbers) {
        writer.difference(number);
    }
    NumberReader reader(std::move(writer).take());
    for (const std::int64_t number : numbers) {
        EXPECT_EQ(reader.difference(), number);
    }
    EXPECT_TRUE(reader.done());
}

TEST(PageModel, TakesCellsOnALatticeForOneGrid) {
    const SensorField whole = plan({"###", "###"});
    const std::vector<CellBlock> one = cellBlocks(whole, 1.0e-4);
    ASSERT_EQ(one.size(), 1U);
    EXPECT_EQ(one[0].kind, CellBlock::Kind::grid);
    EXPECT_EQ(one[0].columns, 3U);
    EXPECT_EQ(one[0].rows, 2U);
    EXPECT_TRUE(one[0].present.empty());
    EXPECT_EQ(one[0].along.x, 3.0);
    EXPECT_EQ(one[0].across.y, 2.0);

    // A house stands on the plane, and the second row begins left of the first.
    const std::vector<CellBlock> gaps = cellBlocks(plan({".###", "#..#", "####"}), 1.0e-4);
    ASSERT_EQ(gaps.size(), 1U);
    EXPECT_EQ(gaps[0].columns, 4U);
    EXPECT_EQ(gaps[0].rows, 3U);
    EXPECT_EQ(gaps[0].count, 9U);
    EXPECT_EQ(gaps[0].origin.x, 0.0);
    EXPECT_THAT(gaps[0].present, ElementsAre(0, 1, 1, 1, 1, 0, 0, 1, 1, 1, 1, 1));
}

TEST(PageModel, LeavesOtherCellsAsTheyAre) {
    struct Case {
        const char* what;
        SensorField field;
        std::size_t blocks;
    };
    SensorField warped = plan({"##"});
    warped.corners[6].x += 0.2; // the second is no parallelogram
    SensorField turned = plan({"##"});
    turned.normals.assign(2, {0, 0, -1}); // faces against the turn of its corners
    SensorField twoFaces = plan({"####"});
    twoFaces.origins = {{.face = 1}, {.face = 1}, {.face = 2}, {.face = 2}};
    for (const auto& [what, field, blocks] :
         {Case{"warped", warped, 1}, Case{"turned", turned, 1}, Case{"two faces", twoFaces, 2}}) {
        SCOPED_TRACE(what);
        const std::vector<CellBlock> found = cellBlocks(field, 1.0e-4);
        EXPECT_EQ(found.size(), blocks);
        EXPECT_EQ(found[0].kind == CellBlock::Kind::grid, blocks == 2);
        std::size_t cells = 0;
        for (const CellBlock& block : found) {
            EXPECT_EQ(block.first, cells);
            cells += block.count;
        }
        EXPECT_EQ(cells, field.size());
    }
}

TEST(PageModel, KeepsTheSceneAndWhoseItIs) {
    SensorField field = plan({"##", "##"});
    field.names = {"unused", "roof", "slate"};
    field.origins = {{7, 1, 2}, {7, 1, 2}, {8, 1, 2}, {8, 1, 2}}; // two faces of one name
    Scene scene; // the roof as two triangles, and a wall below it
    scene.vertices = {{0, 0, 3}, {2, 0, 3}, {2, 2, 3}, {0, 0, 3}, {2, 2, 3},
                      {0, 2, 3}, {0, 0, 0}, {2, 0, 0}, {2, 0, 3}};
    const PackedModel packed = packModel(scene, field);
    EXPECT_THAT(packed.names, ElementsAre("roof", "slate"));
    EXPECT_EQ(packed.sceneVertices, 6U);
    EXPECT_EQ(packed.sceneTriangles, 3U);
    // Four sides of the roof and three of the wall, no diagonal; the eaves' is whole in the roof
    // and in the wall's triangle a side of its own.
    EXPECT_EQ(packed.sceneEdges, 7U);
    NumberReader objects(packed.objects);
    EXPECT_EQ(objects.number(), 1U); // one pair of
    EXPECT_EQ(objects.number(), 1U); // roof and
    EXPECT_EQ(objects.number(), 2U); // slate
    EXPECT_EQ(objects.number(), 2U); // has two triangles,
    EXPECT_EQ(objects.number(), 1U);
    EXPECT_EQ(objects.number(), 1U); // and one triangle
    EXPECT_EQ(objects.number(), 0U); // has no object.
    EXPECT_TRUE(objects.done());
    NumberReader faces(packed.faces);
    EXPECT_EQ(faces.number(), 4U);
    EXPECT_EQ(faces.number(), 1U);
    EXPECT_EQ(faces.number(), 2U);
}

TEST(PageModel, KeepsValuesToTheDigitsThatItShows) {
    const SensorField field = plan({"####", "####"});
    const std::vector<CellBlock> blocks = cellBlocks(field, 1.0e-4);
    struct Case {
        std::vector<float> values;
        double factor;
        int digits;
        int decimals;
    };
    const std::vector<Case> cases = {
        {{1414523.0f, 108300.0f, noValue, 900000.0f, 1.0f, 2.0f, 70000.0f, 0.0f}, 1.0e-3, 5, 1},
        {{1414523.0f, 108300.0f, 5.0f, 900000.0f, 1.0f, 2.0f, 70000.0f, 0.0f}, 1.0e-3, 4, 0},
        {{-0.5f, 0.25f, 0.125f, 0.0f, 0.0f, noValue, -0.5f, 0.03f}, 1.0, 5, 4},
        {{8760.0f, 1.0f, 0.0f, 4285.0f, 4285.0f, 4286.0f, 12.0f, 12.0f}, 1.0, 5, 0},
        {{noValue, noValue, noValue, noValue, noValue, noValue, noValue, noValue}, 1.0, 5, 0},
    };
    for (const Case& one : cases) {
        const PackedColumn packed = packColumn(one.values, one.factor, one.digits, blocks);
        SCOPED_TRACE(one.values[0]);
        EXPECT_EQ(packed.decimals > 0 ? packed.decimals : 0, one.decimals);
        const std::vector<double> back = unpacked(packed, blocks);
        ASSERT_EQ(back.size(), one.values.size());
        for (std::size_t i = 0; i < back.size(); ++i) {
            const double shown = static_cast<double>(one.values[i]) * one.factor;
            if (std::isnan(shown)) {
                EXPECT_TRUE(std::isnan(back[i]));
            } else {
                EXPECT_LE(std::abs(back[i] - shown), 0.500001 * packed.step) << i;
            }
        }
    }
}

TEST(PageModel, KeepsStepsInAByteWithCommonEnds) {
    const SensorField field = plan({"###"});
    const std::vector<CellBlock> blocks = cellBlocks(field, 1.0e-4);
    const std::vector<float> month = {0.0f, 180000.0f, 93200.0f};
    const PackedColumn packed = packBytes(month, 1.0e-3, 0.0, 180.0, blocks);
    EXPECT_EQ(packed.step, 1.0);
    ASSERT_EQ(packed.bytes.size(), 3U);
    EXPECT_EQ(static_cast<unsigned char>(packed.bytes[1]), 180);
    EXPECT_EQ(static_cast<signed char>(packed.bytes[2]), 93 - 180);
    EXPECT_EQ(packBytes(month, 1.0e-3, 0.0, 999.0, blocks).step, 5.0); // 1, 2 or 5 times ten
}

/// The same table is read by viewer/tests/unit/colors.test.ts.
TEST(PageModel, HasTheColoursOfThePictures) {
    std::ifstream file(insolate::test::sourceFolder() / "viewer/tests/colors.json");
    const nlohmann::json table = nlohmann::json::parse(file);
    for (const auto& [name, scheme] : {std::pair("sequential", ColorScheme::sequential),
                                       std::pair("diverging", ColorScheme::diverging)}) {
        const ColorMap map(scheme);
        for (const auto& row : table[name]) {
            const Color& color = map(row[0].get<double>());
            EXPECT_EQ(std::lround(255.0 * color.red), row[1].get<int>()) << name << row[0];
            EXPECT_EQ(std::lround(255.0 * color.green), row[2].get<int>()) << name << row[0];
            EXPECT_EQ(std::lround(255.0 * color.blue), row[3].get<int>()) << name << row[0];
        }
    }
}

class PageTest : public OutputTest {
protected:
    PageTest() {
        field = plan({"####", "####"});
        values = {{"total", "Wh/m2", "Total radiation", {1, 2, 3, 4, 5, 6, 7, 8}},
                  {"ground", "Wh/m2", "Ground", {1, 1, 1, 1, 1, 1, 1, 1}},
                  {"area", "m2", "Area of the cell", {1, 1, 1, 1, 1, 1, 1, 1}}};
        result.name = "a study";
        result.field = &field;
        result.columns = values;
    }
    [[nodiscard]] std::string page(const PageOptions& options = {}) const {
        return contentOf(written("page.html", [&](OutputFile& out) {
            writePage(out, {&result, 1}, options);
        }));
    }

    SensorField field;
    std::vector<ResultColumn> values;
    PageResult result;
};

TEST_F(PageTest, HoldsNamesAsDataOnly) {
    const std::string attack = "</script><script>alert(1)</script>\"'><img src=x onerror=alert(1)>";
    const std::string backwards = "\xE2\x80\xAEtxt.exe \xFF";
    field.names = {attack, backwards, std::string(10'000, 'n')};
    field.origins.assign(8, {.face = 0, .object = 0, .material = 1});
    field.origins[7] = {.face = 1, .object = 2};
    result.name = attack;
    result.facts = {{"Site", attack}};
    result.warnings = {attack};
    const std::string text = page();
    EXPECT_THAT(text, Not(HasSubstr("alert")));
    EXPECT_THAT(text, Not(HasSubstr("onerror=alert")));
    const nlohmann::json record = recordOf(text);
    EXPECT_EQ(record["name"], attack);
    EXPECT_EQ(record["names"][0], attack);
    EXPECT_EQ(record["names"][1], "\xE2\x80\xAEtxt.exe \xEF\xBF\xBD");
    EXPECT_EQ(record["names"][2].get<std::string>().size(), 10'000U);
    EXPECT_EQ(record["columns"].size(), 2U); // the page knows the areas
    EXPECT_EQ(record["columns"][0]["unit"], "kWh/m2");
    EXPECT_TRUE(isOurPage(folder / "page.html"));
    std::ofstream(folder / "other.html") << "<!doctype html>\n<p>mine</p>";
    EXPECT_FALSE(isOurPage(folder / "other.html"));
}

TEST_F(PageTest, NeedsNoOtherHost) {
    const std::string text = page();
    const std::string markup = text.substr(0, text.find("id=\"viewer\""));
    EXPECT_THAT(markup, Not(HasSubstr("http://")));
    EXPECT_THAT(markup, Not(HasSubstr("https://")));
    EXPECT_THAT(markup, HasSubstr("default-src 'none'"));
}

TEST_F(PageTest, SaysWhatItLeavesOutBeyondItsLimit) {
    EXPECT_EQ(recordOf(page())["left_out"], "");
    PageOptions tiny;
    tiny.limit = 1.0e-6;
    const nlohmann::json record = recordOf(page(tiny));
    EXPECT_THAT(record["left_out"].get<std::string>(), HasSubstr("three digits"));
    EXPECT_EQ(record["columns"].size(), 1U);
    tiny.limit = 0.0;
    EXPECT_THROW((void)page(tiny), UsageError);
    const std::stop_source stopped;
    stopped.request_stop();
    OutputFile out(folder / "stopped.html", "stopped.html");
    EXPECT_THROW(writePage(out, {&result, 1}, {}, stopped.get_token()), Stopped);
}

TEST_F(PageTest, HoldsPartsOfThePeriodAndWhatIsEnclosed) {
    std::vector<ResultColumn> months;
    for (int month = 0; month < 30; ++month) {
        const float value = month == 7 ? 9000.0f : 10.0f * static_cast<float>(month);
        months.push_back({"total_" + std::to_string(month), "Wh/m2", "Total radiation, a month",
                          std::vector<float>(8, value)});
    }
    result.steps = months;
    const std::vector<std::uint8_t> included = {0, 0, 1, 1, 1, 1, 1, 0};
    result.included = included;
    nlohmann::json record = recordOf(page());
    EXPECT_EQ(record["steps"].size(), 30U);
    EXPECT_EQ(record["steps"][7]["bytes"], 2); // so few are exact
    EXPECT_EQ(record["step_ends"], nlohmann::json::array({0.0, 9.0}));
    EXPECT_EQ(record["arrays"]["enclosed"][1], 4); // none that counts, then two, five and one
    PageOptions tiny;
    tiny.limit = 1.0e-6;
    record = recordOf(page(tiny));
    EXPECT_EQ(record["steps"].size(), 0U);
    EXPECT_EQ(record["steps_in_all"], 30);
    EXPECT_THAT(record["left_out"].get<std::string>(), HasSubstr("the parts of the period"));
}

TEST_F(PageTest, ShowsMinutesInHoursAndDifferencesToBothSides) {
    values[0] = {"sun", "min", "Sun on 21 March", {60, 0, 90, 720, 1, 2, 3, 4}};
    values[1].name = "ground_difference";
    const nlohmann::json record = recordOf(page());
    EXPECT_EQ(record["columns"][0]["unit"], "h");
    EXPECT_EQ(record["columns"][0]["step"], 0.001); // of 12 h, five digits
    EXPECT_EQ(record["columns"][0]["diverging"], false);
    EXPECT_EQ(record["columns"][1]["diverging"], true);
}

TEST_F(PageTest, TakesPointsWithoutCellsAndNoScene) {
    SensorField points;
    points.positions = {{1, 2, 3}, {4, 5, 6}};
    points.normals = {{0, 0, 1}, {0, 0, 0}};
    const std::vector<ResultColumn> two = {{"total", "Wh/m2", "Total radiation", {1, noValue}}};
    result.field = &points;
    result.columns = two;
    const nlohmann::json record = recordOf(page());
    EXPECT_EQ(record["cells"], 2);
    EXPECT_EQ(record["scene"]["triangles"], 0);
}

} // namespace insolate::study
