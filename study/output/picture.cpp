#include "study/output/picture.h"

#include "study/model/mesh.h"
#include "study/model/selection.h"
#include "study/output/camera.h"
#include "study/output/canvas.h"
#include "study/output/z_buffer.h"
#include "study/support/errors.h"
#include "study/support/readable.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <limits>
#include <numbers>
#include <unordered_map>
#include <vector>

#include <fmt/format.h>

namespace insolate::study {

namespace {

constexpr Color paper = {1.0, 1.0, 1.0};

/// The unit vector, or the zero vector where there is none.
Vector3 unit(const Vector3& v) {
    const double length = std::sqrt(dot(v, v));
    return length > 0.0 && std::isfinite(length) ? Vector3{v.x / length, v.y / length, v.z / length}
                                                 : Vector3{};
}
/// What is drawn: the inputs of a picture and the colour of each sensor.
struct Subject {
    const Scene& scene;
    const SensorField& field;
    const PictureOptions& options;
    std::vector<std::uint32_t> colors;

    [[nodiscard]] bool showsSensor(std::size_t i) const {
        return options.shownSensors.empty() || options.shownSensors[i] != 0;
    }
    [[nodiscard]] bool showsTriangle(std::size_t i) const {
        return options.shownTriangles.empty() || options.shownTriangles[i] != 0;
    }
};

/// Where the frame of a camera lies in an image.
class Placement {
public:
    /// @param size of the image
    Placement(const Camera& camera, double width, double height) : m_projection(camera.projection) {
        const Extent& frame = camera.frame;
        // A model without extent (a single point) still needs a scale.
        m_scale = 0.98 * std::min(width / std::max(frame.width(), 1.0e-3),
                                  height / std::max(frame.height(), 1.0e-3));
        m_originX = 0.5 * width - m_scale * 0.5 * (frame.left + frame.right);
        m_originY = 0.5 * height + m_scale * 0.5 * (frame.bottom + frame.top);
    }
    [[nodiscard]] ViewPoint operator()(const Vector3& point, double lift = 0.0) const {
        const Vector3 p = m_projection(point);
        return {m_originX + m_scale * p.x, m_originY - m_scale * p.y, m_scale * p.z + lift};
    }
    [[nodiscard]] double scale() const { return m_scale; }

private:
    const Projection& m_projection;
    double m_scale = 1.0;
    double m_originX = 0.0;
    double m_originY = 0.0;
};

/// Draws a subject into a z-buffer. Scene triangles and sensors are its faces, numbered in this
/// order.
class ModelPainter {
public:
    /// @param discRadius of sensors without cells, in samples
    ModelPainter(ZBuffer& buffer, const Subject& subject, const Camera& camera, double width,
                 double height, double discRadius, const std::stop_token& stop)
        : m_buffer(buffer), m_subject(subject), m_projection(camera.projection),
          m_place(camera, width, height), m_discRadius(discRadius), m_stop(stop) {
        const Vector3& toViewer = m_projection.toViewer();
        const Vector3& right = m_projection.right();
        m_light = unit({0.9 * toViewer.x - 0.9 * right.x, 0.9 * toViewer.y - 0.9 * right.y,
                        0.9 * toViewer.z + 0.7});
    }

    /// The work of drawing all faces once, as ZBuffer::workOf().
    [[nodiscard]] double work() {
        double sum = 0.0;
        const auto add = [&](const ViewPoint& a, const ViewPoint& b, const ViewPoint& c,
                             std::uint32_t, const Vector3&) { sum += m_buffer.workOf(a, b, c); };
        for (std::size_t face = 0; face < faceCount(); ++face) {
            askStop(face);
            visit(face, add);
        }
        return sum;
    }

    void drawScene() {
        for (std::size_t face = 0; face < triangleCount(); ++face) {
            draw(face, Surface::scene);
        }
    }
    void drawCells(Surface surface) {
        for (std::size_t face = triangleCount(); face < faceCount(); ++face) {
            draw(face, surface);
        }
    }

    /// Draws from the nearest face on until the work is done.
    /// @return the number of faces left out
    std::size_t drawNearest(double work) {
        struct Item {
            float depth;
            std::uint32_t face;
        };
        std::vector<Item> waiting;
        for (std::size_t face = 0; face < faceCount(); ++face) {
            askStop(face);
            double nearest = -std::numeric_limits<double>::infinity();
            visit(face, [&](const ViewPoint& a, const ViewPoint& b, const ViewPoint& c,
                            std::uint32_t, const Vector3&) {
                nearest = std::max({nearest, a.depth, b.depth, c.depth});
            });
            if (std::isfinite(nearest)) {
                waiting.push_back({static_cast<float>(nearest), static_cast<std::uint32_t>(face)});
            }
        }
        const auto isFarther = [](const Item& a, const Item& b) {
            return a.depth < b.depth || (a.depth == b.depth && a.face > b.face);
        };
        std::make_heap(waiting.begin(), waiting.end(), isFarther);
        while (!waiting.empty() && work > 0.0) {
            const std::size_t face = waiting.front().face;
            std::pop_heap(waiting.begin(), waiting.end(), isFarther);
            waiting.pop_back();
            work -= draw(face, face < triangleCount() ? Surface::scene : Surface::cell);
        }
        return waiting.size();
    }

private:
    [[nodiscard]] std::size_t triangleCount() const { return m_subject.scene.triangleCount(); }
    [[nodiscard]] std::size_t faceCount() const { return triangleCount() + m_subject.field.size(); }

    /// Some clock cycles each, so it is not asked for every small face.
    void askStop(std::size_t face) const {
        if (face % 1024 == 0) {
            throwIfStopped(m_stop);
        }
    }

    /// @return the work
    double draw(std::size_t face, Surface surface) {
        double work = 0.0;
        visit(face, [&](const ViewPoint& a, const ViewPoint& b, const ViewPoint& c,
                        std::uint32_t color, const Vector3& normal) {
            m_buffer.drawTriangle(a, b, c, color, m_projection.turn(normal), surface);
            work += m_buffer.workOf(a, b, c);
        });
        m_sinceAsked += work + 1000.0;
        if (m_sinceAsked > 1.0e7) {
            m_sinceAsked = 0.0;
            throwIfStopped(m_stop);
        }
        return work;
    }

    /// Calls back with each triangle that a face is drawn as: three points, colour, normal.
    template <typename Triangle>
    void visit(std::size_t face, const Triangle& triangle) const {
        if (face < triangleCount()) {
            if (m_subject.showsTriangle(face)) {
                visitScene(&m_subject.scene.vertices[3 * face], triangle);
            }
            return;
        }
        const std::size_t sensor = face - triangleCount();
        const SensorField& field = m_subject.field;
        if (!m_subject.showsSensor(sensor) || !m_projection.facesViewer(field.normals[sensor])) {
            return; // its lit side is turned away
        }
        const std::uint32_t color = m_subject.colors[sensor];
        if (field.hasCells()) {
            const std::size_t start = field.cellStart[sensor];
            visitPolygon(std::span<const Vector3>(field.corners)
                             .subspan(start, field.cellStart[sensor + 1] - start),
                         color, field.normals[sensor], triangle);
        } else if (isFinite(field.positions[sensor])) {
            visitDisc(field.positions[sensor], field.normals[sensor], color, triangle);
        }
    }

    template <typename Triangle>
    void visitScene(const Vector3* v, const Triangle& triangle) const {
        if (!isFinite(v[0]) || !isFinite(v[1]) || !isFinite(v[2])) {
            return;
        }
        Vector3 normal = unit(cross(v[1] - v[0], v[2] - v[0]));
        if (dot(normal, m_projection.toViewer()) < 0.0) { // models are seen from both sides
            normal = {-normal.x, -normal.y, -normal.z};
        }
        // Lambert's law over a bright ground tone, darker below pale discs.
        const double tone = m_subject.field.hasCells() ? 1.0 : 0.75;
        const double shade = tone * (0.60 + 0.36 * std::max(0.0, dot(normal, m_light)));
        triangle(m_place(v[0]), m_place(v[1]), m_place(v[2]),
                 ZBuffer::pack({shade, shade, shade * 1.01}), normal);
    }

    /// One convex cell, lifted towards the viewer off the face that it lies in.
    template <typename Triangle>
    void visitPolygon(std::span<const Vector3> corners, std::uint32_t color, const Vector3& normal,
                      const Triangle& triangle) const {
        constexpr double lift = 1.5; // samples
        for (std::size_t i = 2; i < corners.size(); ++i) {
            triangle(m_place(corners[0], lift), m_place(corners[i - 1], lift),
                     m_place(corners[i], lift), color, normal);
        }
    }

    /// A sensor without a cell: a disc in its surface, or facing the viewer where it has none.
    template <typename Triangle>
    void visitDisc(const Vector3& center, const Vector3& sensorNormal, std::uint32_t color,
                   const Triangle& triangle) const {
        const bool hasNormal = dot(sensorNormal, sensorNormal) > 0.25;
        const Vector3 normal = hasNormal ? unit(sensorNormal) : m_projection.toViewer();
        const Vector3 notAlong = std::abs(normal.z) < 0.9 ? Vector3{0, 0, 1} : Vector3{1, 0, 0};
        const Vector3 u = unit(cross(notAlong, normal));
        const Vector3 w = cross(normal, u);
        const double radius = m_discRadius / m_place.scale();
        std::array<Vector3, 16> rim;
        // Of the smallest discs nobody sees the corners, and there are many.
        const std::size_t count = m_discRadius > 6.0 ? rim.size() : 4;
        for (std::size_t i = 0; i < count; ++i) {
            const double angle =
                2.0 * std::numbers::pi * static_cast<double>(i) / static_cast<double>(count);
            const double c = radius * std::cos(angle);
            const double s = radius * std::sin(angle);
            rim[i] = {center.x + c * u.x + s * w.x, center.y + c * u.y + s * w.y,
                      center.z + c * u.z + s * w.z};
        }
        visitPolygon(std::span(rim).first(count), color, normal, triangle);
    }

    ZBuffer& m_buffer;
    const Subject& m_subject;
    const Projection& m_projection;
    Placement m_place;
    double m_discRadius;
    const std::stop_token& m_stop;
    Vector3 m_light;
    double m_sinceAsked = 0.0;
};

/// The radius of the discs of sensors without cells [pixels], so that they neither hide each other
/// nor vanish.
double discRadiusOf(const SensorField& field, const Placement& placeOf, double area) {
    constexpr double smallest = 2.0;
    constexpr double usual = 10.0;
    constexpr double largest = 24.0; // of few sensors, which a person still looks for
    constexpr std::size_t few = 400; // of which every pair is looked at
    const double share = area / std::max<double>(1.0, static_cast<double>(field.size()));
    const double radius = std::clamp(0.38 * std::sqrt(share), smallest, largest);
    if (radius <= usual || field.size() > few || field.hasCells()) {
        return std::min(radius, usual);
    }
    std::vector<double> gaps; // from each sensor to the next one
    for (std::size_t i = 0; i < field.size(); ++i) {
        const ViewPoint p = placeOf(field.positions[i]);
        double gap = std::numeric_limits<double>::infinity();
        for (std::size_t k = 0; k < field.size(); ++k) {
            const ViewPoint q = placeOf(field.positions[k]);
            gap = k == i ? gap : std::min(gap, std::hypot(p.x - q.x, p.y - q.y));
        }
        gaps.push_back(gap);
    }
    const auto middle = gaps.begin() + static_cast<std::ptrdiff_t>(gaps.size() / 2);
    std::nth_element(gaps.begin(), middle, gaps.end());
    return std::clamp(0.45 * *middle, usual, radius);
}

/// What came of drawing the model.
struct ModelImage {
    ZBuffer buffer;
    int detail = 1; ///< pixels of the image for one of the sheet
    std::size_t leftOut = 0;
    double coloredShare = 0.0; ///< of the image that shows cells
};

ModelImage drawModel(const Subject& subject, const Camera& camera, int width, int height,
                     int detail, const std::stop_token& stop) {
    // A second for 0.3e9 to 0.5e9, with 1.6 million cells in 160 layers on a busy core, where
    // depths come from memory. The courtyard and the Lyon model take 0.012e9 at the default size, 2
    // million cells side by side 0.04e9: a fifth of this limit would still draw all models without
    // overlaps, and four times as much takes longer than the calculation of their sensors.
    constexpr double mostWork = 0.5e9;
    const double area = static_cast<double>(width) * height;
    const double discRadius = discRadiusOf(subject.field, Placement(camera, width, height), area);
    // Beyond some four million pixels the steps of an edge are too small to be seen.
    int samples = area <= 4.0e6 ? 2 : 1;
    for (;; --samples) { // in each direction for one pixel of the sheet
        const int own = std::min(detail, samples);
        ModelImage image{ZBuffer(width * own, height * own, samples / own), own};
        ModelPainter painter(image.buffer, subject, camera, width * samples, height * samples,
                             discRadius * samples, stop);
        const bool isTooMuch = painter.work() > mostWork;
        if (isTooMuch && samples > 1) {
            continue;
        }
        bool outline = subject.options.inFront == InFront::outline;
        if (isTooMuch) {
            image.leftOut = painter.drawNearest(mostWork);
            outline = false;
        } else if (!outline) {
            painter.drawCells(Surface::cell);
            const std::size_t whole = image.buffer.cellSamples();
            painter.drawScene();
            outline = subject.options.inFront == InFront::automatic &&
                      2 * image.buffer.cellSamples() < whole;
        }
        if (outline) {
            image.buffer.clear();
            painter.drawScene();
            image.buffer.keepSceneEdges(stop);
            painter.drawCells(Surface::cellInFront);
        }
        image.coloredShare =
            static_cast<double>(image.buffer.cellSamples()) / (area * samples * samples);
        image.buffer.darkenEdges(stop);
        return image;
    }
}

/// A place whose cells are too small to be seen.
struct SmallPlace {
    double x = 0.0; ///< of its first cell, by which cells are assigned to it
    double y = 0.0;
    double sumX = 0.0; ///< weighted, as is the value
    double sumY = 0.0;
    double sumOfValues = 0.0;
    double weight = 0.0;
    double drawn = 0.0; ///< pixels that its cells take up
};

/// Gathers the cells that discs of this radius [pixels] would hide, and leaves out places that can
/// be seen.
std::vector<SmallPlace> smallPlaces(const Subject& subject, const ResultColumn& column,
                                    const Camera& camera, const Placement& placeOf, double radius,
                                    const std::stop_token& stop) {
    const double reach = 1.6 * radius; // some more, or a house of this size falls into two places
    const SensorField& field = subject.field;
    const std::span<const float> areas = subject.options.areas;
    std::vector<SmallPlace> places;
    std::unordered_map<std::uint64_t, std::vector<std::size_t>> byTile; // as wide as the reach
    const auto tileAt = [&](double x, double y) {
        const auto number = [&](double v) {
            return static_cast<std::uint64_t>(static_cast<std::int64_t>(std::floor(v / reach)));
        };
        return number(x) << 32U ^ (number(y) & 0xFFFFFFFFU);
    };
    const auto placeNear = [&](double x, double y) -> SmallPlace& {
        for (int i = 0; i < 9; ++i) {
            const int across = i % 3 - 1;
            const int down = i / 3 - 1;
            const auto tile = byTile.find(tileAt(x + across * reach, y + down * reach));
            if (tile == byTile.end()) {
                continue;
            }
            for (const std::size_t k : tile->second) {
                if (std::hypot(places[k].x - x, places[k].y - y) < reach) {
                    return places[k];
                }
            }
        }
        byTile[tileAt(x, y)].push_back(places.size());
        places.push_back({.x = x, .y = y});
        return places.back();
    };
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (i % 1024 == 0) {
            throwIfStopped(stop);
        }
        const double value = static_cast<double>(column.values[i]);
        if (!subject.showsSensor(i) || !std::isfinite(value) || !isFinite(field.positions[i])) {
            continue;
        }
        const ViewPoint p = placeOf(field.positions[i]);
        if (std::max(std::abs(p.x), std::abs(p.y)) > 1.0e5) {
            continue; // off the sheet
        }
        SmallPlace& place = placeNear(p.x, p.y);
        const double weight = areas.empty() ? 1.0 : static_cast<double>(areas[i]);
        place.sumX += weight * p.x;
        place.sumY += weight * p.y;
        place.sumOfValues += weight * value;
        place.weight += weight;
        if (camera.projection.facesViewer(field.normals[i])) {
            const std::size_t end = field.cellStart[i + 1];
            const ViewPoint a = placeOf(field.corners[field.cellStart[i]]);
            for (std::size_t k = field.cellStart[i] + 2; k < end; ++k) {
                const ViewPoint b = placeOf(field.corners[k - 1]);
                const ViewPoint c = placeOf(field.corners[k]);
                place.drawn +=
                    0.5 * std::abs((b.x - a.x) * (c.y - a.y) - (c.x - a.x) * (b.y - a.y));
            }
        }
    }
    const double disc = std::numbers::pi * radius * radius;
    std::erase_if(places, [&](const SmallPlace& place) {
        return !(place.weight > 0.0 && place.drawn > 0.0) || place.drawn > 0.5 * disc;
    });
    return places;
}

void drawSmallPlaces(const Canvas& canvas, const std::vector<SmallPlace>& places,
                     const Rectangle& area, double radius, const ColorScale& scale,
                     const ColorMap& colors) {
    cairo_t* const cr = canvas.context();
    cairo_save(cr);
    cairo_rectangle(cr, area.x - radius, area.y - radius, area.width + 2.0 * radius,
                    area.height + 2.0 * radius);
    cairo_clip(cr);
    cairo_set_line_width(cr, 1.2 * canvas.unit());
    for (const SmallPlace& place : places) {
        cairo_new_path(cr);
        cairo_arc(cr, area.x + place.sumX / place.weight, area.y + place.sumY / place.weight,
                  radius, 0.0, 2.0 * std::numbers::pi);
        canvas.setColor(colors(scale.placeOf(place.sumOfValues / place.weight)));
        cairo_fill_preserve(cr);
        canvas.setColor({0.13, 0.14, 0.16});
        cairo_stroke(cr);
    }
    cairo_restore(cr);
}

/// An arrow to true north that lies on the ground of the model.
void drawNorthArrow(const Canvas& canvas, const Camera& camera, double north, double x, double y) {
    cairo_t* const cr = canvas.context();
    if (std::abs(camera.view.altitude) < 8.0) { // the ground is a line
        const double eighths = std::fmod(camera.view.azimuth + 360.0, 360.0) / 45.0;
        const bool named = std::abs(eighths - std::round(eighths)) < 0.01;
        canvas.setColor({0.13, 0.14, 0.16});
        canvas.text(x, y, "seen from", 16.0 * canvas.unit(), Align::center);
        canvas.text(x, y + 24.0 * canvas.unit(),
                    named ? compassName(static_cast<int>(std::lround(eighths)) % 8 * 2)
                          : fmt::format("{:g}°", camera.view.azimuth),
                    20.0 * canvas.unit(), Align::center, true);
        return;
    }
    const double radius = 46.0 * canvas.unit();
    // `turn` degrees clockwise from north, `part` of the radius away from the middle.
    const auto at = [&](double turn, double part) {
        const double a = (north + turn) * radiansPerDegree;
        const Vector3 p = camera.projection.turn({std::sin(a), std::cos(a), 0.0});
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

/// @throws UsageError when the ends of the colour scale are not in order
void checkScale(const PictureOptions& options) {
    const double low = options.scaleLowest.value_or(-std::numeric_limits<double>::max());
    const double high = options.scaleHighest.value_or(std::numeric_limits<double>::max());
    if (!(low < high && std::isfinite(low) && std::isfinite(high))) {
        throw UsageError(fmt::format("--scale {:g},{:g}: the first must be below the second; give "
                                     "the lower end first",
                                     low, high));
    }
}

} // namespace

std::size_t drawPicture(OutputFile& out, const Scene& scene, const SensorField& field,
                        const ResultColumn& column, const PictureOptions& options,
                        const std::stop_token& stop) {
    checkScale(options);
    const int width = std::clamp(options.width, 400, 8000);
    const int height = std::clamp(options.height, 300, 8000);
    Canvas canvas(out, options.format, width, height, stop);
    const double u = canvas.unit();
    const ColorMap colors(options.colors);
    const ColorScale scale = scaleOf(column, {.lowest = options.scaleLowest,
                                              .highest = options.scaleHighest,
                                              .weights = options.areas,
                                              .scheme = options.colors});

    const double top =
        canvas.heading(options.title.empty() ? column.title : options.title, options.subtitle);
    const int left = static_cast<int>(24.0 * u);
    const int areaTop = static_cast<int>(top);
    const int areaWidth = std::max(static_cast<int>(width - left - 190.0 * u), 1);
    const int areaHeight = std::max(static_cast<int>(height - areaTop - 60.0 * u), 1);

    const Camera camera = fitCamera(scene, field,
                                    {.view = options.view,
                                     .north = options.north,
                                     .aspect = static_cast<double>(areaWidth) / areaHeight,
                                     .shown = options.shownSensors});
    std::string remark;
    std::size_t leftOut = 0;
    if (!camera.frame.isEmpty()) {
        Subject subject{scene, field, options, {}};
        subject.colors.reserve(field.size());
        for (const float value : column.values) {
            subject.colors.push_back(
                ZBuffer::pack(colors(scale.placeOf(static_cast<double>(value)))));
        }
        const ModelImage image =
            drawModel(subject, camera, areaWidth, areaHeight, canvas.imageDetail(), stop);
        canvas.image(left, areaTop, areaWidth, areaHeight, image.detail,
                     [&](std::span<std::uint32_t> pixels, std::size_t stride) {
                         image.buffer.resolve(paper, pixels, stride, stop);
                     });
        const Placement placement(camera, areaWidth, areaHeight);
        constexpr double almostNothing = 0.02;
        if (field.size() > 0 && !(image.coloredShare > 0.0)) {
            remark = "all that is coloured is hidden or seen from behind; choose another view";
        }
        if (field.hasCells() && image.coloredShare < almostNothing) {
            const double radius = 9.0 * u;
            const auto places = smallPlaces(subject, column, camera, placement, radius, stop);
            const Rectangle area{static_cast<double>(left), static_cast<double>(areaTop),
                                 static_cast<double>(areaWidth), static_cast<double>(areaHeight)};
            drawSmallPlaces(canvas, places, area, radius, scale, colors);
            if (!places.empty()) {
                remark = "a disc shows the mean of cells too small to be seen";
            }
        }
        leftOut = image.leftOut;
        if (leftOut > 0) {
            remark = fmt::format("{} {} behind others not drawn", groupedDigits(leftOut),
                                 counted(leftOut, "face", "faces"));
        }
        drawScaleBar(canvas, placement.scale(), 44.0 * u, height - 26.0 * u);
    }
    canvas.setColor({0.38, 0.40, 0.43});
    canvas.text(left + areaWidth, height - 26.0 * u, remark, 15.0 * u, Align::right);

    const double barHeight = std::max(0.5 * areaHeight, 120.0 * u);
    canvas.colorBar({width - 140.0 * u, top + 40.0 * u, 28.0 * u, barHeight}, scale, colors);
    drawNorthArrow(canvas, camera, options.north, width - 95.0 * u, height - 90.0 * u);
    canvas.finish();
    return leftOut;
}

} // namespace insolate::study
