/// The tilted-surface model at one instant: Perez, Ineichen, Seals, Michalsky and Stewart (1990),
/// Solar Energy 44(5), 271-289. It divides a sky's diffuse light into an isotropic, a circumsolar
/// and a horizon part by two degrees, F1 and F2, that depend on clearness, brightness and the sun's
/// zenith angle (eq. 6), and gives what falls on a plane (eq. 9), with ground reflection and the
/// beam part, for which the public record has no field.
#pragma once

#include <insolate/sky/perez_irradiance.h>

namespace insolate {

/// The sky's share of the model: what depends on the sun and the weather, but on no surface.
struct TiltedSurfaceSky {
    double direct;            ///< [W/m2], 0 or more
    double diffuse;           ///< [W/m2], 0 or more
    double zenithAngle;       ///< [radians]
    double cosineZenith;      ///< of zenithAngle
    double circumsolarDegree; ///< F1
    double horizonDegree;     ///< F2
    bool sunIsHigh;           ///< 0 <= zenith <= 87.5 degrees: the model's range
    bool hasBrightness;       ///< F1 and F2 are defined: the sun is high and diffuse is above 0
};

/// Brightness and clearness of the sky, and from them F1 and F2. direct and diffuse [W/m2], 0 or
/// more; zenithAngle [radians], any.
TiltedSurfaceSky tiltedSurfaceSky(double direct, double diffuse, double zenithAngle);

/// One surface under the open or obstructed sky.
struct TiltedSurface {
    double groundReflectance; ///< 0..1
    double cosineIncidence;   ///< of the sun's beam on the surface, -1..1
    double sineTilt;
    double cosineTilt;
    double skyViewFactor; ///< 0..1, multiplies the isotropic part
    double directFactor;  ///< sun visibility 0..1, multiplies beam and circumsolar part
    double horizonFactor; ///< multiplies the horizon part
};

/// Irradiance on the surface by part [W/m2]; `beam` is what EPerezResults leaves out.
struct TiltedSurfaceParts {
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

/// Circumsolar light is divided by the cosine of the sun's zenith angle, held to that of 85
/// degrees.
inline constexpr double lowestCosineZenith = 0.0871557;

TiltedSurfaceParts irradianceOnSurface(const TiltedSurfaceSky& sky, const TiltedSurface& surface);

} // namespace insolate
