/// How work on a study fails: one line for the user that says what is wrong, where, and what to do.
#pragma once

#include "study/export.h"

#include <cstddef>
#include <filesystem>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <string_view>

namespace insolate::study {

/// The base of every exception that this library throws of its own: a message of the form
/// "FILE:LINE: what is wrong; what to do".
class INSOLATE_STUDY_EXPORT Error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The options cannot be what was meant. A message about one option begins with its name: "--grid".
class INSOLATE_STUDY_EXPORT UsageError : public Error {
public:
    using Error::Error;
};

/// A file or folder is not what the work needs.
class INSOLATE_STUDY_EXPORT DataError : public Error {
public:
    using Error::Error;
};

/// A result could not be written.
class INSOLATE_STUDY_EXPORT OutputError : public Error {
public:
    using Error::Error;
};

/// The caller asked to stop; no result was written.
class INSOLATE_STUDY_EXPORT Stopped : public Error {
public:
    explicit Stopped(const std::string& message = "stopped; no result was written")
        : Error(message) {}
};

/// @throws Stopped when the token's source has asked to stop
inline void throwIfStopped(const std::stop_token& stop) {
    if (stop.stop_requested()) {
        throw Stopped();
    }
}

/// The same in a long loop of short steps: asks at every 4,096th of them.
inline void throwIfStoppedAt(std::size_t step, const std::stop_token& stop) {
    if (step % 4096 == 0) {
        throwIfStopped(stop);
    }
}

/// The text with control characters replaced: names from files must not steer the terminal.
INSOLATE_STUDY_EXPORT std::string printable(std::string_view text);

/// "FILE" or "FILE:LINE" as the beginning of a message; line 0 is none.
INSOLATE_STUDY_EXPORT std::string place(const std::filesystem::path& file);
INSOLATE_STUDY_EXPORT std::string place(const std::filesystem::path& file, std::size_t line);

/// "'FILE'"-like quoting for text from the user or a file, cut when long.
INSOLATE_STUDY_EXPORT std::string quoteText(std::string_view text);

/// What another library says of a file, as a part of our message: it may quote half the file.
INSOLATE_STUDY_EXPORT std::string foreignReason(std::string_view text);

} // namespace insolate::study
