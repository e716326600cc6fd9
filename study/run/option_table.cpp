#include "study/run/option_table.h"

#include "study/support/numbers.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace insolate::study {

namespace {

template <typename Number>
Number parsed(const std::string& name, const std::string& text, const char* kind,
              const std::string& wanted) {
    const std::optional<Number> number = parseNumber<Number>(text);
    if (!number) {
        const std::string_view digits = trimmed(text);
        const bool isTooLarge =
            !digits.empty() && digits.find_first_not_of("0123456789") == digits.npos;
        throw UsageError(fmt::format("--{}: {} is {}{}; give {}", name, quoteText(text),
                                     isTooLarge ? "too large a " : "no ", kind, wanted));
    }
    return *number;
}

std::string pick(const Option& option, const std::string& text) {
    if (std::find(option.choices.begin(), option.choices.end(), text) == option.choices.end()) {
        throw UsageError(text.starts_with('-')
                             ? fmt::format("--{}: the value is missing; choose from {}",
                                           option.name, fmt::join(option.choices, ", "))
                             : fmt::format("--{}: there is no {}; choose from {}", option.name,
                                           quoteText(text), fmt::join(option.choices, ", ")));
    }
    return text;
}

} // namespace

double numberOf(const std::string& name, const std::string& text, const std::string& wanted) {
    return parsed<double>(name, text, "number", wanted);
}

int wholeNumberOf(const std::string& name, const std::string& text, const std::string& wanted) {
    return parsed<int>(name, text, "whole number", wanted);
}

std::size_t countOf(const std::string& name, const std::string& text, const std::string& wanted) {
    return parsed<std::size_t>(name, text, "number from 0", wanted);
}

Option& OptionTable::add(Option option) {
    return m_options.emplace_back(std::move(option));
}

Option& OptionTable::flag(std::string name, bool& value, std::string help) {
    return add({.name = name,
                .kind = Option::Kind::flag,
                .help = std::move(help),
                .take = [&value, name](const std::string& text) {
                    if (text != "true" && text != "false") { // by a host; others know no such text
                        throw UsageError(fmt::format("--{}: {} is neither true nor false", name,
                                                     quoteText(text)));
                    }
                    value = text == "true";
                }});
}

Option& OptionTable::text(std::string name, std::string& value, std::string typeName,
                          std::string help) {
    return add({.name = std::move(name),
                .help = std::move(help),
                .typeName = std::move(typeName),
                .usual = value,
                .take = [&value](const std::string& text) { value = text; }});
}

Option& OptionTable::number(std::string name, double& value, std::string typeName, std::string help,
                            const std::string& wanted) {
    return add({.name = name,
                .help = std::move(help),
                .typeName = std::move(typeName),
                .usual = fmt::format("{}", value),
                .take = [&value, name, wanted](const std::string& text) {
                    value = numberOf(name, text, wanted);
                }});
}

Option& OptionTable::number(std::string name, std::optional<double>& value, std::string typeName,
                            std::string help, const std::string& wanted) {
    return add({.name = name,
                .help = std::move(help),
                .typeName = std::move(typeName),
                .take = [&value, name, wanted](const std::string& text) {
                    value = numberOf(name, text, wanted);
                }});
}

Option& OptionTable::wholeNumber(std::string name, int& value, std::string typeName,
                                 std::string help, const std::string& wanted) {
    return add({.name = name,
                .help = std::move(help),
                .typeName = std::move(typeName),
                .usual = fmt::format("{}", value),
                .take = [&value, name, wanted](const std::string& text) {
                    value = wholeNumberOf(name, text, wanted);
                }});
}

Option& OptionTable::file(std::string name, std::filesystem::path& value, std::string help) {
    return add({.name = name,
                .help = std::move(help),
                .typeName = "FILE",
                .path = Option::Path::input,
                .take = [&value, name](const std::string& text) {
                    if (text.empty()) { // a shell's unset variable is no wish for the default
                        throw UsageError(fmt::format("--{}: the name is empty; give one", name));
                    }
                    value = text;
                }});
}

void OptionTable::noteTexts(std::string_view name, std::map<std::string, std::string>& asked) {
    for (Option& option : m_options) {
        if (option.name == name) {
            option.take = [&asked, name = option.name,
                           take = std::move(option.take)](const std::string& text) {
                take(text);
                asked[name] += text + '\n';
            };
        }
    }
}

const Option* OptionTable::find(std::string_view name) const {
    const auto found = std::find_if(m_options.begin(), m_options.end(),
                                    [&](const Option& option) { return option.name == name; });
    return found == m_options.end() ? nullptr : &*found;
}

std::vector<std::string> OptionTable::names() const {
    std::vector<std::string> names;
    names.reserve(m_options.size());
    for (const Option& option : m_options) {
        names.push_back(option.name);
    }
    return names;
}

void OptionTable::give(const Option& option, std::span<const std::string> values) {
    for (const std::string& value : values) {
        std::size_t begin = 0;
        for (;;) {
            const std::size_t end =
                option.separator == '\0' ? value.npos : value.find(option.separator, begin);
            const std::string one = value.substr(begin, end - begin);
            option.take(option.choices.empty() ? one : pick(option, one));
            if (end == value.npos) {
                break;
            }
            begin = end + 1;
        }
    }
}

} // namespace insolate::study
