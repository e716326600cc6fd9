#include "app/cli/study_file.h"

#include "app/cli/arguments.h"
#include "app/closest_name.h"
#include "app/errors.h"
#include "app/input/input_file.h"

#include <algorithm>
#include <array>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <fmt/format.h>
#include <toml++/toml.h>

namespace insolate::app {

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

/// Options that make no sense in a study file.
bool isNoKey(const std::string& name) {
    return name == "study" || name == "help";
}

std::string linePlace(const std::filesystem::path& file, const toml::source_region& source) {
    return place(file, static_cast<std::size_t>(source.begin.line));
}

toml::table readTable(const std::filesystem::path& file) {
    std::ifstream in = openInput(file, "study file");
    std::ostringstream text;
    text << in.rdbuf();
    try {
        return toml::parse(text.str());
    } catch (const toml::parse_error& error) {
        throw DataError(fmt::format("{}: {}; mend the line (study files are TOML)",
                                    linePlace(file, error.source()),
                                    printable(error.description())));
    }
}

} // namespace

void applyStudyFile(CLI::App& command, const std::filesystem::path& file) {
    const toml::table study = readTable(file);
    std::vector<std::string> keys = optionNames(command);
    std::erase_if(keys, isNoKey);
    for (const auto& [key, value] : study) {
        const std::string name(key.str());
        const std::string where = linePlace(file, value.source());
        CLI::Option* option = isNoKey(name) ? nullptr : command.get_option_no_throw("--" + name);
        if (option == nullptr) {
            throw DataError(fmt::format("{}: there is no option {}{}; the keys are the options of "
                                        "'insolate {} --help' without their dashes",
                                        where, quoteText(name), didYouMean(name, keys),
                                        command.get_name()));
        }
        if (option->count() > 0) {
            continue;
        }
        std::vector<const toml::node*> items;
        if (const auto* list = value.as_array()) {
            for (const toml::node& item : *list) {
                items.push_back(&item);
            }
        } else {
            items.push_back(&value);
        }
        const bool isFile =
            std::find(fileOptions.begin(), fileOptions.end(), name) != fileOptions.end();
        for (const toml::node* item : items) {
            std::optional<std::string> text = textOf(*item);
            if (!text) {
                throw DataError(fmt::format("{}: {} must be a text, a number, true or false, or a "
                                            "list of them; write it as {} = VALUE",
                                            where, quoteText(name), printable(name)));
            }
            if (isFile && !text->empty()) {
                *text = (file.parent_path() / *text).string();
            }
            option->add_result(*text);
        }
        try {
            if (option->count() > 0) {
                option->run_callback();
            }
        } catch (const CLI::ParseError& error) {
            throw DataError(fmt::format("{}: {}", where, parseFailure(command, error)));
        }
    }
}

} // namespace insolate::app
