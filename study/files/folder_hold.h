/// Lets the caller of long work know which output folder is in use, and what there is to say of it.
#pragma once

#include "study/files/output_folder.h"
#include "study/support/progress.h"

namespace insolate::study {

/// For as long as it lives, after the folder and before the work.
class FolderHold {
public:
    FolderHold(Progress& progress, OutputFolder& folder) : m_progress(progress) {
        m_progress.holdsFolder(&folder);
        for (const std::string& note : folder.notes()) {
            m_progress.note(note);
        }
    }
    ~FolderHold() { m_progress.holdsFolder(nullptr); }
    FolderHold(const FolderHold&) = delete;
    FolderHold& operator=(const FolderHold&) = delete;

private:
    Progress& m_progress;
};

} // namespace insolate::study
