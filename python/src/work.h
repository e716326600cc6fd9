/// Long work from Python: it runs on a thread of its own, without the interpreter's lock, while the
/// calling thread looks for Ctrl-C and passes on what the work reports.
#pragma once

#include <functional>
#include <stop_token>

#include <nanobind/nanobind.h>

#include <insolate/insolate.h>
#include <study/study.h>

namespace insolate::python {

using Work = std::function<void(study::Progress& progress, const std::stop_token& stop)>;

/// Does the work, which must not touch Python objects.
/// @param report an object with note(text), warn(text) and progress(done, total, things); or None
/// @throws what the work throws; what a function of the report raises, or KeyboardInterrupt, once
///         the work has stopped
void doWork(nanobind::handle report, const Work& work);

} // namespace insolate::python
