/// The work of one sensor in three steps: what it wants to know of the scene (wanted()), the
/// scene's answer (answer(), or a walk that several sensors share), and all that follows from it
/// (result()): sky, sun and ground with their edges in sensor_evaluation.cpp, what comes through
/// glass and crowns in sensor_transmission.cpp, parts, hours and the peak in sensor_hours.cpp.
#pragma once

#include <insolate/hourly/first_masks.h>
#include <insolate/hourly/hourly_analysis.h>
#include <insolate/hourly/hourly_preparation.h>
#include <insolate/hourly/sensor_kernels.h>
#include <insolate/hourly/sensor_rays.h>
#include <insolate/hourly/shadow_edges.h>
#include <insolate/rt/light_scene.h>

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace insolate {

class SensorEvaluation {
public:
    /// light: where translucent triangles are to be asked, else null.
    SensorEvaluation(const HourlyPreparation& prepared, GetTransparencyValueOnRay& caster,
                     const LightScene* light, const Sensor& sensor);
    SensorEvaluation(const SensorEvaluation&) = delete;
    SensorEvaluation& operator=(const SensorEvaluation&) = delete;
    ~SensorEvaluation() = default;

    /// The rays that answer for the sky's halves and for the pieces of the ground.
    FirstMasks wanted();

    /// Asks the sensor's own caster for them.
    void answer(FirstMasks& masks);

    /// Asks for several sensors at once, by walks that they share where the caster answers for
    /// whole skies; else each its own. None of the optionals is empty.
    static void answerTogether(std::span<std::optional<SensorEvaluation>> sensors,
                               std::span<FirstMasks> masks);

    /// @param masks as wanted() gave and answer() or a shared walk answered them
    SensorResult result(const FirstMasks& masks, SensorHours* hours, std::span<SensorPart> parts);

    /// All hours 0, and none reflected.
    static void clear(SensorHours& hours);

private:
    using CellValues = std::array<float, sensorKernels::cellCount>;
    using PatchValues = std::array<float, sensorKernels::patchCount>;
    /// At most one sun for each cell, and room for the last vector of lanes.
    using SunCellValues = std::array<float, sensorKernels::cellCount + sensorKernels::lanes>;

    /// What a vector with the given length, or measure without direction, brings on the surface.
    float received(const XYZf& vector, float measure) const {
        return weightOnSurface(m_sides, m_normal, vector, measure);
    }

    void weighSky();
    void see(const FirstMasks& masks);
    void sumSky();
    float skyAtPlane() const;
    void sumSun();
    void weighGround(FirstMasks& masks);
    float weightOf(const GroundPiece& piece) const;
    void sumGround(const FirstMasks& masks);
    void lookAgain(const FirstMasks& masks, bool hasParts);
    void takeSky(const ShadowEdges::Fan& fan);
    void takeSun(const ShadowEdges::Fan& fan, bool hasParts);
    std::array<std::vector<float>, 2>& sunTimes();
    float sunHoursOf(std::size_t sunCell);

    /// A cell with a ray that meets translucent triangles: what they let through of what is seen of
    /// its sky and of its sun, by season.
    struct ThroughCell {
        std::size_t cell;
        int sunCell;            // -1 for none
        float seen, sunVisible; // before
        std::size_t first;      // of its shares in m_throughShares
    };
    /// What comes through in each season: of the sky's light, and of the sun's.
    const float* skyThrough(const ThroughCell& touched) const {
        return m_throughShares.data() + touched.first;
    }
    const float* sunThrough(const ThroughCell& touched) const {
        return skyThrough(touched) + m_shared.seasons.size();
    }
    void lookThrough(const FirstMasks& masks);
    void askThrough(const ThroughCell& touched, const std::array<SkyCellSet, 2>& asked,
                    const std::array<SkyCellSet, 2>& untouched);
    void askBehindEdges(std::array<SkyCellSet, 2>& asked) const;
    void weaken(const ThroughCell& touched);
    void takeSeason(std::size_t season);
    void lookThroughAtGround(const FirstMasks& masks);
    float groundThrough(const XYZf& direction, float weight);

    /// How what a sensor gets from a sun cell is shared among the hours.
    struct CellShare {
        double received = 0.0; // by the whole sun of the hours, sum over the parts [Wh/m2]
        double energy = 0.0;   // the same without a surface
        double factor = 0.0;   // on what a part brings
        double extra = 0.0;    // on a part's energy
    };
    void evaluateParts(std::span<SensorPart> parts);
    void gatherPatches();
    void sumPatches(PatchValues& weights) const;
    float beamOf(const SkyHour& hour) const;
    float receivedOf(const BeamPart& part) const;
    std::vector<CellShare> sharesOfSunCells() const;
    float skyOf(std::size_t skyHour) const;
    void findPeak(SensorResult& result);
    void findPeakOfOneSide(SensorResult& result);
    float seenView() const;
    void fill(SensorHours& hours);

    const HourlyPreparation& m_shared;
    const LightScene* m_light;
    XYZf m_origin;
    Rays m_rays;
    Sides m_sides = Sides::One;
    XYZf m_normal{0, 0, 0};
    ShadowEdges::FirstLook m_look;
    std::array<SkyCellSet, 2> m_alone; // the cells that only the other half is asked for
    // Of the pieces of the ground; empty where it is not asked for.
    std::vector<float> m_groundWeights, m_groundVisible;
    float m_openGround = 0.0f;               // what the whole ground's light counts by
    float m_groundScale = 0.0f;              // the same of a weight of 1
    CellValues m_weight;                     // projected solid angle of the cells [sr]
    CellValues m_seen;                       // the visible part of it
    std::array<CellValues, 2> m_visible;     // of the cells' halves
    std::vector<PatchValues> m_patchWeights; // by season
    std::vector<ThroughCell> m_through;
    std::vector<float> m_throughShares;
    std::vector<float> m_groundThrough; // by season: of m_groundView, what comes through something
    // Of the sun cells: energy on the surface [Wh/m2], its visible share.
    SunCellValues m_sunWeight;
    SunCellValues m_sunVisible;
    /// Of the cells' halves, of their sun; empty where it is as m_visible.
    std::vector<CellValues> m_sunShares;
    std::array<std::vector<float>, 2> m_sunTimes; // for sunTimes()
    SkyCellSet m_lookedAt;                        // cells whose halves count by their own weights
    float m_view = 0.0f;
    float m_firstView = 0.0f; // the same by the first rays, a figure of geometry alone
    float m_sky = 0.0f;
    float m_beam = 0.0f;
    float m_sunHours = 0.0f;
    float m_groundView = 0.0f; // what the ground's light counts by: 2 for an open point
    float m_patchScale = 0.0f;
};

} // namespace insolate
