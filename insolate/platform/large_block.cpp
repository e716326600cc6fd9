#include <insolate/platform/large_block.h>

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

} // namespace

LargeBlock::LargeBlock(std::size_t bytes) {
    const std::size_t alignment = bytes < smallestOnLargePages ? cacheLine : largePage;
    allocated = (bytes + alignment - 1) / alignment * alignment;
    memory = {static_cast<std::byte*>(::operator new(allocated, std::align_val_t(alignment))),
              Release{alignment}};
#if defined(__linux__)
    if (alignment == largePage) {
        // A refusal costs nothing but speed.
        static_cast<void>(madvise(memory.get(), allocated, MADV_HUGEPAGE));
    }
#endif
}

void LargeBlock::Release::operator()(std::byte* block) const {
    ::operator delete(block, std::align_val_t(alignment));
}

} // namespace insolate
