/// The options that say which sky: weather, period, method.
#pragma once

#include "study/run/run_options.h"

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace insolate::app {

/// The words of the arguments; options() makes values of them.
struct SkyArguments {
    std::string study;
    std::string weather;
    std::string period = "1/1-12/31";
    std::string hours = "0-24";
    double step = 0.1;
    std::string method = study::methodName(study::Method::hourly);
    std::string albedo;
    bool allowGaps = false;
    std::string out;
    bool quiet = false;

    void addTo(CLI::App& command, const std::vector<study::Method>& methods);

    /// @throws study::UsageError naming what is missing or impossible
    [[nodiscard]] study::SkyOptions options() const;
};

/// @throws study::UsageError when an option of the hourly method is given with another one
void requireHourly(study::Method method, const std::string& name, bool given);

/// @throws study::UsageError when an option that the command needs is empty
void requireOption(const std::string& value, const std::string& name, const std::string& mend);

} // namespace insolate::app
