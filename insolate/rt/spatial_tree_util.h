/// Builds the octree that the library's ray queries walk.
#pragma once

#include <insolate/export.h>

namespace RT {

/// Owner of the process-wide octree over the process-wide triangle package.
class INSOLATE_EXPORT SpatialTreeUtil {
public:
    SpatialTreeUtil() = default;
    SpatialTreeUtil(const SpatialTreeUtil&) = default;
    /// Copies nothing: the class has no data.
    SpatialTreeUtil& operator=(const SpatialTreeUtil&) { return *this; }

    /// Frees the previous tree and builds a new one over the triangles that the package holds now.
    /// Subtrees are built in parallel; the call returns when all is done. InputPackageUitl::
    /// InflateBoundingBox should have been called before, so that no triangle lies on the faces of
    /// the scene box. No query may run and the package may not change meanwhile; it must not be
    /// reset or changed while the tree is used, which refers to triangles by their index.
    ///
    /// Time and memory grow with the boxes that each triangle reaches, up to some 4^depth at a
    /// depth of log8 of the number of triangles plus 3: a scene of n triangles, each of which is as
    /// large as the scene, takes n^(5/3) steps (3,000 of them 5 s and 200 MB). Copies of a
    /// triangle, equal to the last bit, count once. OcclusionIndex has no such limit.
    static void GenerateSpatialTree();
};

} // namespace RT
