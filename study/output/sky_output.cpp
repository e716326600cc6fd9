#include "study/output/sky_output.h"

#include "study/output/canvas.h"
#include "study/output/text.h"
#include "study/support/errors.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <insolate/geometry/sky_grid.h>
#include <numbers>

namespace insolate::study {

namespace {

constexpr std::string_view skyHeadings = "azimuth [deg],altitude [deg],solid_angle [sr]";
constexpr double cellDegrees = 90.0 / skyGrid::altitudeCount;

/// The circle of the horizon in the picture; altitude falls evenly from the centre to the rim.
struct Dome {
    double x = 0.0;
    double y = 0.0;
    double radius = 1.0;

    [[nodiscard]] std::array<double, 2> at(double azimuth, double altitude) const {
        const double r = radius * (90.0 - altitude) / 90.0;
        return {x + r * std::sin(azimuth * radiansPerDegree),
                y - r * std::cos(azimuth * radiansPerDegree)};
    }
};

void fillCells(const Canvas& canvas, const Dome& dome, const ResultColumn& column,
               const ColorScale& scale, const ColorMap& colors, const std::stop_token& stop) {
    const int top = static_cast<int>(dome.y - dome.radius) - 1;
    const int left = static_cast<int>(dome.x - dome.radius) - 1;
    const int size = static_cast<int>(2.0 * dome.radius) + 3;
    const int detail = canvas.imageDetail();
    constexpr int sub = 3; // samples per pixel and direction, so that cells have smooth borders
    const auto colorAt = [&](double x, double y) { // from the dome's centre, y upwards
        const double altitude = 90.0 - 90.0 * std::hypot(x, y) / dome.radius;
        if (altitude < 0.0) {
            return Color{1.0, 1.0, 1.0};
        }
        const double azimuth = std::atan2(x, y) / radiansPerDegree;
        const double turned = azimuth < 0.0 ? azimuth + 360.0 : azimuth;
        const int sector =
            std::min(static_cast<int>(turned / cellDegrees), skyGrid::azimuthCount - 1);
        const int band =
            std::min(static_cast<int>(altitude / cellDegrees), skyGrid::altitudeCount - 1);
        const auto cell = static_cast<std::size_t>(skyGrid::cellIndex(sector, band));
        return colors(scale.placeOf(column.values[cell]));
    };
    canvas.image(
        left, top, size, size, detail, [&](std::span<std::uint32_t> pixels, std::size_t stride) {
            for (int row = 0; row < size * detail; ++row) {
                throwIfStopped(stop);
                for (int col = 0; col < size * detail; ++col) {
                    std::array<double, 3> sum = {};
                    for (int k = 0; k < sub * sub; ++k) {
                        const int subColumn = k % sub;
                        const int subRow = k / sub;
                        const Color color =
                            colorAt(left + (col + (subColumn + 0.5) / sub) / detail - dome.x,
                                    dome.y - (top + (row + (subRow + 0.5) / sub) / detail));
                        sum[0] += color.red;
                        sum[1] += color.green;
                        sum[2] += color.blue;
                    }
                    std::uint32_t pixel = 0xFFU;
                    for (const double part : sum) {
                        pixel = pixel << 8U |
                                static_cast<std::uint32_t>(std::lround(part / (sub * sub) * 255.0));
                    }
                    pixels[static_cast<std::size_t>(row) * stride + static_cast<std::size_t>(col)] =
                        pixel;
                }
            }
        });
}

void drawFrame(const Canvas& canvas, const Dome& dome) {
    cairo_t* const cr = canvas.context();
    const double u = canvas.unit();
    for (const double altitude : {0.0, 30.0, 60.0}) {
        canvas.setColor(altitude == 0.0 ? Color{0.13, 0.14, 0.16} : Color{1.0, 1.0, 1.0},
                        altitude == 0.0 ? 1.0 : 0.45);
        cairo_set_line_width(cr, (altitude == 0.0 ? 2.0 : 1.2) * u);
        cairo_new_sub_path(cr);
        cairo_arc(cr, dome.x, dome.y, dome.radius * (90.0 - altitude) / 90.0, 0.0,
                  2.0 * std::numbers::pi);
        cairo_stroke(cr);
    }
    constexpr std::array<const char*, 8> names = {"N", "NE", "E", "SE", "S", "SW", "W", "NW"};
    for (std::size_t i = 0; i < names.size(); ++i) {
        const double azimuth = 45.0 * static_cast<double>(i);
        const auto inner = dome.at(azimuth, 0.0);
        const auto outer = dome.at(azimuth, -1.6);
        canvas.setColor({0.13, 0.14, 0.16});
        cairo_move_to(cr, inner[0], inner[1]);
        cairo_line_to(cr, outer[0], outer[1]);
        cairo_stroke(cr);
        const auto label = dome.at(azimuth, -6.0);
        const bool main = i % 2 == 0;
        const double size = (main ? 26.0 : 18.0) * u;
        canvas.text(label[0], label[1] + 0.36 * size, names[i], size, Align::center, main);
    }
    for (const double altitude : {30.0, 60.0}) {
        const auto p = dome.at(0.0, altitude);
        canvas.outlinedText(p[0] + 4.0 * u, p[1] - 4.0 * u, altitude == 30.0 ? "30°" : "60°",
                            15.0 * u);
    }
}

void drawPath(const Canvas& canvas, const Dome& dome, const SkyPath& path) {
    cairo_t* const cr = canvas.context();
    const double u = canvas.unit();
    bool drawing = false;
    const SkyPath::Point* highest = nullptr;
    for (const SkyPath::Point& point : path.points) {
        if (!(point.altitude >= 0.0)) { // not a number ends the line as well
            drawing = false;
            continue;
        }
        const auto p = dome.at(point.azimuth, point.altitude);
        drawing ? cairo_line_to(cr, p[0], p[1]) : cairo_move_to(cr, p[0], p[1]);
        drawing = true;
        if (highest == nullptr || point.altitude > highest->altitude) {
            highest = &point;
        }
    }
    canvas.setColor({1.0, 1.0, 1.0}, 0.9);
    cairo_set_line_width(cr, 1.6 * u);
    cairo_stroke(cr);
    if (highest != nullptr && !path.label.empty()) {
        const auto p = dome.at(highest->azimuth, highest->altitude);
        canvas.outlinedText(p[0], p[1] - 7.0 * u, path.label, 15.0 * u, Align::center);
    }
}

} // namespace

void writeSkyCsv(OutputFile& out, std::span<const ResultColumn> columns) {
    out.write(skyHeadings);
    for (const ResultColumn& column : columns) {
        out.write("," + csvHeading(column));
    }
    out.write("\n");
    for (int band = 0; band < skyGrid::altitudeCount; ++band) {
        const double low = band * cellDegrees * radiansPerDegree;
        const double high = (band + 1) * cellDegrees * radiansPerDegree;
        const double solidAngle =
            (std::sin(high) - std::sin(low)) * 2.0 * std::numbers::pi / skyGrid::azimuthCount;
        for (int sector = 0; sector < skyGrid::azimuthCount; ++sector) {
            out.writeNumber(sector * cellDegrees);
            out.write(",");
            out.writeNumber(band * cellDegrees);
            out.write(",");
            out.writeNumber(static_cast<float>(solidAngle));
            for (const ResultColumn& column : columns) {
                out.write(",");
                out.writeNumber(
                    column.values[static_cast<std::size_t>(skyGrid::cellIndex(sector, band))]);
            }
            out.write("\n");
        }
    }
}

void drawSkyDome(OutputFile& out, const ResultColumn& column, const SkyDomeOptions& options,
                 const std::stop_token& stop) {
    Canvas canvas(out, options.format, std::clamp(options.width, 400, 8000),
                  std::clamp(options.height, 400, 8000), stop);
    const double u = canvas.unit();
    const ColorMap colors;
    const ColorScale scale = scaleOf(column);
    const double top = canvas.heading(options.title, options.subtitle);
    const double areaWidth = canvas.width() - 190.0 * u;
    const double areaHeight = canvas.height() - top - 20.0 * u;
    const Dome dome{0.5 * areaWidth + 15.0 * u, top + 0.5 * areaHeight,
                    0.5 * std::min(areaWidth, areaHeight) - 58.0 * u};
    fillCells(canvas, dome, column, scale, colors, stop);
    drawFrame(canvas, dome);
    for (const SkyPath& path : options.paths) {
        drawPath(canvas, dome, path);
    }
    const double barHeight = 0.6 * areaHeight;
    canvas.colorBar({canvas.width() - 165.0 * u, top + 0.2 * areaHeight, 28.0 * u, barHeight},
                    scale, colors);
    canvas.finish();
}

bool isOurSkyCsv(const std::filesystem::path& file) {
    return fileBeginning(file, skyHeadings.size()) == skyHeadings;
}

} // namespace insolate::study
