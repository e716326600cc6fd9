/// How many processors the machine reports.
#pragma once

namespace insolate {

/// At least 1; read once per process, so every later call gives the same number.
int processorCount();

} // namespace insolate
