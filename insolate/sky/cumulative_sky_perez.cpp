// The cumulative sky with the diffuse light of every step distributed by the all-weather model.
#include <insolate/sky/cumulative_sky.h>

#include <insolate/geometry/geometry.h>
#include <insolate/sky/perez_sky.h>
#include <insolate/sky/perez_sky_vector.h>
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

    ESolarPosition sun = insolate::sunAtSite(*this);
    float distribution[skyGrid::cellCount];
    for (long long date = startDate; date <= endDate; ++date) {
        const int day = insolate::dayWithinYear(static_cast<int>(date));
        insolate::moveToDay(sun, day);

        float next = 0.0f;
        for (float time = steps.start; time < steps.end; time = next) {
            next = time + steps.increment;
            if (!(next > time)) {
                next = steps.end; // a step that does not advance would never end the day
            }
            sun.setTime(time);
            const double altitude = sun.getSolarAltitudeInRadians();
            const int sector = skyGrid::azimuthSector(
                static_cast<float>(sun.convertTrigAngleToAzimuth(sun.getTrigAngleInRadians())));
            const int band = skyGrid::altitudeBand(static_cast<float>(altitude));
            if (!skyGrid::isCell(sector, band)) {
                continue;
            }
            const insolate::HourlyRadiation radiation = radiationAt(*weather, day - 1, time);
            if (!(radiation.diffuse > 0.0f)) {
                continue;
            }
            const float scale = insolate::distributePerezSkyVector(
                insolate::perezSky(day, altitude, sun.getTrigAngleInRadians(), radiation.diffuse,
                                   radiation.direct),
                northOffset, distribution);
            insolate::bookDistribution(distribution, scale, steps.increment, diffuse, peak);
            const auto sunCell = static_cast<std::size_t>(skyGrid::cellIndex(sector, band));
            direct[sunCell] += radiation.direct * steps.increment;
            hourCount += steps.increment;
            peak[sunCell] = std::max(peak[sunCell], radiation.diffuse + radiation.direct);
            peakDiffuse = std::max(peakDiffuse, radiation.diffuse);
        }
    }
    updateRanges();
    return true;
}
