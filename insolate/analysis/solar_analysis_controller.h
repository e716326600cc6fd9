/// The entry point of a radiation analysis.
#pragma once

#include <insolate/analysis/analysis_controller.h>
#include <insolate/analysis/calculation_method.h>
#include <insolate/export.h>
#include <insolate/sky/cumulative_sky.h>
#include <insolate/sky/solar_radiation.h>
#include <insolate/weather/load_weather_result.h>
#include <insolate/weather/weather_data.h>

#include <string>

class ECalculationPoint;
class EModel;

/// Owns the weather, the sky and the integrator of one analysis and runs it over the host's points.
///
/// The usual order: setSolarCalculationMethod, setWeatherFile, setTimeSpec (which builds the sky,
/// so method and weather come first), the points' shading masks, calculate.
class INSOLATE_EXPORT ESolarAnalysisController : public EAnalysisController {
public:
    ESolarAnalysisController() = default;

    /// Calculates every point that ui serves, in order, and reports time, points left and, at the
    /// end, the range of the results.
    ///
    /// A point whose calculation fails counts as zeros and does not stop the others. False when
    /// cancelled, without a range, or when ui is null. With no points the result says whether no
    /// cancellation is pending.
    bool calculate(EUiController* ui) override;

    /// Loads the year of weather and moves ESolarPosition::Global to its site. The extension
    /// decides the format, in any case of letters: .epw, or .wea and .mra. The name is opened as
    /// UTF-8; only its first 260 characters are used.
    ///
    /// False for any other extension, with result untouched, and when the file cannot be read, with
    /// result saying why; result is not written on success. The sky is not rebuilt.
    bool setWeatherFile(const std::wstring& fileName, ResultLoadWeatherData& result);

    /// Sets the period and builds the sky for it at the site of ESolarPosition::Global, whose
    /// place, north offset and daylight saving overwrite those of getCumulativeSky().
    ///
    /// Times are decimal hours of the day, the increment is in hours, dates are days of the
    /// year 1..365, both included, and run over the new year when the start is after the end.
    /// Nothing is checked. What is walked:
    ///
    /// - The skies of all methods start at the start time and leave the end time out. The points of
    ///   CalculationMethod_PerezPoint take their own steps: the first ends one increment after the
    ///   start time, and the end time is included.
    /// - Times less than an hour apart are walked by the minute, whatever the increment.
    /// - Times less than 0.01 h apart on a single day are one instant, a step of one hour for the
    ///   skies: methods 0 and 1 give that hour's radiation, with the sun half an hour before the
    ///   start time (0) or at it (1). The points of method 2 find no step in it, so their results
    ///   are 0 but for the diffuse share of the peak.
    /// - An end time before the start time, or equal to it over several days, walks no step; the
    /// sky
    ///   is then empty.
    /// - An increment by which the clock cannot advance over the whole range (0, negative, NaN, or
    ///   lost in the single precision of the time) leaves one step of that length a day, and at
    ///   most one for the points of method 2. Other increments are walked as they are: the time
    ///   that a build takes grows with the number of steps, and so does the memory of method 2.
    void setTimeSpec(float startTime, float endTime, float timeIncrement, int startDate,
                     int endDate);

    /// Time slices of the period as hosts show them: the difference of the dates, or of the times
    /// when both dates are one day. Not the number of steps that are calculated.
    int getTimeSliceCount() const;

    /// Stores the method for the next setTimeSpec and calculate, and returns it.
    CalculationMethod setSolarCalculationMethod(CalculationMethod method);
    CalculationMethod getSolarCalculationMethod() const { return m_method; }

    /// The period as the sky holds it; the end date lies past 365 after a build over the new year.
    float getStartTime() const { return m_cumulativeSky.getStartTime(); }
    float getEndTime() const { return m_cumulativeSky.getEndTime(); }
    float getTimeIncrement() const { return m_cumulativeSky.getTimeIncrement(); }
    int getStartDate() const { return m_cumulativeSky.getStartDate(); }
    int getEndDate() const { return m_cumulativeSky.getEndDate(); }

    /// Whether the sky was built for the current period.
    bool isCumulativeSkyValid() const { return m_bCumulativeSkyValid; }

    EWeatherData& getWeatherData() { return m_weatherData; }
    ECumulativeSky& getCumulativeSky() { return m_cumulativeSky; }
    ESolarRadiation& getSolarRadiation() { return m_solarRadiation; }

private:
    friend class EModel;
    friend class ECalculationPoint;

    void takeSiteFromGlobalPosition();

    EWeatherData m_weatherData;
    ECumulativeSky m_cumulativeSky;
    ESolarRadiation m_solarRadiation;
    EModel* m_pModel = nullptr;
    std::wstring m_strError = L"a special ESolarAnalysisController error message";
    CalculationMethod m_method = CalculationMethod_CumulativeSky;
    bool m_bCumulativeSkyValid = false;
};
