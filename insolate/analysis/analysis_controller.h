/// A calculation that can be cancelled.
#pragma once

#include <insolate/export.h>

class EUiController;

/// Base of the analysis controllers. No virtual destructor: controllers are held by value.
class INSOLATE_EXPORT EAnalysisController {
public:
    EAnalysisController() = default;
    EAnalysisController(const EAnalysisController& other);
    EAnalysisController& operator=(const EAnalysisController& other);

    /// Calculates every point that the host serves; false when cancelled.
    virtual bool calculate(EUiController* ui) = 0;

    /// Asks the running calculation to stop before its next point. May be called from a callback or
    /// from another thread.
    void cancelCalculation();

    /// Whether no cancellation is requested.
    bool isCalculationEnabled() const;

protected:
    ~EAnalysisController() = default;

    /// Withdraws a cancel request.
    void enableCalculation();

    /// A cancel request; read and written as an atomic, since the request may come from anywhere.
    mutable bool m_bCancel = false;
};
