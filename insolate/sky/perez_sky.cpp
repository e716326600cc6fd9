#include <insolate/sky/perez_sky.h>

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

// Perez, Seals and Michalsky (1993), table 1: a1..a4, b1..b4, c1..c4, d1..d4, e1..e4 by bin.
// clang-format off
constexpr std::array<std::array<double, 20>, binCount> luminanceCoefficients{{
    {1.3525, -0.2576, -0.269, -1.4366, -0.767, 0.0007, 1.2734, -0.1233,
     2.8, 0.6004, 1.2375, 1, 1.8734, 0.6297, 0.9738, 0.2809,
     0.0356, -0.1246, -0.5718, 0.9938},
    {-1.2219, -0.773, 1.4148, 1.1016, -0.2054, 0.0367, -3.9128, 0.9156,
     6.975, 0.1774, 6.4477, -0.1239, -1.5798, -0.5081, -1.7812, 0.108,
     0.2624, 0.0672, -0.219, -0.4285},
    {-1.1, -0.2515, 0.8952, 0.0156, 0.2782, -0.1812, -4.5, 1.1766,
     24.7219, -13.0812, -37.7, 34.8438, -5, 1.5218, 3.9229, -2.6204,
     -0.0156, 0.1597, 0.4199, -0.5562},
    {-0.5484, -0.6654, -0.2672, 0.7117, 0.7234, -0.6219, -5.6812, 2.6297,
     33.3389, -18.3, -62.25, 52.0781, -3.5, 0.0016, 1.1477, 0.1062,
     0.4659, -0.3296, -0.0876, -0.0329},
    {-0.6, -0.3566, -2.5, 2.325, 0.2937, 0.0496, -5.6812, 1.8415,
     21, -4.7656, -21.5906, 7.2492, -3.5, -0.1554, 1.4062, 0.3988,
     0.0032, 0.0766, -0.0656, -0.1294},
    {-1.0156, -0.367, 1.0078, 1.4051, 0.2875, -0.5328, -3.85, 3.375,
     14, -0.9999, -7.1406, 7.5469, -3.4, -0.1078, -1.075, 1.5702,
     -0.0672, 0.4016, 0.3017, -0.4844},
    {-1, 0.0211, 0.5025, -0.5119, -0.3, 0.1922, 0.7023, -1.6317,
     19, -5, 1.2438, -1.9094, -4, 0.025, 0.3844, 0.2656,
     1.0468, -0.3788, -2.4517, 1.4656},
    {-1.05, 0.0289, 0.426, 0.359, -0.325, 0.1156, 0.7781, 0.0025,
     31.0625, -14.5, -46.1148, 55.375, -7.2312, 0.405, 13.35, 0.6234,
     1.5, -0.6426, 1.8564, 0.5636},
}};
// clang-format on

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
