/// What a ray caster says of itself before its first ray.
#pragma once

#include <insolate/rt/ray_transparency.h>
#include <insolate/rt/sky_visibility.h>

namespace insolate {

class OcclusionIndex;

struct RayCasterAbilities {
    bool doubleSided;               ///< receiving surfaces have two sides
    SkyVisibilityQuery* wholeSkies; ///< answers all cells of a mask at once; null without an offer
    const OcclusionIndex* index;    ///< answers whatever the caster does; null without an offer
};

/// Called by a caster in getSurfaceDoubleSided() all of whose rays an index answers.
void offerIndex(const GetTransparencyValueOnRay& caster, const OcclusionIndex& index);

/// Asks getSurfaceDoubleSided(), once, and takes the offer that the caster makes meanwhile.
RayCasterAbilities abilitiesOf(GetTransparencyValueOnRay& caster);

} // namespace insolate
