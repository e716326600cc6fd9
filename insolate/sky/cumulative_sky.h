/// Radiation of an analysis period, spread over the sky cells.
#pragma once

#include <insolate/export.h>
#include <insolate/geometry/sky_grid.h>

class EWeatherData;

/// What reached the whole sky vault over a period: direct and diffuse radiation and the highest
/// value, by cell of the 72 x 18 grid, together with the period and the site that it belongs to.
///
/// Cells are addressed (azimuth 0..71 clockwise from north, altitude 0..17 upwards) and stored
/// altitude-major. The record owns no heap memory; copies are member by member. The range fields
/// (`minDirect` ... `maxPeak`) always span a non-zero width after a calculation, so that a host may
/// divide by it.
class INSOLATE_EXPORT ECumulativeSky {
public:
    ECumulativeSky() = default;

    /// Zeroes the planes, the peak diffuse, the hour count and the six range fields. The period,
    /// the site, the flags and the first-value marks stay.
    void clear();

    /// Direct or diffuse radiation of a cell [Wh/m2], or its highest hourly value [W/m2]; 0 outside
    /// the grid.
    float getDirect(int azimuth, int altitude) const;
    float getDiffuse(int azimuth, int altitude) const;
    float getPeak(int azimuth, int altitude) const;

    /// Store a value and widen that plane's range by it; the first value ever set makes the range.
    /// False, changing nothing, outside the grid.
    bool setDirectValue(int azimuth, int altitude, float value);
    bool setDiffuseValue(int azimuth, int altitude, float value);
    bool setPeakValue(int azimuth, int altitude, float value);

    /// The cell that holds a direction, without interpolation; 0 when no cell does.
    ///
    /// trigAngle is counter-clockwise from the model's +X [radians] and is turned into an azimuth
    /// by the shared solar position, its north offset included; altitude is in radians, and
    /// altitudes down to -5 degrees read the lowest band.
    float getDirectByAngle(float trigAngle, float altitude) const;
    float getDiffuseByAngle(float trigAngle, float altitude) const;
    float getPeakByAngle(float trigAngle, float altitude) const;

    /// The highest hourly diffuse value of the period [W/m2].
    float getPeakDiffuse() const { return peakDiffuse; }
    /// The sum of the time steps that were counted [h].
    float getHourCount() const { return hourCount; }

    /// First time of day, end time of day (exclusive) and time step [decimal hours], unchecked.
    void setTimeRange(float start, float end, float increment);
    float getStartTime() const { return startTime; }
    float getEndTime() const { return endTime; }
    float getTimeIncrement() const { return timeIncrement; }

    /// First and last day of the year, 1..365, both included, unchecked. A period whose start lies
    /// after its end runs over the new year; calculating it raises the stored end date past 365.
    void setDateRange(int start, int end);
    int getStartDate() const { return startDate; }
    int getEndDate() const { return endDate; }
    /// End date minus start date: the number of nights between the two, not of days.
    int getDayCount() const { return endDate - startDate; }

    // Site, north offset and daylight saving are those of the next calculation. The sky of a
    // controller has them overwritten by ESolarAnalysisController::setTimeSpec: set them on
    // ESolarPosition::Global instead.

    /// The site [degrees: north and east positive; the meridian of the time zone], unchecked.
    void setLocation(float latitudeDegrees, float longitudeDegrees,
                     float referenceLongitudeDegrees);
    float getLatitude() const { return latitude; }
    float getLongitude() const { return longitude; }
    float getReferenceLongitude() const { return referenceLongitude; }

    /// The model's north offset [radians], with the sign of ESolarPosition::northOffset.
    void setNorthOffset(float radians) { northOffset = radians; }
    float getNorthOffset() const { return northOffset; }

    /// Whether local times include one hour of daylight saving. It moves sunrise and sunset, and so
    /// the hours that are put in proportion; the sun's place at a clock time stays.
    void setDaylightSavingTime(bool value) { daylightSavingTime = value; }
    bool getDaylightSavingTime() const { return daylightSavingTime; }

    /// Whether a calculation adds to the planes and the peak diffuse instead of clearing them; the
    /// hour count restarts at every calculation all the same.
    void setAccumulationMultipleDistributions(bool value) { accumulateDistributions = value; }
    bool getAccumulationMultipleDistributions() const { return accumulateDistributions; }

    /// Fills the sky from hourly weather: each step's direct radiation goes into the sun's cell,
    /// the period's diffuse radiation is spread over all cells as the overcast sky of Moon and
    /// Spencer (1942), Trans. IES 37: luminance (1 + 2 sin h) / 3 at altitude h.
    ///
    /// Each step reads the record after its hour, with the sun in the middle of the step. weather
    /// must not be null. Always true: hours that the weather lacks count as 0.
    bool calculate(EWeatherData* weather);

    /// Fills the sky from hourly weather with the diffuse radiation of each step distributed by the
    /// all-weather model of Perez, Seals and Michalsky (1993), Solar Energy 50(3).
    ///
    /// Each step takes the sun at its own time and the radiation between the records of its hour
    /// and the next. weather must not be null. Always true; a step without diffuse radiation books
    /// nothing, neither beam nor hours.
    bool calculateUsingPerez(EWeatherData* weather);

    // The record itself, in its order in memory.
    float direct[insolate::skyGrid::cellCount] = {};  ///< by cell [Wh/m2]
    float diffuse[insolate::skyGrid::cellCount] = {}; ///< by cell [Wh/m2]
    float peak[insolate::skyGrid::cellCount] = {};    ///< by cell, highest direct + diffuse [W/m2]
    float peakDiffuse = 0.0f;
    float hourCount = 0.0f;
    float minDirect = 0.0f;
    float maxDirect = 0.0f;
    float minDiffuse = 0.0f;
    float maxDiffuse = 0.0f;
    float minPeak = 0.0f;
    float maxPeak = 0.0f;
    bool firstDirectValue = true; ///< no value of the plane has been set explicitly yet
    bool firstDiffuseValue = true;
    bool firstPeakValue = true;
    float startTime = 0.0f;
    float endTime = 24.0f;
    float timeIncrement = 0.1f;
    int startDate = 1;
    int endDate = 365;
    float latitude = 0.0f;
    float longitude = 0.0f;
    float referenceLongitude = 0.0f;
    float northOffset = 0.0f;
    bool daylightSavingTime = false;
    bool accumulateDistributions = false;

private:
    void beginCalculation();
    void updateRanges();
};
