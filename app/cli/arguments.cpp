#include "app/cli/arguments.h"

#include "study/support/closest_name.h"
#include "study/support/errors.h"
#include "study/support/numbers.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

#include <fmt/format.h>

namespace insolate::app {

using namespace study;

std::string callOf(const CLI::App& command) {
    return command.get_parent() == nullptr
               ? command.get_name()
               : callOf(*command.get_parent()) + " " + command.get_name();
}

namespace {

std::vector<std::string> commandNames(const CLI::App& command) {
    std::vector<std::string> names;
    for (const CLI::App* sub : command.get_subcommands([](const CLI::App*) { return true; })) {
        names.push_back(sub->get_name());
    }
    return names;
}

/// What is wrong with an argument that the command has no use for.
std::string unexpected(const CLI::App& command, const std::string& argument) {
    const std::size_t name = argument.find_first_not_of('-');
    if (name == 0 || name == std::string::npos) {
        const std::vector<std::string> commands = commandNames(command);
        if (commands.empty()) {
            return quoteText(argument) + " was not expected";
        }
        const std::string close = didYouMean(argument, commands);
        return fmt::format(
            "there is no subcommand {}{}", quoteText(argument),
            close.empty() ? fmt::format("; choose from {}", fmt::join(commands, ", ")) : close);
    }
    const std::string option = argument.substr(0, argument.find('='));
    const std::string close = closestName(option.substr(name), optionNames(command));
    return "there is no option " + quoteText(option) +
           (close.empty() ? "" : "; did you mean '--" + close + "'?");
}

} // namespace

CLI::Validator numberCheck(const std::string& wanted) {
    return CLI::Validator(
        [wanted](std::string& text) {
            if (!parseNumber<double>(text)) {
                return fmt::format("{} is no number; give {}", quoteText(text), wanted);
            }
            text = trimmed(text);
            return std::string();
        },
        std::string());
}

CLI::Validator fileNameCheck() {
    return CLI::Validator(
        [](const std::string& text) {
            return text.empty() ? std::string("the name is empty; give one") : std::string();
        },
        std::string());
}

std::vector<std::string> optionNames(const CLI::App& command) {
    std::vector<std::string> names;
    for (const CLI::Option* option : command.get_options()) {
        for (const std::string& name : option->get_lnames()) {
            names.push_back(name);
        }
    }
    return names;
}

std::string parseFailure(const CLI::App& command, const CLI::ParseError& error) {
    std::string text = printable(error.what());
    const std::string name = text.substr(0, text.find(':'));
    const std::vector<std::string> rest = command.remaining();
    const CLI::App* above = command.get_parent();
    if (rest.empty() && above != nullptr && !above->remaining().empty()) {
        const std::string argument = above->remaining().front();
        return command.get_option_no_throw(argument) == nullptr
                   ? fmt::format("{}; see '{} --help'", unexpected(*above, argument),
                                 callOf(*above))
                   : fmt::format("{} belongs behind '{}'", argument, callOf(command));
    }
    if (dynamic_cast<const CLI::ValidationError*>(&error) != nullptr) {
        return text; // the checks above name the fix
    }
    if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr && !rest.empty()) {
        text = unexpected(command, rest.front());
    } else if (dynamic_cast<const CLI::RequiredError*>(&error) != nullptr &&
               !commandNames(command).empty()) {
        text = rest.empty() ? fmt::format("a subcommand is missing; give one of {}",
                                          fmt::join(commandNames(command), ", "))
                            : unexpected(command, rest.front());
    } else if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) {
        if (text.find("missing") != std::string::npos) {
            const CLI::Option* option = command.get_option_no_throw(name);
            text = fmt::format("{}: the value is missing; give {} {}", name, name,
                               option == nullptr ? "VALUE" : option->get_type_name());
        } else if (text.find("At Most 1") != std::string::npos) {
            text = fmt::format("{} is given more than once", name);
        }
    }
    if (text.ends_with('?')) {
        return text;
    }
    return fmt::format("{}; see '{} --help'", text, callOf(command));
}

} // namespace insolate::app
