/// Triangles that lie in one plane, put together to the polygons that they were cut from.
#pragma once

#include "study/export.h"

#include "study/model/mesh.h"

#include <cstddef>
#include <cstdint>
#include <stop_token>
#include <vector>

namespace insolate::study {

struct MergedMesh {
    Mesh mesh;
    std::vector<std::uint32_t> firstFace; ///< by face: the first of the faces that it is made of
    std::size_t triangles = 0;            ///< of the source that went into larger faces
};

/// Puts neighbouring triangles of one object, group and material to one polygon where they lie in
/// one plane, so that a triangulated model is cut into the cells of its polygon model. Holes are
/// bridged. What makes no such polygon stays triangles, and other polygons stay as they are. Each
/// face stands where the first of its triangles stood.
///
/// A triangle lies in the plane of others when its corners are off it by no more than a millionth
/// of the model's extent, and its normal by no more than a tenth of a degree and what that
/// millionth explains of a narrow one.
/// @throws Stopped
INSOLATE_STUDY_EXPORT MergedMesh mergeCoplanarTriangles(const Mesh& mesh,
                                                        const std::stop_token& stop = {});

} // namespace insolate::study
