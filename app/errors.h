/// How the command fails: one line for the user, and the exit code that a script can act on.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>

namespace insolate::app {

/// Exit codes; a stop by signal N gives 128 + N.
inline constexpr int exitData = 1;
inline constexpr int exitUsage = 2;

/// Ends the command with a message of the form "FILE:LINE: what; mend".
class CommandError : public std::runtime_error {
public:
    CommandError(int exitCode, const std::string& message)
        : std::runtime_error(message), m_exitCode(exitCode) {}
    [[nodiscard]] int exitCode() const { return m_exitCode; }

private:
    int m_exitCode;
};

/// The arguments cannot be what was meant.
class UsageError : public CommandError {
public:
    explicit UsageError(const std::string& message) : CommandError(exitUsage, message) {}
};

/// A file or folder is not what the work needs.
class DataError : public CommandError {
public:
    explicit DataError(const std::string& message) : CommandError(exitData, message) {}
};

/// The user asked to stop.
class Interrupted : public CommandError {
public:
    explicit Interrupted(int signal)
        : CommandError(128 + signal, "stopped; no result was written") {}
};

/// The text with control characters replaced: names from files must not steer the terminal.
std::string printable(std::string_view text);

/// "FILE" or "FILE:LINE" as the beginning of a message.
std::string place(const std::filesystem::path& file);
std::string place(const std::filesystem::path& file, std::size_t line);

/// "'FILE'"-like quoting for text from the user or a file, cut when long.
std::string quoteText(std::string_view text);

} // namespace insolate::app
