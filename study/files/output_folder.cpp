#include "study/files/output_folder.h"

#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace insolate::study {

namespace fs = std::filesystem;

namespace {

std::string reasonText(int reason) {
    // Said of a name that was to be made: its folder is there, but holds no files of ours (/proc).
    return reason == ENOENT ? "no file or folder can be made there"
                            : std::generic_category().message(reason);
}

std::string mendFor(int reason) {
    switch (reason) {
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
        return "; the disk or quota is full: free some space and run again";
    case EACCES:
    case EPERM:
    case EROFS:
        return "; choose a folder that you may write to";
    default:
        return "; choose another folder";
    }
}

/// Makes renames in the folder survive a power cut. File systems that cannot do it are not refused.
void syncFolder(const fs::path& folder) {
    const int descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor >= 0) {
        fsync(descriptor);
        close(descriptor);
    }
}

} // namespace

OutputFile::OutputFile(const fs::path& path, std::string shownName)
    : m_shownName(std::move(shownName)), m_buffer(std::make_unique<char[]>(bufferSize)) {
    // A name that leads elsewhere (a symbolic link planted in a shared folder) is not followed.
    m_descriptor =
        open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, mode_t{0666});
    if (m_descriptor < 0) {
        fail(errno);
    }
}

OutputFile::~OutputFile() {
    if (m_descriptor >= 0) {
        close(m_descriptor);
    }
}

template <typename Number>
void OutputFile::writeShortest(Number value) {
    // 32 characters hold every double in its shortest form.
    if (m_used + 32 > bufferSize) {
        flush();
    }
    char* const begin = m_buffer.get() + m_used;
    const std::to_chars_result result = std::to_chars(begin, begin + 32, value);
    m_used += static_cast<std::size_t>(result.ptr - begin);
}

void OutputFile::writeNumber(double value) {
    writeShortest(value);
}
void OutputFile::writeNumber(float value) {
    writeShortest(value);
}

void OutputFile::writeThrough(std::string_view bytes) {
    flush();
    if (bytes.size() >= bufferSize) {
        writeAll(bytes.data(), bytes.size());
    } else {
        write(bytes);
    }
}

void OutputFile::writeAll(const char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t written = ::write(m_descriptor, data, size);
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            fail(errno);
        }
        data += written;
        size -= static_cast<std::size_t>(written);
    }
}

void OutputFile::flush() {
    const std::size_t size = std::exchange(m_used, 0);
    writeAll(m_buffer.get(), size);
}

void OutputFile::finish() {
    flush();
    // Pipes and some network file systems have no fsync; that is no loss of data.
    if (fsync(m_descriptor) != 0 && errno != EINVAL && errno != ENOTSUP) {
        fail(errno);
    }
    if (close(std::exchange(m_descriptor, -1)) != 0) {
        fail(errno);
    }
}

void OutputFile::fail(int reason) const {
    throw OutputError(m_shownName + ": cannot be written: " + reasonText(reason) + mendFor(reason));
}

OutputFolder::OutputFolder(const fs::path& folder, std::string onlyFile)
    : m_folder(folder), m_onlyFile(std::move(onlyFile)) {
    // What this constructor has begun is undone here: a throwing constructor has no destructor.
    try {
        createFolder();
        lock();
        removeLeftovers();
    } catch (...) {
        discard();
        throw;
    }
}

OutputFolder::~OutputFolder() {
    discard();
}

void OutputFolder::fail(const std::string& what, int reason) const {
    throw OutputError((m_onlyFile.empty() ? m_folder.string() + ": the output folder " + what
                                          : m_onlyFile + ": cannot be written") +
                      ": " + reasonText(reason) + mendFor(reason));
}

void OutputFolder::createFolder() {
    std::vector<fs::path> missing;
    std::error_code error;
    for (fs::path path = fs::absolute(m_folder).lexically_normal(); !path.empty();
         path = path.parent_path()) {
        if (fs::exists(fs::symlink_status(path, error)) || path == path.root_path()) {
            break;
        }
        if (path.has_filename()) { // "out/" has an empty last part
            missing.push_back(path);
        }
    }
    for (; !missing.empty(); missing.pop_back()) {
        if (mkdir(missing.back().c_str(), mode_t{0777}) == 0) {
            m_createdFolders.push_back(missing.back());
        } else if (errno != EEXIST) {
            fail("cannot be created", errno);
        }
    }
    if (!fs::is_directory(m_folder, error)) {
        if (!m_onlyFile.empty()) {
            throw OutputError(m_onlyFile + ": cannot be written: " + m_folder.string() +
                              " is not a folder; choose another folder");
        }
        throw OutputError(m_folder.string() +
                          ": is not a folder; give --out the name of a folder for the results");
    }
}

void OutputFolder::lock() {
    const fs::path name = m_folder / lockName;
    for (;;) {
        m_lock = open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, mode_t{0666});
        if (m_lock < 0) {
            fail("cannot be written", errno);
        }
        if (flock(m_lock, LOCK_EX | LOCK_NB) != 0) {
            const int reason = errno;
            close(std::exchange(m_lock, -1));
            if (reason == EWOULDBLOCK) {
                throw OutputError(m_folder.string() +
                                  ": another run is writing to this folder; wait for it to end or "
                                  "choose another folder");
            }
            fail("cannot be locked", reason);
        }
        // The run before may have removed the file between our open and our lock; then the lock
        // is on a file that nobody else will find.
        struct stat ours = {};
        struct stat named = {};
        if (fstat(m_lock, &ours) == 0 && stat(name.c_str(), &named) == 0 &&
            ours.st_ino == named.st_ino && ours.st_dev == named.st_dev) {
            break;
        }
        close(std::exchange(m_lock, -1));
    }
    // A lock file left by a killed run opens even where no new file can be made, so one is tried.
    const fs::path trial = m_folder / (std::string(lockName) + std::string(partialSuffix));
    try {
        OutputFile file(trial, m_onlyFile.empty() ? m_folder.string() : m_onlyFile);
        file.write("writable\n");
        file.finish();
    } catch (...) {
        unlink(trial.c_str());
        throw;
    }
    unlink(trial.c_str());
}

void OutputFolder::removeLeftovers() {
    std::error_code error;
    std::vector<fs::path> leftovers;
    for (const fs::directory_entry& entry : fs::directory_iterator(m_folder, error)) {
        if (entry.path().extension() == partialSuffix) {
            leftovers.push_back(entry.path());
        }
    }
    for (const fs::path& path : leftovers) {
        unlink(path.c_str());
    }
}

void OutputFolder::requireFree(std::initializer_list<std::string_view> names) const {
    for (const std::string_view name : names) {
        const fs::path target = m_folder / name;
        std::error_code error;
        if (fs::is_directory(target, error)) {
            throw OutputError(target.string() +
                              (m_onlyFile.empty()
                                   ? ": is a folder; move it away or choose another --out"
                                   : ": is a folder; move it away or choose another name"));
        }
    }
}

OutputFile& OutputFolder::stage(const std::string& name) {
    requireFree({name});
    const fs::path target = m_folder / name;
    fs::path partial = target;
    partial += partialSuffix;
    m_staged.push_back({target, partial, std::make_unique<OutputFile>(partial, target.string())});
    return *m_staged.back().file;
}

void OutputFolder::commit() {
    for (const Staged& staged : m_staged) {
        if (!staged.file->isFinished()) {
            staged.file->finish();
        }
    }
    if (!m_staged.empty()) {
        // While the names change over, the file that closes the set is absent.
        unlink(m_staged.back().target.c_str());
    }
    for (const fs::path& old : m_retired) {
        unlink(old.c_str());
    }
    for (const Staged& staged : m_staged) {
        if (rename(staged.partial.c_str(), staged.target.c_str()) != 0) {
            const int reason = errno;
            throw OutputError(staged.target.string() + ": cannot be given its name: " +
                              std::generic_category().message(reason) + mendFor(reason));
        }
        m_committed = true; // the folder stays from the first result on
    }
    syncFolder(m_folder);
    m_staged.clear();
}

void OutputFolder::discard() noexcept {
    for (const Staged& staged : m_staged) {
        unlink(staged.partial.c_str());
    }
    m_staged.clear();
    if (m_lock >= 0) {
        // Removed while still held: whoever opened it meanwhile sees that it lost its name.
        unlink((m_folder / lockName).c_str());
        close(std::exchange(m_lock, -1));
    }
    if (!m_committed) {
        while (!m_createdFolders.empty()) {
            rmdir(m_createdFolders.back().c_str()); // refuses when somebody put something there
            m_createdFolders.pop_back();
        }
    }
}

} // namespace insolate::study
