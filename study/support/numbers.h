/// Numbers and letters in text, taken without regard to the locale; angles in radians; sums of what
/// is there.
#pragma once

#include <charconv>
#include <cmath>
#include <numbers>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace insolate::study {

inline constexpr double radiansPerDegree = std::numbers::pi / 180.0;

/// Sum and count of the values that are there, which not-a-number is not.
struct FiniteSum {
    double sum = 0.0;
    int count = 0;

    void add(float value) {
        if (std::isfinite(value)) {
            sum += static_cast<double>(value);
            ++count;
        }
    }
};

/// In small letters, of ASCII's.
inline std::string lowered(std::string_view text) {
    std::string result(text);
    for (char& c : result) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return result;
}

inline std::string_view trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t\r\n\v\f";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

/// The number that the whole text is, blanks around it aside; nothing when it is anything else.
/// "nan" and "inf" are numbers here: who needs a finite one asks for it.
template <typename Number>
std::optional<Number> parseNumber(std::string_view text) {
    text = trimmed(text);
    if (text.size() > 1 && text.front() == '+' && text[1] != '-' && text[1] != '+') {
        text.remove_prefix(1);
    }
    Number value{};
    const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (problem != std::errc() || end != text.data() + text.size() || text.empty()) {
        return std::nullopt;
    }
    return value;
}

} // namespace insolate::study
