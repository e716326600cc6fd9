/// From the model's double precision to the single precision of rays.
#pragma once

#include "study/export.h"
#include "study/model/scene.h"

#include <vector>

#include <insolate/geometry/xyzf.h>

namespace insolate::study {

/// Moves model coordinates so that the middle of scene and sensors is the origin: positions in the
/// kernel are single precision, and map coordinates would lose their decimetres. A small scene is
/// enlarged by a power of two, because rays see nothing within a centimetre.
class INSOLATE_STUDY_EXPORT Recentring {
public:
    Recentring(const Scene& scene, const SensorField& field);
    /// As another one: parts of a scene then round alike, whatever each of them spans.
    /// @param centre in whole metres
    /// @param scale a power of two
    Recentring(const Vector3& centre, double scale) : m_centre(centre), m_scale(scale) {}

    bool operator==(const Recentring&) const = default;

    /// Units of the moved coordinates in a metre.
    [[nodiscard]] double scale() const { return m_scale; }
    [[nodiscard]] Vector3 moved(const Vector3& point) const;
    [[nodiscard]] XYZf local(const Vector3& point) const;
    /// The moved corners of all triangles, three numbers each, as OcclusionIndex takes them.
    [[nodiscard]] std::vector<double> coordinates(const Scene& scene) const;

    [[nodiscard]] const Vector3& centre() const { return m_centre; }

private:
    Vector3 m_centre; ///< whole metres, so that a model rounds alike wherever it stands
    double m_scale = 1.0;
};

/// The vector in single precision.
INSOLATE_STUDY_EXPORT XYZf narrowed(const Vector3& vector);

} // namespace insolate::study
