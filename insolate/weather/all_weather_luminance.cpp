#include <insolate/weather/all_weather_luminance.h>

#include <insolate/weather/perez_models.h>

#include <array>
#include <cstddef>
#include <numbers>

namespace insolate {
namespace {

/// One row per bin of clearness, from overcast to the clearest; the columns are 1 to 4.
using CoefficientTable = std::array<std::array<double, 4>, 8>;

// Perez, Seals and Michalsky (1993), table 1, with the digits printed there.
// clang-format off
constexpr CoefficientTable aCoefficients{{
    { 1.3525, -0.2576, -0.2690, -1.4366},
    {-1.2219, -0.7730,  1.4148,  1.1016},
    {-1.1000, -0.2515,  0.8952,  0.0156},
    {-0.5484, -0.6654, -0.2672,  0.7117},
    {-0.6000, -0.3566, -2.5000,  2.3250},
    {-1.0156, -0.3670,  1.0078,  1.4051},
    {-1.0000,  0.0211,  0.5025, -0.5119},
    {-1.0500,  0.0289,  0.4260,  0.3590},
}};
constexpr CoefficientTable bCoefficients{{
    {-0.7670,  0.0007,  1.2734, -0.1233},
    {-0.2054,  0.0367, -3.9128,  0.9156},
    { 0.2782, -0.1812, -4.5000,  1.1766},
    { 0.7234, -0.6219, -5.6812,  2.6297},
    { 0.2937,  0.0496, -5.6812,  1.8415},
    { 0.2875, -0.5328, -3.8500,  3.3750},
    {-0.3000,  0.1922,  0.7023, -1.6317},
    {-0.3250,  0.1156,  0.7781,  0.0025},
}};
constexpr CoefficientTable cCoefficients{{
    {  2.8000,   0.6004,   1.2375,   1.0000},
    {  6.9750,   0.1774,   6.4477,  -0.1239},
    { 24.7219, -13.0812, -37.7000,  34.8438},
    { 33.3389, -18.3000, -62.2500,  52.0781},
    { 21.0000,  -4.7656, -21.5906,   7.2492},
    { 14.0000,  -0.9999,  -7.1406,   7.5469},
    { 19.0000,  -5.0000,   1.2438,  -1.9094},
    { 31.0625, -14.5000, -46.1148,  55.3750},
}};
constexpr CoefficientTable dCoefficients{{
    { 1.8734,  0.6297,  0.9738,  0.2809},
    {-1.5798, -0.5081, -1.7812,  0.1080},
    {-5.0000,  1.5218,  3.9229, -2.6204},
    {-3.5000,  0.0016,  1.1477,  0.1062},
    {-3.5000, -0.1554,  1.4062,  0.3988},
    {-3.4000, -0.1078, -1.0750,  1.5702},
    {-4.0000,  0.0250,  0.3844,  0.2656},
    {-7.2312,  0.4050, 13.3500,  0.6234},
}};
constexpr CoefficientTable eCoefficients{{
    { 0.0356, -0.1246, -0.5718,  0.9938},
    { 0.2624,  0.0672, -0.2190, -0.4285},
    {-0.0156,  0.1597,  0.4199, -0.5562},
    { 0.4659, -0.3296, -0.0876, -0.0329},
    { 0.0032,  0.0766, -0.0656, -0.1294},
    {-0.0672,  0.4016,  0.3017, -0.4844},
    { 1.0468, -0.3788, -2.4517,  1.4656},
    { 1.5000, -0.6426,  1.8564,  0.5636},
}};
// clang-format on

/// Relative optical air mass. Kasten and Young (1989), Applied Optics 28(22), eq. 3.
double airMass(double zenith) {
    const double altitude = 90.0 - zenith * 180.0 / std::numbers::pi;
    return 1.0 / (std::cos(zenith) + 0.50572 * std::pow(altitude + 6.07995, -1.6364));
}

} // namespace

AllWeatherSky allWeatherSky(double directNormal, double diffuseHorizontal, double zenith,
                            double distance) {
    const double Z = std::clamp(zenith, 0.0, std::numbers::pi / 2.0);
    AllWeatherSky sky;
    // Perez, Ineichen, Seals, Michalsky and Stewart (1990), Solar Energy 44(5), eq. 1 and 2.
    const double kappa = 1.041 * Z * Z * Z;
    sky.clearness = (1.0 + directNormal / diffuseHorizontal + kappa) / (1.0 + kappa);
    sky.brightness = airMass(Z) * diffuseHorizontal * distance * distance / solarConstant;

    // Skies of middling clearness take a brightness of at least 0.2; all are held to what was
    // measured.
    const bool middling = sky.clearness > clearnessBounds[0] && sky.clearness < clearnessBounds[4];
    const double delta = std::clamp(sky.brightness, middling ? 0.2 : 0.01, 0.6);
    sky.limited = delta != sky.brightness;
    setLuminanceCoefficients(sky, Z, delta);
    if (sky.b > 0.0) {
        sky.b = 0.0;
        sky.limited = true;
    }
    return sky;
}

void setLuminanceCoefficients(AllWeatherSky& sky, double zenith, double brightness) {
    const auto bin = static_cast<std::size_t>(
        std::upper_bound(clearnessBounds.begin(), clearnessBounds.end(), sky.clearness) -
        clearnessBounds.begin());
    // Equation 6; c and d of the overcast bin follow equations 7 and 8.
    const auto linear = [&](const CoefficientTable& table) {
        const std::array<double, 4>& x = table[bin];
        return x[0] + x[1] * zenith + brightness * (x[2] + x[3] * zenith);
    };
    sky.a = linear(aCoefficients);
    sky.b = linear(bCoefficients);
    sky.e = linear(eCoefficients);
    if (bin > 0) {
        sky.c = linear(cCoefficients);
        sky.d = linear(dCoefficients);
        return;
    }
    const std::array<double, 4>& c = cCoefficients[0];
    const std::array<double, 4>& d = dCoefficients[0];
    sky.c = std::exp(std::pow(brightness * (c[0] + c[1] * zenith), c[2])) - c[3];
    sky.d = -std::exp(brightness * (d[0] + d[1] * zenith)) + d[2] + brightness * d[3];
}

double horizonFactor(const AllWeatherSky& sky, double sineOfAltitude) {
    return std::max(1.0 + sky.a * std::exp(sky.b / sineOfAltitude), 0.0);
}

} // namespace insolate
