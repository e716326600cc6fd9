/// The files that a run leaves, and what of other questions' files must not stand beside them. A
/// new one is a writer and one line in the list of result_files.cpp.
#pragma once

#include "study/files/output_folder.h"
#include "study/run/study_steps.h"

#include <filesystem>
#include <span>
#include <stop_token>

#include <nlohmann/json.hpp>

namespace insolate::study {

struct ResultFile {
    const char* name;
    /// Whether the options ask for it.
    bool (*isWanted)(const RunOptions& options);
    void (*write)(OutputFile& out, const PreparedStudy& study, const StudyResults& results,
                  Progress& progress, const std::stop_token& stop);
    /// Whether a file of this name is of an earlier run.
    bool (*isOurs)(const std::filesystem::path& file);
    /// Whether a file that an earlier run has left, and that is not written anew, would contradict
    /// the new results of whatever question.
    bool contradicts = false;
};

/// In the order in which they are written; the last one closes the set.
std::span<const ResultFile> resultFiles();

/// What made the results, and their ranges.
nlohmann::ordered_json summaryRecord(const PreparedStudy& study, const StudyResults& results);

} // namespace insolate::study
