#include "study/files/toml_file.h"

#include "study/support/errors.h"
#include "study/support/numbers.h"

#include <algorithm>
#include <cstddef>

#include <fmt/format.h>

namespace insolate::study {

namespace {

/// The line's text, without what surrounds it.
std::string_view lineOf(std::string_view text, std::size_t number) {
    for (; number > 1 && text.find('\n') != std::string_view::npos; --number) {
        text.remove_prefix(text.find('\n') + 1);
    }
    return trimmed(text.substr(0, text.find('\n')));
}

/// What is wrong where the parser stopped. Its own words speak of grammar.
std::string syntaxFault(std::string_view line, std::string_view parserSays) {
    if (parserSays.find("redefine") != std::string_view::npos) {
        return fmt::format("{} is given a second time; keep one of the lines",
                           quoteText(trimmed(line.substr(0, line.find('=')))));
    }
    if (parserSays.find("utf-8") != std::string_view::npos) {
        return "the text is not UTF-8; save the file as UTF-8";
    }
    return fmt::format("{} cannot be read; write NAME = VALUE, with texts in quotes ({}), decimals "
                       "as 0.5, true or false, lists as [1, 2]",
                       quoteText(line),
                       line.find('\\') == std::string_view::npos ? "\"6/21\""
                                                                 : "in '...' where they hold a \\");
}

/// Where a text in quotes, which begins at `at`, has ended; npos where it does not.
std::size_t textEnd(std::string_view toml, std::size_t at) {
    const char quote = toml[at];
    const std::string longMark(3, quote);
    const bool isLong = toml.substr(at).starts_with(longMark);
    const std::string_view mark = isLong ? std::string_view(longMark) : toml.substr(at, 1);
    for (std::size_t i = at + mark.size(); i < toml.size(); ++i) {
        if (toml.substr(i).starts_with(mark)) {
            const std::size_t end = i + mark.size();
            // One or two quotes before the mark belong to the text.
            return isLong ? std::min(toml.find_first_not_of(quote, end),
                                     std::min(end + 2, toml.size()))
                          : end;
        }
        if (toml[i] == '\n' && !isLong) {
            return toml.npos;
        }
        i += toml[i] == '\\' && quote == '"' ? 1 : 0;
    }
    return toml.npos;
}

/// Each part of a dotted name (a.b.c) nests a table, which the parser takes apart by recursion:
/// some ten thousand parts would exhaust the stack. Braces nest up to 256 such names.
/// @throws DataError
void refuseDeepNames(std::string_view toml, const std::filesystem::path& file) {
    constexpr int mostParts = 16;
    int parts = 1;
    for (std::size_t i = 0; i < toml.size();) {
        const char c = toml[i];
        if (c == '"' || c == '\'') { // a part of a name, or a value
            i = textEnd(toml, i);    // without an end the parser stops here too
            continue;
        }
        if (c == '#') {
            i = toml.find('\n', i);
            continue;
        }
        if (c == '.' && ++parts > mostParts) {
            const auto line = 1 + std::count(toml.begin(), toml.begin() + std::ptrdiff_t(i), '\n');
            throw DataError(fmt::format("{}: a name has more than {} parts; put names that hold "
                                        "dots in quotes",
                                        place(file, static_cast<std::size_t>(line)), mostParts));
        }
        if (std::string_view("=,[]{}\n").find(c) != std::string_view::npos) {
            parts = 1;
        }
        ++i;
    }
}

} // namespace

toml::table readToml(const std::filesystem::path& file, const InputKind& kind,
                     const std::stop_token& stop) {
    return parseToml(InputFile(file, kind, stop).readAll(), file);
}

toml::table parseToml(const std::string& text, const std::filesystem::path& name) {
    refuseDeepNames(text, name);
    try {
        return toml::parse(text);
    } catch (const toml::parse_error& error) {
        const toml::source_position& at = error.source().begin;
        throw DataError(fmt::format("{}:{}: {}", tomlPlace(name, error.source()), at.column,
                                    syntaxFault(lineOf(text, at.line), error.description())));
    }
}

std::string tomlPlace(const std::filesystem::path& file, const toml::source_region& source) {
    return place(file, static_cast<std::size_t>(source.begin.line));
}

std::optional<std::string> tomlText(const toml::node& value) {
    if (const auto* text = value.as_string()) {
        return text->get();
    }
    if (const auto* number = value.as_integer()) {
        return fmt::format("{}", number->get());
    }
    if (const auto* number = value.as_floating_point()) {
        return fmt::format("{}", number->get());
    }
    if (const auto* flag = value.as_boolean()) {
        return flag->get() ? "true" : "false";
    }
    return std::nullopt;
}

} // namespace insolate::study
