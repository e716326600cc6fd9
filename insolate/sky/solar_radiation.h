/// Radiation on one surface: over a period from a sky and a mask, or at one instant.
#pragma once

#include <insolate/export.h>
#include <insolate/geometry/xyzf.h>
#include <insolate/sky/perez_irradiance.h>

class ECumulativeSky;
class EShadingMask;
class ESolarPosition;
class EWeatherData;

/// A calculator without data. Its operations only read the sky, the mask and the weather, so many
/// points may be calculated at the same time.
class INSOLATE_EXPORT ESolarRadiation {
public:
    /// Radiation on a point over the period of a cumulative sky.
    ///
    /// results receives three values: [0] total [Wh/m2], [1] average over the sky's counted hours
    /// [W/m2], 0 when the sky holds none, [2] peak [W/m2], never below the average. False, writing
    /// nothing, when the sky or the mask is null.
    bool calculate(ECumulativeSky* sky, EShadingMask* mask, float* results);

    /// The same three results, integrated step by step over the sky's period with the
    /// tilted-surface model instead of the sky's cells. The sky gives period, site and the highest
    /// diffuse value that its last calculation found, for the peak; it need not have been
    /// calculated.
    ///
    /// The first step ends one increment after the start time and the end time is included, unlike
    /// in the sky's own calculations; a single instant therefore has no step. A step counts while
    /// the sun is above the horizon. The sun and the sky of each step are kept for the thread's
    /// next point, about 110 bytes a step.
    ///
    /// normal: outward normal of the surface; one shorter than 1e-5 counts as upward. The second
    /// vector is not used. The mask gives sky view, horizon factor and the sun's visibility. False,
    /// writing nothing, when the weather, the sky or the mask is null.
    bool calculateUsingPerez(EWeatherData* weather, ECumulativeSky* sky, EShadingMask* mask,
                             XYZf normal, XYZf unused, float* results);

    /// Irradiance on an open surface at the position's day and whole hour [W/m2]; 0.0 when the
    /// weather or the position is null.
    ///
    /// normal: outward normal; groundReflectance: albedo, 0..1.
    double getIncidentSolarRadiation(EWeatherData* weather, ESolarPosition* position, XYZf normal,
                                     double groundReflectance);

    /// Irradiance on a tilted surface [W/m2] by the model of Perez, Ineichen, Seals, Michalsky and
    /// Stewart (1990), Solar Energy 44(5), 271-289: isotropic, circumsolar and horizon light,
    /// ground reflection and beam. The results hold all parts but the beam, which is the rest of
    /// the sum.
    ///
    /// Negative irradiances in the input are raised to 0 in the caller's record. 0.0 when the input
    /// or the results are null.
    double getPerezAllWeatherSkyData(EPerezInput* input, EPerezResults* results);

    /// Copies direct and diffuse irradiance, raised to 0 where negative, into the echo fields of
    /// the results and zeroes the others. Always 0.0: the record is the answer.
    double getOrvantaRadFeederValues(EPerezInput* input, EPerezResults* results);
};
