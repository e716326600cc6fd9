/// How a picture looks at the model, and what of the model it frames.
#pragma once

#include "study/model/scene.h"
#include "study/output/picture_view.h"

#include <cstdint>
#include <limits>
#include <optional>
#include <span>

namespace insolate::study {

/// Extent in the picture's plane.
struct Extent {
    double left = std::numeric_limits<double>::infinity();
    double right = -left;
    double bottom = left;
    double top = -left;

    void add(double x, double y);
    void grow(double margin);
    [[nodiscard]] bool isEmpty() const { return !(left <= right); }
    [[nodiscard]] double width() const { return right - left; }
    [[nodiscard]] double height() const { return top - bottom; }
};

/// Parallel projection along the line of sight, in the model's unit of length.
class Projection {
public:
    /// @param north from the model's +Y clockwise to true north [degrees]
    /// @param center taken off first, so that map coordinates keep their digits
    Projection(const PictureView& view, double north, const Vector3& center);

    [[nodiscard]] const Vector3& right() const { return m_right; }
    [[nodiscard]] const Vector3& toViewer() const { return m_toViewer; }
    /// A direction as (to the right, upwards, towards the viewer).
    [[nodiscard]] Vector3 turn(const Vector3& direction) const;
    /// A point in the same axes.
    [[nodiscard]] Vector3 operator()(const Vector3& point) const;
    /// Whether a surface with this normal shows its front; one without a normal always does.
    [[nodiscard]] bool facesViewer(const Vector3& normal) const;

private:
    Vector3 m_right;
    Vector3 m_up;
    Vector3 m_toViewer;
    Vector3 m_center;
};

/// The view, from a given place or one that fills the sheet, and the part of its plane to show.
struct Camera {
    PictureView view;
    Projection projection;
    Extent frame;
};

struct CameraOptions {
    std::optional<PictureView>
        view;            ///< absent: from above, of ten bearings the one that shows most
    double north = 0.0;  ///< as for Projection
    double aspect = 1.6; ///< width / height of the sheet
    std::span<const std::uint8_t> shown = {}; ///< 0 leaves a sensor out; empty: all
};

/// Frames the cells whose front is seen; without any, all cells, and without those the scene.
/// Sensors without cells get a margin, as their surroundings say where they are.
Camera fitCamera(const Scene& scene, const SensorField& field, const CameraOptions& options);

} // namespace insolate::study
