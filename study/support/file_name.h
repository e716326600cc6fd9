/// Questions about file names.
#pragma once

#include <filesystem>
#include <initializer_list>
#include <string_view>

namespace insolate::study {

/// Whether the extension, in any case of letters, is one of those given (in lower case, with dot).
bool hasExtension(const std::filesystem::path& file,
                  std::initializer_list<std::string_view> extensions);

} // namespace insolate::study
