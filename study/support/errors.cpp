#include "study/support/errors.h"

#include "study/support/numbers.h"

#include <fmt/format.h>

namespace insolate::study {

std::string printable(std::string_view text) {
    std::string result(text);
    for (char& c : result) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20U || byte == 0x7FU) {
            c = '?';
        }
    }
    return result;
}

std::string place(const std::filesystem::path& file) {
    return printable(file.string());
}

std::string place(const std::filesystem::path& file, std::size_t line) {
    return line == 0 ? place(file) : fmt::format("{}:{}", place(file), line);
}

namespace {

std::string cutWhenLong(std::string_view text, std::size_t longest) {
    return text.size() <= longest ? printable(text) : printable(text.substr(0, longest)) + "...";
}

} // namespace

std::string quoteText(std::string_view text) {
    return "'" + cutWhenLong(text, 60) + "'";
}

std::string foreignReason(std::string_view text) {
    return cutWhenLong(trimmed(text), 300);
}

} // namespace insolate::study
