/// The files in which the questions (run, sunhours, compare, sky) leave their answers: one list of
/// names with what recognises them and what writes them. A new file is a writer beside the others
/// of its question and one line in the list of result_files.cpp.
///
/// The files of a set belong together. Whoever writes to a folder takes away those files of its set
/// that an earlier answer has left there and that are not written anew, whatever the earlier
/// question was. Files that somebody else wrote are never touched.
#pragma once

#include "study/files/output_folder.h"
#include "study/support/progress.h"

#include <stop_token>

namespace insolate::study {

enum class ResultSet {
    sensors, ///< values by sensor with what goes beside them, closed by summary.json
    sky,     ///< the sky by cell, closed by sky.json; stands beside values by sensor
    masks    ///< expensive, so they stay; a run refuses those that do not fit
};

/// How a question fills one of the files; without a function, it has no such file.
///
/// An Answer has the types and members that sky_files.h shows: `Options`, `set`, `options` and
/// `watch`, which gets the times of the files.
template <typename Answer>
struct ResultWriter {
    void (*write)(OutputFile& out, const Answer& answer, Progress& progress,
                  const std::stop_token& stop) = nullptr;
    /// Whether the options ask for it; null: always.
    bool (*isWanted)(const typename Answer::Options& options) = nullptr;
    /// Whether the answer has anything to put there; null: always.
    bool (*hasContent)(const Answer& answer) = nullptr;
};

/// Refuses a folder that holds what the question's files must not replace.
/// @throws OutputError
template <typename Answer>
void requireFreeFolder(const OutputFolder& folder, const typename Answer::Options& options);

/// Writes the question's files, takes away what contradicts them, gives the new ones their names
/// and reports all that.
/// @throws OutputError, Stopped; no file is left then
template <typename Answer>
void writeResults(OutputFolder& folder, const Answer& answer, Progress& progress,
                  const std::stop_token& stop);

} // namespace insolate::study
