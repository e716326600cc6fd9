/// File names are wide strings in the interface and UTF-8 bytes for the operating system.
#pragma once

#include <string>

namespace insolate {

/// The UTF-8 form of the first 260 characters of a wide file name: the length that the weather
/// readers have always accepted. Plain ASCII passes unchanged; a code point that has no UTF-8 form
/// becomes '?', which no existing file name matches by accident.
std::string narrowFileName(const std::wstring& name);

} // namespace insolate
