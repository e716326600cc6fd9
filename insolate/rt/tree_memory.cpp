#include <insolate/rt/tree_memory.h>

#include <new>

namespace insolate {

TreeReference TreeArena::take(TreeMemory& memory, std::size_t bytes) {
    const std::size_t units = (bytes + TreeMemory::unit - 1) / TreeMemory::unit;
    if (units > m_left) {
        if (units >
            TreeMemory::blockUnits / 8) { // a run of its own, the current block stays in use
            return memory.addBlocks(units);
        }
        m_next = memory.addBlocks(TreeMemory::blockUnits);
        m_left = TreeMemory::blockUnits;
    }
    const TreeReference result = m_next;
    m_next += static_cast<TreeReference>(units);
    m_left -= units;
    return result;
}

TreeMemory::TreeMemory() : m_table(maxBlocks) {}

TreeReference TreeMemory::addBlocks(std::size_t units) {
    const std::size_t blocks = (units + blockUnits - 1) / blockUnits;
    const std::lock_guard lock(m_mutex);
    if (blocks > maxBlocks - m_used) {
        throw std::bad_alloc();
    }
    m_runs.push_back(std::make_unique_for_overwrite<std::byte[]>(units * unit));
    const auto first = static_cast<TreeReference>(m_used << blockBits);
    for (std::size_t block = 0; block < blocks; ++block) {
        m_table[m_used++] = m_runs.back().get() + block * blockUnits * unit;
    }
    return first;
}

} // namespace insolate
