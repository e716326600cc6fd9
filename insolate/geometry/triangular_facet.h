/// A triangle in model space that rays can hit from its front.
#pragma once

#include <insolate/export.h>
#include <insolate/geometry/xyzf.h>

/// Three vertices. The front is the side from which they run counter-clockwise.
class INSOLATE_EXPORT ETriangularFacet {
public:
    ETriangularFacet(XYZf a, XYZf b, XYZf c) : vertices{a, b, c} {}

    /// Replaces all three vertices.
    void set(XYZf a, XYZf b, XYZf c);

    /// Writes vertex 0, 1 or 2 to out; false, writing nothing, for any other index.
    bool getVertex(int index, XYZf* out) const;

    /// Moves vertex 0, 1 or 2; false, changing nothing, for any other index.
    bool setVertex(int index, float x, float y, float z);

    /// Whether a ray strikes the facet's front; edges, vertices and an origin on the facet count.
    /// The direction may have any length. Rays along the plane, from the back, or away from the
    /// facet miss and leave hit unchanged; otherwise hit, which must not be null, receives the
    /// point where the ray crosses the facet's plane, inside the facet or not.
    bool isHitBy(XYZf origin, XYZf direction, XYZf* hit) const;

private:
    XYZf vertices[3];
};
