#include "study/support/fields.h"

#include "study/support/numbers.h"

#include <cstddef>

namespace insolate::study {

namespace {

/// The quote that closes the one at `open`; npos when there is none.
std::size_t closingQuote(std::string_view text, std::size_t open) {
    std::size_t quote = text.find('"', open + 1);
    // Two quotes between quotes belong to the text.
    while (quote != text.npos && text.substr(quote + 1).starts_with('"')) {
        quote = text.find('"', quote + 2);
    }
    return quote;
}

/// Where the field at the line's beginning ends.
std::size_t fieldEnd(std::string_view line, std::string_view separators) {
    const std::size_t first = line.find_first_not_of(' ');
    const std::size_t from =
        first != line.npos && line[first] == '"' ? closingQuote(line, first) : 0;
    return from == line.npos ? line.npos : line.find_first_of(separators, from);
}

} // namespace

void splitFields(std::string_view line, std::string_view separators,
                 std::vector<std::string_view>& fields) {
    constexpr std::string_view blanks = " \t";
    const bool byBlanks = separators.find(' ') != separators.npos;
    fields.clear();
    for (;;) {
        const std::size_t end = fieldEnd(line, separators);
        fields.push_back(trimmed(line.substr(0, end)));
        if (end == line.npos) {
            return;
        }
        const std::size_t next = byBlanks ? line.find_first_not_of(blanks, end) : end + 1;
        line.remove_prefix(next == line.npos ? line.size() : next);
    }
}

bool hasClosedQuotes(std::string_view field) {
    return !field.starts_with('"') || closingQuote(field, 0) + 1 == field.size();
}

std::string unquoted(std::string_view field) {
    if (field.size() < 2 || field.front() != '"' || field.back() != '"') {
        return std::string(field);
    }
    std::string text;
    for (std::size_t i = 1; i + 1 < field.size(); ++i) {
        text += field[i];
        i += field[i] == '"' && i + 2 < field.size() && field[i + 1] == '"' ? 1 : 0;
    }
    return text;
}

} // namespace insolate::study
