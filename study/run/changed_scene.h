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
#include <cstdint>
#include <span>
#include <vector>

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

/// Compares the rays that are cast from a sensor before and after.
class ChangedRays {
public:
    /// @param recentring of both scenes, which must have the same
    /// @param before,after casters through the whole scenes
    /// @param rays all that a sensor may cast, HourlyAnalysis::firstRays()
    ChangedRays(const SceneDifference& difference, const Recentring& recentring,
                GetTransparencyValueOnRay& before, GetTransparencyValueOnRay& after,
                std::vector<SkyDirections> rays);

    /// Whether one of the rays meets something else after than before. One that the sensor would
    /// not cast, since it looks away, may count: that costs time alone.
    [[nodiscard]] bool touch(const Sensor& sensor) const;

    /// Whether any ray might; for analyses that look again where they see edges.
    [[nodiscard]] bool mayTouch(const Sensor& sensor) const;

private:
    /// The ray of a cell in one of the sets.
    struct Ray {
        XYZf direction;
        std::uint16_t set;
        std::uint8_t azimuth;
        std::uint8_t altitude;
    };
    struct Box {
        XYZf lowest;
        XYZf highest;
        /// Whether a ray from the origin goes through it.
        [[nodiscard]] bool isMet(const XYZf& direction) const;
    };
    struct Range;

    [[nodiscard]] static Box seenFrom(const XYZf& from, const Box& box);
    [[nodiscard]] static Range directionsInto(const Box& seen);
    [[nodiscard]] bool differs(const XYZf& origin, std::span<const SkyCellSet> asked) const;

    OcclusionIndex m_removed;
    OcclusionIndex m_added;
    std::vector<Box> m_boxes; ///< around what was removed and around what was added
    GetTransparencyValueOnRay& m_before;
    GetTransparencyValueOnRay& m_after;
    std::vector<SkyDirections> m_sets;
    std::vector<std::vector<Ray>> m_rays; ///< by squares of 5 degrees in azimuth and altitude
};

} // namespace insolate::study
