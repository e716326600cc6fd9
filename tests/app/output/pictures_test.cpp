#include "output_support.h"

#include "app/output/canvas.h"
#include "app/output/color_map.h"
#include "app/output/heatmap.h"
#include "app/output/sky_output.h"
#include "app/output/z_buffer.h"

#include <chrono>
#include <cmath>
#include <limits>
#include <memory>

#include <cairo.h>
#include <insolate/geometry/sky_grid.h>

namespace insolate::app {

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
        const unsigned char* const p = cairo_image_surface_get_data(m_surface.get()) +
                                       y * cairo_image_surface_get_stride(m_surface.get()) + 4 * x;
        return {p[2], p[1], p[0]};
    }
    /// Whether the pixel has the colour that the map gives to this place of the scale.
    [[nodiscard]] bool shows(int x, int y, double place) const {
        static const ColorMap colors;
        const Color& c = colors(place);
        const std::array<int, 3> p = at(x, y);
        return std::abs(p[0] - 255 * c.red) < 3 && std::abs(p[1] - 255 * c.green) < 3 &&
               std::abs(p[2] - 255 * c.blue) < 3;
    }
    /// Pixels within the drawing area that show this place of the scale, and their middle.
    struct Patch {
        int count = 0;
        double x = 0.0;
        double y = 0.0;
    };
    [[nodiscard]] Patch patch(double place) const {
        Patch found;
        for (int y = 0; y < height(); ++y) {
            for (int x = 0; x < width() * 8 / 10; ++x) { // the colour bar is further right
                if (shows(x, y, place)) {
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

class PicturesTest : public OutputTest {
protected:
    Picture heatmap(const Scene& scene, const SensorField& field, const std::vector<float>& values,
                    const HeatmapOptions& options) const {
        OutputFile file(folder / "heatmap.png", "heatmap.png");
        drawHeatmap(file, scene, field, {"total", "Wh/m2", "Total", values}, options);
        file.finish();
        return Picture(folder / "heatmap.png");
    }
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

void addQuad(Scene& scene, const Vector3& a, const Vector3& b, const Vector3& c, const Vector3& d) {
    scene.vertices.insert(scene.vertices.end(), {a, b, c, a, c, d});
}

TEST_F(PicturesTest, showsTheModelAsSeenFromTheGivenBearing) {
    HeatmapOptions options;
    options.width = 800;
    options.height = 500;
    options.elevation = 45.0;
    const std::vector<float> values = {0.0F, 1.0F, 2.0F, 4.0F}; // north, east, south, west
    const struct {
        double viewFrom, north;
    } sameViews[] = {{180.0, 0.0}, {150.0, 30.0}}; // true north turned: the bearing turns along
    for (const auto& view : sameViews) {
        options.viewFrom = view.viewFrom;
        options.north = view.north;
        const Picture picture = heatmap({}, fourTiles(), values, options);
        EXPECT_EQ(picture.width(), 800);
        EXPECT_EQ(picture.height(), 500);
        const auto north = picture.patch(0.0);
        const auto east = picture.patch(0.25);
        const auto south = picture.patch(0.5);
        const auto west = picture.patch(1.0);
        for (const auto& tile : {north, east, south, west}) {
            EXPECT_GT(tile.count, 500);
        }
        EXPECT_LT(north.y, south.y - 50); // from the south, the north is at the top
        EXPECT_LT(west.x, east.x - 50);
        EXPECT_NEAR(north.x, south.x, 3.0);
    }
    options.viewFrom = 90.0;
    options.north = 0.0;
    const Picture fromEast = heatmap({}, fourTiles(), values, options);
    EXPECT_LT(fromEast.patch(1.0).y, fromEast.patch(0.25).y - 50);
    EXPECT_LT(fromEast.patch(0.5).x, fromEast.patch(0.0).x - 50);
}

TEST_F(PicturesTest, hidesWhatLiesBehindAndKeepsCellsOverTheirOwnFaces) {
    const SensorField field = fourTiles(5.0e6); // in map coordinates
    const std::vector<float> values = {0.0F, 1.0F, 2.0F, 4.0F};
    HeatmapOptions options;
    options.width = 800;
    options.height = 500;
    options.viewFrom = 180.0;
    Scene scene;
    addQuad(scene, {-30, -30, 5.0e6}, {30, -30, 5.0e6}, {30, 30, 5.0e6}, {-30, 30, 5.0e6});
    EXPECT_GT(heatmap(scene, field, values, options).patch(0.0).count, 500);
    addQuad(scene, {-8, 10, 5.0e6}, {8, 10, 5.0e6}, {8, 10, 5.0e6 + 20}, {-8, 10, 5.0e6 + 20});
    const Picture walled = heatmap(scene, field, values, options);
    EXPECT_LT(walled.patch(0.0).count, 20) << "the tile behind the wall is seen";
    EXPECT_GT(walled.patch(0.5).count, 500);
}

TEST_F(PicturesTest, cellsAreSeenFromTheirLitSideOnly) {
    SensorField field;
    addCell(field, {-5, 0, 0}, {5, 0, 0}, {5, 0, 10}, {-5, 0, 10}, {0, -1, 0});  // faces south
    addCell(field, {10, 0, 0}, {20, 0, 0}, {20, 0, 10}, {10, 0, 10}, {0, 1, 0}); // faces north
    HeatmapOptions options;
    options.width = 800;
    options.height = 500;
    options.viewFrom = 180.0;
    const Picture picture = heatmap({}, field, {0.0F, 1.0F}, options);
    EXPECT_GT(picture.patch(0.0).count, 500);
    EXPECT_EQ(picture.patch(1.0).count, 0);
}

TEST_F(PicturesTest, copesWithOddInput) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const double huge = std::numeric_limits<double>::infinity();
    HeatmapOptions options;
    options.title = "Title \xFF that is far too long for one line " + std::string(400, 'W');
    for (int i = 0; i < 300; ++i) {
        options.subtitle += "many words ";
    }
    options.width = 500;
    options.height = 320;
    SensorField points = fourTiles();
    points.corners.clear();
    points.cellStart.clear();
    points.positions[1] = {huge, 0, 0};
    points.normals[2] = {};
    Scene scene;
    addQuad(scene, {0, 0, 0}, {0, 0, 0}, {huge, 0, 0}, {0, -huge, 0});
    const Picture mixed = heatmap(scene, points, {1.0F, 1.0F, nan, 1.0F}, options);
    EXPECT_EQ(mixed.width(), 500);
    EXPECT_GT(mixed.patch(0.5).count, 20) << "equal values lie in the middle of the scale";
    SensorField farAway = fourTiles();
    farAway.corners[0] = {1.0e308, -1.0e308, 1.0e308};
    EXPECT_EQ(heatmap({}, farAway, {1.0F, 2.0F, 3.0F, 4.0F}, options).width(), 500);
    const Picture empty = heatmap({}, {}, {}, options);
    EXPECT_EQ(empty.height(), 320);
    for (int y = 60; y < 300; ++y) { // the long title ends inside the picture
        ASSERT_EQ(mixed.at(499, y), (std::array<int, 3>{255, 255, 255}));
    }
}

TEST_F(PicturesTest, theSameInputGivesTheSameBytes) {
    const auto write = [&] {
        heatmap({}, fourTiles(), {0.0F, 1.0F, 2.0F, 4.0F}, {});
        return contentOf(folder / "heatmap.png");
    };
    EXPECT_EQ(write(), write());
}

TEST_F(PicturesTest, skyDomeHasNorthUpAndEastToTheRight) {
    ResultColumn column{"direct", "Wh/m2", "Direct", std::vector<float>(skyGrid::cellCount)};
    const auto set = [&](int sector, int band, float value) {
        column.values[static_cast<std::size_t>(skyGrid::cellIndex(sector, band))] = value;
    };
    for (int k = 0; k < 6; ++k) { // 20..50 degrees up, 15..25 degrees around
        for (int a = 3; a < 5; ++a) {
            set(a, 4 + k, 100.0F);      // north-north-east
            set(a + 18, 4 + k, 200.0F); // east-south-east
        }
    }
    set(0, 0, 300.0F);
    OutputFile file(folder / "sky.png", "sky.png");
    SkyDomeOptions options;
    options.paths = {{"path", {{100, -5}, {120, 10}, {180, 40}, {250, std::nan("")}}}};
    drawSkyDome(file, column, options);
    file.finish();
    const Picture picture(folder / "sky.png");
    const auto all = picture.patch(0.0);
    const auto north = picture.patch(1.0 / 3.0);
    const auto east = picture.patch(2.0 / 3.0);
    ASSERT_GT(north.count, 200);
    ASSERT_GT(east.count, 200);
    EXPECT_LT(north.y, all.y - 100);
    EXPECT_GT(north.x, all.x + 20);
    EXPECT_GT(east.x, all.x + 100);
    EXPECT_GT(east.y, all.y + 20);
}

TEST(ColorMapTest, lightnessRisesEvenly) {
    const ColorMap colors;
    // CIE L* from sRGB, IEC 61966-2-1 and CIE 15.
    const auto lightness = [](const Color& c) {
        const auto linear = [](double v) {
            return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
        };
        const double y =
            0.2126 * linear(c.red) + 0.7152 * linear(c.green) + 0.0722 * linear(c.blue);
        return 116.0 * std::cbrt(y) - 16.0;
    };
    for (int i = 0; i <= 20; ++i) {
        // A little chroma is lost where sRGB ends, which moves L* by less than two.
        EXPECT_NEAR(lightness(colors(i / 20.0)), 14.0 + 80.0 * i / 20.0, 2.0);
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

TEST_F(PicturesTest, aMillionTrianglesTakeSecondsNotMinutes) {
    Scene scene;
    SensorField field = fourTiles(60.0);
    for (int i = 0; i < 700; ++i) {
        for (int j = 0; j < 700; ++j) {
            const double x = 0.2 * i - 70.0;
            const double y = 0.2 * j - 70.0;
            const double z = std::sin(x) * std::cos(y);
            addQuad(scene, {x, y, z}, {x + 0.2, y, z}, {x + 0.2, y + 0.2, z}, {x, y + 0.2, z});
        }
    }
    const auto start = std::chrono::steady_clock::now();
    heatmap(scene, field, {0.0F, 1.0F, 2.0F, 4.0F}, {});
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    RecordProperty("milliseconds", static_cast<int>(taken.count() * 1000.0));
    EXPECT_LT(taken.count(), 20.0); // about half a second; sanitizers take longer
}

} // namespace

} // namespace insolate::app
