/// The program insolate-import at work: reads one model in a process of its own, whose time, memory
/// and stack are bounded, so that no model can hang, exhaust or end the process that asks for it.
#pragma once

#include "study/model/mesh_import.h"
#include "study/model/model_formats.h"

#include <filesystem>
#include <stop_token>

namespace insolate::study {

/// Has the open model read by the program and checks all that comes back. The process is spawned,
/// not forked, so that hosts with many threads are safe; signals, descriptors and Ctrl-C of this
/// process do not reach it; it never outlives the call.
/// @param descriptor the open model
/// @throws DataError when the program is missing, refuses the model, fails, or reaches a limit;
///         Stopped
Mesh readInProcess(const std::filesystem::path& file, int descriptor, const ModelFormat& format,
                   const MeshImportOptions& options, const ImportLimits& limits,
                   const std::stop_token& stop);

} // namespace insolate::study
