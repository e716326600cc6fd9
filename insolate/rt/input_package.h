/// The triangles of the scene: one package per process.
#pragma once

#include <insolate/rt/triangle.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace insolate {

/// Hands out mailboxes from large blocks that never move; all are given back at once.
class MailboxPool {
public:
    /// A mailbox of one entry per processor, each noRay. Throws std::bad_alloc only.
    std::span<std::uint32_t> take();

    /// Frees every mailbox handed out.
    void clear();

private:
    std::vector<std::unique_ptr<std::uint32_t[]>> m_blocks;
    std::size_t m_taken = 0; ///< mailboxes handed out from the last block
};

} // namespace insolate

namespace RT {

/// Triangles in the order added (an index is a triangle's identity everywhere) and the box of every
/// triangle that was ever added.
struct InputPackage {
    std::int32_t triangleCount = 0; ///< since the last reset
    std::vector<Triangle> triangles;
    insolate::Vector3d boxMin{insolate::emptyBoxMin, insolate::emptyBoxMin, insolate::emptyBoxMin};
    insolate::Vector3d boxMax{insolate::emptyBoxMax, insolate::emptyBoxMax, insolate::emptyBoxMax};
    insolate::MailboxPool mailboxes; ///< storage of the triangles' mailboxes

    /// The package of this process.
    static InputPackage& instance();
};

} // namespace RT
