/// What every target needs: a file in memory with a name that any reader can open, a folder, and
/// promises.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
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

/// A folder of the process's own, for readers that take one.
class Folder {
public:
    Folder() {
        std::string name =
            (std::filesystem::temp_directory_path() / "insolate-fuzz-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            std::perror("folder");
            std::abort();
        }
        m_path = name;
    }
    ~Folder() {
        std::error_code none;
        std::filesystem::remove_all(m_path, none);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    const std::filesystem::path& path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

/// Ends the run with the input kept when a promise does not hold.
inline void require(bool holds, const char* promise) {
    if (!holds) {
        std::fprintf(stderr, "broken promise: %s\n", promise);
        std::abort();
    }
}

/// What the command refuses it refuses with the fix.
inline void requireFix(const std::exception& error) {
    require(std::string(error.what()).find("; ") != std::string::npos, "errors name a fix");
}

} // namespace insolate::fuzz

/// Begins a target: the function that libFuzzer calls, or in the replay one of several.
#ifdef INSOLATE_REPLAY
#define INSOLATE_FUZZ_TARGET(name) static int name
#else
#define INSOLATE_FUZZ_TARGET(name) extern "C" int LLVMFuzzerTestOneInput
#endif
