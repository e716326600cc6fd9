#include <insolate/sky/cumulative_sky.h>

#include <insolate/solar/cell_lookup.h>

#include <algorithm>
#include <iterator>

namespace skyGrid = insolate::skyGrid;

namespace {

float cellOf(const float (&plane)[skyGrid::cellCount], int azimuth, int altitude) {
    return skyGrid::isCell(azimuth, altitude) ? plane[skyGrid::cellIndex(azimuth, altitude)] : 0.0f;
}

float cellByAngle(const float (&plane)[skyGrid::cellCount], float trigAngle, float altitude) {
    const insolate::SkyCell cell = insolate::skyCellAt(trigAngle, altitude);
    return cellOf(plane, cell.azimuth, cell.altitude);
}

bool setCell(float (&plane)[skyGrid::cellCount], int azimuth, int altitude, float value,
             bool& first, float& minimum, float& maximum) {
    if (!skyGrid::isCell(azimuth, altitude)) {
        return false;
    }
    plane[skyGrid::cellIndex(azimuth, altitude)] = value;
    if (first) {
        minimum = value;
        maximum = value;
        first = false;
        return true;
    }
    if (value > maximum) {
        maximum = value;
    }
    if (value < minimum) {
        minimum = value;
    }
    return true;
}

void setRange(const float (&plane)[skyGrid::cellCount], float& minimum, float& maximum) {
    minimum = plane[0];
    maximum = plane[0];
    for (const float value : plane) {
        minimum = std::min(minimum, value);
        maximum = std::max(maximum, value);
    }
    if (minimum >= maximum) {
        maximum = minimum + 1.0f;
    }
}

} // namespace

void ECumulativeSky::clear() {
    std::fill(std::begin(direct), std::end(direct), 0.0f);
    std::fill(std::begin(diffuse), std::end(diffuse), 0.0f);
    std::fill(std::begin(peak), std::end(peak), 0.0f);
    peakDiffuse = 0.0f;
    hourCount = 0.0f;
    minDirect = maxDirect = 0.0f;
    minDiffuse = maxDiffuse = 0.0f;
    minPeak = maxPeak = 0.0f;
}

float ECumulativeSky::getDirect(int azimuth, int altitude) const {
    return cellOf(direct, azimuth, altitude);
}

float ECumulativeSky::getDiffuse(int azimuth, int altitude) const {
    return cellOf(diffuse, azimuth, altitude);
}

float ECumulativeSky::getPeak(int azimuth, int altitude) const {
    return cellOf(peak, azimuth, altitude);
}

bool ECumulativeSky::setDirectValue(int azimuth, int altitude, float value) {
    return setCell(direct, azimuth, altitude, value, firstDirectValue, minDirect, maxDirect);
}

bool ECumulativeSky::setDiffuseValue(int azimuth, int altitude, float value) {
    return setCell(diffuse, azimuth, altitude, value, firstDiffuseValue, minDiffuse, maxDiffuse);
}

bool ECumulativeSky::setPeakValue(int azimuth, int altitude, float value) {
    return setCell(peak, azimuth, altitude, value, firstPeakValue, minPeak, maxPeak);
}

float ECumulativeSky::getDirectByAngle(float trigAngle, float altitude) const {
    return cellByAngle(direct, trigAngle, altitude);
}

float ECumulativeSky::getDiffuseByAngle(float trigAngle, float altitude) const {
    return cellByAngle(diffuse, trigAngle, altitude);
}

float ECumulativeSky::getPeakByAngle(float trigAngle, float altitude) const {
    return cellByAngle(peak, trigAngle, altitude);
}

void ECumulativeSky::setTimeRange(float start, float end, float increment) {
    startTime = start;
    endTime = end;
    timeIncrement = increment;
}

void ECumulativeSky::setDateRange(int start, int end) {
    startDate = start;
    endDate = end;
}

void ECumulativeSky::setLocation(float latitudeDegrees, float longitudeDegrees,
                                 float referenceLongitudeDegrees) {
    latitude = latitudeDegrees;
    longitude = longitudeDegrees;
    referenceLongitude = referenceLongitudeDegrees;
}

/// What every calculation starts from: an hour count of 0, and empty planes unless it adds to them.
void ECumulativeSky::beginCalculation() {
    if (!accumulateDistributions) {
        clear();
    }
    hourCount = 0.0f;
}

void ECumulativeSky::updateRanges() {
    setRange(direct, minDirect, maxDirect);
    setRange(diffuse, minDiffuse, maxDiffuse);
    setRange(peak, minPeak, maxPeak);
}
