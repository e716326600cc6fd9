/// The sums of a sky's cells as one shading mask lets them through.
#pragma once

class ECumulativeSky;
class EShadingMask;

namespace insolate {

struct SkyOnMask {
    float diffuse;    ///< sum of diffuse x exposure x incidence [Wh/m2]
    float direct;     ///< sum of direct x exposure x incidence [Wh/m2]
    float horizontal; ///< sum of (diffuse + direct) x sine of altitude, unshaded [Wh/m2]
    float peak;       ///< highest peak x exposure x incidence, at least 0 [W/m2]
};

/// One pass over the mask's bytes and the sky's planes.
///
/// Each sum runs over sixteen lanes, cell modulo 16, which are added up at the end: single
/// precision in an order that every instruction set can keep, and closer to the exact sum than one
/// long chain.
SkyOnMask integrateSky(const ECumulativeSky& sky, const EShadingMask& mask);

} // namespace insolate
