#include "study/files/output_folder.h"

#include "study/support/readable.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <span>
#include <sstream>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <fmt/format.h>
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

std::string remedyFor(int reason) {
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

// Lines of the lock file.
constexpr std::string_view processKey = "process ";
constexpr std::string_view partialKey = "writes ";

/// Whether a run has written these lines. A full disk may have cut the last of them.
bool isOfALock(std::string_view lines) {
    for (std::size_t end = 0; !lines.empty(); lines.remove_prefix(end)) {
        end = std::min(lines.find('\n'), lines.size() - 1) + 1;
        const std::string_view line = lines.substr(0, end);
        const bool isCut = line.back() != '\n';
        const auto beginsWith = [&](std::string_view key) {
            return line.starts_with(isCut ? key.substr(0, line.size()) : key);
        };
        if (!beginsWith(partialKey) &&
            (!beginsWith(processKey) ||
             line.find_first_not_of("0123456789\n", processKey.size()) != line.npos)) {
            return false;
        }
    }
    return true;
}

/// Makes the folder's names as they are now survive a loss of power. File systems that cannot do it
/// are not refused.
void syncFolder(const fs::path& folder) {
    const int descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor >= 0) {
        fsync(descriptor);
        close(descriptor);
    }
}

} // namespace

OutputFile::OutputFile(const fs::path& path, std::string shownName)
    : m_path(path), m_shownName(std::move(shownName)),
      m_buffer(std::make_unique<char[]>(bufferSize)) {
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
    throw OutputError(m_shownName + ": cannot be written: " + reasonText(reason) +
                      remedyFor(reason));
}

OutputFolder::OutputFolder(const fs::path& folder, std::vector<fs::path> inputs,
                           std::string onlyFile)
    : m_folder(folder), m_inputs(std::move(inputs)), m_onlyFile(std::move(onlyFile)) {
    // What this constructor has begun is undone here: a throwing constructor has no destructor.
    try {
        createFolder();
        lock();
        takeOver();
        tryToWrite();
    } catch (...) {
        discard();
        throw;
    }
}

OutputFolder::~OutputFolder() {
    const std::lock_guard guard(m_mutex);
    discard();
}

void OutputFolder::fail(const std::string& what, int reason) const {
    throw OutputError((m_onlyFile.empty() ? m_folder.string() + ": the output folder " + what
                                          : m_onlyFile + ": cannot be written") +
                      ": " + reasonText(reason) + remedyFor(reason));
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

/// What stands under the lock's name and is not of a run is somebody's; it stays as it is.
void OutputFolder::refuseForeignLock() {
    if (m_lock >= 0) {
        close(std::exchange(m_lock, -1));
    }
    throw OutputError(fmt::format("{}: was not written by insolate, and a run keeps its lock under "
                                  "that name; remove or rename it",
                                  place(m_folder / lockName)));
}

void OutputFolder::lock() {
    const fs::path name = m_folder / lockName;
    for (;;) {
        struct stat ours = {};
        m_lock = open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK,
                      mode_t{0666});
        if (m_lock < 0 && errno != ELOOP && errno != EISDIR && errno != ENXIO) {
            fail("cannot be written", errno);
        }
        if (m_lock < 0 || fstat(m_lock, &ours) != 0 || !S_ISREG(ours.st_mode)) {
            refuseForeignLock(); // a link, a folder, a pipe, a socket
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
        struct stat named = {};
        if (stat(name.c_str(), &named) == 0 && ours.st_ino == named.st_ino &&
            ours.st_dev == named.st_dev) {
            break;
        }
        close(std::exchange(m_lock, -1));
    }
}

/// A lock file that nobody holds is of a run that died: what it had begun is removed, by the names
/// that it holds, and it becomes ours.
void OutputFolder::takeOver() {
    std::string lines = fileBeginning(m_folder / lockName, 65'536);
    // A loss of power may leave zeros in the place of what had not reached the disk.
    lines.resize(lines.find_last_not_of('\0') + 1);
    if (!isOfALock(lines)) {
        refuseForeignLock();
    }
    std::istringstream content(lines);
    std::string process;
    std::size_t removed = 0;
    for (std::string line; std::getline(content, line);) {
        if (line.starts_with(processKey)) {
            process = line.substr(processKey.size());
        } else if (line.starts_with(partialKey)) {
            const std::string name = line.substr(partialKey.size());
            const fs::path partial = m_folder / (name + std::string(partialSuffix));
            if (name.find('/') == std::string::npos && unlink(partial.c_str()) == 0) {
                ++removed;
            }
        }
    }
    if (!process.empty()) {
        m_notes.push_back(fmt::format(
            "{}: took over the folder from process {}, which ended in the middle of its work{}",
            place(m_folder), printable(process),
            removed == 0 ? ""
                         : fmt::format("; removed {} unfinished {}", removed,
                                       counted(removed, "file", "files"))));
    }
    if (ftruncate(m_lock, 0) == 0) {
        lseek(m_lock, 0, SEEK_SET);
        writeLock(fmt::format("{}{}", processKey, getpid()));
    }
}

/// What the lock file says only serves the next run after a kill, so that a full disk is left to
/// the files that matter.
void OutputFolder::writeLock(const std::string& line) {
    const std::string text = line + "\n";
    [[maybe_unused]] const ssize_t written = write(m_lock, text.data(), text.size());
}

/// A lock file left by a killed run opens even where no new file can be made, so one is tried. It
/// need not reach the disk: what is full or read-only says so at once.
void OutputFolder::tryToWrite() {
    const fs::path trial = m_folder / (std::string(lockName) + std::string(partialSuffix));
    requireNoPartial(trial);
    writeLock(fmt::format("{}{}", partialKey, lockName)); // before there is a file to leave
    const int descriptor =
        open(trial.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode_t{0666});
    if (descriptor < 0) {
        fail("cannot be written", errno);
    }
    int reason = write(descriptor, "\n", 1) < 0 ? errno : 0;
    if (close(descriptor) != 0 && reason == 0) {
        reason = errno;
    }
    unlink(trial.c_str());
    if (reason != 0) {
        fail("cannot be written", reason);
    }
}

void OutputFolder::requireFree(const ResultName& result) const {
    const std::string_view elsewhere = m_onlyFile.empty() ? "another --out" : "another name";
    const fs::path target = m_folder / result.name;
    fs::path partial = target;
    requireNoPartial(partial += partialSuffix);
    std::error_code error;
    if (!fs::exists(fs::symlink_status(target, error))) {
        return;
    }
    const auto refuse = [&](std::string_view what) {
        throw OutputError(fmt::format("{}: {} {}", place(target), what, elsewhere));
    };
    if (fs::is_directory(target, error)) {
        refuse("is a folder; move it away or choose");
    }
    if (isInput(target)) {
        refuse("is read by this run, whose result of that name would replace it; choose");
    }
    const bool isEmpty = fs::is_regular_file(target, error) && fs::is_empty(target, error);
    if (!isEmpty && !result.isOurs(target)) {
        refuse("was not written by insolate, and a result of that name would replace it; "
               "rename it or choose");
    }
}

/// A partial file that no dead run had begun is somebody else's.
void OutputFolder::requireNoPartial(const fs::path& partial) const {
    std::error_code error;
    if (fs::exists(fs::symlink_status(partial, error))) {
        throw OutputError(fmt::format("{}: stands in the way of an unfinished result; remove or "
                                      "rename it",
                                      place(partial)));
    }
}

bool OutputFolder::isInput(const fs::path& file) const {
    std::error_code error;
    return std::any_of(m_inputs.begin(), m_inputs.end(),
                       [&](const fs::path& input) { return fs::equivalent(file, input, error); });
}

bool OutputFolder::retire(const ResultName& result) {
    fs::path file = m_folder / result.name;
    if (!result.isOurs(file) || isInput(file)) {
        return false;
    }
    m_retired.push_back(std::move(file));
    return true;
}

OutputFile& OutputFolder::stage(const ResultName& result) {
    const fs::path target = m_folder / result.name;
    fs::path partial = target;
    partial += partialSuffix;
    const std::lock_guard guard(m_mutex);
    if (m_abandoned) {
        throw Stopped();
    }
    requireFree(result);
    writeLock(fmt::format("{}{}", partialKey, result.name)); // before there is a file to leave
    m_staged.push_back({target, partial, std::make_unique<OutputFile>(partial, target.string())});
    return *m_staged.back().file;
}

void OutputFolder::rename(const Staged& staged) {
    if (::rename(staged.partial.c_str(), staged.target.c_str()) != 0) {
        const int reason = errno;
        throw OutputError(staged.target.string() + ": cannot be given its name: " +
                          std::generic_category().message(reason) + remedyFor(reason));
    }
    m_committed = true; // the folder stays from the first result on
}

void OutputFolder::commit() {
    for (const Staged& staged : m_staged) { // this thread alone adds to them
        if (!staged.file->isFinished()) {
            staged.file->finish();
        }
    }
    {
        const std::lock_guard guard(m_mutex);
        if (m_abandoned) {
            throw Stopped();
        }
        if (m_staged.empty()) {
            return;
        }
        // While several names change over, the file that closes the set is absent; where it is the
        // only one, the old one stays until the new one takes its place.
        const bool isSet = m_staged.size() + m_retired.size() > 1;
        if (isSet) {
            unlink(m_staged.back().target.c_str());
            syncFolder(m_folder);
        }
        for (const fs::path& old : m_retired) {
            unlink(old.c_str());
        }
        for (const Staged& staged : std::span(m_staged).first(m_staged.size() - 1)) {
            rename(staged);
        }
        if (isSet) {
            syncFolder(m_folder);
        }
        rename(m_staged.back());
        m_staged.clear();
    }
    syncFolder(m_folder);
    for (const fs::path& folder : m_createdFolders) {
        syncFolder(folder.parent_path());
    }
}

bool OutputFolder::abandon() noexcept {
    const std::lock_guard guard(m_mutex);
    m_abandoned = true;
    // The files themselves belong to the thread that writes them; only their names go.
    for (const Staged& staged : m_staged) {
        unlink(staged.partial.c_str());
    }
    release();
    return m_committed;
}

void OutputFolder::release() noexcept {
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

void OutputFolder::discard() noexcept {
    if (m_abandoned) {
        return; // the names may be another run's by now
    }
    for (const Staged& staged : m_staged) {
        unlink(staged.partial.c_str());
    }
    release();
}

} // namespace insolate::study
