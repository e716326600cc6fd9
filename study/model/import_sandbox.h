/// What the program that reads foreign models may do. All of it is for the calling process, for
/// good, and for its one thread.
#pragma once

#include <cstdint>
#include <filesystem>

namespace insolate::study {

/// Bounds of memory [bytes] and processor time [s], of the stack and of open files; the process
/// ends with its parent. A program under a sanitizer, which reserves terabytes, has no bound of
/// memory.
/// @return false when a bound cannot be set: without these no model is read
bool limitProcess(std::uint64_t bytes, std::uint64_t seconds);

/// Leaves the files of the model's folder and below to be read, and the calls that reading, memory
/// and ending take; all others fail. In depth only: a kernel that does not know this (Landlock came
/// with Linux 5.13) leaves the program as it is, and so does a sanitizer.
void enterSandbox(const std::filesystem::path& model);

} // namespace insolate::study
