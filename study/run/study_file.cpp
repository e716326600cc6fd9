#include "study/run/study_file.h"

#include "study/files/toml_file.h"
#include "study/run/run_option_table.h"
#include "study/run/study_batch.h"
#include "study/support/closest_name.h"
#include "study/support/errors.h"
#include "study/support/numbers.h"

#include <algorithm>
#include <array>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace insolate::study {

namespace {

/// A value that no option takes, in words.
const char* kindOf(const toml::node& value) {
    return value.is_array()     ? "a list of lists"
           : value.is_table()   ? "a table"
           : value.is_boolean() ? "true or false"
                                : "a date or time without quotes";
}

/// The value's texts, each with the node that it stands in.
/// @throws DataError with the line of what the option cannot take
std::vector<std::pair<const toml::node*, std::string>>
textsOf(const Option& option, const toml::node& value, const std::filesystem::path& file) {
    const auto fail = [&](const toml::node& at, const std::string& what) {
        return DataError(fmt::format("{}: {}", tomlPlace(file, at.source()), what));
    };
    const std::string& name = option.name;
    const bool isFlag = option.kind == Option::Kind::flag;
    if (isFlag && !value.is_boolean()) {
        throw fail(value, fmt::format("'{0}' is on or off; write {0} = true or {0} = false", name));
    }
    std::vector<std::pair<const toml::node*, std::string>> texts;
    const auto take = [&](const toml::node& item) {
        std::optional<std::string> text = tomlText(item);
        if (!text || (item.is_boolean() && !isFlag)) {
            throw fail(item, fmt::format("'{0}' cannot be {1}; write {0} = VALUE with a text or a "
                                         "number",
                                         name, kindOf(item)));
        }
        if (option.path != Option::Path::none && !text->empty() &&
            !(option.isNoPath != nullptr && option.isNoPath(*text))) {
            const std::filesystem::path named = file.parent_path() / *text;
            std::error_code problem; // what may not be searched is reported when it is opened
            if (option.path == Option::Path::input && !std::filesystem::exists(named, problem) &&
                !problem) {
                throw fail(item, fmt::format("{}: {}: no such file; check the name, which counts "
                                             "from the study file's folder",
                                             name, place(named)));
            }
            *text = named.string();
        }
        texts.emplace_back(&item, std::move(*text));
    };
    if (const auto* list = value.as_array()) {
        std::for_each(list->begin(), list->end(), take);
    } else {
        take(value);
    }
    if (texts.size() != 1 && option.kind != Option::Kind::list) {
        throw fail(value,
                   fmt::format("'{0}' takes one value, not a list; write {0} = VALUE", name));
    }
    return texts;
}

/// Gives one key to its option.
void giveKey(const Option& option, const toml::node& value, const std::filesystem::path& file) {
    for (const auto& [node, text] : textsOf(option, value, file)) {
        try {
            OptionTable::give(option, std::span(&text, 1));
        } catch (const UsageError& error) {
            throw DataError(fmt::format("{}: {}", tomlPlace(file, node->source()), error.what()));
        }
    }
}

constexpr std::string_view analysisKey = "analysis";
/// Tables of the file that stand for a file of materials.
constexpr std::array<std::string_view, 2> materialTables = {"material", "ground"};
constexpr std::string_view materialsOption = "materials";
constexpr std::array<std::string_view, 3> commands = {"run", "sky", "sunhours"};

/// Options that all analyses share, as they share the scene.
std::vector<std::string> sharedNames() {
    ModelOptions options;
    OptionTable table;
    addModelOptions(table, options);
    std::vector<std::string> names = table.names();
    names.emplace_back("out");
    names.emplace_back("quiet");
    return names;
}

/// The text of a key of an analysis.
std::string textIn(const toml::table& table, std::string_view key,
                   const std::filesystem::path& file) {
    const toml::node* node = table.get(key);
    if (node == nullptr) {
        return {};
    }
    if (!node->is_string()) {
        throw DataError(fmt::format("{}: '{}' is a text; write it in quotes",
                                    tomlPlace(file, node->source()), key));
    }
    return node->as_string()->get();
}

StudyAnalysis analysisOf(const toml::node& node, std::size_t index,
                         const std::filesystem::path& file) {
    const std::string where = tomlPlace(file, node.source());
    if (!node.is_table()) {
        throw DataError(fmt::format("{}: an analysis is a table; begin each with a line "
                                    "[[analysis]]",
                                    where));
    }
    const toml::table& table = *node.as_table();
    StudyAnalysis analysis{textIn(table, "name", file), textIn(table, "command", file), index};
    if (analysis.command.empty()) {
        analysis.command = commands.front();
    }
    if (std::find(commands.begin(), commands.end(), analysis.command) == commands.end()) {
        throw DataError(fmt::format("{}: there is no command {}; choose from {}",
                                    tomlPlace(file, table.get("command")->source()),
                                    quoteText(analysis.command), fmt::join(commands, ", ")));
    }
    if (analysis.name.empty()) {
        throw DataError(fmt::format("{}: the analysis has no name; add name = \"...\", the folder "
                                    "of its results within 'out'",
                                    where));
    }
    constexpr std::size_t longestName = 200; // bytes; file systems take 255
    if (analysis.name.find_first_of("/\\") != std::string::npos || analysis.name.front() == '.' ||
        trimmed(analysis.name) != analysis.name || analysis.name.size() > longestName ||
        printable(analysis.name) != analysis.name) {
        throw DataError(fmt::format("{}: {} is no name of a folder; take up to 200 letters, "
                                    "digits, - and _",
                                    tomlPlace(file, table.get("name")->source()),
                                    quoteText(analysis.name)));
    }
    static const std::vector<std::string> shared = sharedNames();
    for (const auto& [key, value] : table) {
        if (std::find(shared.begin(), shared.end(), key.str()) != shared.end()) {
            throw DataError(fmt::format("{}: '{}' holds for all analyses, which share one scene; "
                                        "write it above them{}",
                                        tomlPlace(file, key.source()), key.str(),
                                        key.str() == "out" ? " (each has the folder of its name "
                                                             "in it)"
                                                           : ""));
        }
    }
    return analysis;
}

} // namespace

struct StudyFile::Content {
    toml::table table;
};

StudyFile::StudyFile(std::filesystem::path file, const std::stop_token& stop)
    : m_file(std::move(file)), m_content(std::make_unique<Content>()) {
    m_content->table = readToml(m_file, inputKinds::study, stop);
    const toml::node* node = m_content->table.get(analysisKey);
    if (node == nullptr) {
        return;
    }
    const std::string where = tomlPlace(m_file, node->source());
    if (!node->is_array() || node->as_array()->empty()) {
        throw DataError(
            fmt::format("{}: analyses are tables; begin each with a line [[analysis]]", where));
    }
    std::set<std::string> names;
    for (const toml::node& one : *node->as_array()) {
        StudyAnalysis analysis = analysisOf(one, m_analyses.size(), m_file);
        if (!names.insert(analysis.name).second) {
            throw DataError(fmt::format("{}: there is an analysis {} already; give each a name "
                                        "of its own",
                                        tomlPlace(m_file, one.source()), quoteText(analysis.name)));
        }
        m_analyses.push_back(std::move(analysis));
    }
}

StudyFile::~StudyFile() = default;

StudyKeys StudyFile::apply(const OptionTable& table, const std::set<std::string>& given,
                           const StudyAnalysis* analysis) const {
    static const std::vector<std::string> known = [] {
        std::vector<std::string> names = studyFileKeys();
        names.insert(names.end(), materialTables.begin(), materialTables.end());
        return names;
    }();
    StudyKeys taken;
    const toml::table* own = nullptr;
    if (analysis != nullptr) {
        own = m_content->table.get(analysisKey)->as_array()->get(analysis->index)->as_table();
    }
    const auto refuse = [&](std::string_view name, const toml::key& key,
                            const std::vector<std::string>& names, const std::string& of) {
        throw DataError(fmt::format("{}: there is no option {}{}; the keys are the options of "
                                    "'insolate {} --help' without their dashes",
                                    tomlPlace(m_file, key.source()), quoteText(name),
                                    didYouMean(name, names), of));
    };
    giveMaterials(table, given, own != nullptr && own->contains(materialsOption), taken);
    for (const auto& [key, value] : m_content->table) {
        const std::string name(key.str());
        const Option* option = table.find(name);
        if (std::find(materialTables.begin(), materialTables.end(), name) != materialTables.end()) {
            continue;
        }
        if (option == nullptr && std::find(known.begin(), known.end(), name) == known.end()) {
            refuse(name, key, known, "run");
        }
        if (option != nullptr && !given.contains(name) &&
            !(own != nullptr && own->contains(name))) {
            giveKey(*option, value, m_file);
            taken["--" + name] = tomlPlace(m_file, key.source());
        }
    }
    if (own == nullptr) {
        return taken;
    }
    for (const auto& [key, value] : *own) {
        const std::string name(key.str());
        if (name == "name" || name == "command") {
            continue;
        }
        const Option* option = table.find(name);
        if (option == nullptr) {
            std::vector<std::string> names = table.names();
            names.insert(names.end(), {"name", "command"});
            refuse(name, key, names, analysis->command);
        }
        if (!given.contains(name)) {
            giveKey(*option, value, m_file);
            taken["--" + name] = tomlPlace(m_file, key.source());
        }
    }
    return taken;
}

void StudyFile::giveMaterials(const OptionTable& table, const std::set<std::string>& given,
                              bool isOwn, StudyKeys& taken) const {
    const std::string name(materialsOption);
    for (const std::string_view key : materialTables) {
        const toml::node* const node = m_content->table.get(key);
        if (node == nullptr) {
            continue;
        }
        const std::string where = tomlPlace(m_file, node->source());
        if (m_content->table.contains(name)) {
            throw DataError(fmt::format("{}: the file has {} and [{}]; keep one of them", where,
                                        materialsOption, key));
        }
        if (key == "ground" && m_content->table.contains("albedo")) {
            throw DataError(
                fmt::format("{}: the file has albedo and [ground]; keep one of them", where));
        }
        const Option* const option = table.find(name);
        if (option != nullptr && !given.contains(name) && !isOwn) {
            OptionTable::give(*option, std::array{m_file.string()});
            taken["--" + name] = where;
        }
    }
}

void failInStudy(const StudyKeys& keys, const UsageError& error) {
    const std::string text = error.what();
    if (const auto key = keys.find(text.substr(0, text.find_first_of(": "))); key != keys.end()) {
        throw DataError(key->second + ": " + text);
    }
    throw error;
}

} // namespace insolate::study
