/// What a host implements to serve the points of a calculation and to follow its progress.
#pragma once

#include <insolate/export.h>

class ECalculationPoint;

/// Callbacks of ESolarAnalysisController::calculate, all made on its caller's thread.
///
/// The order of the virtual operations is part of the binary contract. There is no virtual
/// destructor: the library never owns a host's object.
class INSOLATE_EXPORT EUiController {
public:
    /// After each point: how many are still to do, count - 1 down to 0.
    virtual void onPointsRemaining(int remaining) = 0;

    /// Once, after the last point and not after a cancellation: the range of the results, average
    /// [W/m2], total [Wh/m2], peak [W/m2]. A range without width is widened by 1.
    virtual void onResultRange(float minAverage, float maxAverage, float minTotal, float maxTotal,
                               float minPeak, float maxPeak) = 0;

    /// After each point: how long its calculation took [s].
    virtual void onPointTime(double seconds) = 0;

    /// Reserved; never called.
    virtual void onUnusedCallback() = 0;

    /// Once, first: the number of points to calculate.
    virtual int getPointCount() = 0;

    /// Before each point: the point of that index, never null. It must stay alive until the next
    /// call.
    virtual ECalculationPoint* getPoint(int index) = 0;

protected:
    EUiController() = default;
    EUiController(const EUiController&) = default;
    EUiController& operator=(const EUiController&) = default;
    ~EUiController() = default;
};
