#include "app/cli/table_arguments.h"

#include "app/cli/arguments.h"
#include "app/terminal/reports.h"
#include "study/run/study_file.h"
#include "study/run/study_inputs.h"
#include "study/support/errors.h"

#include <algorithm>
#include <optional>
#include <utility>

#include <fmt/format.h>

namespace insolate::app {

using study::Option;

TableArguments::TableArguments(CLI::App& command, study::OptionTable& table,
                               std::function<void()> reset)
    : m_command(command), m_table(table), m_reset(std::move(reset)) {
    table.flag("quiet", m_quiet, "Say nothing but warnings and errors");
    addProgressOption(command, m_progress);
    command
        .add_option("--study", m_study,
                    "Study file (TOML) with any of these options as keys; the command line wins")
        ->check(fileNameCheck())
        ->type_name("FILE");
    for (const Option& option : table.options()) {
        Argument& argument = m_arguments.emplace_back();
        argument.option = &option;
        const std::string name = "--" + option.name;
        if (option.kind == Option::Kind::flag) {
            argument.onCommand = command.add_flag(name, argument.isSet, option.help);
            continue;
        }
        argument.onCommand = option.kind == Option::Kind::list
                                 ? command.add_option(name, argument.values, option.help)
                                 : command.add_option(name, argument.value, option.help);
        std::string type = option.typeName;
        if (!option.choices.empty()) {
            type += fmt::format(":{{{}}}", fmt::join(option.choices, ","));
        }
        argument.onCommand->type_name(type);
        if (!option.usual.empty()) {
            argument.onCommand->default_str(option.usual);
        }
    }
}

std::set<std::string> TableArguments::given() const {
    std::set<std::string> names;
    for (const Argument& argument : m_arguments) {
        if (argument.onCommand->count() == 0) {
            continue;
        }
        names.insert(argument.option->name);
        if (argument.option->name == "sensors") {
            const auto without = study::optionsWithoutMeaning(argument.value);
            names.insert(without.begin(), without.end());
        }
    }
    return names;
}

void TableArguments::giveOwn() const {
    for (const Argument& argument : m_arguments) {
        if (argument.onCommand->count() == 0) {
            continue;
        }
        const std::vector<std::string> values =
            argument.option->kind == Option::Kind::flag
                ? std::vector<std::string>{argument.isSet ? "true" : "false"}
            : argument.option->kind == Option::Kind::list
                ? argument.values
                : std::vector<std::string>{argument.value};
        study::OptionTable::give(*argument.option, values);
    }
}

void TableArguments::run(
    Interruption& interruption,
    const std::function<void(study::StudyBatch& batch, const std::string& analysis)>& work) {
    std::optional<study::StudyFile> file;
    std::vector<const study::StudyAnalysis*> analyses;
    if (!m_study.empty()) {
        file.emplace(m_study, interruption.token());
        for (const study::StudyAnalysis& analysis : file->analyses()) {
            if (analysis.command == m_command.get_name()) {
                analyses.push_back(&analysis);
            }
        }
        if (analyses.empty() && !file->analyses().empty()) {
            throw study::DataError(fmt::format("{}: none of the analyses has command = \"{}\"; "
                                               "'insolate study run' runs all of them",
                                               study::place(m_study), m_command.get_name()));
        }
    }
    if (analyses.empty()) {
        analyses.push_back(nullptr);
    }
    const auto take = [&](const study::StudyAnalysis* analysis) {
        m_reset();
        study::StudyKeys keys;
        if (file) {
            keys = file->apply(m_table, given(), analysis);
        }
        giveOwn();
        return keys;
    };
    if (analyses.size() > 1) {
        std::for_each(analyses.begin(), analyses.end(), take);
    }
    study::StudyKeys keys = take(analyses.front());
    const auto progress = progressOf(m_progress, m_quiet, interruption);
    study::StudyBatch batch(*progress, interruption.token());
    for (const study::StudyAnalysis* analysis : analyses) {
        if (analysis != nullptr) {
            keys = take(analysis);
            progress->note("analysis " + analysis->name);
        }
        const std::string name = analysis == nullptr ? "" : analysis->name;
        batch.analyse(name, keys, [&] { work(batch, name); });
    }
}

} // namespace insolate::app
