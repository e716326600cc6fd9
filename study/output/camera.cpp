#include "study/output/camera.h"

#include "study/model/mesh.h"
#include "study/support/errors.h"
#include "study/support/numbers.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace insolate::study {

namespace {

/// The middle of the sensors' bounding box, else of the scene's.
Vector3 centerOf(const Scene& scene, const SensorField& field) {
    for (const std::vector<Vector3>* points : {&field.positions, &scene.vertices}) {
        Bounds bounds;
        for (const Vector3& p : *points) {
            if (isFinite(p)) {
                bounds.add(p);
            }
        }
        if (!bounds.isEmpty()) {
            const auto& [low, high] = bounds;
            return {0.5 * (low.x + high.x), 0.5 * (low.y + high.y), 0.5 * (low.z + high.z)};
        }
    }
    return {};
}

void addPoints(std::span<const Vector3> points, const Projection& projection, Extent& extent) {
    for (const Vector3& point : points) {
        if (isFinite(point)) {
            const Vector3 p = projection(point);
            extent.add(p.x, p.y);
        }
    }
}

/// What the sensors cover in the picture.
struct Coverage {
    Extent extent;
    double area = 0.0; ///< of the cells as projected, without regard to what hides them
};

/// Every `stride`-th sensor is looked at.
/// @param frontsOnly leaves out the cells that are seen from behind, which are not drawn
Coverage coverageOf(const SensorField& field, const CameraOptions& options,
                    const Projection& projection, bool frontsOnly, std::size_t stride = 1) {
    Coverage coverage;
    for (std::size_t i = 0; i < field.size(); i += stride) {
        if ((!options.shown.empty() && options.shown[i] == 0) ||
            (frontsOnly && !projection.facesViewer(field.normals[i]))) {
            continue;
        }
        std::span<const Vector3> corners(&field.positions[i], 1);
        if (field.hasCells()) {
            const std::size_t start = field.cellStart[i];
            corners = std::span(field.corners).subspan(start, field.cellStart[i + 1] - start);
        }
        addPoints(corners, projection, coverage.extent);
        double twice = field.hasCells() ? 0.0 : 1.0;
        for (std::size_t k = 2; k < corners.size(); ++k) {
            const Vector3 b = projection.turn(corners[k - 1] - corners[0]);
            const Vector3 c = projection.turn(corners[k] - corners[0]);
            twice += b.x * c.y - b.y * c.x;
        }
        coverage.area += std::isfinite(twice) ? 0.5 * std::abs(twice) : 0.0;
    }
    return coverage;
}

/// Of some bearings the usual one, unless another shows clearly more colour on the sheet: as with
/// rows of houses that run towards the viewer, or with a wall that faces north.
PictureView bestView(const SensorField& field, const CameraOptions& options,
                     const Vector3& center) {
    struct Candidate {
        double azimuth;
        double preference; // sunlit sides first, and few surprises
    };
    constexpr std::array<Candidate, 10> candidates = {{{155.0, 1.0},
                                                       {205.0, 0.75},
                                                       {130.0, 0.75},
                                                       {230.0, 0.75},
                                                       {105.0, 0.75},
                                                       {255.0, 0.75},
                                                       {335.0, 0.4},
                                                       {25.0, 0.4},
                                                       {310.0, 0.4},
                                                       {50.0, 0.4}}};
    constexpr std::size_t enough = 50'000; // sensors that say what a model looks like
    PictureView best;
    double most = 0.0;
    for (const Candidate& candidate : candidates) {
        const PictureView view{candidate.azimuth, best.altitude};
        const Projection projection(view, options.north, center);
        const Coverage coverage =
            coverageOf(field, options, projection, true, 1 + field.size() / enough);
        const double height =
            std::max(coverage.extent.width() / options.aspect, coverage.extent.height());
        const double score = candidate.preference * coverage.area / (height * height);
        if (score > most) { // not for NaN, of nothing shown
            most = score;
            best = view;
        }
    }
    return best;
}

} // namespace

PictureView pictureView(std::string_view text) {
    constexpr std::array<std::pair<std::string_view, PictureView>, 5> names = {
        {{"top", {180.0, 90.0}},
         {"north", {0.0, 0.0}},
         {"east", {90.0, 0.0}},
         {"south", {180.0, 0.0}},
         {"west", {270.0, 0.0}}}};
    for (const auto& [name, view] : names) {
        if (text == name) {
            return view;
        }
    }
    const std::size_t comma = text.find(',');
    if (comma != std::string_view::npos) {
        const auto azimuth = parseNumber<double>(text.substr(0, comma));
        const auto altitude = parseNumber<double>(text.substr(comma + 1));
        if (azimuth && altitude && std::abs(*azimuth) <= 360.0 && std::abs(*altitude) <= 90.0) {
            return {*azimuth, *altitude};
        }
    }
    throw UsageError(
        fmt::format("--view {}: there is no such view; give top, north, east, south, west, or "
                    "the viewer's bearing and height in degrees, 155,42",
                    quoteText(text)));
}

void Extent::add(double x, double y) {
    left = std::min(left, x);
    right = std::max(right, x);
    bottom = std::min(bottom, y);
    top = std::max(top, y);
}

void Extent::grow(double margin) {
    left -= margin;
    right += margin;
    bottom -= margin;
    top += margin;
}

Projection::Projection(const PictureView& view, double north, const Vector3& center)
    : m_center(center) {
    const double a = (north + view.azimuth) * radiansPerDegree;
    const double e = view.altitude * radiansPerDegree;
    m_toViewer = {std::sin(a) * std::cos(e), std::cos(a) * std::cos(e), std::sin(e)};
    m_right = {-std::cos(a), std::sin(a), 0.0};
    m_up = cross(m_toViewer, m_right);
}

Vector3 Projection::turn(const Vector3& direction) const {
    return {dot(direction, m_right), dot(direction, m_up), dot(direction, m_toViewer)};
}

Vector3 Projection::operator()(const Vector3& point) const {
    return turn(point - m_center);
}

bool Projection::facesViewer(const Vector3& normal) const {
    return !(dot(normal, m_toViewer) < 0.0);
}

Camera fitCamera(const Scene& scene, const SensorField& field, const CameraOptions& options) {
    const Vector3 center = centerOf(scene, field);
    const PictureView view = options.view ? *options.view : bestView(field, options, center);
    Camera camera{view, Projection(view, options.north, center), {}};
    camera.frame = coverageOf(field, options, camera.projection, true).extent;
    if (camera.frame.isEmpty()) {
        camera.frame = coverageOf(field, options, camera.projection, false).extent;
    }
    if (camera.frame.isEmpty()) {
        addPoints(scene.vertices, camera.projection, camera.frame);
    } else if (!field.hasCells()) {
        constexpr double leastMargin = 5.0; // metres: a single point is shown in its surroundings
        camera.frame.grow(
            std::max(0.1 * std::max(camera.frame.width(), camera.frame.height()), leastMargin));
    }
    return camera;
}

} // namespace insolate::study
