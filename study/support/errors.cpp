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
    return file.empty() ? "''" : printable(file.string());
}

std::string place(const std::filesystem::path& file, std::size_t line) {
    return line == 0 ? place(file) : fmt::format("{}:{}", place(file), line);
}

namespace {

std::string cutWhenLong(std::string_view text, std::size_t longest) {
    if (text.size() <= longest) {
        return printable(text);
    }
    // A character of several bytes stays whole: all but its first begin with the bits 10.
    std::size_t end = longest;
    while (end > longest - 3 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U) {
        --end;
    }
    return printable(text.substr(0, end)) + "...";
}

} // namespace

std::string quoteText(std::string_view text) {
    return "'" + cutWhenLong(text, 60) + "'";
}

std::string foreignReason(std::string_view text) {
    return cutWhenLong(trimmed(text), 300);
}

} // namespace insolate::study
