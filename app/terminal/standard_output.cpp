#include "app/terminal/standard_output.h"

#include "study/support/errors.h"

#include <cstdio>

namespace insolate::app {

using namespace study;

void printResult(std::string_view text) {
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() ||
        std::fflush(stdout) != 0) {
        throw DataError("standard output: cannot be written; check the disk or pipe");
    }
}

} // namespace insolate::app
