/// Ctrl-C and termination requests, seen between blocks of work.
#pragma once

namespace insolate::app {

/// From now on the first SIGINT or SIGTERM is remembered; a second one ends the process at once.
void installInterruptHandlers();

/// The signal that asked to stop, or 0.
int pendingSignal();

/// @throws Interrupted when a signal asked to stop.
void throwIfInterrupted();

} // namespace insolate::app
