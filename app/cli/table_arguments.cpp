#include "app/cli/table_arguments.h"

#include "app/cli/arguments.h"
#include "study/run/study_file.h"

#include <set>

#include <fmt/format.h>

namespace insolate::app {

using study::Option;

TableArguments::TableArguments(CLI::App& command, const study::OptionTable& table)
    : m_command(command), m_table(table) {
    command
        .add_option("--study", m_study,
                    "Study file (TOML) with any of these options as keys; the command line wins")
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

void TableArguments::run(const std::stop_token& stop, const std::function<void()>& work) const {
    std::set<std::string> given;
    for (const Argument& argument : m_arguments) {
        if (argument.onCommand->count() > 0) {
            given.insert(argument.option->name);
        }
    }
    study::StudyKeys keys;
    if (!m_study.empty()) {
        keys = study::applyStudyFile(m_table, m_study, given,
                                     fmt::format("'{} --help'", callOf(m_command)), stop);
    }
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
    try {
        work();
    } catch (const study::UsageError& error) {
        study::failInStudy(keys, error);
    }
}

} // namespace insolate::app
