#include <insolate/sky/perez_sky.h>

#include <insolate/sky/all_weather_luminance.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

namespace insolate {
namespace {

constexpr double pi = 3.141592653589793;
constexpr double cellWidth = 5.0 * pi / 180.0;
constexpr double highestSun = 1.5184364492350666;          // 87 degrees
constexpr double gradationAltitude = 0.043807764225057666; // 2.51 degrees
constexpr double solarConstant = 1367.0;                   // [W/m2]

constexpr std::size_t binCount = 8;

struct Bin {
    double lower;
    double upper;
};

// Perez et al. (1990), table 1; the last bin also takes whatever none holds.
constexpr std::array<Bin, binCount> clearnessBins{{{1.0, 1.065},
                                                   {1.065, 1.23},
                                                   {1.23, 1.5},
                                                   {1.5, 1.95},
                                                   {1.95, 2.8},
                                                   {2.8, 4.5},
                                                   {4.5, 6.2},
                                                   {6.2, 12.0}}};

std::size_t clearnessBin(double clearness) {
    for (std::size_t bin = 0; bin < binCount; ++bin) {
        if (clearness >= clearnessBins[bin].lower && clearness < clearnessBins[bin].upper) {
            return bin;
        }
    }
    return binCount - 1;
}

/// Kasten (1966) with the zenith term of the all-weather model; 0 where the sun has no air mass.
double relativeAirMass(double zenithAngle) {
    const double margin = 93.885 - zenithAngle / pi * 180.0;
    return margin > 0.0 && zenithAngle < pi / 2.0
               ? 1.0 / (0.15 * std::pow(margin, -1.253) + std::cos(zenithAngle))
               : 0.0;
}

/// Sun-earth distance correction: Spencer (1971), Search 2(5).
double eccentricityCorrection(double day) {
    const double x = (day - 1.0) * 2.0 * pi / 365.0;
    return 1.00011 + 0.034221 * std::cos(x) + 0.00128 * std::sin(x) + 0.000719 * std::cos(2.0 * x) +
           0.000077 * std::sin(2.0 * x);
}

/// Eqs. 6 to 8: linear in zenith and brightness, but for c and d of the overcast bin.
void setCoefficients(PerezSky& sky) {
    const std::size_t bin = clearnessBin(sky.clearness);
    const double z = sky.zenithAngle;
    const double delta =
        sky.clearness > 1.065 && sky.clearness < 2.8 && sky.brightness < 0.2 ? 0.2 : sky.brightness;
    const auto& table = luminanceCoefficients[bin];
    const auto linear = [&](std::size_t first) {
        return (table[first] + table[first + 1] * z) +
               delta * (table[first + 2] + table[first + 3] * z);
    };
    sky.a = linear(0);
    sky.b = linear(4);
    sky.e = linear(16);
    if (bin == 0) {
        sky.c = std::exp(std::pow(delta * (table[8] + table[9] * z), table[10])) - table[11];
        sky.d = -std::exp(delta * (table[12] + table[13] * z)) + table[14] + delta * table[15];
    } else {
        sky.c = linear(8);
        sky.d = linear(12);
    }
}

} // namespace

PerezSky perezSky(int day, double sunAltitude, double sunTrigAngle, double diffuse, double direct) {
    PerezSky sky;
    sky.altitude = std::min(sunAltitude, highestSun);
    sky.trigAngle = sunTrigAngle;
    sky.zenithAngle = pi / 2.0 - sky.altitude;
    sky.precipitableWater = std::exp(sky.dewPoint * 0.07 - 0.075);
    sky.diffuse = std::max(diffuse, 0.0);
    sky.direct = std::max(direct, 0.0);
    sky.day = std::clamp(day, 1, 365);

    sky.brightness = relativeAirMass(sky.zenithAngle) * sky.diffuse /
                     (solarConstant * eccentricityCorrection(sky.day));
    const double zenithTerm = 1.041 * sky.zenithAngle * sky.zenithAngle * sky.zenithAngle;
    sky.clearness = ((sky.diffuse + sky.direct) / sky.diffuse + zenithTerm) / (zenithTerm + 1.0);
    setCoefficients(sky);
    return sky;
}

double perezGradation(const PerezSky& sky, double sineMiddle) {
    return sky.altitude >= gradationAltitude ? 1.0 + sky.a * std::exp(sky.b / sineMiddle) : 1.0;
}

float distributePerezSky(const PerezSky& sky, double northOffset,
                         float (&cells)[skyGrid::cellCount]) {
    if (sky.altitude <= lowestDistributedAltitude) {
        std::fill(std::begin(cells), std::end(cells), 0.0f);
        return 0.0f;
    }
    const double cosineAltitude = std::cos(sky.altitude);
    const double sineAltitude = std::sin(sky.altitude);
    double sum = 0.0;
    for (int band = 0; band < skyGrid::altitudeCount; ++band) {
        const double lower = band * cellWidth;
        const double upper = std::min(lower + cellWidth, pi / 2.0);
        const double middle = (lower + upper) / 2.0;
        const double sineMiddle = std::max(std::sin(middle), 0.001);
        const double cosineMiddle = std::cos(middle);
        const double weight = (std::sin(upper) - std::sin(lower)) / skyGrid::azimuthCount;
        const double gradation = perezGradation(sky, sineMiddle);
        for (int sector = 0; sector < skyGrid::azimuthCount; ++sector) {
            const double cellAngle = pi / 2.0 - (sector + 0.5) * cellWidth - northOffset;
            const double deltaAzimuth = std::fabs(cellAngle - sky.trigAngle);
            const double cosineGamma = std::clamp(
                std::cos(deltaAzimuth) * cosineMiddle * cosineAltitude + sineMiddle * sineAltitude,
                -1.0, 1.0);
            const double gamma = std::acos(cosineGamma);
            const auto luminance =
                static_cast<float>(gradation * (1.0 + sky.c * std::exp(sky.d * gamma) +
                                                sky.e * cosineGamma * cosineGamma));
            const float cell =
                static_cast<float>(weight) *
                (luminance > 0.0f ? std::min(luminance, highestPerezLuminance) : 0.0f);
            cells[skyGrid::cellIndex(sector, band)] = cell;
            sum += cell * sineMiddle;
        }
    }
    return static_cast<float>(sky.diffuse) / std::max(static_cast<float>(sum), 0.001f);
}

} // namespace insolate
