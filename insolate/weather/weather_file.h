/// Opening a weather file by its wide name.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

namespace insolate {

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using FileHandle = std::unique_ptr<std::FILE, FileCloser>;

/// Open for reading as bytes; null when the file cannot be opened or is a folder.
FileHandle openWeatherFile(const std::wstring& fileName);

} // namespace insolate
