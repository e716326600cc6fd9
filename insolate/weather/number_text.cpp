#include <insolate/weather/number_text.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <limits>

namespace insolate {
namespace {

constexpr bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

// Drops leading white space and one sign; true when it was a minus.
bool takeSign(std::string_view& text) {
    std::size_t start = 0;
    while (start < text.size() && isWhiteSpace(text[start])) {
        ++start;
    }
    const bool negative = start < text.size() && text[start] == '-';
    if (negative || (start < text.size() && text[start] == '+')) {
        ++start;
    }
    text.remove_prefix(start);
    return negative;
}

// Powers of ten that a double holds exactly.
constexpr double exactPowersOfTen[] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                       1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};

// The decimal number's order of magnitude decides what std::from_chars leaves open when the
// value fits no double: whether it was too large or too small.
double beyondRange(std::string_view text) {
    long order = 0;
    bool afterPoint = false;
    bool significant = false;
    std::size_t at = 0;
    for (; at < text.size() && (isDigit(text[at]) || (text[at] == '.' && !afterPoint)); ++at) {
        if (text[at] == '.') {
            afterPoint = true;
            continue;
        }
        significant = significant || text[at] != '0';
        if (significant && !afterPoint) {
            ++order;
        } else if (!significant && afterPoint) {
            --order;
        }
    }
    std::int32_t exponent = 0;
    if (at < text.size() && (text[at] == 'e' || text[at] == 'E')) {
        text.remove_prefix(at + 1);
        const bool negative = takeSign(text);
        long magnitude = 0;
        for (std::size_t digit = 0; digit < text.size() && isDigit(text[digit]); ++digit) {
            magnitude = std::min(magnitude * 10 + (text[digit] - '0'), 1000000L);
        }
        exponent = static_cast<std::int32_t>(negative ? -magnitude : magnitude);
    }
    return order + exponent > 0 ? std::numeric_limits<double>::infinity() : 0.0;
}

} // namespace

std::int32_t leadingInteger(std::string_view text) {
    constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
    const bool negative = takeSign(text);
    std::int64_t value = 0;
    for (const char character : text) {
        if (!isDigit(character)) {
            break;
        }
        const int digit = character - '0';
        if (value > (largest - digit) / 10) {
            return static_cast<std::int32_t>(negative ? std::numeric_limits<std::int64_t>::min()
                                                      : largest);
        }
        value = value * 10 + digit;
    }
    return static_cast<std::int32_t>(negative ? -value : value);
}

double leadingDecimal(std::string_view text) {
    const bool negative = takeSign(text);
    // Up to 15 digits over an exact power of ten: one rounding, hence the nearest double (Clinger
    // 1990, How to read floating point numbers accurately). Nearly every number of a weather file.
    std::int64_t digits = 0;
    std::size_t digitCount = 0;
    std::size_t decimals = 0;
    std::size_t at = 0;
    bool afterPoint = false;
    for (; at < text.size(); ++at) {
        if (isDigit(text[at])) {
            if (++digitCount > 15) {
                break;
            }
            digits = digits * 10 + (text[at] - '0');
            decimals += afterPoint ? 1 : 0;
        } else if (text[at] == '.' && !afterPoint) {
            afterPoint = true;
        } else {
            break;
        }
    }
    if (digitCount == 0) {
        return 0.0;
    }
    double value = 0.0;
    const bool simple =
        digitCount <= 15 && (at == text.size() || (text[at] != 'e' && text[at] != 'E'));
    if (simple) {
        value = static_cast<double>(digits) / exactPowersOfTen[decimals];
    } else {
        const char* end = text.data() + text.size();
        if (std::from_chars(text.data(), end, value).ec == std::errc::result_out_of_range) {
            value = beyondRange(text);
        }
    }
    return negative ? -value : value;
}

} // namespace insolate
