/// Memory for large arrays that are read in random order.
#pragma once

#include <cstddef>
#include <memory>
#include <span>

namespace insolate {

/// Uninitialised memory, aligned to 64 bytes at least. Where the system has larger pages, large
/// blocks are put on them: a page table walk costs a random read more than the read itself.
class LargeBlock {
public:
    LargeBlock() = default; ///< of no bytes

    /// Throws std::bad_alloc only.
    explicit LargeBlock(std::size_t bytes);

    std::byte* data() const { return memory.get(); }
    std::size_t size() const { return allocated; }

private:
    struct Release {
        std::size_t bytes, alignment;
        void operator()(std::byte* block) const;
    };
    std::unique_ptr<std::byte, Release> memory{nullptr, Release{0, 0}};
    std::size_t allocated = 0;
};

/// An array in a block of its own; its elements are not initialised.
template <typename T>
class LargeArray {
public:
    explicit LargeArray(std::size_t count)
        : block(count * sizeof(T)), elements(reinterpret_cast<T*>(block.data()), count) {}

    T& operator[](std::size_t i) const { return elements[i]; }
    T* data() const { return elements.data(); }
    std::size_t size() const { return elements.size(); }

    /// Forgets the elements from `count` on.
    void shrink(std::size_t count) { elements = elements.first(count); }

private:
    LargeBlock block;
    std::span<T> elements;
};

} // namespace insolate
