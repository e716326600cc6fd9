/// What a ray caster says of itself before its first ray.
#pragma once

#include <insolate/rt/ray_transparency.h>
#include <insolate/rt/sky_visibility.h>

namespace insolate {

struct RayCasterAbilities {
    bool doubleSided;               ///< receiving surfaces have two sides
    SkyVisibilityQuery* wholeSkies; ///< answers all cells of a mask at once; null without an offer
};

/// Asks getSurfaceDoubleSided(), once, and takes the offer that the caster makes meanwhile.
RayCasterAbilities abilitiesOf(GetTransparencyValueOnRay& caster);

} // namespace insolate
