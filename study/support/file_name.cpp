#include "study/support/file_name.h"

#include "study/support/numbers.h"

#include <algorithm>
#include <string>

namespace insolate::study {

bool hasExtension(const std::filesystem::path& file,
                  std::initializer_list<std::string_view> extensions) {
    const std::string extension = lowered(file.extension().string());
    return std::find(extensions.begin(), extensions.end(), extension) != extensions.end();
}

} // namespace insolate::study
