/// Memory for the octree's millions of small pieces.
#pragma once

#include <oneapi/tbb/enumerable_thread_specific.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace insolate {

/// Where a piece lies in a TreeMemory: four bytes instead of a pointer's eight.
using TreeReference = std::uint32_t;

class TreeMemory;

/// One thread's share of the memory.
class TreeArena {
public:
    /// Uninitialised room, aligned to 8 bytes. Throws std::bad_alloc only: also beyond the 32 GB
    /// that references reach.
    TreeReference take(TreeMemory& memory, std::size_t bytes);

    /// Bytes for the thread's passing use.
    std::vector<std::uint8_t> scratch;

private:
    TreeReference m_next = 0;
    std::size_t m_left = 0; ///< units
};

/// Blocks of a megabyte that are given back as a whole. Pieces are added by the arenas of several
/// threads at once and read by whoever got to know their reference.
class TreeMemory {
public:
    TreeMemory();
    TreeMemory(const TreeMemory&) = delete;
    TreeMemory& operator=(const TreeMemory&) = delete;

    template <class T>
    T* at(TreeReference reference) const {
        return reinterpret_cast<T*>(m_table[reference >> blockBits] +
                                    (reference & (blockUnits - 1U)) * unit);
    }

    /// The arena of the calling thread.
    TreeArena& arena() { return m_arenas.local(); }

private:
    friend class TreeArena;

    static constexpr std::size_t unit = 8;
    static constexpr unsigned blockBits = 17;
    static constexpr std::size_t blockUnits = std::size_t{1} << blockBits;
    static constexpr std::size_t maxBlocks = std::size_t{1} << (32U - blockBits);

    /// A run of blocks, one after another; the last may be cut short.
    TreeReference addBlocks(std::size_t units);

    std::mutex m_mutex;
    std::vector<std::byte*> m_table; ///< of full length from the start: readers need no lock
    std::vector<std::unique_ptr<std::byte[]>> m_runs;
    std::size_t m_used = 0; ///< entries of table
    tbb::enumerable_thread_specific<TreeArena> m_arenas;
};

} // namespace insolate
