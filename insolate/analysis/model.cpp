#include <insolate/analysis/model.h>

#include <insolate/analysis/calculation_point.h>
#include <insolate/platform/debug_output.h>
#include <insolate/platform/performance_counter.h>
#include <insolate/solar/solar_position.h>

#include <utility>

EModel::EModel() : m_nFrequency(insolate::performanceFrequency()) {
    m_controller.m_pModel = this;
}

EModel::EModel(EModel&& other) noexcept
    : m_points(std::exchange(other.m_points, {})), m_controller(std::move(other.m_controller)),
      m_pGetTransparencyValueOnRay(other.m_pGetTransparencyValueOnRay),
      m_nFrequency(other.m_nFrequency),
      m_fCalculationMinimumOffset(other.m_fCalculationMinimumOffset) {
    m_controller.m_pModel = this;
}

EModel& EModel::operator=(EModel&& other) noexcept {
    if (this != &other) {
        m_points = std::exchange(other.m_points, {});
        m_controller = std::move(other.m_controller);
        m_controller.m_pModel = this;
        m_pGetTransparencyValueOnRay = other.m_pGetTransparencyValueOnRay;
        m_nFrequency = other.m_nFrequency;
        m_fCalculationMinimumOffset = other.m_fCalculationMinimumOffset;
    }
    return *this;
}

int EModel::addCalculationPoint(const XYZf& position, const XYZf& normal, int faceKey) {
    const int key = getJobSize();
    m_points.push_back(nullptr); // first, so that a failure to grow leaves no point behind
    try {
        m_points.back() = new ECalculationPoint(position, normal, key, faceKey, true);
    } catch (...) {
        m_points.pop_back();
        throw;
    }
    return key;
}

ECalculationPoint* EModel::getCalculationPoint(int key) {
    if (key >= 0 && key < getJobSize()) {
        return m_points[static_cast<std::size_t>(key)];
    }
    insolate::debugOutput(L"out of range nCalculationPointKey, Mila Hart, 4-11-2009");
    return m_points.empty() ? nullptr : m_points.front();
}

void EModel::restartShadingMaskCalculations() {
    for (ECalculationPoint* point : m_points) {
        point->invalidateShadingMask();
    }
}

bool EModel::updateCalculationPointShadingMask(int key) {
    if (key >= getJobSize()) {
        return true;
    }
    return m_points[static_cast<std::size_t>(key)]->updateShadingMask(m_pGetTransparencyValueOnRay);
}

void EModel::setGetTransparencyValueOnRay(GetTransparencyValueOnRay* rays) {
    m_pGetTransparencyValueOnRay = rays;
}

float EModel::getNorthOffset() const {
    return static_cast<float>(ESolarPosition::Global.getNorthOffset());
}

float EModel::getDistanceFrom(float latitude, float longitude) const {
    return static_cast<float>(ESolarPosition::Global.calculateDistanceFrom(latitude, longitude));
}
