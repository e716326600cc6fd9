#include "app/cli/study_file.h"

#include "app/cli/arguments.h"
#include "study/files/input_file.h"
#include "study/support/closest_name.h"
#include "study/support/errors.h"
#include "study/support/numbers.h"

#include <algorithm>
#include <array>
#include <optional>
#include <span>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <fmt/format.h>
#include <toml++/toml.h>

namespace insolate::app {

using namespace study;

namespace {

constexpr std::array<std::string_view, 5> fileOptions = {"weather", "scene", "sensors", "masks",
                                                         "out"};

std::optional<std::string> textOf(const toml::node& value) {
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

/// A value that no option takes, in words.
const char* kindOf(const toml::node& value) {
    return value.is_array()     ? "a list of lists"
           : value.is_table()   ? "a table"
           : value.is_boolean() ? "true or false"
                                : "a date or time without quotes";
}

/// Options that make no sense in a study file.
bool isNoKey(const std::string& name) {
    return name == "study" || name == "help";
}

std::string linePlace(const std::filesystem::path& file, const toml::source_region& source) {
    return place(file, static_cast<std::size_t>(source.begin.line));
}

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

toml::table readTable(const std::filesystem::path& file) {
    std::ifstream in = openInput(file, "study file");
    std::ostringstream stream;
    stream << in.rdbuf();
    const std::string text = stream.str();
    try {
        return toml::parse(text);
    } catch (const toml::parse_error& error) {
        const toml::source_position& at = error.source().begin;
        throw DataError(fmt::format("{}:{}: {}", linePlace(file, error.source()), at.column,
                                    syntaxFault(lineOf(text, at.line), error.description())));
    }
}

bool isFlag(const CLI::Option& option) {
    return option.get_expected_max() == 0;
}

/// What the option would say to the value, nothing when it takes it.
std::optional<std::string> refusal(const CLI::App& command, CLI::Option& option,
                                   std::span<const std::string> texts) {
    option.clear();
    for (const std::string& text : texts) {
        option.add_result(text);
    }
    try {
        if (!texts.empty()) {
            option.run_callback();
        }
        return std::nullopt;
    } catch (const CLI::ParseError& error) {
        return parseFailure(command, error);
    }
}

/// Gives the option the values of a key.
/// @throws DataError with the line of the value that it does not take
void giveValues(const CLI::App& command, CLI::Option& option, const toml::node& value,
                const std::string& name, const std::filesystem::path& file) {
    const auto fail = [&](const toml::node& at, const std::string& what) {
        return DataError(fmt::format("{}: {}", linePlace(file, at.source()), what));
    };
    if (isFlag(option) && !value.is_boolean()) {
        throw fail(value, fmt::format("{0} is on or off; write {1} = true or {1} = false",
                                      quoteText(name), printable(name)));
    }
    const bool isFile =
        std::find(fileOptions.begin(), fileOptions.end(), name) != fileOptions.end();
    std::vector<const toml::node*> items;
    std::vector<std::string> texts;
    const auto take = [&](const toml::node& item) {
        std::optional<std::string> text = textOf(item);
        if (!text || (item.is_boolean() && !isFlag(option))) {
            throw fail(item,
                       fmt::format("{} cannot be {}; write {} = VALUE with a text or a number",
                                   quoteText(name), kindOf(item), printable(name)));
        }
        if (isFile && !text->empty()) {
            const std::filesystem::path named = file.parent_path() / *text;
            std::error_code problem; // what may not be searched is told when the file is opened
            if (name != "out" && !std::filesystem::exists(named, problem) && !problem) {
                throw fail(item, fmt::format("{}: {}: no such file; check the name, which counts "
                                             "from the study file's folder",
                                             printable(name), place(named)));
            }
            *text = named.string();
        }
        items.push_back(&item);
        texts.push_back(std::move(*text));
    };
    if (const auto* list = value.as_array()) {
        std::for_each(list->begin(), list->end(), take);
    } else {
        take(value);
    }
    if (texts.size() > 1 && option.get_items_expected_max() == 1) {
        throw fail(value, fmt::format("{} takes one value, not a list; write {} = VALUE",
                                      quoteText(name), printable(name)));
    }
    if (const auto whole = refusal(command, option, texts)) {
        for (std::size_t i = 0; i < items.size(); ++i) {
            if (const auto one = refusal(command, option, std::span(texts).subspan(i, 1))) {
                throw fail(*items[i], *one);
            }
        }
        throw fail(value, *whole);
    }
}

} // namespace

StudyKeys applyStudyFile(CLI::App& command, const std::filesystem::path& file) {
    const toml::table study = readTable(file);
    std::vector<std::string> keys = optionNames(command);
    std::erase_if(keys, isNoKey);
    StudyKeys taken;
    for (const auto& [key, value] : study) {
        const std::string name(key.str());
        const std::string where = linePlace(file, key.source());
        CLI::Option* option = isNoKey(name) ? nullptr : command.get_option_no_throw("--" + name);
        if (option == nullptr) {
            throw DataError(fmt::format("{}: there is no option {}{}; the keys are the options of "
                                        "'insolate {} --help' without their dashes",
                                        where, quoteText(name), didYouMean(name, keys),
                                        command.get_name()));
        }
        if (option->count() == 0) {
            giveValues(command, *option, value, name, file);
            taken["--" + name] = where;
        }
    }
    return taken;
}

void failInStudy(const StudyKeys& keys, const UsageError& error) {
    const std::string text = error.what();
    if (const auto key = keys.find(text.substr(0, text.find_first_of(": "))); key != keys.end()) {
        throw DataError(key->second + ": " + text);
    }
    throw error;
}

} // namespace insolate::app
