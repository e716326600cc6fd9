#include <insolate/rt/tree_memory.h>

#include <new>

namespace insolate {

TreeReference TreeArena::take(TreeMemory& memory, std::size_t bytes) {
    const std::size_t units = (bytes + TreeMemory::unit - 1) / TreeMemory::unit;
    if (units > left) {
        if (units >
            TreeMemory::blockUnits / 8) { // a run of its own, the current block stays in use
            return memory.addBlocks(units);
        }
        next = memory.addBlocks(TreeMemory::blockUnits);
        left = TreeMemory::blockUnits;
    }
    const TreeReference result = next;
    next += static_cast<TreeReference>(units);
    left -= units;
    return result;
}

TreeMemory::TreeMemory() : table(maxBlocks) {}

TreeReference TreeMemory::addBlocks(std::size_t units) {
    const std::size_t blocks = (units + blockUnits - 1) / blockUnits;
    const std::lock_guard lock(mutex);
    if (blocks > maxBlocks - used) {
        throw std::bad_alloc();
    }
    runs.push_back(std::make_unique_for_overwrite<std::byte[]>(units * unit));
    const auto first = static_cast<TreeReference>(used << blockBits);
    for (std::size_t block = 0; block < blocks; ++block) {
        table[used++] = runs.back().get() + block * blockUnits * unit;
    }
    return first;
}

} // namespace insolate
