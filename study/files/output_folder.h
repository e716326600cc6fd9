/// The folder that receives a run's results: nothing half-written is ever seen under a result's
/// name.
///
/// Files are written as "NAME.insolate-partial" in the target folder and renamed when all of them
/// are complete; whatever was there before stays until then. One run at a time may hold a folder.
#pragma once

#include "study/export.h"

#include "study/support/errors.h"

#include <cstddef>
#include <filesystem>
#include <initializer_list>
#include <memory>
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
    [[nodiscard]] bool isFinished() const { return m_descriptor < 0; }

private:
    static constexpr std::size_t bufferSize = std::size_t{1} << 20U;

    template <typename Number>
    void writeShortest(Number value);
    void writeThrough(std::string_view bytes);
    void writeAll(const char* data, std::size_t size);
    void flush();
    [[noreturn]] void fail(int reason) const;

    std::string m_shownName;
    std::unique_ptr<char[]> m_buffer;
    std::size_t m_used = 0;
    int m_descriptor = -1;
};

/// Holds the folder for one run, from before the work starts until commit() or destruction.
///
///     OutputFolder folder(out);               // fails here if nothing could be written later
///     folder.requireFree({"sensors.csv"});
///     OutputFile& table = folder.stage("sensors.csv");
///     ... long work, writeSensorsCsv(table, ...) ...
///     folder.commit();                        // all files appear under their names
///
/// Without commit() the destructor removes the partial files, and the folder if this object made
/// it.
class INSOLATE_STUDY_EXPORT OutputFolder {
public:
    /// Creates the folder when it is missing, tries that files can be made in it, and locks it.
    /// @param onlyFile the one file that is to be written, as messages call it; empty where the
    /// user
    ///        has named the folder
    /// @throws OutputError when that fails or another run holds the folder. The lock dies with the
    ///         process; partial files that a killed run left are removed.
    explicit OutputFolder(const std::filesystem::path& folder, std::string onlyFile = {});
    ~OutputFolder();
    OutputFolder(const OutputFolder&) = delete;
    OutputFolder& operator=(const OutputFolder&) = delete;

    /// A file that will get `name` (no path separators) at commit(). The reference holds as long as
    /// the folder object. Staged once per name.
    OutputFile& stage(const std::string& name);

    /// Refuses early what stage() would refuse late, after the work.
    /// @throws OutputError when one of the names is taken by a folder
    void requireFree(std::initializer_list<std::string_view> names) const;

    /// A file of an earlier run that would contradict the staged ones: it goes at commit(), once
    /// they are complete.
    void retire(const std::string& name) { m_retired.push_back(m_folder / name); }

    /// Finishes all staged files and gives them their names, the last staged one last: its presence
    /// says that the set is complete (stage "summary.json" last). When finishing fails, nothing has
    /// been renamed.
    void commit();

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
    /// @param what "cannot be created"
    [[noreturn]] void fail(const std::string& what, int reason) const;
    void removeLeftovers();
    void discard() noexcept;

    std::filesystem::path m_folder;
    std::string m_onlyFile;
    std::vector<std::filesystem::path> m_createdFolders; ///< innermost last
    std::vector<Staged> m_staged;
    std::vector<std::filesystem::path> m_retired;
    int m_lock = -1;
    bool m_committed = false;
};

} // namespace insolate::study
