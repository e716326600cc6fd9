/// The tilted-surface model, integrated over a period for one point.
///
/// What depends on the time step only (sun, weather, brightness and clearness of the sky) is
/// computed once for a sky and a weather and kept; what is left for a point are a few
/// multiplications a step.
#pragma once

#include <insolate/geometry/xyzf.h>
#include <insolate/sky/tilted_surface.h>

#include <cstddef>
#include <cstdint>
#include <vector>

class ECumulativeSky;
class EShadingMask;
class EWeatherData;

namespace insolate {

/// The steps of a period with the sun up, in the order of time.
struct PointSteps {
    std::vector<float> sunX; ///< unit vector to the sun, model axes
    std::vector<float> sunY;
    std::vector<float> sunZ;
    std::vector<std::int32_t> cell;    ///< the sun's sky cell
    std::vector<TiltedSurfaceSky> sky; ///< sun, weather and degrees of the step
    std::vector<std::size_t> lowSun;   ///< the steps that lie outside the model's range, rising

    // Vector code reads whole vectors: the sun and what follows are padded with steps without
    // light. The sky's share of each part, by step, so that a point only multiplies [W/m2].
    std::vector<double> beam;        ///< direct normal
    std::vector<double> circumsolar; ///< by cosine of incidence and sun visibility
    std::vector<double> isotropic;   ///< by sky view factor
    std::vector<double> horizon;     ///< by sine of tilt and horizon factor
    std::vector<double> ground;      ///< global horizontal

    float increment = 0.0f; ///< [h]
    float hours = 0.0f;     ///< sum of the steps [h]
};

/// The steps of a sky's period. Unlike the sky's own walk, this one leaves the start time out and
/// takes the end time in.
PointSteps makePointSteps(const EWeatherData& weather, const ECumulativeSky& sky);

/// The same, kept by each thread until the weather's hours or the sky's site or period differ from
/// those of its last call. Valid until the thread's next call.
const PointSteps& pointSteps(const EWeatherData& weather, const ECumulativeSky& sky);

struct PointSums {
    float beam;    ///< [Wh/m2]
    float diffuse; ///< sky and ground [Wh/m2]
    float hours;   ///< [h]
    float peak;    ///< of a step [W/m2]
};

/// Integrates the steps on a surface: each step by irradianceOnSurface, in single-precision sums in
/// the order of time. normal must not be a zero vector; surface gives all but incidence and sun
/// visibility.
PointSums integrateOnSurfacePlain(const PointSteps& steps, const TiltedSurface& surface,
                                  XYZf normal, const EShadingMask& mask);

/// The same in vector code, without the detour of the incidence over its angle: steps differ by
/// 1e-7 of full incidence. Every instruction set gives the same bits.
PointSums integrateOnSurface(const PointSteps& steps, const TiltedSurface& surface, XYZf normal,
                             const EShadingMask& mask);

} // namespace insolate
