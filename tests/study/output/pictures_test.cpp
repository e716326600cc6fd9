#include "tests/study/output/output_support.h"

#include "study/output/canvas.h"
#include "study/output/color_map.h"
#include "study/output/heatmap.h"
#include "study/output/sky_output.h"
#include "study/output/z_buffer.h"

#include <cmath>
#include <limits>
#include <memory>

#include <cairo.h>
#include <insolate/geometry/sky_grid.h>

namespace insolate::study {
namespace {

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
    /// Pixels within the drawing area with the colour that the map gives to this place of the
    /// scale, and their middle.
    struct Patch {
        int count = 0;
        double x = 0.0;
        double y = 0.0;
    };
    [[nodiscard]] Patch patch(double place) const {
        static const ColorMap colors;
        const Color& c = colors(place);
        Patch found;
        for (int y = 0; y < height(); ++y) {
            for (int x = 0; x < width() * 8 / 10; ++x) { // the colour bar is further right
                const std::array<int, 3> p = at(x, y);
                if (std::abs(p[0] - 255 * c.red) < 3 && std::abs(p[1] - 255 * c.green) < 3 &&
                    std::abs(p[2] - 255 * c.blue) < 3) {
                    ++found.count;
                    found.x += x;
                    found.y += y;
                }
            }
        }
        found.x /= std::max(found.count, 1);
        found.y /= std::max(found.count, 1);
        return found;
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
        options.viewFrom = 180.0;
    }
    Picture heatmap(const Scene& scene, const SensorField& field,
                    const std::vector<float>& values = tileValues) const {
        return Picture(written("heatmap.png", [&](OutputFile& file) {
            drawHeatmap(file, scene, field, {"total", "Wh/m2", "Total", values}, options);
        }));
    }
    HeatmapOptions options;
};

TEST_F(PicturesTest, showsTheModelAsSeenFromTheGivenBearing) {
    options.elevation = 45.0;
    // What lies at the top, at the bottom, to the left and to the right; when true north is turned,
    // the bearing turns along.
    const struct {
        double viewFrom, north, top, bottom, left, right;
    } cases[] = {{180.0, 0.0, northTile, southTile, westTile, eastTile},
                 {150.0, 30.0, northTile, southTile, westTile, eastTile},
                 {90.0, 0.0, westTile, eastTile, southTile, northTile}};
    for (const auto& c : cases) {
        options.viewFrom = c.viewFrom;
        options.north = c.north;
        const Picture picture = heatmap({}, fourTiles());
        EXPECT_EQ(picture.width(), 800);
        EXPECT_EQ(picture.height(), 500);
        for (const double tile : {northTile, eastTile, southTile, westTile}) {
            EXPECT_GT(picture.patch(tile).count, 500);
        }
        EXPECT_LT(picture.patch(c.top).y, picture.patch(c.bottom).y - 50);
        EXPECT_LT(picture.patch(c.left).x, picture.patch(c.right).x - 50);
        EXPECT_NEAR(picture.patch(c.top).x, picture.patch(c.bottom).x, 3.0);
    }
}

TEST_F(PicturesTest, hidesWhatLiesBehindAndShowsTheLitSideOfCells) {
    const SensorField field = fourTiles(5.0e6); // in map coordinates
    Scene scene;
    addQuad(scene, {-30, -30, 5.0e6}, {30, -30, 5.0e6}, {30, 30, 5.0e6}, {-30, 30, 5.0e6});
    EXPECT_GT(heatmap(scene, field).patch(northTile).count, 500)
        << "cells lie over their own faces";
    addQuad(scene, {-8, 10, 5.0e6}, {8, 10, 5.0e6}, {8, 10, 5.0e6 + 20}, {-8, 10, 5.0e6 + 20});
    const Picture walled = heatmap(scene, field);
    EXPECT_LT(walled.patch(northTile).count, 20) << "the tile behind the wall is seen";
    EXPECT_GT(walled.patch(southTile).count, 500);

    SensorField sides;
    addCell(sides, {-5, 0, 0}, {5, 0, 0}, {5, 0, 10}, {-5, 0, 10}, {0, -1, 0});  // faces south
    addCell(sides, {10, 0, 0}, {20, 0, 0}, {20, 0, 10}, {10, 0, 10}, {0, 1, 0}); // faces north
    const Picture picture = heatmap({}, sides, {0.0F, 1.0F});
    EXPECT_GT(picture.patch(0.0).count, 500);
    EXPECT_EQ(picture.patch(1.0).count, 0);
}

TEST_F(PicturesTest, showsTheNeighbourhoodOfTheSensorsAndNoEmptySpace) {
    const SensorField field = fourTiles();
    const Picture alone = heatmap({}, field);
    Scene elsewhere;
    addQuad(elsewhere, {200, 0, 0}, {300, 0, 0}, {300, 100, 0}, {200, 100, 0});
    EXPECT_EQ(heatmap(elsewhere, field).patch(northTile).count, alone.patch(northTile).count);
    // Ground that runs through is shown as far as the neighbourhood goes; one point has one too.
    Scene ground;
    addQuad(ground, {-1e4, -1e4, 0}, {1e4, -1e4, 0}, {1e4, 1e4, 0}, {-1e4, 1e4, 0});
    EXPECT_GT(heatmap(ground, field).patch(northTile).count, alone.patch(northTile).count / 8);
    EXPECT_LT(heatmap(ground, field).patch(northTile).count, alone.patch(northTile).count / 2);
    SensorField point;
    point.positions = {{0, 0, 1}};
    point.normals = {{0, 0, 1}};
    EXPECT_GT(heatmap(ground, point, {1.0F}).patch(0.5).count, 100);
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
    const Picture mixed = heatmap(scene, points, {1.0F, 1.0F, nan, 1.0F});
    EXPECT_GT(mixed.patch(0.5).count, 20) << "equal values lie in the middle of the scale";
    for (int y = 60; y < 480; ++y) { // the long title ends inside the picture
        ASSERT_EQ(mixed.at(799, y), (std::array<int, 3>{255, 255, 255}));
    }
    SensorField farAway = fourTiles();
    farAway.corners[0] = {1.0e308, -1.0e308, 1.0e308};
    EXPECT_EQ(heatmap({}, farAway).width(), 800);
    EXPECT_EQ(heatmap({}, {}, {}).height(), 500);
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
    dome.paths = {{"path", {{100, -5}, {120, 10}, {180, 40}, {250, std::nan("")}}}};
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
        buffer.drawTriangle(hub, rim(i), rim(i + 1), {0.0, 1.0, 0.0}, {0, 0, 1});
    }
    buffer.drawTriangle({0, 0, 1}, {80, 0, 1}, {0, 80, 1}, {1.0, 0.0, 0.0}, {0, 0, 1}); // behind
    buffer.drawTriangle({10, 10, 0}, {20, 10, 20}, {10, 20, 0}, {0.0, 0.0, 1.0}, {0, 0, 1}); // cuts
    std::vector<std::uint32_t> pixels(1600);
    buffer.resolve({1.0, 1.0, 1.0}, pixels, 40);
    int blue = 0;
    for (const std::uint32_t pixel : pixels) {
        EXPECT_EQ(pixel & 0x00FF0000U, 0U) << "a gap, or the surface behind";
        blue += pixel == 0xFF0000FFU ? 1 : 0;
    }
    EXPECT_GT(blue, 2); // only the corner that rises above depth 5
    EXPECT_LT(blue, 12);
}

} // namespace
} // namespace insolate::study
