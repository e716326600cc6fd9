// insolate-import MODEL BYTES SECONDS: reads the model that stands open as its standard input, with
// so much memory and time, and writes the mesh to its standard output for the process that spawned
// it. A fault of the model library then costs this process and nothing else.
#include "study/model/assimp_reader.h"
#include "study/model/import_sandbox.h"
#include "study/model/mesh_wire.h"
#include "study/support/errors.h"
#include "study/support/numbers.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <new>
#include <span>
#include <string_view>

#include <unistd.h>

namespace {

using namespace insolate::study;

void sendBytes(std::span<const char> bytes) {
    while (!bytes.empty()) {
        const ssize_t count = write(STDOUT_FILENO, bytes.data(), bytes.size());
        if (count < 0 && errno != EINTR) {
            _exit(1); // nobody listens
        }
        bytes = bytes.subspan(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
}

} // namespace

int main(int count, char** words) {
    const auto bytes = count == 4 ? parseNumber<std::uint64_t>(words[2]) : std::nullopt;
    const auto seconds = count == 4 ? parseNumber<std::uint64_t>(words[3]) : std::nullopt;
    if (!bytes || !seconds || isatty(STDOUT_FILENO) != 0) {
        constexpr std::string_view usage =
            "insolate-import reads a model for the program insolate; it is not called by hand\n";
        [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, usage.data(), usage.size());
        return 2;
    }
    if (!limitProcess(*bytes, *seconds)) {
        return 1;
    }
    const std::filesystem::path model(words[1]);
    enterSandbox(model);
    try {
        sendMesh(readWithAssimp(model, STDIN_FILENO), sendBytes);
    } catch (const std::bad_alloc&) {
        sendRefusal({.reason = {}, .outOfMemory = true}, sendBytes);
    } catch (const DataError& error) {
        sendRefusal({.reason = error.what()}, sendBytes);
    }
    _exit(0); // the mesh need not be taken apart
}
