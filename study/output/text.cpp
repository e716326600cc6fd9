#include "study/output/text.h"

#include "study/support/utf8.h"

#include <cstddef>

namespace insolate::study {

namespace {

constexpr std::string_view replacement = "\xEF\xBF\xBD";

bool isForbiddenControl(char c) {
    const auto code = static_cast<unsigned char>(c);
    return (code < 0x20 && c != '\t' && c != '\n' && c != '\r') || code == 0x7F;
}

} // namespace

std::string validText(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const std::size_t length = utf8Length(text);
        const std::string_view sequence = text.substr(0, length == 0 ? 1 : length);
        // XML 1.0, production 2, leaves out U+FFFE and U+FFFF as well.
        const bool nonCharacter = sequence == "\xEF\xBF\xBE" || sequence == "\xEF\xBF\xBF";
        if (length == 0 || nonCharacter || (length == 1 && isForbiddenControl(text.front()))) {
            result += replacement;
        } else {
            result += sequence;
        }
        text.remove_prefix(sequence.size());
    }
    return result;
}

std::string csvField(std::string_view text) {
    std::string field;
    // A spreadsheet runs a field that starts with one of these as a formula.
    if (text.find_first_of("=+-@\t\r") == 0) {
        field += '\'';
    }
    field += text;
    if (field.find_first_of(",\"\r\n") == std::string::npos) {
        return field;
    }
    std::string quoted = "\"";
    for (const char c : field) {
        if (c == '"') {
            quoted += '"';
        }
        quoted += c;
    }
    return quoted + '"';
}

std::string csvHeading(const ResultColumn& column) {
    return csvField(column.unit.empty() ? column.name : column.name + " [" + column.unit + "]");
}

std::string xmlText(std::string_view text) {
    std::string result;
    for (const char c : validText(text)) {
        switch (c) {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '"':
            result += "&quot;";
            break;
        case '\t':
        case '\n':
        case '\r':
            // Written plainly inside an attribute, a parser would turn these into spaces.
            result += "&#" + std::to_string(static_cast<int>(c)) + ';';
            break;
        default:
            result += c;
        }
    }
    return result;
}

} // namespace insolate::study
