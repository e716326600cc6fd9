/// The files that a run leaves. A new one is a writer and one line in the list of result_files.cpp.
#pragma once

#include "study/files/output_folder.h"
#include "study/run/study_steps.h"

#include <span>

namespace insolate::study {

struct ResultFile {
    const char* name;
    /// Whether the options ask for it.
    bool (*isWanted)(const RunOptions& options);
    void (*write)(OutputFile& out, const PreparedStudy& study, const StudyResults& results);
    /// Whether a file of this name, which the options do not ask for, is of an earlier run and would
    /// contradict the new results; null for files that cannot.
    bool (*isStale)(const std::filesystem::path& file) = nullptr;
};

/// In the order in which they are written; the last one closes the set.
std::span<const ResultFile> resultFiles();

} // namespace insolate::study
