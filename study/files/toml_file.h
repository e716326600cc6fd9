/// TOML files of the user, with messages that a person can act on.
#pragma once

#include "study/files/input_file.h"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>

#include <toml++/toml.h>

namespace insolate::study {

/// @throws DataError with line and column when it cannot be read; Stopped
toml::table readToml(const std::filesystem::path& file, const InputKind& kind,
                     const std::stop_token& stop = {});
/// The same of a text.
/// @param name stands in messages in the place of a file
toml::table parseToml(const std::string& text, const std::filesystem::path& name);

/// "FILE:LINE".
std::string tomlPlace(const std::filesystem::path& file, const toml::source_region& source);

/// A value that is one thing, as text; nothing for lists, tables and dates.
std::optional<std::string> tomlText(const toml::node& value);

} // namespace insolate::study
