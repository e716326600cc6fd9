#include "tests/study/output/output_support.h"

#include "study/output/camera.h"
#include "study/output/canvas.h"
#include "study/output/color_map.h"
#include "study/output/picture.h"
#include "study/output/sky_output.h"
#include "study/output/z_buffer.h"
#include "study/run/run_study.h"

#include <cmath>
#include <ctime>
#include <limits>
#include <memory>

#include <cairo.h>
#include <insolate/geometry/sky_grid.h>

namespace insolate::study {
namespace {

using test::messageOf;
using test::readFile;
using testing::HasSubstr;

/// A PNG read back.
class Picture {
public:
    explicit Picture(const std::filesystem::path& file)
        : m_surface(cairo_image_surface_create_from_png(file.c_str()), cairo_surface_destroy) {
        EXPECT_EQ(cairo_surface_status(m_surface.get()), CAIRO_STATUS_SUCCESS);
    }
    [[nodiscard]] int width() const { return cairo_image_surface_get_width(m_surface.get()); }
    [[nodiscard]] int height() const { return cairo_image_surface_get_height(m_surface.get()); }
    [[nodiscard]] std::array<int, 3> at(int x, int y) const {
        const auto* const p = cairo_image_surface_get_data(m_surface.get()) + 4 * (y * width() + x);
        return {p[2], p[1], p[0]};
    }
    /// Pixels of one kind: their number, middle and extent.
    struct Patch {
        int count = 0;
        double x = 0.0;
        double y = 0.0;
        int left = 1'000'000, right = -1, top = 1'000'000, bottom = -1;
    };
    template <typename Wanted>
    [[nodiscard]] Patch patchOf(const Rectangle& within, Wanted&& wanted) const {
        Patch found;
        for (int y = int(within.y); y < int(within.y + within.height); ++y) {
            for (int x = int(within.x); x < int(within.x + within.width); ++x) {
                if (wanted(at(x, y))) {
                    ++found.count;
                    found.x += x;
                    found.y += y;
                    found.left = std::min(found.left, x);
                    found.right = std::max(found.right, x);
                    found.top = std::min(found.top, y);
                    found.bottom = std::max(found.bottom, y);
                }
            }
        }
        found.x /= std::max(found.count, 1);
        found.y /= std::max(found.count, 1);
        return found;
    }
    /// Those left of the colour bar in the colour that the map gives to this place of the scale.
    [[nodiscard]] Patch patch(double place, ColorScheme scheme = ColorScheme::sequential) const {
        const ColorMap colors(scheme);
        const Color& c = colors(place);
        return patchOf({0, 0, width() * 0.88, double(height())}, [&](const std::array<int, 3>& p) {
            return std::abs(p[0] - 255 * c.red) < 3 && std::abs(p[1] - 255 * c.green) < 3 &&
                   std::abs(p[2] - 255 * c.blue) < 3;
        });
    }
    [[nodiscard]] Patch ink(const Rectangle& within) const {
        return patchOf(within,
                       [](const std::array<int, 3>& p) { return p[0] + p[1] + p[2] < 300; });
    }

private:
    std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)> m_surface;
};

/// Tiles of 10 m on the ground: north, east, south, west of the origin, 20 m away.
SensorField fourTiles(double z = 0.0) {
    SensorField field;
    for (const auto& [x, y] : {std::pair{0.0, 20.0}, {20.0, 0.0}, {0.0, -20.0}, {-20.0, 0.0}}) {
        addCell(field, {x - 5, y - 5, z}, {x + 5, y - 5, z}, {x + 5, y + 5, z}, {x - 5, y + 5, z},
                {0, 0, 1});
    }
    return field;
}
/// Their values, and where these lie on the scale.
const std::vector<float> tileValues = {0.0F, 1.0F, 2.0F, 4.0F};
constexpr double northTile = 0.0, eastTile = 0.25, southTile = 0.5, westTile = 1.0;

void addQuad(Scene& scene, const Vector3& a, const Vector3& b, const Vector3& c, const Vector3& d) {
    scene.vertices.insert(scene.vertices.end(), {a, b, c, a, c, d});
}

class PicturesTest : public OutputTest {
protected:
    PicturesTest() {
        options.width = 800;
        options.height = 500;
        options.view = PictureView{180.0, 42.0};
    }
    std::filesystem::path draw(const Scene& scene, const SensorField& field,
                               const std::vector<float>& values = tileValues,
                               const char* name = "picture.png") const {
        return written(name, [&](OutputFile& file) {
            drawPicture(file, scene, field, {"total", "Wh/m2", "Total", values}, options);
        });
    }
    Picture picture(const Scene& scene, const SensorField& field,
                    const std::vector<float>& values = tileValues) const {
        return Picture(draw(scene, field, values));
    }
    PictureOptions options;
    /// Around the north arrow, and left of the remark below the model.
    static constexpr Rectangle compass = {710, 400, 90, 100}, scaleBar = {10, 470, 200, 30};
};

TEST_F(PicturesTest, showsTheModelAsSeenFromTheGivenBearing) {
    // What lies at the top, at the bottom, to the left and to the right, and where north is; when
    // true north is turned, the bearing turns along.
    const struct {
        PictureView view;
        double north, top, bottom, left, right, northX, northY;
    } cases[] = {{{180.0, 45.0}, 0.0, northTile, southTile, westTile, eastTile, 0, -1},
                 {{90.0, 45.0}, 90.0, northTile, southTile, westTile, eastTile, 1, 0},
                 {{90.0, 45.0}, 0.0, westTile, eastTile, southTile, northTile, 1, 0},
                 {pictureView("top"), 0.0, northTile, southTile, westTile, eastTile, 0, -1},
                 {pictureView("270, 90"), 0.0, eastTile, westTile, northTile, southTile, -1, 0}};
    for (const auto& c : cases) {
        options.view = c.view;
        options.north = c.north;
        const Picture picture = this->picture({}, fourTiles());
        EXPECT_EQ(picture.width(), 800);
        EXPECT_EQ(picture.height(), 500);
        for (const double tile : {northTile, eastTile, southTile, westTile}) {
            EXPECT_GT(picture.patch(tile).count, 500);
        }
        EXPECT_LT(picture.patch(c.top).y, picture.patch(c.bottom).y - 50);
        EXPECT_LT(picture.patch(c.left).x, picture.patch(c.right).x - 50);
        EXPECT_NEAR(picture.patch(c.top).x, picture.patch(c.bottom).x, 3.0);
        // The letter N stands beyond the circle, whose middle is known.
        const auto arrow = picture.ink(compass);
        EXPECT_GT((arrow.x - 752.5) * c.northX + (arrow.y - 455.0) * c.northY, 3.0);
    }
    options.view = pictureView("south");
    options.north = 0.0;
    SensorField sides;
    addCell(sides, {-5, 0, 0}, {5, 0, 0}, {5, 0, 10}, {-5, 0, 10}, {0, -1, 0});
    addCell(sides, {10, 0, 5}, {20, 0, 5}, {20, 0, 10}, {10, 0, 10}, {0, -1, 0});
    const Picture elevation = picture({}, sides, {0.0F, 1.0F});
    EXPECT_NEAR(elevation.patch(0.0).count, 2.0 * elevation.patch(1.0).count, 900);
    EXPECT_LT(elevation.patch(1.0).y, elevation.patch(0.0).y);
    for (const char* bad : {"", "up", "1", "1,91", "1,2,3", "nan,2"}) {
        EXPECT_THAT(messageOf([&] { (void)pictureView(bad); }), HasSubstr("--view")) << bad;
    }
}

TEST_F(PicturesTest, scaleBarIsTrueAcross) {
    for (const double size : {1.0, 3.0}) { // of a tile, in tens of metres
        SensorField field;
        addCell(field, {0, 0, 0}, {10 * size, 0, 0}, {10 * size, 10 * size, 0}, {0, 10 * size, 0},
                {0, 0, 1});
        const Picture picture = this->picture({}, field, {1.0F});
        const auto tile = picture.patch(0.5);
        const double pixelsPerMetre = (tile.right - tile.left + 3) / (10 * size); // with its edges
        // The bar's line is the longest row of ink.
        int longest = 0;
        for (int y = 470; y < 500; ++y) {
            int run = 0;
            for (int x = 10; x < 210; ++x) {
                run = picture.at(x, y)[0] < 180 ? run + 1 : 0;
                longest = std::max(longest, run);
            }
        }
        EXPECT_NEAR(longest / pixelsPerMetre, size == 1.0 ? 1.0 : 5.0, 0.05 * size);
    }
}

TEST_F(PicturesTest, hidesWhatLiesBehindAndShowsTheLitSideOfCells) {
    const SensorField field = fourTiles(5.0e6); // in map coordinates
    Scene scene;
    addQuad(scene, {-30, -30, 5.0e6}, {30, -30, 5.0e6}, {30, 30, 5.0e6}, {-30, 30, 5.0e6});
    EXPECT_GT(picture(scene, field).patch(northTile).count, 500)
        << "cells lie over their own faces";
    addQuad(scene, {-8, 10, 5.0e6}, {8, 10, 5.0e6}, {8, 10, 5.0e6 + 20}, {-8, 10, 5.0e6 + 20});
    const Picture walled = picture(scene, field);
    EXPECT_LT(walled.patch(northTile).count, 20) << "the tile behind the wall is seen";
    EXPECT_GT(walled.patch(southTile).count, 500);

    SensorField sides;
    addCell(sides, {-5, 0, 0}, {5, 0, 0}, {5, 0, 10}, {-5, 0, 10}, {0, -1, 0});  // faces south
    addCell(sides, {10, 0, 0}, {20, 0, 0}, {20, 0, 10}, {10, 0, 10}, {0, 1, 0}); // faces north
    const Picture lit = picture({}, sides, {0.0F, 1.0F});
    EXPECT_GT(lit.patch(0.0).count, 500);
    EXPECT_EQ(lit.patch(1.0).count, 0);
}

TEST_F(PicturesTest, framesWhatIsColouredHoweverTheSceneReaches) {
    const SensorField field = fourTiles();
    const int alone = picture({}, field).patch(northTile).count;
    Scene scene;
    addQuad(scene, {-1e4, -1e4, 0}, {1e4, -1e4, 0}, {1e4, 1e4, 0}, {-1e4, 1e4, 0});
    addQuad(scene, {200, 0, 0}, {300, 0, 0}, {300, 100, 500}, {200, 100, 500});
    const Picture wide = picture(scene, field);
    EXPECT_NEAR(wide.patch(northTile).count, alone, 0.02 * alone);
    EXPECT_LT(wide.patch(northTile).top, 70) << "the upper side of the sheet is empty";
    EXPECT_GT(wide.patch(southTile).bottom, 450);
    // Without a view one that shows most: rows towards the viewer turn, walls are seen in front.
    options.view.reset();
    SensorField row;
    for (int i = 0; i < 8; ++i) {
        const double y = 40.0 * i;
        addCell(row, {0, y, 0}, {10, y, 0}, {10, y + 10, 0}, {0, y + 10, 0}, {0, 0, 1});
    }
    const auto turned = picture({}, row, std::vector<float>(8, 1.0F)).patch(0.5);
    EXPECT_GT(turned.right - turned.left, 500);
    SensorField wall;
    addCell(wall, {-5, 0, 0}, {5, 0, 0}, {5, 0, 10}, {-5, 0, 10}, {0, 1, 0}); // faces north
    EXPECT_GT(picture({}, wall, {1.0F}).patch(0.5).count, 10'000);
    // A sensor without cell is shown in its surroundings; what is left out takes no room.
    SensorField point;
    point.positions = {{0, 0, 1}};
    point.normals = {{0, 0, 1}};
    EXPECT_GT(picture(scene, point, {1.0F}).patch(0.5).count, 100);
    SensorField far = fourTiles();
    addCell(far, {1e5, 0, 0}, {1e5 + 9, 0, 0}, {1e5 + 9, 9, 0}, {1e5, 9, 0}, {0, 0, 1});
    options.view = PictureView{180.0, 42.0};
    const std::vector<std::uint8_t> shown = {1, 1, 1, 1, 0};
    const std::vector<std::uint8_t> shownTriangles(4, 0);
    options.shownSensors = shown;
    options.shownTriangles = shownTriangles;
    std::vector<float> values = tileValues;
    values.push_back(1.0F);
    const Picture chosen = picture(scene, far, values);
    EXPECT_EQ(chosen.patch(northTile).count, alone);
    EXPECT_EQ(chosen.at(24, 60), (std::array<int, 3>{255, 255, 255}))
        << "a hidden triangle is seen";
}

TEST_F(PicturesTest, marksPlacesThatAreTooSmallToBeSeen) {
    SensorField field;
    std::vector<float> values;
    for (const double x : {0.0, 1000.0, 2000.0}) {
        addCell(field, {x, 0, 0}, {x + 2, 0, 0}, {x + 2, 2, 0}, {x, 2, 0}, {0, 0, 1});
        addCell(field, {x + 2, 0, 0}, {x + 3, 0, 0}, {x + 3, 2, 0}, {x + 2, 2, 0}, {0, 0, 1});
        values.insert(values.end(), {float(x), float(x) + 3000.0F});
    }
    const std::vector<float> areas = {4, 2, 4, 2, 4, 2};
    options.areas = areas;
    const Picture discs = picture({}, field, values);
    for (const double place : {1000.0, 2000.0, 3000.0}) { // the means by area, of 0 to 5000
        const auto disc = discs.patch(place / 5000.0);
        EXPECT_GT(disc.count, 30);
        EXPECT_LT(disc.right - disc.left, 12);
    }
}

TEST_F(PicturesTest, outlinesWhatHidesMostOfTheCells) {
    SensorField field = fourTiles();
    Scene roof;
    addQuad(roof, {-40, -40, 30}, {40, -40, 30}, {40, 40, 30}, {-40, 40, 30});
    const int bare = picture({}, field).patch(northTile).count;
    EXPECT_NEAR(picture(roof, field).patch(northTile).count, bare, 0.05 * bare);
    options.inFront = InFront::solid;
    EXPECT_EQ(picture(roof, field).patch(northTile).count, 0);
    // The edge between the roof's near and far half runs over the tiles, darker than they are.
    options.inFront = InFront::outline;
    Scene folded;
    addQuad(folded, {-40, -40, 0}, {40, -40, 0}, {40, -18, 16.2}, {-40, -18, 16.2});
    addQuad(folded, {-40, -18, 16.2}, {40, -18, 16.2}, {40, 40, 8}, {-40, 40, 8});
    const Picture lined = picture(folded, field);
    const auto tile = lined.patch(westTile); // its yellow has the greatest red there is
    const auto line = lined.patchOf({tile.x - 20, tile.y - 20, 40, 40},
                                    [](const std::array<int, 3>& p) { return p[0] < 230; });
    EXPECT_EQ(line.right - line.left, 39);
    EXPECT_LT(line.bottom - line.top, 3);
    EXPECT_NEAR(line.y, tile.y, 2.0);
}

TEST_F(PicturesTest, legendSaysUnitEndsAndMean) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const struct {
        std::vector<float> values;
        std::vector<float> weights;
        const char* unit;
        const char* shownUnit;
        double lowest, highest, mean;
    } cases[] = {{{1.0F, 9000.0F, nan}, {}, "Wh/m2", "Wh/m²", 1.0, 9000.0, 4500.5},
                 {{0.0F, 20'000.0F}, {}, "Wh/m2", "kWh/m²", 0.0, 20.0, 10.0},
                 {{0.0F, 20'000.0F}, {3.0F, 1.0F}, "Wh/m2", "kWh/m²", 0.0, 20.0, 5.0},
                 {{-3.0e7F, 1.0e7F}, {}, "Wh/m2", "MWh/m²", -30.0, 10.0, -10.0},
                 {{0.0F, 20'000.0F}, {}, "W/m2", "W/m²", 0.0, 20'000.0, 10'000.0},
                 {{100.0F, 100.0F}, {}, "h", "h", 95.0, 105.0, 100.0}};
    for (const auto& c : cases) {
        const ColorScale scale = scaleOf({"v", c.unit, "V", c.values}, {.weights = c.weights});
        EXPECT_EQ(scale.unit, c.shownUnit);
        EXPECT_NEAR(scale.lowest, c.lowest, 1e-6);
        EXPECT_NEAR(scale.highest, c.highest, 1e-6);
        EXPECT_NEAR(scale.mean, c.mean, 1e-6);
        EXPECT_NEAR(scale.placeOf(c.values[1]),
                    (c.values[1] == c.values[0]) ? 0.5
                    : c.values[1] > c.values[0]  ? 1.0
                                                 : 0.0,
                    1e-6);
    }
    const ColorScale nothing = scaleOf({"v", "h", "V", {0.0F, 0.0F}});
    EXPECT_EQ(nothing.lowest, 0.0) << "no hours are no reason for a scale below zero";
    EXPECT_EQ(nothing.highest, 1.0);
    // The bar has the highest value's colour at its top and the mean's mark beside its place; the
    // mean's number below it is the text "mean 1.75".
    const Picture drawn = picture({}, fourTiles());
    const ColorMap colors;
    const auto bar = [&](double place) {
        const Color& c = colors(place);
        return drawn.patchOf({730, 60, 10, 300}, [&](const std::array<int, 3>& p) {
            return std::abs(p[0] - 255 * c.red) < 4 && std::abs(p[2] - 255 * c.blue) < 4;
        });
    };
    EXPECT_LT(bar(0.95).y, bar(0.5).y - 50);
    EXPECT_LT(bar(0.5).y, bar(0.05).y - 50);
    const double bottom = bar(0.05).y + (bar(0.05).y - bar(0.5).y) / 9.0;
    const auto mark = drawn.ink({720, 60, 9, bottom - 60});
    EXPECT_NEAR(mark.y, bar(0.4375).y, 2.0);
    const Picture expected(written("text.png", [&](OutputFile& file) {
        Canvas canvas(file, PictureFormat::png, 800, 500);
        canvas.setColor({0.13, 0.14, 0.16});
        canvas.text(100, 100, "mean 1.75", 9.0, Align::left, true);
        canvas.finish();
    }));
    EXPECT_NEAR(drawn.ink({731, bottom + 8, 69, 30}).count, expected.ink({90, 80, 90, 40}).count,
                6);
    options.scaleLowest = 5.0;
    options.scaleHighest = 4.0;
    EXPECT_THAT(messageOf([&] { draw({}, fourTiles()); }), HasSubstr("--scale 5,4: "));
}

TEST_F(PicturesTest, differencesAreCentredAtZero) {
    options.colors = ColorScheme::diverging;
    const Picture differences = picture({}, fourTiles(), {0.0F, -2.0F, 1.0F, 4.0F});
    for (const auto& [value, isSouth] : {std::pair{0.0, false}, {1.0, true}}) {
        const auto found = differences.patch(0.5 + 0.5 * value / 4.0, ColorScheme::diverging);
        EXPECT_GT(found.count, 500);
        EXPECT_EQ(found.y > 280, isSouth);
    }
    options.scaleLowest = -8.0; // ends as given do not move the middle
    EXPECT_GT(picture({}, fourTiles(), {0.0F, -2.0F, 1.0F, 4.0F})
                  .patch(0.5 + 0.5 * 4.0 / 8.0, ColorScheme::diverging)
                  .count,
              500);
    const ColorMap map(ColorScheme::diverging);
    const Color& middle = map(0.5);
    EXPECT_LT(std::max({middle.red, middle.green, middle.blue}) -
                  std::min({middle.red, middle.green, middle.blue}),
              0.03);
    for (double side = 0.1; side <= 0.5; side += 0.1) { // blue below, orange above, alike in depth
        const Color& below = map(0.5 - side);
        const Color& above = map(0.5 + side);
        EXPECT_GT(below.blue - below.red, 0.6 * side);
        EXPECT_GT(above.red - above.blue, 0.6 * side);
        const auto depth = [](const Color& c) {
            return 0.2126 * std::pow(c.red, 2.2) + 0.7152 * std::pow(c.green, 2.2) +
                   0.0722 * std::pow(c.blue, 2.2);
        };
        EXPECT_NEAR(depth(below), depth(above), 0.04);
    }
}

TEST_F(PicturesTest, writesFormatsThatSayWhoseTheyAre) {
    for (const char* name : {"a.png", "a.svg", "a.PDF"}) {
        options.format = pictureFormat(name);
        const auto file = draw({}, fourTiles(), tileValues, name);
        EXPECT_TRUE(isOurPicture(file)) << name;
        const std::string bytes = readFile(file);
        // An SVG counts its parts through all pictures of a process.
        EXPECT_TRUE(name == std::string("a.svg") ||
                    readFile(draw({}, fourTiles(), tileValues, name)) == bytes)
            << name;
    }
    // The checksum of the PNG's text chunk, by zlib's crc32.
    EXPECT_EQ(readFile(folder / "a.png").substr(33, 29),
              std::string("\0\0\0\x11tEXtSoftware\0insolate\xE4\x2F\x0F\x05", 29));
    EXPECT_NE(readFile(folder / "a.svg").find("width=\"800px\" height=\"500px\""),
              std::string::npos);
    EXPECT_NE(readFile(folder / "a.PDF").find("/MediaBox [ 0 0 400 250 ]"), std::string::npos);
    EXPECT_THAT(messageOf([] { (void)pictureFormat("a.bmp"); }), HasSubstr("a.bmp: "));
    // Of others: without a mark, whatever stands beside it.
    std::string bare = readFile(folder / "a.png");
    own.write("bare.png", bare.erase(33, 29));
    own.write("summary.json", "{\n  \"versions\": {\n    \"insolate\": \"0.1.0\"");
    own.write("bare.svg", "<?xml version=\"1.0\"?>\n<svg/>");
    own.write("bare.pdf", "%PDF-1.5\n");
    for (const char* name : {"bare.png", "bare.svg", "bare.pdf", "none.png"}) {
        EXPECT_FALSE(isOurPicture(folder / name)) << name;
    }
}

TEST_F(PicturesTest, costIsBoundedAndEndsWithAStop) {
    const std::clock_t start = std::clock();
    options.title = std::string(100'000, 'W');
    for (int i = 0; i < 50'000; ++i) {
        options.subtitle += "a ";
    }
    // Forty thousand sheets above one another, of which the uppermost is seen, and one far below.
    SensorField field;
    std::vector<float> values;
    for (int i = 0; i < 40'000; ++i) {
        const double z = 1.0e-3 * i;
        addCell(field, {0, 0, z}, {50, 0, z}, {50, 50, z}, {0, 50, z}, {0, 0, 1});
        values.push_back(i == 39'999 ? 1.0F : 0.0F);
    }
    const auto file = written("deep.png", [&](OutputFile& out) {
        EXPECT_GT(drawPicture(out, {}, field, {"total", "h", "T", values}, options), 1000U);
    });
    EXPECT_GT(Picture(file).patch(1.0).count, 20'000);
    // 70 s and more without the bounds, 2 s with them.
#ifdef INSOLATE_SANITIZED
    constexpr double most = 25.0;
#else
    constexpr double most = 8.0;
#endif
    EXPECT_LT(double(std::clock() - start) / CLOCKS_PER_SEC, most);

    std::stop_source source;
    source.request_stop();
    const ResultColumn column{"total", "h", "T", values};
    OutputFile out(folder / "stopped", "stopped");
    EXPECT_THROW(drawPicture(out, {}, field, column, options, source.get_token()), Stopped);
    const ResultColumn sky{"d", "h", "D", std::vector<float>(skyGrid::cellCount)};
    EXPECT_THROW(drawSkyDome(out, sky, {}, source.get_token()), Stopped);
    out.finish();
    EXPECT_TRUE(readFile(folder / "stopped").empty());
}

TEST_F(PicturesTest, aRunTurnsItsPictureToNorth) {
    // An open roof, square to the axes: nothing but the picture depends on north.
    const auto heatmapAt = [&](double north) {
        RunOptions run;
        run.weather = own.write("w.epw", test::clearYear());
        run.scenes = {own.write("roof.obj", "v 0 0 0\nv 9 0 0\nv 9 9 0\nv 0 9 0\nf 1 2 3 4\n")};
        run.out = folder / "out";
        run.north = north;
        run.period = {.startDay = 172, .endDay = 172};
        Progress silent;
        runStudy(run, silent);
        const Picture picture(run.out / "heatmap.png");
        return picture.patch(0.5);
    };
    const auto straight = heatmapAt(0.0);
    const auto turned = heatmapAt(155.0 - 180.0); // the viewer looks along the model's +Y
    EXPECT_NEAR(turned.count, 1.0 * (turned.right - turned.left) * (turned.bottom - turned.top),
                0.02 * turned.count)
        << "not a rectangle";
    EXPECT_LT(straight.count,
              0.8 * (straight.right - straight.left) * (straight.bottom - straight.top));
}

TEST_F(PicturesTest, copesWithOddInput) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const double huge = std::numeric_limits<double>::infinity();
    options.title = "Title \xFF that is far too long for one line " + std::string(400, 'W');
    SensorField points = fourTiles();
    points.corners.clear();
    points.cellStart.clear();
    points.positions[1] = {huge, 0, 0};
    points.normals[2] = {};
    Scene scene;
    addQuad(scene, {0, 0, 0}, {0, 0, 0}, {huge, 0, 0}, {0, -huge, 0});
    const Picture mixed = picture(scene, points, {1.0F, 1.0F, nan, 1.0F});
    EXPECT_GT(mixed.patch(0.5).count, 20) << "equal values lie in the middle of the scale";
    for (int y = 60; y < 480; ++y) { // the long title ends inside the picture
        ASSERT_EQ(mixed.at(799, y), (std::array<int, 3>{255, 255, 255}));
    }
    SensorField farAway = fourTiles();
    farAway.corners[0] = {1.0e308, -1.0e308, 1.0e308};
    EXPECT_EQ(picture({}, farAway).width(), 800);
    EXPECT_EQ(picture({}, {}, {}).height(), 500);
}

TEST_F(PicturesTest, skyDomeHasNorthUpAndEastToTheRight) {
    ResultColumn column{"direct", "Wh/m2", "Direct", std::vector<float>(skyGrid::cellCount)};
    column.values[0] = 300.0F;
    for (int band = 4; band < 10; ++band) { // 20..50 degrees up, 15..25 degrees around
        float* const sector = &column.values[static_cast<std::size_t>(skyGrid::cellIndex(3, band))];
        std::fill_n(sector, 2, 100.0F);      // north-north-east
        std::fill_n(sector + 18, 2, 200.0F); // east-south-east
    }
    SkyDomeOptions dome;
    dome.paths = {{"", {{40, -5}, {60, 40}, {90, 45}, {120, 40}, {250, std::nan("")}}}};
    const Picture picture(
        written("sky.png", [&](OutputFile& file) { drawSkyDome(file, column, dome); }));
    const auto all = picture.patch(0.0);
    const auto north = picture.patch(1.0 / 3.0);
    const auto east = picture.patch(2.0 / 3.0);
    ASSERT_GT(std::min(north.count, east.count), 200);
    EXPECT_LT(north.y, all.y - 100);
    EXPECT_GT(north.x, all.x + 20);
    EXPECT_GT(east.x, all.x + 100);
    EXPECT_GT(east.y, all.y + 20);
    const auto path = picture.patchOf({all.x - 250, all.y - 250, 500, 500}, [](const auto& p) {
        return std::min({p[0], p[1], p[2]}) > 200; // the circles of altitude are half as white
    });
    EXPECT_GT(path.count, 100);
    EXPECT_GT(path.x, all.x + 100) << "the path is not in the east";
    EXPECT_NEAR(path.y, all.y, 50.0);
}

TEST(ColorMapTest, lightnessRisesEvenly) {
    const ColorMap colors;
    // CIE L* from sRGB, IEC 61966-2-1 and CIE 15.
    const auto linear = [](double v) { return std::pow((v + 0.055) / 1.055, 2.4); };
    for (int i = 0; i <= 20; ++i) {
        const Color& c = colors(i / 20.0);
        const double y =
            0.2126 * linear(c.red) + 0.7152 * linear(c.green) + 0.0722 * linear(c.blue);
        // A little chroma is lost where sRGB ends, which moves L* by less than two.
        EXPECT_NEAR(116.0 * std::cbrt(y) - 16.0, 14.0 + 80.0 * i / 20.0, 2.0);
    }
}

TEST(ZBufferTest, trianglesThatShareEdgesLeaveNoGapAndTheNearestWins) {
    ZBuffer buffer(40, 40, 2);
    const ViewPoint hub{39.3, 41.7, 5.0};
    for (int i = 0; i < 12; ++i) { // a fan around the hub that covers the whole picture
        const auto rim = [](int k) {
            const double a = k * 0.5235987755982988;
            return ViewPoint{39.3 + 90.0 * std::cos(a), 41.7 + 90.0 * std::sin(a), 5.0};
        };
        buffer.drawTriangle(hub, rim(i), rim(i + 1), 0x00FF00, {0, 0, 1}, Surface::scene);
    }
    buffer.drawTriangle({0, 0, 1}, {80, 0, 1}, {0, 80, 1}, 0xFF0000, {0, 0, 1}, Surface::cell);
    buffer.drawTriangle({10, 10, 0}, {20, 10, 20}, {10, 20, 0}, 0x0000FF, {0, 0, 1}, Surface::cell);
    std::vector<std::uint32_t> pixels(1600);
    buffer.resolve({1.0, 1.0, 1.0}, pixels, 40);
    int blue = 0;
    for (const std::uint32_t pixel : pixels) {
        EXPECT_EQ(pixel & 0x00FF0000U, 0U) << "a gap, or the surface behind";
        blue += pixel == 0xFF0000FFU ? 1 : 0;
    }
    EXPECT_GT(blue, 2); // only the corner that rises above depth 5
    EXPECT_LT(blue, 12);

    // Drawn in front of the scene, cells still hide each other.
    ZBuffer outlined(10, 10, 1);
    for (const auto& [depth, color] : {std::pair{9.0, 0x0000FFU}, {1.0, 0xFF0000U}}) {
        outlined.drawTriangle({0, 0, depth}, {40, 0, depth}, {0, 40, depth}, color, {0, 0, 1},
                              Surface::cellInFront);
    }
    pixels.resize(100);
    outlined.resolve({1.0, 1.0, 1.0}, pixels, 10);
    EXPECT_EQ(pixels[0], 0xFF0000FFU);
}

} // namespace
} // namespace insolate::study
