/// Sensors on the faces of a model: every face is cut into cells, one sensor at each cell's centre.
#pragma once

#include "study/export.h"

#include "study/model/mesh.h"
#include "study/model/scene.h"

#include <cstddef>
#include <span>
#include <stop_token>
#include <vector>

namespace insolate::study {

struct SensorGridOptions {
    /// Largest edge of a square cell [m], > 0. A cell's area is at most its square.
    double spacing = 2.0;
    /// Distance of a sensor from its face, along the normal [m]; above the 0.01 within which rays
    /// see nothing, so that faces which meet at an edge do shade each other.
    double offset = 0.05;
};

/// A scene whose longest edge is shorter than this is small [m]: the distances that suit buildings
/// would be coarse in it, and are scaled with it.
inline constexpr double smallScene = 5.0;

/// The sensors' distance from their faces when the user names none [m]: 5 cm, in a small scene a
/// hundredth of its longest edge.
/// @param extent edges of the box around the scene [m]
double defaultSensorOffset(const Vector3& extent);

struct SensorGrid {
    SensorField field;
    std::size_t emptyFaces = 0; ///< faces without area, left out
};

/// How many sensors the cutting will give, within a factor of two and a half, without doing it.
INSOLATE_STUDY_EXPORT double estimatedSensorCount(const Mesh& mesh,
                                                  std::span<const std::uint32_t> faces,
                                                  const SensorGridOptions& options);

/// Cuts the faces. A convex flat quadrilateral becomes rows and columns of quadrilaterals, unless
/// they would be far more than its area and outline ask for. Any other face becomes triangles, each
/// halved across its longest edge until it is small enough: its area at most the spacing's square,
/// its longest edge at most twice the spacing. Halving the longest edge never makes an angle less
/// than half as wide as the narrowest one there was (Rosenberg and Stenger 1975, Mathematics of
/// Computation 29, 390-395), so no slivers arise. What is no wider than half the spacing, a needle
/// or a flat triangle, is sliced across instead.
/// The order of the sensors is the order of the faces; each knows the face that it comes from, with
/// its object and material.
/// @throws Stopped
INSOLATE_STUDY_EXPORT SensorGrid cutIntoSensors(const Mesh& mesh,
                                                std::span<const std::uint32_t> faces,
                                                const SensorGridOptions& options,
                                                const std::stop_token& stop = {});

/// Areas of the sensors' cells, or those that the field gives [m2]; none where there are neither.
INSOLATE_STUDY_EXPORT std::vector<float> cellAreas(const SensorField& field);

} // namespace insolate::study
