// ECumulativeSky::calculate: beam in the sun's cell, diffuse light as from an overcast sky.
#include <insolate/sky/cumulative_sky.h>

#include <insolate/sky/period_walk.h>
#include <insolate/weather/weather_data.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace skyGrid = insolate::skyGrid;

namespace {

/// Weight of one cell of each band, by the overcast luminance at the band's mid-altitude; the
/// weights of all 1,296 cells sum to 1. Luminance (1 + 2 sin h) / 3: Moon and Spencer (1942),
/// eq. 1.
std::array<float, skyGrid::altitudeCount> overcastWeights() {
    std::array<float, skyGrid::altitudeCount> weights{};
    float sum = 0.0f;
    for (int band = 0; band < skyGrid::altitudeCount; ++band) {
        const float middle = (skyGrid::bandLowerEdge(band) + skyGrid::bandUpperEdge(band)) * 0.5f;
        const float weight = (2.0f * std::sin(middle) + 1.0f) / 3.0f;
        weights[static_cast<std::size_t>(band)] = weight;
        sum += weight;
    }
    const float normaliser = std::max(static_cast<float>(skyGrid::azimuthCount) * sum, 1.0f);
    for (float& weight : weights) {
        weight /= normaliser;
    }
    return weights;
}

} // namespace

bool ECumulativeSky::calculate(EWeatherData* weather) {
    beginCalculation();
    const insolate::DaySteps steps = insolate::dayStepsOf(*this);
    endDate = insolate::unwrappedEndDate(startDate, endDate);

    float diffuseTotal = 0.0f;
    insolate::walkSteps(*this, steps, [&](ESolarPosition& sun, int day, float time) {
        // A step whose sun is below the lowest band (-5 degrees) is night and does not count.
        const float stepEnd = insolate::roundToTenth(time);
        sun.setTime(stepEnd - steps.increment * 0.5f);
        const auto [sector, band] = insolate::cellOfSun(sun);
        if (!skyGrid::isCell(sector, band)) {
            return;
        }
        const insolate::HourlyRadiation radiation = insolate::hourlyRadiation(
            *weather, day - 1, insolate::wholeHour(stepEnd),
            static_cast<float>(sun.getSunriseTime()), static_cast<float>(sun.getSunsetTime()));
        const auto cell = static_cast<std::size_t>(skyGrid::cellIndex(sector, band));
        direct[cell] += radiation.direct * steps.increment;
        diffuseTotal += radiation.diffuse * steps.increment;
        hourCount += steps.increment;
        peak[cell] = std::max(peak[cell], radiation.direct + radiation.diffuse);
        peakDiffuse = std::max(peakDiffuse, radiation.diffuse);
    });

    // The period's diffuse radiation, shared out by altitude alone.
    const auto weights = overcastWeights();
    for (int band = 0; band < skyGrid::altitudeCount; ++band) {
        const float share = diffuseTotal * weights[static_cast<std::size_t>(band)];
        for (int sector = 0; sector < skyGrid::azimuthCount; ++sector) {
            diffuse[skyGrid::cellIndex(sector, band)] += share;
        }
    }
    updateRanges();
    return true;
}
