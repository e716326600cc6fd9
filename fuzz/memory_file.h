/// A file in memory with a name that any reader can open.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

namespace insolate::fuzz {

class MemoryFile {
public:
    MemoryFile(const void* bytes, std::size_t size) : descriptor(memfd_create("input", 0)) {
        if (descriptor < 0 || write(descriptor, bytes, size) != static_cast<ssize_t>(size)) {
            std::perror("memory file");
            std::abort();
        }
    }
    ~MemoryFile() { close(descriptor); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    std::string name() const { return "/proc/self/fd/" + std::to_string(descriptor); }
    std::wstring wideName() const { return L"/proc/self/fd/" + std::to_wstring(descriptor); }

private:
    int descriptor;
};

/// Ends the run with the input kept when a promise does not hold.
inline void require(bool holds, const char* promise) {
    if (!holds) {
        std::fprintf(stderr, "broken promise: %s\n", promise);
        std::abort();
    }
}

} // namespace insolate::fuzz
