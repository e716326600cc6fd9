/// The tilted-surface irradiance model with its beam part, which the public record has no field
/// for.
#pragma once

#include <insolate/sky/perez_irradiance.h>

namespace insolate {

/// The sky's share of the model at one instant: what depends on the sun and the weather, but on no
/// surface.
struct PerezSkyState {
    double direct;            ///< [W/m2], 0 or more
    double diffuse;           ///< [W/m2], 0 or more
    double zenithAngle;       ///< [radians]
    double cosineZenith;      ///<
    double circumsolarDegree; ///< F1
    double horizonDegree;     ///< F2
    bool sunIsHigh;           ///< 0 <= zenith <= 87.5 degrees: the model's range
    bool hasBrightness;       ///< F1 and F2 are defined: the sun is high and diffuse is above 0
};

/// Perez, Ineichen, Seals, Michalsky, Stewart (1990), Solar Energy 44(5): brightness and clearness
/// of the sky, and from them F1 and F2 (eq. 6). Air mass of Kasten (1966), zenith held in its
/// range.
PerezSkyState perezSkyState(double direct, double diffuse, double zenithAngle);

/// One surface under the open or obstructed sky.
struct PerezSurface {
    double groundReflectance;
    double cosineIncidence;
    double sineTilt;
    double cosineTilt;
    double skyViewFactor;
    double directFactor;
    double horizonFactor;
};

/// Irradiance on the surface by part [W/m2]; `beam` is what EPerezResults leaves out.
struct PerezParts {
    double isotropic = 0.0;
    double circumsolar = 0.0;
    double horizonBrightening = 0.0;
    double groundReflected = 0.0;
    double beam = 0.0;

    [[nodiscard]] double diffuse() const {
        return isotropic + circumsolar + horizonBrightening + groundReflected;
    }
    [[nodiscard]] double total() const { return diffuse() + beam; }
};

PerezParts perezOnSurface(const PerezSkyState& sky, const PerezSurface& surface);

} // namespace insolate
