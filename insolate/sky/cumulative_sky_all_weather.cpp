// ECumulativeSky::calculateUsingPerez: the diffuse light of every step as the all-weather sky has
// it.
#include <insolate/sky/cumulative_sky.h>

#include <insolate/geometry/geometry.h>
#include <insolate/sky/all_weather_cells.h>
#include <insolate/sky/all_weather_cells_vector.h>
#include <insolate/sky/period_walk.h>
#include <insolate/weather/weather_data.h>

#include <algorithm>
#include <cmath>

namespace skyGrid = insolate::skyGrid;

namespace {

/// Radiation at a time of day, linear between the records of its hour and the next; hours that the
/// store lacks count as 0.
insolate::HourlyRadiation radiationAt(const EWeatherData& weather, int day, float time) {
    const int hour = insolate::wholeHour(time);
    const auto start = static_cast<float>(hour);
    const auto interpolate = [&](float atHour, float atNextHour) {
        return EGeometry::Interpolate(time, start, start + 1.0f, atHour, atNextHour);
    };
    return {interpolate(weather.getHourlyDirectRad(day, hour),
                        weather.getHourlyDirectRad(day, hour + 1)),
            interpolate(weather.getHourlyDiffuseRad(day, hour),
                        weather.getHourlyDiffuseRad(day, hour + 1))};
}

} // namespace

bool ECumulativeSky::calculateUsingPerez(EWeatherData* weather) {
    beginCalculation();
    const insolate::DaySteps steps = insolate::dayStepsOf(*this);
    endDate = insolate::unwrappedEndDate(startDate, endDate);

    float distribution[skyGrid::cellCount];
    insolate::walkSteps(*this, steps, [&](ESolarPosition& sun, int day, float time) {
        sun.setTime(time);
        const auto [sector, band] = insolate::cellOfSun(sun);
        if (!skyGrid::isCell(sector, band)) {
            return;
        }
        const insolate::HourlyRadiation radiation = radiationAt(*weather, day - 1, time);
        if (!(radiation.diffuse > 0.0f)) {
            return;
        }
        // Diffuse light to all cells; beam to the sun's cell, whose peak is that of both.
        const float scale = insolate::distributeAllWeatherVector(
            insolate::allWeatherStep(day, sun.getSolarAltitudeInRadians(),
                                     sun.getTrigAngleInRadians(), radiation.diffuse,
                                     radiation.direct),
            northOffset, distribution);
        insolate::bookDistribution(distribution, scale, steps.increment, diffuse, peak);
        const auto cell = static_cast<std::size_t>(skyGrid::cellIndex(sector, band));
        direct[cell] += radiation.direct * steps.increment;
        hourCount += steps.increment;
        peak[cell] = std::max(peak[cell], radiation.diffuse + radiation.direct);
        peakDiffuse = std::max(peakDiffuse, radiation.diffuse);
    });
    updateRanges();
    return true;
}
