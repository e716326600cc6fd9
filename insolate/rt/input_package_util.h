/// Feeds the scene's obstructing triangles to the ray caster.
#pragma once

#include <insolate/export.h>

namespace RT {

/// Fills the process-wide triangle package; there is one scene per process.
///
/// Usual order: ResetInputPackage, AddTriangles (once or many times), InflateBoundingBox once, then
/// SpatialTreeUtil::GenerateSpatialTree. Triangles added later are seen by rays only after the tree
/// was generated again. One thread prepares the scene: no operation may run while another one, the
/// tree's generation or a ray query runs. The spelling of the class name is part of the interface.
class INSOLATE_EXPORT InputPackageUitl {
public:
    InputPackageUitl() = default;
    InputPackageUitl(const InputPackageUitl&) = default;
    /// Copies nothing: the class has no data.
    InputPackageUitl& operator=(const InputPackageUitl&) { return *this; }

    /// Adds one triangle [model units]. Triangles without area are kept and never hit.
    static void AddTriangle(double x0, double y0, double z0, double x1, double y1, double z1,
                            double x2, double y2, double z2);

    /// Adds count / 9 triangles, each as x, y, z of its three vertices. count is the number of
    /// doubles; nothing happens when it is not positive or not a multiple of 9, or when coordinates
    /// is null.
    static void AddTriangles(double* coordinates, int count);

    /// Moves every face of the scene box outwards by 1 model unit, so that geometry on the faces
    /// lies strictly inside. Every call inflates again.
    static void InflateBoundingBox();

    /// Releases all triangles. The scene box stays as it is: a later scene's box also encloses the
    /// earlier one. The tree stays too and must not be used until it is generated again.
    static void ResetInputPackage();
};

} // namespace RT
