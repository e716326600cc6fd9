#include <insolate/platform/large_block.h>

#include <cstdint>
#include <new>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace insolate {

namespace {

constexpr std::size_t cacheLine = 64;
constexpr std::size_t largePage = std::size_t{2} << 20U;

/// Below this a large page would be mostly empty.
constexpr std::size_t smallestOnLargePages = largePage / 4;

#if defined(__linux__)

/// Fresh pages from the system: those that the heap has handed out before stay small.
std::byte* mapLargePages(std::size_t bytes) {
    void* mapped = mmap(nullptr, bytes + largePage, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED) {
        throw std::bad_alloc();
    }
    auto* first = static_cast<std::byte*>(mapped);
    const std::size_t before =
        (largePage - reinterpret_cast<std::uintptr_t>(first) % largePage) % largePage;
    if (before != 0) {
        munmap(first, before);
    }
    munmap(first + before + bytes, largePage - before);
    // A refusal costs nothing but speed.
    static_cast<void>(madvise(first + before, bytes, MADV_HUGEPAGE));
    return first + before;
}

#endif

} // namespace

LargeBlock::LargeBlock(std::size_t bytes) {
    if (bytes > SIZE_MAX - 2 * largePage) { // rounded up it would wrap
        throw std::bad_alloc();
    }
    const std::size_t alignment = bytes < smallestOnLargePages ? cacheLine : largePage;
    m_allocated = (bytes + alignment - 1) / alignment * alignment;
#if defined(__linux__)
    if (alignment == largePage) {
        m_memory = {mapLargePages(m_allocated), Release{m_allocated, alignment}};
        return;
    }
#endif
    m_memory = {static_cast<std::byte*>(::operator new(m_allocated, std::align_val_t(alignment))),
                Release{m_allocated, alignment}};
}

void LargeBlock::Release::operator()(std::byte* block) const {
#if defined(__linux__)
    if (alignment == largePage) {
        munmap(block, bytes);
        return;
    }
#endif
    ::operator delete(block, std::align_val_t(alignment));
}

} // namespace insolate
