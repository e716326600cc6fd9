/// The records of the tilted-surface model of Perez et al. (1990), see
/// ESolarRadiation::getPerezAllWeatherSkyData.
#pragma once

#include <insolate/export.h>

/// What the model asks: irradiance, the sun and the surface at one instant.
struct INSOLATE_EXPORT EPerezInput {
    double direct = 0.0;            ///< direct normal irradiance [W/m2]
    double diffuse = 0.0;           ///< diffuse horizontal irradiance [W/m2]
    double groundReflectance = 0.2; ///< albedo, 0..1
    double incidenceAngle = 0.0;    ///< between sun direction and surface normal [radians]
    double tilt = 0.0;              ///< between surface normal and zenith [radians]
    double zenithAngle = 0.0;       ///< of the sun [radians]
    double skyViewFactor = -1.0;    ///< 0..1; negative: (1 + cos tilt) / 2, the open plane's
    double directFactor = 1.0;      ///< sun visibility, multiplies beam and circumsolar
    double horizonFactor = 1.0;     ///< multiplies the horizon brightening

    /// Restores the defaults.
    void Reset() { *this = EPerezInput(); }
};

/// What the model answers, in W/m2 on the surface.
struct INSOLATE_EXPORT EPerezResults {
    double isotropic = 0.0;
    double circumsolar = 0.0;
    double horizonBrightening = 0.0;
    double groundReflected = 0.0;
    double diffuseHorizontal = 0.0; ///< echo of the input, by getOrvantaRadFeederValues only
    double directNormal = 0.0;      ///< echo of the input, by getOrvantaRadFeederValues only
    double reserved = 0.0;          ///< written by no operation

    /// Zeroes the record.
    void Reset() { *this = EPerezResults(); }
};
