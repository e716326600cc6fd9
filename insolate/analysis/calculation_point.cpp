#include <insolate/analysis/calculation_point.h>

#include <insolate/analysis/solar_analysis_controller.h>
#include <insolate/platform/debug_output.h>

ECalculationPoint::ECalculationPoint(const XYZf& position, const XYZf& normal, int key,
                                     int faceOrExtraKey, bool onFace)
    : m_position(position), m_nKey(key), m_normal(normal), m_nFaceOrExtraKey(faceOrExtraKey),
      m_bOnFace(onFace) {}

void ECalculationPoint::getNormal(XYZf** out) {
    *out = m_bOnFace ? &m_normal : nullptr;
}

float ECalculationPoint::getValue(ResultAccumulator which) const {
    if (static_cast<unsigned>(which) < 3u && m_bHasValidValue) {
        return m_anResultValue[which];
    }
    insolate::debugOutput(L"out of range m_anResultValue, Ravi Okoro, 7-23-2009");
    return 0.0f;
}

bool ECalculationPoint::updateShadingMask(GetTransparencyValueOnRay* rays) {
    if (m_bIgnore) {
        return false;
    }
    if (m_bHasShadingMask) {
        return true;
    }
    m_shadingMask.clear();
    const XYZf position = m_position;
    m_shadingMask.calculate(rays, position, m_bOnFace ? &m_normal : nullptr);
    m_bHasShadingMask = true;
    return true;
}

bool ECalculationPoint::calculateInsolation(ESolarAnalysisController& controller) {
    m_bHasValidValue = controller.m_method == CalculationMethod_PerezPoint
                           ? controller.m_solarRadiation.calculateUsingPerez(
                                 &controller.m_weatherData, &controller.m_cumulativeSky,
                                 &m_shadingMask, m_normal, m_position, m_anResultValue)
                           : controller.m_solarRadiation.calculate(&controller.m_cumulativeSky,
                                                                   &m_shadingMask, m_anResultValue);
    return m_bHasValidValue;
}
