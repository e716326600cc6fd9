/// Files that the user names, opened or refused.
#pragma once

#include "study/support/errors.h"

#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>

#include <fmt/format.h>

namespace insolate::study {

/// @param what the kind of file in messages, "weather file"
/// @throws DataError when there is no such file or it may not be read
inline std::ifstream openInput(const std::filesystem::path& file, std::string_view what) {
    std::error_code ignored;
    if (!std::filesystem::exists(file, ignored)) {
        throw DataError(
            fmt::format("{}: no such file; check the name of the {}", place(file), what));
    }
    std::ifstream in(file, std::ios::binary);
    if (!in || std::filesystem::is_directory(file, ignored)) {
        throw DataError(
            fmt::format("{}: cannot be read; give a {} that you may open", place(file), what));
    }
    // The byte order mark of UTF-16, with which no file begins that is read here.
    const int first = in.get();
    const int second = in.peek();
    if ((first == 0xFF && second == 0xFE) || (first == 0xFE && second == 0xFF)) {
        throw DataError(
            fmt::format("{}: the text is UTF-16; save the {} as UTF-8", place(file), what));
    }
    in.clear(); // of the end of an empty file
    if (first != std::ifstream::traits_type::eof()) {
        in.unget();
    }
    return in;
}

} // namespace insolate::study
