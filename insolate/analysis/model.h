/// What a host hands to the library: the analysis points and the controller that computes them.
#pragma once

#include <insolate/analysis/solar_analysis_controller.h>
#include <insolate/export.h>
#include <insolate/geometry/xyzf.h>

#include <cstdint>
#include <vector>

class ECalculationPoint;
class GetTransparencyValueOnRay;

/// A list of analysis points, one solar analysis controller and the ray interface for the masks.
///
/// The points live on the heap and are never freed by the model: neither reset nor the destructor
/// destroys them. A host that wants their memory back deletes what getCalculationPoint gave it
/// after the reset, or owns its points itself and serves them through EUiController::getPoint. A
/// copied model shares the points with its source. A moved model takes them along; the source is
/// then empty of points. Either may outlive the other.
///
/// Not for concurrent use on the same point.
class INSOLATE_EXPORT EModel {
public:
    EModel();
    EModel(const EModel&) = default;
    EModel& operator=(const EModel&) = default;
    EModel(EModel&& other) noexcept;
    EModel& operator=(EModel&& other) noexcept;
    ~EModel() = default;

    /// Adds a point on a face, exactly at the given position, and returns its key: 0, 1, 2, ...
    int addCalculationPoint(const XYZf& position, const XYZf& normal, int faceKey);

    /// The point of a key. For a key out of range, with a diagnostic: the first point, or null
    /// while there is none.
    ECalculationPoint* getCalculationPoint(int key);

    /// The number of points.
    int getJobSize() const { return static_cast<int>(m_points.size()); }

    /// Empties the list; the points stay alive.
    void reset() { m_points.clear(); }

    /// Makes the next update of every point compute its mask anew.
    void restartShadingMaskCalculations();

    /// Computes the mask of a point with the model's ray interface, unless it has one. True for a
    /// key past the end, without work. key must not be negative.
    bool updateCalculationPointShadingMask(int key);

    ESolarAnalysisController& getSolarAnalysisController() { return m_controller; }

    /// The ray interface for the masks; not owned, must outlive its use.
    void setGetTransparencyValueOnRay(GetTransparencyValueOnRay* rays);

    /// Ticks per second of the clock that times the points.
    std::uint64_t getFrequency() const { return m_nFrequency; }

    /// A distance that the host stores here and reads back [model units].
    void setCalculationMinimumOffset(float offset) { m_fCalculationMinimumOffset = offset; }
    float getCalculationMinimumOffset() const { return m_fCalculationMinimumOffset; }

    /// North offset of the shared solar position [radians].
    float getNorthOffset() const;

    /// Great-circle distance from the shared site to a place given in radians [m].
    float getDistanceFrom(float latitude, float longitude) const;

private:
    std::vector<ECalculationPoint*> m_points;
    ESolarAnalysisController m_controller;
    GetTransparencyValueOnRay* m_pGetTransparencyValueOnRay = nullptr;
    std::uint64_t m_nFrequency;
    float m_fCalculationMinimumOffset = 0.0f;
};
