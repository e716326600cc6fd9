/// Polygons with holes as one ring of corners.
#pragma once

#include "study/model/scene.h"

#include <optional>
#include <span>
#include <vector>

namespace insolate::study {

/// Joins the holes of a flat polygon to its outline by bridges: edges that the ring takes there and
/// back, so that the corners at their ends come twice. Bridges cross nothing, and depend on the
/// places of the corners alone, not on where a ring begins or in which order holes are listed.
/// Rings may wind either way; the result winds as the outline does. Holes that touch the outline or
/// each other in a corner are joined there.
/// @return nothing when a hole cannot be joined: it lies outside of the outline, crosses it, or
///         there are too many holes and corners for it (some 10,000 of both)
std::optional<std::vector<Vector3>> bridged(std::vector<Vector3> outline,
                                            std::vector<std::vector<Vector3>> holes);

/// Whether sides of a flat polygon's ring meet in more than their ends, as where the polygon
/// overlaps itself; also when the ring has too many sides beside each other to look at them all.
/// @param normal of its plane, of any length but 0
bool crossesItself(std::span<const Vector3> ring, const Vector3& normal);

/// The ring without corners on a straight line between their neighbours, beginning at the corner
/// with the least x, then y, then z: what is cut from it depends on its shape alone. A ring that
/// passes a place twice, and one of three or four corners, stays as it is.
std::vector<Vector3> simplified(std::span<const Vector3> ring);

} // namespace insolate::study
