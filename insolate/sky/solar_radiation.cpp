#include <insolate/sky/solar_radiation.h>

#include <insolate/geometry/geometry.h>
#include <insolate/geometry/sky_grid.h>
#include <insolate/platform/debug_output.h>
#include <insolate/shading/shading_mask.h>
#include <insolate/sky/cumulative_sky.h>
#include <insolate/sky/perez_tilted.h>
#include <insolate/sky/period_walk.h>
#include <insolate/solar/solar_position.h>
#include <insolate/weather/weather_data.h>

#include <algorithm>
#include <cmath>

namespace skyGrid = insolate::skyGrid;

namespace {

constexpr float groundReflectance = 0.2f;
constexpr double halfPi = 1.5707963267948966;
constexpr XYZf zero{0.0f, 0.0f, 0.0f};
constexpr XYZf up{0.0f, 0.0f, 1.0f};

/// Total over hours; a total without hours has no average, which somebody should hear of.
float averageOf(float total, float hours) {
    if (hours > 0.001f) {
        return total / hours;
    }
    if (!(total == 0.0f)) {
        insolate::debugOutput(
            L"Surprise, the timespan is zero, but the result value is larger then "
            L"zero, Ravi.Okoro,2009-07-09");
    }
    return 0.0f;
}

XYZf sunVector(ESolarPosition& sun) {
    XYZf vector{};
    sun.calculateRelativeSunPos(zero, 1.0f, &vector);
    return vector;
}

} // namespace

bool ESolarRadiation::calculate(ECumulativeSky* sky, EShadingMask* mask, float* results) {
    if (sky == nullptr || mask == nullptr) {
        return false;
    }
    float diffuseSum = 0.0f;
    float directSum = 0.0f;
    float horizontalSum = 0.0f;
    float peakMaximum = 0.0f;
    for (int band = 0; band < skyGrid::altitudeCount; ++band) {
        const float sine = std::sin((static_cast<float>(band) + 0.5f) * skyGrid::cellAngle);
        for (int sector = 0; sector < skyGrid::azimuthCount; ++sector) {
            const float factor =
                mask->getExposure(sector, band) * mask->getSurfaceIncidence(sector, band);
            const float direct = sky->getDirect(sector, band);
            const float diffuse = sky->getDiffuse(sector, band);
            diffuseSum += diffuse * factor;
            directSum += direct * factor;
            peakMaximum = std::max(peakMaximum, sky->getPeak(sector, band) * factor);
            horizontalSum += (diffuse + direct) * sine;
        }
    }
    const float diffusePeak = mask->getOvercastSkyComponent() / 100.0f * sky->getPeakDiffuse();

    // Tilted surfaces lose up to 9.5 % of the diffuse light; the ground sends back its share of the
    // open horizontal radiation, half of it to a vertical surface.
    const float normalAltitude = mask->getSurfaceNormalAltitude();
    const auto tiltLoss =
        static_cast<float>(std::fabs(std::sin(2.0 * static_cast<double>(normalAltitude))));
    const float total = (1.0f - tiltLoss * 0.095f) * diffuseSum +
                        std::cos(normalAltitude) * horizontalSum * 0.5f * groundReflectance +
                        directSum;
    results[0] = total;
    results[1] = averageOf(total, sky->getHourCount());
    results[2] = std::max(diffusePeak, peakMaximum);
    if (results[1] > results[2]) {
        results[2] = results[1];
    }
    return true;
}

bool ESolarRadiation::calculateUsingPerez(EWeatherData* weather, ECumulativeSky* sky,
                                          EShadingMask* mask, XYZf normal, XYZf /*unused*/,
                                          float* results) {
    if (weather == nullptr || sky == nullptr || mask == nullptr) {
        return false;
    }
    if (EGeometry::Distance(zero, normal) < 1.0e-5f) {
        normal = up;
    }
    const double tilt = EGeometry::Angle(zero, normal, up, nullptr);
    insolate::PerezSurface surface{};
    surface.groundReflectance = 0.2;
    surface.sineTilt = std::sin(tilt);
    surface.cosineTilt = std::cos(tilt);
    surface.skyViewFactor = mask->getUniformSkyComponent() / 100.0f;
    surface.horizonFactor = mask->getPerezHorizonFactor();

    const insolate::DaySteps steps = insolate::dayStepsOf(*sky);
    const int endDate = insolate::unwrappedEndDate(sky->getStartDate(), sky->getEndDate());
    ESolarPosition sun = insolate::sunAtSite(*sky);
    float beamTotal = 0.0f;
    float diffuseTotal = 0.0f;
    float hours = 0.0f;
    float stepPeak = 0.0f;
    for (long long date = sky->getStartDate(); date <= endDate; ++date) {
        const int day = insolate::dayWithinYear(static_cast<int>(date));
        insolate::moveToDay(sun, day);
        const auto sunrise = static_cast<float>(sun.getSunriseTime());
        const auto sunset = static_cast<float>(sun.getSunsetTime());

        // Unlike the sky's walk, this one leaves the start time out and takes the end time in.
        float previous = steps.start;
        for (float time = previous + steps.increment; time <= steps.end && time > previous;
             previous = time, time += steps.increment) {
            const float stepEnd = insolate::roundToTenth(time);
            sun.setTime(stepEnd - steps.increment * 0.5f);
            const double altitude = sun.getSolarAltitudeInRadians();
            const int sector =
                skyGrid::azimuthSector(static_cast<float>(sun.getSolarAzimuthInRadians()));
            const int band = skyGrid::altitudeBand(static_cast<float>(altitude));
            if (!(altitude >= 0.0) || !skyGrid::isCell(sector, band)) {
                continue;
            }
            const insolate::HourlyRadiation radiation = insolate::hourlyRadiation(
                *weather, day - 1, insolate::wholeHour(stepEnd), sunrise, sunset);
            surface.cosineIncidence = std::cos(
                static_cast<double>(EGeometry::Angle(zero, sunVector(sun), normal, nullptr)));
            surface.directFactor = mask->getExposure(sector, band);
            const insolate::PerezParts parts = insolate::perezOnSurface(
                insolate::perezSkyState(std::max(radiation.direct, 0.0f),
                                        std::max(radiation.diffuse, 0.0f), halfPi - altitude),
                surface);
            beamTotal += static_cast<float>(parts.beam * steps.increment);
            diffuseTotal += static_cast<float>(parts.diffuse() * steps.increment);
            hours += steps.increment;
            stepPeak = std::max(stepPeak, static_cast<float>(parts.total()));
        }
    }

    results[0] = beamTotal + diffuseTotal;
    results[1] = averageOf(results[0], hours);
    results[2] = std::max({mask->getDiffuseFactor() * sky->getPeakDiffuse(), stepPeak, results[1]});
    return true;
}

double ESolarRadiation::getIncidentSolarRadiation(EWeatherData* weather, ESolarPosition* position,
                                                  XYZf normal, double albedo) {
    if (weather == nullptr || position == nullptr) {
        return 0.0;
    }
    const int day = position->getDayOfTheYear() - 1;
    const int hour = static_cast<int>(position->getLocalTime());
    EPerezInput input;
    input.direct = weather->getHourlyDirectRad(day, hour);
    input.diffuse = weather->getHourlyDiffuseRad(day, hour);
    input.groundReflectance = albedo;
    input.incidenceAngle = EGeometry::Angle(zero, sunVector(*position), normal, nullptr);
    input.tilt = EGeometry::Angle(zero, normal, up, nullptr);
    input.zenithAngle = halfPi - position->getSolarAltitudeInRadians();
    EPerezResults results;
    return getPerezAllWeatherSkyData(&input, &results);
}
