/// An option table on the command line.
#pragma once

#include "app/terminal/interrupt.h"
#include "study/run/option_table.h"
#include "study/run/study_batch.h"

#include <CLI/CLI.hpp>

#include <deque>
#include <functional>
#include <set>
#include <string>
#include <vector>

namespace insolate::app {

/// The arguments of one subcommand whose options are a table. Lives as long as the subcommand.
class TableArguments {
public:
    /// Adds the table's options to the subcommand; --quiet, which goes into the table; --study,
    /// which gives them all too; and --progress.
    /// @param table must outlive this object
    /// @param reset puts the values that the table is bound to back to the defaults
    TableArguments(CLI::App& command, study::OptionTable& table, std::function<void()> reset);

    /// Gives the options their values, those of the command line first, and does the work: once, or
    /// for each analysis of the study file that is for this subcommand, after the options of all
    /// of them were found good. An error that begins with an option that the study file has given
    /// names its line.
    /// @param work takes the name of the analysis, or an empty one
    /// @throws study::Error
    void
    run(Interruption& interruption,
        const std::function<void(study::StudyBatch& batch, const std::string& analysis)>& work);

private:
    struct Argument {
        const study::Option* option;
        CLI::Option* onCommand;
        std::vector<std::string> values; ///< of lists
        std::string value;               ///< of all others
        bool isSet = false;              ///< of flags
    };

    /// The options for which the study file is not asked: those of the command line, and where
    /// that takes the sensors from a plane or a table, what chooses among faces.
    [[nodiscard]] std::set<std::string> given() const;
    void giveOwn() const;

    CLI::App& m_command;
    study::OptionTable& m_table;
    std::function<void()> m_reset;
    bool m_quiet = false;
    std::string m_progress;
    std::string m_study;
    std::deque<Argument> m_arguments; ///< the parser holds references to them
};

} // namespace insolate::app
