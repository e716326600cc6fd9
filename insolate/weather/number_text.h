/// Numbers in text and their way into 16-bit fields, defined for every input.
#pragma once

#include <cstdint>
#include <string_view>

namespace insolate {

/// White space of the C locale, whatever locale the host has set.
constexpr bool isWhiteSpace(char character) {
    return character == ' ' || (character >= '\t' && character <= '\r');
}

/// The leading whole number of a text after white space and a sign; 0 when there is none. A number
/// beyond 64 bits is held at the limit before the low 32 bits are taken.
std::int32_t leadingInteger(std::string_view text);

/// The leading decimal number of a text, correctly rounded, with a point whatever the locale; 0
/// when there is none. Words such as "nan" and "inf" are not numbers. Infinite when too large.
double leadingDecimal(std::string_view text);

/// The low 16 bits.
constexpr std::int16_t toField(std::int32_t value) {
    return static_cast<std::int16_t>(value);
}

/// Truncated toward zero, then the low 16 bits; 0 for what 32 bits cannot hold, NaN included.
constexpr std::int16_t toField(double value) {
    return value > -2147483649.0 && value < 2147483648.0 ? toField(static_cast<std::int32_t>(value))
                                                         : std::int16_t{0};
}

constexpr std::int16_t toField(float value) {
    return toField(static_cast<double>(value));
}

} // namespace insolate
