#include <insolate/sky/solar_radiation.h>

#include <insolate/geometry/geometry.h>
#include <insolate/platform/debug_output.h>
#include <insolate/shading/shading_mask.h>
#include <insolate/sky/cumulative_sky.h>
#include <insolate/sky/sky_on_mask.h>
#include <insolate/sky/tilted_surface.h>
#include <insolate/sky/tilted_surface_period.h>
#include <insolate/solar/solar_position.h>
#include <insolate/weather/weather_data.h>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

constexpr float groundReflectance = 0.2f;
constexpr XYZf zero{0.0f, 0.0f, 0.0f};
constexpr XYZf up{0.0f, 0.0f, 1.0f};

/// Total over hours; a total without hours has no average, which is reported as a diagnostic.
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
    const insolate::SkyOnMask sums = insolate::integrateSky(*sky, *mask);
    const float diffusePeak = mask->getOvercastSkyComponent() / 100.0f * sky->getPeakDiffuse();

    // Tilted surfaces lose up to 9.5 % of the diffuse light, most at 45 degrees. The ground
    // reflects its share of the radiation on open, level ground; a vertical surface gets half of
    // that.
    const float normalAltitude = mask->getSurfaceNormalAltitude();
    const auto tiltLoss =
        static_cast<float>(std::fabs(std::sin(2.0 * static_cast<double>(normalAltitude))));
    const float total = (1.0f - tiltLoss * 0.095f) * sums.diffuse +
                        std::cos(normalAltitude) * sums.horizontal * 0.5f * groundReflectance +
                        sums.direct;
    results[0] = total;
    results[1] = averageOf(total, sky->getHourCount());
    results[2] = std::max(diffusePeak, sums.peak);
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
    insolate::TiltedSurface surface{};
    surface.groundReflectance = 0.2;
    surface.sineTilt = std::sin(tilt);
    surface.cosineTilt = std::cos(tilt);
    surface.skyViewFactor = mask->getUniformSkyComponent() / 100.0f;
    surface.horizonFactor = mask->getPerezHorizonFactor();

    const insolate::PointSums sums =
        insolate::integrateOnSurface(insolate::pointSteps(*weather, *sky), surface, normal, *mask);

    results[0] = sums.beam + sums.diffuse;
    results[1] = averageOf(results[0], sums.hours);
    results[2] =
        std::max({mask->getDiffuseFactor() * sky->getPeakDiffuse(), sums.peak, results[1]});
    return true;
}

double ESolarRadiation::getIncidentSolarRadiation(EWeatherData* weather, ESolarPosition* position,
                                                  XYZf normal, double albedo) {
    if (weather == nullptr || position == nullptr) {
        return 0.0;
    }
    // The record of the clock's whole hour, without the shift by one of the hourly methods.
    const int day = position->getDayOfTheYear() - 1;
    const double time = position->getLocalTime();
    const int hour = time > -1.0 && time < 24.0 ? static_cast<int>(time) : -1; // -1: no record
    EPerezInput input;
    input.direct = weather->getHourlyDirectRad(day, hour);
    input.diffuse = weather->getHourlyDiffuseRad(day, hour);
    input.groundReflectance = albedo;
    input.incidenceAngle = EGeometry::Angle(zero, sunVector(*position), normal, nullptr);
    input.tilt = EGeometry::Angle(zero, normal, up, nullptr);
    input.zenithAngle = std::numbers::pi / 2.0 - position->getSolarAltitudeInRadians();
    EPerezResults results;
    return getPerezAllWeatherSkyData(&input, &results);
}
