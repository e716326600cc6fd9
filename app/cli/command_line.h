/// The whole command: arguments in, exit code out.
#pragma once

namespace insolate::app {

/// Parses, works, and reports every failure as one line on standard error.
/// @return 0, 1 for data, 2 for usage, 128 + signal when stopped
int runCommandLine(int argc, const char* const* argv);

} // namespace insolate::app
