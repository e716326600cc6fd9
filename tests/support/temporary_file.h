/// A file that lives as long as its test.
#pragma once

#include <atomic>
#include <filesystem>
#include <fstream>
#include <ios>
#include <string>
#include <string_view>

#include <unistd.h>

namespace insolate::test {

/// Holds the bytes given; removed on destruction. Names are unique across parallel test programs.
class TemporaryFile {
public:
    explicit TemporaryFile(std::string_view bytes, const std::string& suffix = "") {
        static std::atomic<int> count{0};
        file =
            std::filesystem::temp_directory_path() /
            ("insolate_test_" + std::to_string(getpid()) + "_" + std::to_string(count++) + suffix);
        std::ofstream out(file, std::ios::binary);
        out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }
    ~TemporaryFile() {
        std::error_code ignored;
        std::filesystem::remove(file, ignored);
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const std::filesystem::path& path() const { return file; }
    std::wstring wideName() const { return file.wstring(); }

private:
    std::filesystem::path file;
};

} // namespace insolate::test
