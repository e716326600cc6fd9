#include <insolate/platform/debug_output.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace insolate {
namespace {

void defaultSink(const wchar_t* text) {
    static const bool enabled = [] {
        const char* value = std::getenv("INSOLATE_DEBUG");
        return value != nullptr && *value != '\0';
    }();
    if (enabled) {
        std::fprintf(stderr, "insolate: %ls\n", text);
    }
}

std::atomic<DebugSink> currentSink{defaultSink};

} // namespace

DebugSink setDebugSink(DebugSink sink) {
    return currentSink.exchange(sink != nullptr ? sink : defaultSink);
}

void debugOutput(const wchar_t* text) {
    currentSink.load()(text);
}

} // namespace insolate
