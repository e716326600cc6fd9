/// A scene that was changed, and the sensors whose results the change can touch.
///
/// The answer of a ray is a function of its origin, its direction and the set of triangles alone.
/// A sensor all of whose rays give the same answers in both scenes has the same result, bit by bit,
/// and so need not be calculated again.
#pragma once

#include "study/model/recentring.h"
#include "study/model/scene.h"

#include <insolate/insolate.h>

#include <cstddef>
#include <span>

namespace insolate::study {

/// Triangles that one of two scenes has and the other has not, wherever they stand in the lists.
struct SceneDifference {
    Scene removed;
    Scene added;

    [[nodiscard]] bool isEmpty() const {
        return removed.vertices.empty() && added.vertices.empty();
    }
};
SceneDifference differenceOf(const Scene& before, const Scene& after);

/// Compares the rays that the hourly method casts from a sensor before and after.
class ChangedRays {
public:
    /// @param recentring of both scenes, which must have the same
    /// @param before,after casters through the whole scenes
    ChangedRays(const SceneDifference& difference, const Recentring& recentring,
                GetTransparencyValueOnRay& before, GetTransparencyValueOnRay& after);

    /// Whether a ray of the sensor meets something else after than before.
    /// @param analysis without tolerances, so that it asks the same rays whatever is answered
    [[nodiscard]] bool touch(const HourlyAnalysis& analysis, const Sensor& sensor) const;

    /// Whether any ray might; for analyses that look again where they see edges.
    [[nodiscard]] bool mayTouch(const Sensor& sensor) const;

private:
    class Caster;

    OcclusionIndex m_removed;
    OcclusionIndex m_added;
    XYZf m_lowest; ///< of the box around the changed triangles
    XYZf m_highest;
    GetTransparencyValueOnRay& m_before;
    GetTransparencyValueOnRay& m_after;
};

} // namespace insolate::study
