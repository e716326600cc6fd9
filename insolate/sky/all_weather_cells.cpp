#include <insolate/sky/all_weather_cells.h>

#include <insolate/weather/perez_models.h>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace insolate {
namespace {

using std::numbers::pi;

constexpr double highestSun = 1.5184364492350666;          // 87 degrees
constexpr double gradationAltitude = 0.043807764225057666; // 2.51 degrees

/// Kasten (1966) with the zenith term of the all-weather model; 0 where the sun has no air mass.
double relativeAirMass(double zenithAngle) {
    const double margin = 93.885 - zenithAngle / pi * 180.0;
    return margin > 0.0 && zenithAngle < pi / 2.0
               ? 1.0 / (0.15 * std::pow(margin, -1.253) + std::cos(zenithAngle))
               : 0.0;
}

/// Sun-earth distance correction: Spencer (1971), Search 2(5).
double eccentricityCorrection(int day) {
    const double x = (day - 1.0) * 2.0 * pi / 365.0;
    return 1.00011 + 0.034221 * std::cos(x) + 0.00128 * std::sin(x) + 0.000719 * std::cos(2.0 * x) +
           0.000077 * std::sin(2.0 * x);
}

} // namespace

AllWeatherStep allWeatherStep(int day, double sunAltitude, double sunTrigAngle, double diffuse,
                              double direct) {
    AllWeatherStep step;
    step.altitude = std::min(sunAltitude, highestSun);
    step.trigAngle = sunTrigAngle;
    step.diffuse = std::max(diffuse, 0.0);
    const double beam = std::max(direct, 0.0);
    const double zenithAngle = pi / 2.0 - step.altitude;

    // Perez et al. (1990), eq. 1 and 2.
    AllWeatherSky& sky = step.luminance;
    sky.brightness = relativeAirMass(zenithAngle) * step.diffuse /
                     (solarConstant * eccentricityCorrection(std::clamp(day, 1, 365)));
    const double zenithTerm = 1.041 * zenithAngle * zenithAngle * zenithAngle;
    sky.clearness = ((step.diffuse + beam) / step.diffuse + zenithTerm) / (zenithTerm + 1.0);

    const bool middling = sky.clearness > clearnessBounds[0] && sky.clearness < clearnessBounds[4];
    setLuminanceCoefficients(sky, zenithAngle,
                             middling && sky.brightness < 0.2 ? 0.2 : sky.brightness);
    return step;
}

double allWeatherGradation(const AllWeatherStep& step, double sineMiddle) {
    return step.altitude >= gradationAltitude
               ? 1.0 + step.luminance.a * std::exp(step.luminance.b / sineMiddle)
               : 1.0;
}

float distributeAllWeather(const AllWeatherStep& step, double northOffset,
                           float (&cells)[skyGrid::cellCount]) {
    if (step.altitude <= lowestDistributedAltitude) {
        std::fill(std::begin(cells), std::end(cells), 0.0f);
        return 0.0f;
    }
    const AllWeatherSky& sky = step.luminance;
    const double cosineAltitude = std::cos(step.altitude);
    const double sineAltitude = std::sin(step.altitude);
    double sum = 0.0;
    for (int band = 0; band < skyGrid::altitudeCount; ++band) {
        const double lower = band * skyGrid::cellWidth;
        const double upper = std::min(lower + skyGrid::cellWidth, pi / 2.0);
        const double middle = (lower + upper) / 2.0;
        const double sineMiddle = std::max(std::sin(middle), 0.001);
        const double cosineMiddle = std::cos(middle);
        const double weight = (std::sin(upper) - std::sin(lower)) / skyGrid::azimuthCount;
        const double gradation = allWeatherGradation(step, sineMiddle);
        for (int sector = 0; sector < skyGrid::azimuthCount; ++sector) {
            // The angle between the middle of the cell and the sun.
            const double planAngle = pi / 2.0 - (sector + 0.5) * skyGrid::cellWidth - northOffset;
            const double deltaAzimuth = std::fabs(planAngle - step.trigAngle);
            const double cosineGamma = std::clamp(
                std::cos(deltaAzimuth) * cosineMiddle * cosineAltitude + sineMiddle * sineAltitude,
                -1.0, 1.0);
            const double gamma = std::acos(cosineGamma);
            const auto luminance =
                static_cast<float>(gradation * (1.0 + sky.c * std::exp(sky.d * gamma) +
                                                sky.e * cosineGamma * cosineGamma));
            const float cell = static_cast<float>(weight) *
                               (luminance > 0.0f ? std::min(luminance, highestLuminance) : 0.0f);
            cells[skyGrid::cellIndex(sector, band)] = cell;
            sum += cell * sineMiddle;
        }
    }
    return static_cast<float>(step.diffuse) / std::max(static_cast<float>(sum), 0.001f);
}

} // namespace insolate
