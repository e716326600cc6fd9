/// Sensors on a level plane through the scene, without a face that carries them.
#pragma once

#include "study/export.h"

#include "study/model/scene.h"

#include <cstddef>
#include <optional>
#include <stop_token>
#include <string_view>

namespace insolate::study {

struct GroundPlane {
    double z = 0.0;    ///< height in the model [m]
    double grid = 1.0; ///< largest edge of a cell [m], > 0
};

/// "plane:z=1.5,grid=1", in metres; grid may be left out, the order is free. Nothing when the text
/// does not begin with "plane:", so that it may be a file's name.
/// @throws UsageError
INSOLATE_STUDY_EXPORT std::optional<GroundPlane> parseGroundPlane(std::string_view text);

/// Cells of the plane over the scene's extent, those in buildings among them.
INSOLATE_STUDY_EXPORT double groundPlaneCells(const GroundPlane& plane, const Scene& scene);

struct GroundPlaneSensors {
    SensorField field;      ///< level cells that face up, row by row from south to north
    std::size_t inside = 0; ///< cells left out because their middle lies in a building
    std::size_t buried = 0; ///< or under the ground
};

/// Cuts the plane over the extent of the scene into equal cells and leaves out those whose middle
/// lies
/// - in a closed body, whichever way it is wound;
/// - in an open one, such as a house without a floor: under a surface, and where the surfaces above
///   and around the place hide more than half of all directions, by the generalized winding number
///   (Jacobson, Kavan, Sorkine-Hornung 2013, ACM Transactions on Graphics 32(4), 33), so that
///   places under a roof on posts stay; surfaces that hide less than a fiftieth do not count, so
///   that places under the loose leaves of a crown stay;
/// - under an open surface as wide as the scene, which is its ground.
/// @throws Stopped
INSOLATE_STUDY_EXPORT GroundPlaneSensors cutGroundPlane(const GroundPlane& plane,
                                                        const Scene& scene,
                                                        const std::stop_token& stop = {});

} // namespace insolate::study
