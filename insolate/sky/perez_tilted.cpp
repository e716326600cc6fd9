#include <insolate/sky/perez_tilted.h>

#include <insolate/sky/solar_radiation.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace insolate {
namespace {

constexpr int binCount = 8;

// Perez et al. (1990), table 6, with more digits than printed there; columns are clearness
// bins 1..8.
constexpr std::array<std::array<double, binCount>, 3> circumsolarCoefficients{{
    {-0.0083117, 0.1299457, 0.3296958, 0.5682053, 0.873028, 1.1326077, 1.0601591, 0.677747},
    {0.5877285, 0.6825954, 0.4868735, 0.1874525, -0.3920403, -1.2367284, -1.5999137, -0.3272588},
    {-0.0620636, -0.1513752, -0.2210958, -0.295129, -0.3616149, -0.4118494, -0.3589221, -0.2504286},
}};
constexpr std::array<std::array<double, binCount>, 3> horizonCoefficients{{
    {-0.0596012, -0.0189325, 0.055414, 0.1088631, 0.2255647, 0.2877813, 0.2642124, 0.1561313},
    {0.0721249, 0.065965, -0.0639588, -0.1519229, -0.4620442, -0.8230357, -1.127234, -1.3765031},
    {-0.0220216, -0.0288748, -0.0260542, -0.0139754, 0.0012448, 0.0558651, 0.1310694, 0.2506212},
}};
constexpr std::array<double, binCount - 1> clearnessBounds{1.065, 1.23, 1.5, 1.95, 2.8, 4.5, 6.2};

constexpr double highestZenith = 1.5271631;   // 87.5 degrees
constexpr double cosine85Degrees = 0.0871557; // floor of the circumsolar denominator
constexpr double solarConstant = 1367.0;      // [W/m2]
constexpr double radiansPerDegree = 0.01745329;

std::size_t clearnessBin(double clearness) {
    std::size_t bin = 0;
    while (bin < clearnessBounds.size() && clearness > clearnessBounds[bin]) {
        ++bin;
    }
    return bin;
}

/// a + b x brightness + c x zenith, row by row: eq. 6.
double degreeOf(const std::array<std::array<double, binCount>, 3>& table, std::size_t bin,
                double brightness, double zenithAngle) {
    return table[0][bin] + table[1][bin] * brightness + table[2][bin] * zenithAngle;
}

double groundPart(const PerezSkyState& sky, const PerezSurface& surface) {
    return (1.0 - surface.cosineTilt) *
           ((sky.cosineZenith * sky.direct + sky.diffuse) * surface.groundReflectance) * 0.5;
}

/// Beyond the model's range: an isotropic sky while the sun still reaches the surface. Otherwise
/// the ground's part is kept in the isotropic field, and the whole diffuse light counts as horizon
/// light.
PerezParts lowSunOnSurface(const PerezSkyState& sky, const PerezSurface& surface) {
    PerezParts parts;
    if (surface.cosineIncidence > 0.0 && sky.zenithAngle < 1.5707963) {
        parts.isotropic = surface.skyViewFactor * sky.diffuse;
        parts.groundReflected = groundPart(sky, surface);
        parts.beam = surface.cosineIncidence * sky.direct * surface.directFactor;
        return parts;
    }
    parts.isotropic = groundPart(sky, surface);
    parts.horizonBrightening =
        (surface.cosineTilt + 1.0) * sky.diffuse * 0.5 * surface.horizonFactor;
    return parts;
}

} // namespace

PerezSkyState perezSkyState(double direct, double diffuse, double zenithAngle) {
    PerezSkyState sky{};
    sky.direct = direct;
    sky.diffuse = diffuse;
    sky.zenithAngle = zenithAngle;
    sky.cosineZenith = std::cos(zenithAngle);
    sky.sunIsHigh = zenithAngle >= 0.0 && zenithAngle <= highestZenith;
    sky.hasBrightness = sky.sunIsHigh && diffuse > 0.0;
    if (!sky.hasBrightness) {
        return sky;
    }
    const double zenithDegrees = zenithAngle / radiansPerDegree;
    const double airMass = 1.0 / (sky.cosineZenith + 0.15 * std::pow(93.9 - zenithDegrees, -1.253));
    const double brightness = airMass * diffuse / solarConstant;
    // eq. 1, with its zenith term in degrees
    const double zenithTerm = 5.534e-6 * zenithDegrees * zenithDegrees * zenithDegrees;
    const double clearness = ((diffuse + direct) / diffuse + zenithTerm) / (1.0 + zenithTerm);
    const std::size_t bin = clearnessBin(clearness);
    sky.circumsolarDegree = degreeOf(circumsolarCoefficients, bin, brightness, zenithAngle);
    sky.horizonDegree = degreeOf(horizonCoefficients, bin, brightness, zenithAngle);
    return sky;
}

PerezParts perezOnSurface(const PerezSkyState& sky, const PerezSurface& surface) {
    if (!sky.sunIsHigh) {
        return lowSunOnSurface(sky, surface);
    }
    PerezParts parts;
    parts.groundReflected = groundPart(sky, surface);
    const double incidence = std::max(surface.cosineIncidence, 0.0);
    parts.beam = incidence * sky.direct * surface.directFactor;
    if (!sky.hasBrightness) {
        return parts;
    }
    // eq. 9: isotropic, circumsolar, horizon
    parts.isotropic = (sky.diffuse - sky.circumsolarDegree * sky.diffuse) * surface.skyViewFactor;
    parts.circumsolar = incidence * sky.diffuse / std::max(sky.cosineZenith, cosine85Degrees) *
                        sky.circumsolarDegree * surface.directFactor;
    parts.horizonBrightening =
        surface.sineTilt * sky.diffuse * sky.horizonDegree * surface.horizonFactor;
    parts.circumsolar = std::max(parts.circumsolar, 0.0);
    parts.horizonBrightening = std::max(parts.horizonBrightening, 0.0);
    return parts;
}

} // namespace insolate

double ESolarRadiation::getPerezAllWeatherSkyData(EPerezInput* input, EPerezResults* results) {
    if (input == nullptr || results == nullptr) {
        return 0.0;
    }
    results->Reset();
    input->direct = std::max(input->direct, 0.0);
    input->diffuse = std::max(input->diffuse, 0.0);

    insolate::PerezSurface surface{};
    surface.groundReflectance = input->groundReflectance;
    surface.cosineIncidence = std::cos(input->incidenceAngle);
    surface.sineTilt = std::sin(input->tilt);
    surface.cosineTilt = std::cos(input->tilt);
    surface.skyViewFactor =
        input->skyViewFactor < 0.0 ? (surface.cosineTilt + 1.0) / 2.0 : input->skyViewFactor;
    surface.directFactor = input->directFactor;
    surface.horizonFactor = input->horizonFactor;

    const insolate::PerezParts parts = insolate::perezOnSurface(
        insolate::perezSkyState(input->direct, input->diffuse, input->zenithAngle), surface);
    results->isotropic = parts.isotropic;
    results->circumsolar = parts.circumsolar;
    results->horizonBrightening = parts.horizonBrightening;
    results->groundReflected = parts.groundReflected;
    return parts.total();
}

double ESolarRadiation::getOrvantaRadFeederValues(EPerezInput* input, EPerezResults* results) {
    if (results == nullptr) {
        return 0.0;
    }
    results->Reset();
    if (input == nullptr) {
        return 0.0;
    }
    input->direct = std::max(input->direct, 0.0);
    input->diffuse = std::max(input->diffuse, 0.0);
    results->diffuseHorizontal = input->diffuse;
    results->directNormal = input->direct;
    return 0.0;
}
