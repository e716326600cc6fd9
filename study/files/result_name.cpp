#include "study/files/result_name.h"

#include "study/files/input_file.h"

#include <algorithm>
#include <cstdint>
#include <limits>

namespace insolate::study {

namespace {

constexpr InputKind foundFile = {
    .name = "result", .mostBytes = std::numeric_limits<std::uintmax_t>::max(), .isText = false};

std::string bytesOf(const std::filesystem::path& file, std::size_t size, bool fromEnd) {
    const auto in = InputFile::ifReadable(file, foundFile);
    if (in == nullptr) {
        return {};
    }
    std::string bytes(static_cast<std::size_t>(std::min<std::uintmax_t>(in->size(), size)), '\0');
    if (fromEnd) {
        in->seek(in->size() - bytes.size());
    }
    bytes.resize(in->read(bytes));
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
