#include "study/files/result_name.h"

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <system_error>

namespace insolate::study {

namespace {

std::string bytesOf(const std::filesystem::path& file, std::size_t size, bool fromEnd) {
    std::error_code problem;
    // Opening a pipe would wait for somebody to write into it.
    if (!std::filesystem::is_regular_file(file, problem)) {
        return {};
    }
    const std::uintmax_t length = std::filesystem::file_size(file, problem);
    std::string bytes(
        problem ? 0 : static_cast<std::size_t>(std::min<std::uintmax_t>(length, size)), '\0');
    std::ifstream in(file, std::ios::binary);
    if (fromEnd) {
        in.seekg(static_cast<std::streamoff>(length - bytes.size()));
    }
    in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    bytes.resize(static_cast<std::size_t>(std::max<std::streamsize>(in.gcount(), 0)));
    return bytes;
}

} // namespace

std::string fileBeginning(const std::filesystem::path& file, std::size_t size) {
    return bytesOf(file, size, false);
}

std::string fileEnd(const std::filesystem::path& file, std::size_t size) {
    return bytesOf(file, size, true);
}

} // namespace insolate::study
