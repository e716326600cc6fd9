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

    std::byte* data() const { return m_memory.get(); }
    std::size_t size() const { return m_allocated; }

private:
    struct Release {
        std::size_t bytes, alignment;
        void operator()(std::byte* block) const;
    };
    std::unique_ptr<std::byte, Release> m_memory{nullptr, Release{0, 0}};
    std::size_t m_allocated = 0;
};

/// An array in a block of its own; its elements are not initialised.
template <typename T>
class LargeArray {
public:
    explicit LargeArray(std::size_t count)
        : m_block(count * sizeof(T)), m_elements(reinterpret_cast<T*>(m_block.data()), count) {}

    T& operator[](std::size_t i) const { return m_elements[i]; }
    T* data() const { return m_elements.data(); }
    std::size_t size() const { return m_elements.size(); }

    /// Forgets the elements from `count` on.
    void shrink(std::size_t count) { m_elements = m_elements.first(count); }

private:
    LargeBlock m_block;
    std::span<T> m_elements;
};

} // namespace insolate
