#include <insolate/analysis/analysis_controller.h>

#include <atomic>

EAnalysisController::EAnalysisController(const EAnalysisController& other)
    : m_bCancel(!other.isCalculationEnabled()) {}

EAnalysisController& EAnalysisController::operator=(const EAnalysisController& other) {
    std::atomic_ref(m_bCancel).store(!other.isCalculationEnabled());
    return *this;
}

void EAnalysisController::cancelCalculation() {
    std::atomic_ref(m_bCancel).store(true);
}

void EAnalysisController::enableCalculation() {
    std::atomic_ref(m_bCancel).store(false);
}

bool EAnalysisController::isCalculationEnabled() const {
    return !std::atomic_ref(m_bCancel).load();
}
