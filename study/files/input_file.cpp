#include "study/files/input_file.h"

#include "study/support/errors.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <fmt/format.h>
#include <insolate/weather/text_lines.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace insolate::study {

namespace {

constexpr std::size_t bufferBytes = 256U << 10U;
/// How long a pipe may be silent; a program that computes for longer writes to a file first.
constexpr std::chrono::seconds longestSilence(60);
constexpr int millisecondsBetweenLooks = 50; // for a request to stop
using Clock = std::chrono::steady_clock;

std::string sizeText(std::uintmax_t bytes) {
    return bytes < 10U << 20U ? fmt::format("{} kB", bytes >> 10U)
                              : fmt::format("{} MB", bytes >> 20U);
}

void requireShortSilence(Clock::time_point since, const std::filesystem::path& file,
                         const InputKind& kind) {
    if (Clock::now() - since > longestSilence) {
        throw DataError(fmt::format("{}: nothing came for {} s; write the {} to a file and give "
                                    "that",
                                    place(file), longestSilence.count(), kind.name));
    }
}

} // namespace

InputFile::InputFile(std::filesystem::path file, const InputKind& kind, std::stop_token stop)
    : m_file(std::move(file)), m_kind(kind), m_stop(std::move(stop)) {
    const auto refuse = [&](const std::string& what) {
        if (m_descriptor >= 0) {
            close(std::exchange(m_descriptor, -1));
        }
        throw DataError(fmt::format("{}: {}", place(m_file), what));
    };
    // Not blocking: a named pipe would else wait here for a writer, out of reach of any stop.
    m_descriptor = open(m_file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    const int problem = errno;
    if (m_descriptor < 0 && (problem == ENOENT || problem == ENOTDIR)) {
        refuse(fmt::format("no such file; check the name of the {}", m_kind.name));
    }
    struct stat status = {};
    if (m_descriptor < 0 || fstat(m_descriptor, &status) != 0 || S_ISDIR(status.st_mode)) {
        refuse(fmt::format("cannot be read ({}); give a {} that you may open",
                           m_descriptor < 0 ? std::generic_category().message(problem)
                                            : "it is a folder",
                           m_kind.name));
    }
    m_isStream = !S_ISREG(status.st_mode);
    if (m_isStream &&
        !(m_kind.mayStream && (S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode)))) {
        refuse(fmt::format("cannot be read (it is no regular file); write the {} to a file and "
                           "give that",
                           m_kind.name));
    }
    m_size = m_isStream ? 0 : static_cast<std::uintmax_t>(status.st_size);
    if (m_size > m_kind.mostBytes) {
        refuse(fmt::format("{} are too much for a {}, which may have {}; check the name",
                           sizeText(m_size), m_kind.name, sizeText(m_kind.mostBytes)));
    }
    m_buffer.resize(bufferBytes);
    try {
        fill();
        if (m_kind.isText) {
            refuseWideText();
        }
    } catch (...) {
        close(m_descriptor);
        throw;
    }
}

std::unique_ptr<InputFile> InputFile::ifReadable(const std::filesystem::path& file,
                                                 const InputKind& kind) {
    try {
        return std::make_unique<InputFile>(file, kind);
    } catch (const DataError&) {
        return nullptr;
    }
}

InputFile::~InputFile() {
    if (m_descriptor >= 0) {
        close(m_descriptor);
    }
}

void InputFile::refuseWideText() const {
    const std::string_view begin(m_buffer.data(), m_end);
    const std::string_view encoding = foreignEncoding(begin);
    if (!encoding.empty()) {
        throw DataError(fmt::format("{}: the text is {}; save the {} as UTF-8", place(m_file),
                                    encoding, m_kind.name));
    }
}

void InputFile::waitForBytes() {
    const Clock::time_point start = Clock::now();
    pollfd watched = {.fd = m_descriptor, .events = POLLIN, .revents = 0};
    // A pipe without a writer is ready only when one has come and gone.
    while (poll(&watched, 1, millisecondsBetweenLooks) <= 0) {
        throwIfStopped(m_stop);
        requireShortSilence(start, m_file, m_kind);
    }
}

std::size_t InputFile::readSome(std::span<char> bytes) {
    throwIfStopped(m_stop);
    const Clock::time_point start = Clock::now();
    for (;;) {
        if (m_isStream) {
            waitForBytes();
        }
        const ssize_t count = ::read(m_descriptor, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0 && errno == EAGAIN) {
            // Ready and yet empty: another reader was faster, or a device is always called ready.
            throwIfStopped(m_stop);
            requireShortSilence(start, m_file, m_kind);
            poll(nullptr, 0, millisecondsBetweenLooks);
            continue;
        }
        if (count < 0) {
            throw DataError(fmt::format("{}: reading stopped early ({}); check the disk",
                                        place(m_file), std::generic_category().message(errno)));
        }
        m_handedOver += static_cast<std::uintmax_t>(count);
        // What a file says of its size is no bound: it may grow, and a device has none.
        if (const std::uintmax_t most =
                m_isStream ? std::min(mostStreamBytes, m_kind.mostBytes) : m_kind.mostBytes;
            m_handedOver > most) {
            throw DataError(fmt::format(
                "{}: more than {} is too much for a {}{}; check the name", place(m_file),
                sizeText(most), m_kind.name,
                m_isStream && m_kind.mostBytes > most ? " from a pipe or a device" : ""));
        }
        return static_cast<std::size_t>(count);
    }
}

bool InputFile::fill() {
    m_at = 0;
    m_end = readSome(m_buffer);
    return m_end > 0;
}

std::size_t InputFile::read(std::span<char> bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        if (m_at < m_end) {
            const std::size_t count = std::min(m_end - m_at, bytes.size() - done);
            std::memcpy(bytes.data() + done, m_buffer.data() + m_at, count);
            m_at += count;
            done += count;
        } else if (bytes.size() - done >= m_buffer.size()) {
            const std::size_t count = readSome(bytes.subspan(done));
            if (count == 0) {
                break;
            }
            done += count;
        } else if (!fill()) {
            break;
        }
    }
    return done;
}

bool InputFile::readLine(std::string& line) {
    line.clear();
    bool any = false;
    while (m_at < m_end || fill()) {
        if (!any) {
            any = true;
            ++m_line;
        }
        const char* begin = m_buffer.data() + m_at;
        const auto* end = static_cast<const char*>(std::memchr(begin, '\n', m_end - m_at));
        const std::size_t count =
            end != nullptr ? static_cast<std::size_t>(end - begin) : m_end - m_at;
        if (line.size() + count > m_kind.mostLineBytes) {
            throw DataError(fmt::format("{}: the line has more than {}, too much for a {}; check "
                                        "that the file is text",
                                        place(m_file, m_line), sizeText(m_kind.mostLineBytes),
                                        m_kind.name));
        }
        line.append(begin, count);
        m_at += count;
        if (end != nullptr) {
            ++m_at;
            return true;
        }
    }
    return any;
}

std::string InputFile::readAll() {
    std::string all;
    // The size is a hint only; one byte more finds the end without another step of growth.
    std::size_t step = static_cast<std::size_t>(std::min(m_size, m_kind.mostBytes)) + 1;
    for (;;) {
        const std::size_t before = all.size();
        all.resize(before + std::max(step, bufferBytes));
        const std::size_t count = read({all.data() + before, all.size() - before});
        all.resize(before + count);
        if (count < std::max(step, bufferBytes)) {
            return all;
        }
        step = all.size();
    }
}

void InputFile::seek(std::uintmax_t place) {
    m_at = m_end = 0;
    m_handedOver = place;
    if (lseek(m_descriptor, static_cast<off_t>(place), SEEK_SET) < 0) {
        throw DataError(fmt::format("{}: cannot be read at byte {} ({}); check the disk",
                                    study::place(m_file), place,
                                    std::generic_category().message(errno)));
    }
}

} // namespace insolate::study
