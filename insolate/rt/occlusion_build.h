/// Builds an OcclusionIndex's hierarchy.
#pragma once

#include <insolate/rt/occlusion_storage.h>

#include <memory>

namespace insolate {

/// Where the triangles are: p0, p1 and p2, three doubles each, stand one after the other.
struct TriangleSource {
    const std::byte* first = nullptr;
    std::size_t stride = 0; ///< bytes from one triangle to the next
    std::size_t count = 0;

    const double* vertices(std::size_t triangle) const {
        return reinterpret_cast<const double*>(first + triangle * stride);
    }
};

/// Without triangles where a stop came before the end.
std::unique_ptr<const OcclusionIndex::Storage>
buildOcclusionStorage(const TriangleSource& source, const OcclusionIndexOptions& options);

} // namespace insolate
