/// Where the library's few diagnostic texts go.
///
/// Diagnostics never change a result. By default they go to standard error when the environment
/// variable INSOLATE_DEBUG is set and not empty, and nowhere otherwise; a host may install its own
/// sink. Texts arrive on the thread that caused them; a sink used from several threads must be
/// thread-safe.
#pragma once

#include <insolate/export.h>

namespace insolate {

/// Receives one diagnostic text, without a line end. Must not throw.
using DebugSink = void (*)(const wchar_t* text);

/// Installs a sink and returns the one that was in force; nullptr restores the default.
INSOLATE_EXPORT DebugSink setDebugSink(DebugSink sink);

/// Sends a text to the sink in force.
INSOLATE_EXPORT void debugOutput(const wchar_t* text);

} // namespace insolate
