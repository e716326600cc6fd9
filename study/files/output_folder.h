/// The folder that receives a run's results: nothing half-written is ever seen under a result's
/// name.
///
/// Files are written as "NAME.insolate-partial" in the target folder and renamed when all of them
/// are complete; whatever was there before stays until then. One run at a time may hold a folder.
#pragma once

#include "study/export.h"
#include "study/files/result_name.h"
#include "study/support/errors.h"

#include <cstddef>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace insolate::study {

/// A buffered file for writing. Every failure, at closing included, is an OutputError.
class INSOLATE_STUDY_EXPORT OutputFile {
public:
    /// Creates or empties `path`; `shownName` is what error messages call it.
    OutputFile(const std::filesystem::path& path, std::string shownName);
    ~OutputFile(); ///< closes without a check: a file that matters is ended by finish()
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void write(std::string_view bytes) {
        if (m_used + bytes.size() > bufferSize) {
            writeThrough(bytes);
            return;
        }
        bytes.copy(m_buffer.get() + m_used, bytes.size());
        m_used += bytes.size();
    }
    void write(const void* data, std::size_t size) {
        write(std::string_view(static_cast<const char*>(data), size));
    }
    /// Shortest decimal text that reads back as the same number: "nan" and "inf" for those.
    void writeNumber(double value);
    void writeNumber(float value);

    /// Hands everything to the disk (fsync) and closes; later writes are an error.
    void finish();

    [[nodiscard]] const std::string& shownName() const { return m_shownName; }
    /// Where it is, for a library that writes by name. What that writes takes the place of all
    /// that write() was given.
    [[nodiscard]] const std::filesystem::path& path() const { return m_path; }
    [[nodiscard]] bool isFinished() const { return m_descriptor < 0; }

private:
    static constexpr std::size_t bufferSize = std::size_t{1} << 20U;

    template <typename Number>
    void writeShortest(Number value);
    void writeThrough(std::string_view bytes);
    void writeAll(const char* data, std::size_t size);
    void flush();
    [[noreturn]] void fail(int reason) const;

    std::filesystem::path m_path;
    std::string m_shownName;
    std::unique_ptr<char[]> m_buffer;
    std::size_t m_used = 0;
    int m_descriptor = -1;
};

/// Holds the folder for one run, from before the work starts until commit() or destruction.
///
///     OutputFolder folder(out, inputs);       // fails here if nothing could be written later
///     folder.requireFree(table);              // and here if a result would replace a user's file
///     OutputFile& file = folder.stage(table); // {"sensors.csv", isOurSensorsCsv}
///     ... long work, writeSensorsCsv(file, ...) ...
///     folder.commit();                        // all files appear under their names
///
/// Without commit() the destructor removes the partial files, and the folder if this object made
/// it. One thread uses the object; abandon() alone may be called from any other.
///
/// The file ".insolate.lock" holds the number of the process and the names of its partial files.
/// The system takes the lock off when the process dies; the next run then removes exactly the
/// partial files that the dead one had begun, and notes() says so.
class INSOLATE_STUDY_EXPORT OutputFolder {
public:
    /// Creates the folder when it is missing, tries that files can be made in it, and locks it.
    /// @param inputs all files that the run reads: no result replaces them
    /// @param onlyFile the one file that is to be written, as messages call it; empty where the
    ///        user has named the folder
    /// @throws OutputError when that fails or another run holds the folder
    OutputFolder(const std::filesystem::path& folder, std::vector<std::filesystem::path> inputs,
                 std::string onlyFile = {});
    ~OutputFolder();
    OutputFolder(const OutputFolder&) = delete;
    OutputFolder& operator=(const OutputFolder&) = delete;

    /// Refuses a result that would replace what is not a result: an input of this run (the same
    /// file, by whatever name), a file that somebody else wrote, a folder. Empty files are free.
    /// stage() asks this too; asked before the work it saves the user the wait.
    /// @throws OutputError with the way out
    void requireFree(const ResultName& result) const;

    /// A file that will get the result's name (no path separators) at commit(). The reference holds
    /// as long as the folder object. Staged once per name.
    /// @throws OutputError as requireFree() does, and Stopped after abandon()
    OutputFile& stage(const ResultName& result);

    /// A file of an earlier run that would contradict the staged ones goes at commit(), once they
    /// are complete.
    /// @return whether there is such a file; one that somebody else wrote, or that this run reads,
    ///         is none
    bool retire(const ResultName& result);

    /// Finishes all staged files and gives them their names, the last staged one last: its presence
    /// says that the set is complete (stage "summary.json" last). When finishing fails, nothing has
    /// been renamed. After a loss of power as well the last one is there only beside the others:
    /// contents go to the disk before names, and names of the set before that of the last.
    /// @throws OutputError, and Stopped after abandon()
    void commit();

    /// Gives the folder up from another thread, while the one that uses the object may be anywhere
    /// in its work: removes the partial files, the lock and the folder if this object made it. What
    /// that thread still writes goes nowhere, and its next stage() or commit() throws Stopped.
    /// Waits for the renaming of a commit() to end, if that has begun.
    /// @return whether the results have got their names, and so stay
    bool abandon() noexcept;

    /// What a person may want to know of the folder: sentences, empty as a rule.
    [[nodiscard]] const std::vector<std::string>& notes() const { return m_notes; }

    [[nodiscard]] const std::filesystem::path& path() const { return m_folder; }

    static constexpr std::string_view partialSuffix = ".insolate-partial";
    static constexpr std::string_view lockName = ".insolate.lock";

private:
    struct Staged {
        std::filesystem::path target;
        std::filesystem::path partial;
        std::unique_ptr<OutputFile> file;
    };

    void createFolder();
    void lock();
    [[noreturn]] void refuseForeignLock();
    void tryToWrite();
    void takeOver();
    [[nodiscard]] bool isInput(const std::filesystem::path& file) const;
    void requireNoPartial(const std::filesystem::path& partial) const;
    void rename(const Staged& staged); ///< with m_mutex held, as release() and discard()
    void writeLock(const std::string& line);
    /// @param what "cannot be created"
    [[noreturn]] void fail(const std::string& what, int reason) const;
    void release() noexcept;
    void discard() noexcept;

    std::filesystem::path m_folder;
    std::vector<std::filesystem::path> m_inputs;
    std::string m_onlyFile;
    std::vector<std::string> m_notes;
    std::vector<std::filesystem::path> m_retired;

    std::mutex m_mutex; ///< of all below, which abandon() shares with the using thread
    std::vector<std::filesystem::path> m_createdFolders; ///< innermost last
    std::vector<Staged> m_staged;
    int m_lock = -1;
    bool m_committed = false;
    bool m_abandoned = false;
};

} // namespace insolate::study
