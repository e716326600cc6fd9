#include "study/support/file_name.h"

#include <algorithm>
#include <cctype>
#include <string>

namespace insolate::study {

bool hasExtension(const std::filesystem::path& file,
                  std::initializer_list<std::string_view> extensions) {
    std::string extension = file.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return std::find(extensions.begin(), extensions.end(), extension) != extensions.end();
}

} // namespace insolate::study
