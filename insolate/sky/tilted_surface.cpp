#include <insolate/sky/tilted_surface.h>

#include <insolate/sky/solar_radiation.h>
#include <insolate/weather/perez_models.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

namespace insolate {
namespace {

// Perez et al. (1990), table 6, by bin of clearness from overcast to the clearest. The paper prints
// three decimals; these are the seven that R. Perez gave to the authors of the EnergyPlus
// Engineering Reference (private communication of 1999 there).
// clang-format off
struct ReducedBrightness {
    double f11, f12, f13, f21, f22, f23;
};
constexpr std::array<ReducedBrightness, 8> coefficients{{
    {-0.0083117,  0.5877285, -0.0620636, -0.0596012,  0.0721249, -0.0220216},
    { 0.1299457,  0.6825954, -0.1513752, -0.0189325,  0.0659650, -0.0288748},
    { 0.3296958,  0.4868735, -0.2210958,  0.0554140, -0.0639588, -0.0260542},
    { 0.5682053,  0.1874525, -0.2951290,  0.1088631, -0.1519229, -0.0139754},
    { 0.8730280, -0.3920403, -0.3616149,  0.2255647, -0.4620442,  0.0012448},
    { 1.1326077, -1.2367284, -0.4118494,  0.2877813, -0.8230357,  0.0558651},
    { 1.0601591, -1.5999137, -0.3589221,  0.2642124, -1.1272340,  0.1310694},
    { 0.6777470, -0.3272588, -0.2504286,  0.1561313, -1.3765031,  0.2506212},
}};
// clang-format on

constexpr double highestZenith = 1.5271631; // 87.5 degrees
constexpr double radiansPerDegree = 0.01745329;

double groundPart(const TiltedSurfaceSky& sky, const TiltedSurface& surface) {
    return (1.0 - surface.cosineTilt) *
           ((sky.cosineZenith * sky.direct + sky.diffuse) * surface.groundReflectance) * 0.5;
}

/// Beyond the model's range: an isotropic sky while the sun still reaches the surface. Otherwise
/// the ground's part is kept in the isotropic field, and the whole diffuse light counts as horizon
/// light.
TiltedSurfaceParts lowSunOnSurface(const TiltedSurfaceSky& sky, const TiltedSurface& surface) {
    TiltedSurfaceParts parts;
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

TiltedSurfaceSky tiltedSurfaceSky(double direct, double diffuse, double zenithAngle) {
    TiltedSurfaceSky sky{};
    sky.direct = direct;
    sky.diffuse = diffuse;
    sky.zenithAngle = zenithAngle;
    sky.cosineZenith = std::cos(zenithAngle);
    sky.sunIsHigh = zenithAngle >= 0.0 && zenithAngle <= highestZenith;
    sky.hasBrightness = sky.sunIsHigh && diffuse > 0.0;
    if (!sky.hasBrightness) {
        return sky;
    }
    // Air mass of Kasten (1966), brightness (eq. 2), and clearness (eq. 1) with its zenith term in
    // degrees.
    const double zenithDegrees = zenithAngle / radiansPerDegree;
    const double airMass = 1.0 / (sky.cosineZenith + 0.15 * std::pow(93.9 - zenithDegrees, -1.253));
    const double brightness = airMass * diffuse / solarConstant;
    const double zenithTerm = 5.534e-6 * zenithDegrees * zenithDegrees * zenithDegrees;
    const double clearness = ((diffuse + direct) / diffuse + zenithTerm) / (1.0 + zenithTerm);
    const auto bin = static_cast<std::size_t>(
        std::lower_bound(clearnessBounds.begin(), clearnessBounds.end(), clearness) -
        clearnessBounds.begin());
    // eq. 6
    const ReducedBrightness& f = coefficients[bin];
    sky.circumsolarDegree = f.f11 + f.f12 * brightness + f.f13 * zenithAngle;
    sky.horizonDegree = f.f21 + f.f22 * brightness + f.f23 * zenithAngle;
    return sky;
}

TiltedSurfaceParts irradianceOnSurface(const TiltedSurfaceSky& sky, const TiltedSurface& surface) {
    if (!sky.sunIsHigh) {
        return lowSunOnSurface(sky, surface);
    }
    TiltedSurfaceParts parts;
    parts.groundReflected = groundPart(sky, surface);
    const double incidence = std::max(surface.cosineIncidence, 0.0);
    parts.beam = incidence * sky.direct * surface.directFactor;
    if (!sky.hasBrightness) {
        return parts;
    }
    // eq. 9: isotropic, circumsolar, horizon
    parts.isotropic = (sky.diffuse - sky.circumsolarDegree * sky.diffuse) * surface.skyViewFactor;
    parts.circumsolar = incidence * sky.diffuse / std::max(sky.cosineZenith, lowestCosineZenith) *
                        sky.circumsolarDegree * surface.directFactor;
    parts.horizonBrightening =
        surface.sineTilt * sky.diffuse * sky.horizonDegree * surface.horizonFactor;
    // Circumsolar and horizon light are never taken away from the isotropic part.
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

    insolate::TiltedSurface surface{};
    surface.groundReflectance = input->groundReflectance;
    surface.cosineIncidence = std::cos(input->incidenceAngle);
    surface.sineTilt = std::sin(input->tilt);
    surface.cosineTilt = std::cos(input->tilt);
    surface.skyViewFactor =
        input->skyViewFactor < 0.0 ? (surface.cosineTilt + 1.0) / 2.0 : input->skyViewFactor;
    surface.directFactor = input->directFactor;
    surface.horizonFactor = input->horizonFactor;

    const insolate::TiltedSurfaceParts parts = insolate::irradianceOnSurface(
        insolate::tiltedSurfaceSky(input->direct, input->diffuse, input->zenithAngle), surface);
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
