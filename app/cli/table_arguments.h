/// An option table on the command line.
#pragma once

#include "study/run/option_table.h"

#include <CLI/CLI.hpp>

#include <deque>
#include <functional>
#include <stop_token>
#include <string>
#include <vector>

namespace insolate::app {

/// The arguments of one subcommand whose options are a table. Lives as long as the subcommand.
class TableArguments {
public:
    /// Adds the table's options to the subcommand, and --study, which gives them too.
    /// @param table must outlive this object
    TableArguments(CLI::App& command, const study::OptionTable& table);

    /// Gives the options their values, those of the command line first, and does the work. An error
    /// that begins with an option that the study file has given names its line.
    /// @throws study::Error
    void run(const std::stop_token& stop, const std::function<void()>& work) const;

private:
    struct Argument {
        const study::Option* option;
        CLI::Option* onCommand;
        std::vector<std::string> values; ///< of lists
        std::string value;               ///< of all others
        bool isSet = false;              ///< of flags
    };

    CLI::App& m_command;
    const study::OptionTable& m_table;
    std::string m_study;
    std::deque<Argument> m_arguments; ///< the parser holds references to them
};

} // namespace insolate::app
