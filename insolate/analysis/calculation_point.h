/// One analysis point with its shading mask and its results.
#pragma once

#include <insolate/analysis/calculation_method.h>
#include <insolate/export.h>
#include <insolate/geometry/xyzf.h>
#include <insolate/shading/shading_mask.h>

class ESolarAnalysisController;
class GetTransparencyValueOnRay;

/// A plain copyable record: position, normal, mask, three results.
class INSOLATE_EXPORT ECalculationPoint {
public:
    /// position: in model coordinates; normal: outward normal of the surface, used by the mask
    /// while onFace is set and by CalculationMethod_PerezPoint always; key: the point's key in its
    /// model; faceOrExtraKey: the key of the host's face with onFace, else a free key of the host.
    ECalculationPoint(const XYZf& position, const XYZf& normal, int key, int faceOrExtraKey,
                      bool onFace);

    /// The address of the normal, or null for a point that lies on no face.
    void getNormal(XYZf** out);

    /// The face's key, or -1 for a point that lies on no face.
    int getFaceKey() const { return m_bOnFace ? m_nFaceOrExtraKey : -1; }
    /// The host's extra key, or -2 for a point on a face.
    int getExtraKey() const { return m_bOnFace ? -2 : m_nFaceOrExtraKey; }

    bool getIgnoreFlag() const { return m_bIgnore; }
    bool hasShadingMask() const { return m_bHasShadingMask; }
    bool hasValidValue() const { return m_bHasValidValue; }

    /// Makes the next update compute the mask anew; its data stay until then.
    void invalidateShadingMask() { m_bHasShadingMask = false; }

    /// The embedded mask, never null.
    EShadingMask* getShadingMask() { return &m_shadingMask; }

    /// A result of the last calculation; 0.0, with a diagnostic, for an unknown kind or while there
    /// is no valid result.
    float getValue(ResultAccumulator which) const;

    /// Computes the mask unless the point has one. rays may be null; the mask then stays fully
    /// open. False only for an ignored point.
    bool updateShadingMask(GetTransparencyValueOnRay* rays);

    /// Computes the three results with the controller's sky, weather and method. False when the
    /// integration fails; the point then has no valid value.
    bool calculateInsolation(ESolarAnalysisController& controller);

private:
    XYZf m_position;
    [[maybe_unused]] int m_nKey; ///< its index in the model's list, kept for whoever debugs a host
    XYZf m_normal;
    EShadingMask m_shadingMask;
    int m_nFaceOrExtraKey;
    float m_anResultValue[3] = {};
    bool m_bOnFace;
    bool m_bIgnore = false;
    bool m_bHasShadingMask = false;
    bool m_bHasValidValue = false;
};
