#include "study/output/heatmap.h"

#include "study/output/canvas.h"
#include "study/output/color_map.h"
#include "study/output/z_buffer.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <numbers>
#include <string>
#include <vector>

namespace insolate::study {

namespace {

constexpr Color paper = {1.0, 1.0, 1.0};

double dot(const Vector3& a, const Vector3& b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}
Vector3 minus(const Vector3& a, const Vector3& b) {
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}
Vector3 cross(const Vector3& a, const Vector3& b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
/// The unit vector, or the zero vector where there is none.
Vector3 unit(const Vector3& v) {
    const double length = std::sqrt(dot(v, v));
    return length > 0.0 && std::isfinite(length) ? Vector3{v.x / length, v.y / length, v.z / length}
                                                 : Vector3{};
}
bool isFinite(const Vector3& v) {
    return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

/// Extent in the picture's plane.
struct Extent {
    double left = std::numeric_limits<double>::infinity();
    double right = -left;
    double bottom = left;
    double top = -left;

    void add(double x, double y) {
        left = std::min(left, x);
        right = std::max(right, x);
        bottom = std::min(bottom, y);
        top = std::max(top, y);
    }
    [[nodiscard]] bool isEmpty() const { return !(left <= right); }
    [[nodiscard]] double width() const { return right - left; }
    [[nodiscard]] double height() const { return top - bottom; }
};

/// Parallel projection along the line of sight, without the scale to samples.
struct View {
    Vector3 right;
    Vector3 up;
    Vector3 toViewer;
    Vector3 center; ///< taken off first, so that map coordinates keep their digits

    View(double bearingInModel, double elevation, const Vector3& modelCenter)
        : center(modelCenter) {
        const double a = bearingInModel * radiansPerDegree;
        const double e = elevation * radiansPerDegree;
        toViewer = {std::sin(a) * std::cos(e), std::cos(a) * std::cos(e), std::sin(e)};
        right = {-std::cos(a), std::sin(a), 0.0};
        up = cross(toViewer, right);
    }
    [[nodiscard]] Vector3 inViewAxes(const Vector3& direction) const {
        return {dot(direction, right), dot(direction, up), dot(direction, toViewer)};
    }
    [[nodiscard]] Vector3 project(const Vector3& point) const {
        return inViewAxes(minus(point, center));
    }
};

Extent extentOf(const std::vector<Vector3>& points, const View& view) {
    Extent extent;
    for (const Vector3& point : points) {
        if (isFinite(point)) {
            const Vector3 p = view.project(point);
            extent.add(p.x, p.y);
        }
    }
    return extent;
}

/// Adds the part of a triangle that lies within the window, by cutting it at the four sides
/// (Sutherland and Hodgman 1974, Communications of the ACM 17(1), 32-42).
void addWithin(const Extent& window, const std::array<Vector3, 3>& triangle, Extent& extent) {
    Extent own;
    for (const Vector3& p : triangle) {
        own.add(p.x, p.y);
    }
    if (own.left > window.right || own.right < window.left || own.bottom > window.top ||
        own.top < window.bottom) {
        return;
    }
    std::vector<Vector3> polygon(triangle.begin(), triangle.end());
    std::vector<Vector3> kept;
    const auto cut = [&](auto&& inside) { // how far inside a point lies, negative outside
        kept.clear();
        for (std::size_t i = 0; i < polygon.size(); ++i) {
            const Vector3& a = polygon[i];
            const Vector3& b = polygon[(i + 1) % polygon.size()];
            const double ofA = inside(a);
            const double ofB = inside(b);
            if (ofA >= 0.0) {
                kept.push_back(a);
            }
            if ((ofA >= 0.0) != (ofB >= 0.0)) {
                const double part = ofA / (ofA - ofB);
                kept.push_back({a.x + part * (b.x - a.x), a.y + part * (b.y - a.y), 0.0});
            }
        }
        polygon.swap(kept);
    };
    cut([&](const Vector3& p) { return p.x - window.left; });
    cut([&](const Vector3& p) { return window.right - p.x; });
    cut([&](const Vector3& p) { return p.y - window.bottom; });
    cut([&](const Vector3& p) { return window.top - p.y; });
    for (const Vector3& p : polygon) {
        extent.add(p.x, p.y);
    }
}

/// The sensors with what surrounds them; of a scene that reaches further only the neighbourhood,
/// and what lies wholly elsewhere does not count.
Extent framedExtent(const Extent& sensors, const Scene& scene, const View& view) {
    const Extent whole = extentOf(scene.vertices, view);
    if (sensors.isEmpty() || whole.isEmpty()) {
        return sensors.isEmpty() ? whole : sensors;
    }
    constexpr double leastReach = 10.0; // metres: a single sensor is shown in its surroundings
    const double reach = std::max(0.45 * std::max(sensors.width(), sensors.height()), leastReach);
    Extent window = sensors;
    window.add(sensors.left - reach, sensors.bottom - reach);
    window.add(sensors.right + reach, sensors.top + reach);
    Extent frame = sensors;
    for (std::size_t t = 0; t < scene.triangleCount(); ++t) {
        const Vector3* const v = &scene.vertices[3 * t];
        if (isFinite(v[0]) && isFinite(v[1]) && isFinite(v[2])) {
            addWithin(window, {view.project(v[0]), view.project(v[1]), view.project(v[2])}, frame);
        }
    }
    return frame;
}

/// The middle of the sensors' bounding box, else of the scene's.
Vector3 centerOf(const Scene& scene, const SensorField& field) {
    Vector3 low;
    Vector3 high;
    bool any = false;
    for (const std::vector<Vector3>* points : {&field.positions, &scene.vertices}) {
        for (const Vector3& p : *points) {
            if (!isFinite(p)) {
                continue;
            }
            low =
                any ? Vector3{std::min(low.x, p.x), std::min(low.y, p.y), std::min(low.z, p.z)} : p;
            high =
                any ? Vector3{std::max(high.x, p.x), std::max(high.y, p.y), std::max(high.z, p.z)}
                    : p;
            any = true;
        }
        if (any) {
            break;
        }
    }
    return {0.5 * (low.x + high.x), 0.5 * (low.y + high.y), 0.5 * (low.z + high.z)};
}

/// Draws a model into a z-buffer.
class ModelPainter {
public:
    ModelPainter(ZBuffer& buffer, const View& view, const Extent& frame, const Rectangle& area)
        : m_buffer(buffer), m_view(view) {
        const double samples = buffer.oversampling();
        // A model without extent (a single point) still needs a scale.
        const double width = std::max(frame.width(), 1.0e-3);
        const double height = std::max(frame.height(), 1.0e-3);
        m_scale = 0.97 * samples * std::min(area.width / width, area.height / height);
        m_originX = 0.5 * samples * area.width - m_scale * 0.5 * (frame.left + frame.right);
        m_originY = 0.5 * samples * area.height + m_scale * 0.5 * (frame.bottom + frame.top);
        m_light = unit({0.9 * view.toViewer.x - 0.9 * view.right.x,
                        0.9 * view.toViewer.y - 0.9 * view.right.y, 0.9 * view.toViewer.z + 0.7});
    }

    /// Pixels per metre.
    [[nodiscard]] double pixelsPerMetre() const { return m_scale / m_buffer.oversampling(); }

    /// @param tone brightness of what lies level: darker below pale discs
    void drawScene(const Scene& scene, double tone) {
        for (std::size_t t = 0; t < scene.triangleCount(); ++t) {
            const Vector3* const v = &scene.vertices[3 * t];
            if (!isFinite(v[0]) || !isFinite(v[1]) || !isFinite(v[2])) {
                continue;
            }
            Vector3 normal = unit(cross(minus(v[1], v[0]), minus(v[2], v[0])));
            if (dot(normal, m_view.toViewer) < 0.0) { // models are seen from both sides
                normal = {-normal.x, -normal.y, -normal.z};
            }
            // Lambert's law over a bright ground tone.
            const double shade = 0.60 + 0.36 * std::max(0.0, dot(normal, m_light));
            drawTriangle(v[0], v[1], v[2], {shade * tone, shade * tone, shade * tone * 1.01},
                         normal, 0.0);
        }
    }

    /// One convex cell, lifted towards the viewer off the face that it lies in.
    void drawCell(std::span<const Vector3> corners, const Color& color,
                  const Vector3& sensorNormal) {
        if (dot(sensorNormal, m_view.toViewer) < 0.0) {
            return; // its lit side is turned away
        }
        for (std::size_t i = 2; i < corners.size(); ++i) {
            drawTriangle(corners[0], corners[i - 1], corners[i], color, sensorNormal, 1.5);
        }
    }

    /// A sensor without a cell: a disc in its surface, or facing the viewer where it has none.
    void drawDisc(const Vector3& center, const Vector3& sensorNormal, double pixelRadius,
                  const Color& color) {
        const bool hasNormal = dot(sensorNormal, sensorNormal) > 0.25;
        const Vector3 normal = hasNormal ? unit(sensorNormal) : m_view.toViewer;
        const Vector3 helper = std::abs(normal.z) < 0.9 ? Vector3{0, 0, 1} : Vector3{1, 0, 0};
        const Vector3 u = unit(cross(helper, normal));
        const Vector3 w = cross(normal, u);
        const double radius = pixelRadius / pixelsPerMetre();
        constexpr std::size_t count = 16;
        std::array<Vector3, count> rim;
        for (std::size_t i = 0; i < count; ++i) {
            const double angle = 2.0 * std::numbers::pi * static_cast<double>(i) / count;
            const double c = radius * std::cos(angle);
            const double s = radius * std::sin(angle);
            rim[i] = {center.x + c * u.x + s * w.x, center.y + c * u.y + s * w.y,
                      center.z + c * u.z + s * w.z};
        }
        drawCell(rim, color, normal);
    }

private:
    [[nodiscard]] ViewPoint place(const Vector3& point, double lift) const {
        const Vector3 p = m_view.project(point);
        return {m_originX + m_scale * p.x, m_originY - m_scale * p.y, m_scale * p.z + lift};
    }
    void drawTriangle(const Vector3& a, const Vector3& b, const Vector3& c, const Color& color,
                      const Vector3& normal, double lift) {
        m_buffer.drawTriangle(place(a, lift), place(b, lift), place(c, lift), color,
                              m_view.inViewAxes(normal));
    }

    ZBuffer& m_buffer;
    const View& m_view;
    double m_scale = 1.0;
    double m_originX = 0.0;
    double m_originY = 0.0;
    Vector3 m_light;
};

void drawSensors(ModelPainter& painter, const SensorField& field, const ResultColumn& column,
                 const ColorScale& scale, const ColorMap& colors, const Rectangle& area) {
    // Discs that neither hide each other nor vanish.
    const double share = area.width * area.height / std::max<double>(1.0, double(field.size()));
    const double discRadius = std::clamp(0.38 * std::sqrt(share), 2.0, 10.0);
    for (std::size_t i = 0; i < field.size(); ++i) {
        const Color& color = colors(scale.placeOf(column.values[i]));
        if (field.hasCells()) {
            const std::size_t start = field.cellStart[i];
            painter.drawCell(std::span<const Vector3>(field.corners)
                                 .subspan(start, field.cellStart[i + 1] - start),
                             color, field.normals[i]);
        } else if (isFinite(field.positions[i])) {
            painter.drawDisc(field.positions[i], field.normals[i], discRadius, color);
        }
    }
}

/// An arrow to true north that lies on the ground of the model.
void drawNorthArrow(const Canvas& canvas, const View& view, double north, double x, double y) {
    cairo_t* const cr = canvas.context();
    const double radius = 46.0 * canvas.unit();
    // `turn` degrees clockwise from north, `part` of the radius away from the middle.
    const auto at = [&](double turn, double part) {
        const double a = (north + turn) * radiansPerDegree;
        const Vector3 p = view.inViewAxes({std::sin(a), std::cos(a), 0.0});
        return std::array<double, 2>{x + radius * part * p.x, y - radius * part * p.y};
    };
    canvas.setColor({0.55, 0.57, 0.60});
    cairo_set_line_width(cr, 1.4 * canvas.unit());
    for (int step = 0; step <= 72; ++step) {
        const auto p = at(step * 5.0, 1.0);
        cairo_line_to(cr, p[0], p[1]);
    }
    cairo_stroke(cr);
    for (const double side : {-1.0, 1.0}) {
        const auto tip = at(0.0, 0.95);
        const auto wing = at(side * 150.0, 0.75);
        const auto middle = at(180.0, 0.35);
        cairo_move_to(cr, tip[0], tip[1]);
        cairo_line_to(cr, wing[0], wing[1]);
        cairo_line_to(cr, middle[0], middle[1]);
        cairo_close_path(cr);
        const double tone = side < 0.0 ? 0.13 : 0.45;
        canvas.setColor({tone, tone + 0.01, tone + 0.03});
        cairo_fill(cr);
    }
    const auto label = at(0.0, 1.5);
    canvas.setColor({0.13, 0.14, 0.16});
    canvas.text(label[0], label[1] + 7.0 * canvas.unit(), "N", 20.0 * canvas.unit(), Align::center,
                true);
}

/// A length that is true for horizontal lines across the picture.
void drawScaleBar(const Canvas& canvas, double pixelsPerMetre, double x, double y) {
    const double longest = 220.0 * canvas.unit() / pixelsPerMetre;
    if (!std::isfinite(longest)) {
        return; // a model so large that no metre can be seen
    }
    const double power = std::pow(10.0, std::floor(std::log10(longest)));
    const double lead = longest / power;
    const double length = power * (lead >= 5.0 ? 5.0 : lead >= 2.0 ? 2.0 : 1.0);
    const double pixels = length * pixelsPerMetre;
    cairo_t* const cr = canvas.context();
    canvas.setColor({0.25, 0.26, 0.28});
    cairo_set_line_width(cr, 2.0 * canvas.unit());
    const double tick = 7.0 * canvas.unit();
    cairo_move_to(cr, x, y - tick);
    cairo_line_to(cr, x, y);
    cairo_line_to(cr, x + pixels, y);
    cairo_line_to(cr, x + pixels, y - tick);
    cairo_stroke(cr);
    char label[32];
    std::snprintf(label, sizeof label, "%g m", length);
    canvas.text(x + pixels + 10.0 * canvas.unit(), y + 1.0, label, 17.0 * canvas.unit());
}

} // namespace

void drawHeatmap(OutputFile& out, const Scene& scene, const SensorField& field,
                 const ResultColumn& column, const HeatmapOptions& options) {
    const int width = std::clamp(options.width, 400, 8000);
    const int height = std::clamp(options.height, 300, 8000);
    const Canvas canvas(width, height);
    const double u = canvas.unit();
    const ColorMap colors;
    const ColorScale scale =
        scaleOf(column, options.scaleLowest, options.scaleHighest, options.areas);

    const double top = canvas.heading(options.title, options.subtitle);
    const int areaTop = static_cast<int>(top);
    const Rectangle area{std::floor(24.0 * u), static_cast<double>(areaTop),
                         std::floor(width - 24.0 * u - 240.0 * u),
                         std::floor(height - areaTop - 70.0 * u)};

    const View view(options.north + options.viewFrom, std::clamp(options.elevation, 5.0, 90.0),
                    centerOf(scene, field));
    const Extent sensors = extentOf(field.hasCells() ? field.corners : field.positions, view);
    const Extent frame = framedExtent(sensors, scene, view);

    double pixelsPerMetre = 1.0;
    const int areaWidth = static_cast<int>(area.width);
    const int areaHeight = static_cast<int>(area.height);
    if (!frame.isEmpty()) {
        // Beyond some four million pixels the steps of an edge are too small to be seen.
        const int oversampling = area.width * area.height <= 4.0e6 ? 2 : 1;
        ZBuffer buffer(areaWidth, areaHeight, oversampling);
        ModelPainter painter(buffer, view, frame, area);
        painter.drawScene(scene, field.hasCells() ? 1.0 : 0.75);
        drawSensors(painter, field, column, scale, colors, area);
        buffer.darkenEdges();
        canvas.pixels(static_cast<int>(area.x), areaTop, areaHeight,
                      [&](std::span<std::uint32_t> pixels, std::size_t stride) {
                          buffer.resolve(paper, pixels, stride);
                      });
        pixelsPerMetre = painter.pixelsPerMetre();
    }

    const double barHeight = std::max(0.5 * area.height, 120.0 * u);
    canvas.colorBar({width - 165.0 * u, top + 40.0 * u, 28.0 * u, barHeight}, scale, colors);
    drawNorthArrow(canvas, view, options.north, width - 120.0 * u, height - 100.0 * u);
    if (!frame.isEmpty()) {
        drawScaleBar(canvas, pixelsPerMetre, 44.0 * u, height - 34.0 * u);
    }
    canvas.writePng(out);
}

} // namespace insolate::study
