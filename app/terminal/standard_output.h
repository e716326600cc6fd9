/// What a subcommand prints as its result, on standard output.
#pragma once

#include <string_view>

namespace insolate::app {

/// Writes the text at once.
/// @throws DataError when it cannot be written: the disk is full or the reader has gone
void printResult(std::string_view text);

} // namespace insolate::app
