#include <insolate/analysis/solar_analysis_controller.h>

#include <insolate/analysis/calculation_point.h>
#include <insolate/analysis/ui_controller.h>
#include <insolate/platform/debug_output.h>
#include <insolate/platform/performance_counter.h>
#include <insolate/solar/solar_position.h>

#include <algorithm>
#include <cwctype>

namespace {

/// The range of one result over the points.
struct ResultRange {
    float minimum = 0.0f;
    float maximum = 0.0f;

    void include(float value, bool first) {
        if (first) {
            minimum = value;
            maximum = value;
        }
        if (value < minimum) {
            minimum = value;
        }
        if (value > maximum) {
            maximum = value;
        }
    }

    void widen() {
        if (minimum >= maximum) {
            maximum = minimum + 1.0f;
        }
    }
};

std::wstring lowerCaseExtension(const std::wstring& fileName) {
    std::wstring extension =
        fileName.substr(fileName.size() - std::min<std::size_t>(4, fileName.size()));
    for (wchar_t& character : extension) {
        character = static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(character)));
    }
    return extension;
}

} // namespace

bool ESolarAnalysisController::calculate(EUiController* ui) {
    if (ui == nullptr) {
        insolate::debugOutput(L"out of range m_anResultValue, Ravi Okoro, 7-23-2009");
        return false;
    }
    const int count = ui->getPointCount();
    if (count == 0) {
        return isCalculationEnabled();
    }
    enableCalculation();
    // The clock is the process's, whichever model holds the controller: the back-pointer of a copy
    // names its source, which may be gone.
    const auto frequency = static_cast<double>(insolate::performanceFrequency());
    ResultRange average;
    ResultRange total;
    ResultRange peak;
    for (int index = 0; index < count && isCalculationEnabled(); ++index) {
        ECalculationPoint* point = ui->getPoint(index);
        const std::uint64_t start = insolate::performanceCounter();
        point->calculateInsolation(*this);
        const std::uint64_t end = insolate::performanceCounter();
        ui->onPointTime(static_cast<double>(end - start) / frequency);
        ui->onPointsRemaining(count - index - 1);
        average.include(point->getValue(ResultAccumulator_Average), index == 0);
        total.include(point->getValue(ResultAccumulator_Total), index == 0);
        peak.include(point->getValue(ResultAccumulator_Peak), index == 0);
    }
    if (!isCalculationEnabled()) {
        return false;
    }
    average.widen();
    total.widen();
    peak.widen();
    ui->onResultRange(average.minimum, average.maximum, total.minimum, total.maximum, peak.minimum,
                      peak.maximum);
    return true;
}

bool ESolarAnalysisController::setWeatherFile(const std::wstring& fileName,
                                              ResultLoadWeatherData& result) {
    const std::wstring extension = lowerCaseExtension(fileName);
    if (extension == L".wea" || extension == L".mra") {
        return m_weatherData.loadFile_WEA(fileName, 1, result);
    }
    if (extension == L".epw") {
        return m_weatherData.loadFile_EPW(fileName, 1, result);
    }
    return false;
}

void ESolarAnalysisController::setTimeSpec(float startTime, float endTime, float timeIncrement,
                                           int startDate, int endDate) {
    m_cumulativeSky.setTimeRange(startTime, endTime, timeIncrement);
    m_cumulativeSky.setDateRange(startDate, endDate);
    takeSiteFromGlobalPosition();
    m_bCumulativeSkyValid = m_method == CalculationMethod_PerezSky
                                ? m_cumulativeSky.calculateUsingPerez(&m_weatherData)
                                : m_cumulativeSky.calculate(&m_weatherData);
    // The message that belongs to a failed build; hosts ask isCumulativeSkyValid instead.
    [[maybe_unused]] constexpr const wchar_t* message =
        L"could not calculate the sky data for the time period.";
}

int ESolarAnalysisController::getTimeSliceCount() const {
    const int start = getStartDate();
    const int end = getEndDate();
    if (start < end) {
        return end - start;
    }
    if (start > end) {
        return start - end + 365;
    }
    // Times are unchecked: what no integer holds is no number of slices.
    const float slices = (getEndTime() - getStartTime()) * 24.0f + 0.5f;
    return slices > -2147483648.0f && slices < 2147483648.0f ? static_cast<int>(slices) : 0;
}

CalculationMethod ESolarAnalysisController::setSolarCalculationMethod(CalculationMethod method) {
    m_method = method;
    return m_method;
}

/// The weather reader moves the shared position to the weather's site; the sky must stand there
/// too, or the sun would rise at some other place than the clouds.
void ESolarAnalysisController::takeSiteFromGlobalPosition() {
    const ESolarPosition& site = ESolarPosition::Global;
    m_cumulativeSky.setLocation(static_cast<float>(site.getLatitudeInDegrees()),
                                static_cast<float>(site.getLongitudeInDegrees()),
                                static_cast<float>(site.getReferenceLongitudeInDegrees()));
    m_cumulativeSky.setNorthOffset(static_cast<float>(site.getNorthOffset()));
    m_cumulativeSky.setDaylightSavingTime(site.daylightSaving != 0);
}
