#include "study/model/import_process.h"

#include "study/model/mesh_wire.h"
#include "study/support/errors.h"
#include "study/support/readable.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include <dlfcn.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <link.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace insolate::study {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int millisecondsBetweenLooks = 50; // for a request to stop and the end of the time
constexpr const char* programName = "insolate-import";
constexpr const char* programVariable = "INSOLATE_IMPORT";

/// A file descriptor above those of the standard streams, which the new process sets anew.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int descriptor) : m_descriptor(descriptor) {
        if (m_descriptor >= 0 && m_descriptor <= STDERR_FILENO) { // they are closed in this process
            m_descriptor = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
            close(descriptor);
        }
    }
    ~Descriptor() { reset(); }
    Descriptor(Descriptor&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(m_descriptor, other.m_descriptor);
        return *this;
    }

    [[nodiscard]] int get() const { return m_descriptor; }
    void reset() {
        if (m_descriptor >= 0) {
            close(std::exchange(m_descriptor, -1));
        }
    }

private:
    int m_descriptor = -1;
};

/// The folder of the program or shared library that holds this code.
std::filesystem::path ownFolder() {
    static const char anchor = 0;
    Dl_info info = {};
    void* found = nullptr;
    std::filesystem::path file = "/proc/self/exe";
    if (dladdr1(&anchor, &info, &found, RTLD_DL_LINKMAP) != 0 && found != nullptr) {
        // The program itself has no name here.
        if (const char* library = static_cast<const link_map*>(found)->l_name; *library != '\0') {
            file = library;
        }
    }
    std::error_code problem;
    return std::filesystem::canonical(file, problem).parent_path();
}

std::filesystem::path findProgram(const MeshImportOptions& options,
                                  const std::filesystem::path& file) {
    if (!options.importProgram.empty()) {
        return options.importProgram;
    }
    if (const char* named = std::getenv(programVariable); named != nullptr && *named != '\0') {
        return named;
    }
    // In a build it is in bin, beside a test or across from the library; in a wheel beside the
    // library; in libexec where it is installed.
    const std::filesystem::path folder = ownFolder();
    for (const char* way : {".", "../bin", INSOLATE_PATH_TO_LIBEXEC, "../../libexec"}) {
        std::filesystem::path program = (folder / way / programName).lexically_normal();
        // Where the own folder is not known, the current one, which is anybody's, is not searched.
        if (folder.is_absolute() && access(program.c_str(), X_OK) == 0) {
            return program;
        }
    }
    throw DataError(fmt::format("{}: the program {}, which reads such models, is neither in {} nor "
                                "in libexec; install it, or name it in {}",
                                place(file), programName, place(folder), programVariable));
}

/// The reply ended before it was complete.
struct ReplyCut {};
/// The time is over.
struct TimeOver {};

/// A process that is ended with this object at the latest.
class ImportProcess {
public:
    ImportProcess(const std::filesystem::path& program, const std::filesystem::path& file,
                  int model, const ImportLimits& limits, std::stop_token stop)
        : m_stop(std::move(stop)),
          m_deadline(Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                        std::chrono::duration<double>(limits.seconds))) {
        std::array<int, 2> ends = {-1, -1};
        if (pipe2(ends.data(), O_CLOEXEC) != 0) {
            fail(program, errno);
        }
        m_reply = Descriptor(ends[0]);
        Descriptor far(ends[1]);
        const Descriptor content(fcntl(model, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
        if (m_reply.get() < 0 || far.get() < 0 || content.get() < 0) {
            fail(program, errno);
        }
        fcntl(m_reply.get(), F_SETFL, O_NONBLOCK);
        // Fewer changes between the two; where it is refused, the usual size does as well.
        fcntl(m_reply.get(), F_SETPIPE_SZ, 1 << 20);
        spawn(program, file, content.get(), far.get(), limits);
        m_handle = Descriptor(static_cast<int>(syscall(SYS_pidfd_open, m_process, 0)));
    }
    ~ImportProcess() {
        kill();
        while (waitpid(m_process, nullptr, 0) < 0 && errno == EINTR) {
        }
    }
    ImportProcess(const ImportProcess&) = delete;
    ImportProcess& operator=(const ImportProcess&) = delete;

    /// Fills the span with what the process sends.
    void receive(std::span<char> bytes) {
        while (!bytes.empty()) {
            throwIfStopped(m_stop);
            const ssize_t count = read(m_reply.get(), bytes.data(), bytes.size());
            if (count > 0) {
                bytes = bytes.subspan(static_cast<std::size_t>(count));
            } else if (count == 0 || (errno != EINTR && (errno != EAGAIN || m_ended))) {
                throw ReplyCut();
            } else if (errno == EAGAIN) {
                // Only with nothing to read: this process may have been suspended, and the other
                // has been waiting for room in the pipe since.
                if (!waitForBytes() && Clock::now() >= m_deadline) {
                    throw TimeOver();
                }
            }
        }
    }

    /// Waits for the end of a process that has closed its reply: the signal that ended it, 0 when
    /// there was none or the host has taken it. Nothing when it goes on until the time is over.
    std::optional<int> endingSignal() {
        for (;;) {
            siginfo_t end = {};
            // WNOWAIT leaves the process's number taken until the destructor.
            if (waitid(P_PID, static_cast<id_t>(m_process), &end, WEXITED | WNOWAIT | WNOHANG) !=
                0) {
                if (errno != EINTR) {
                    return 0;
                }
            } else if (end.si_pid != 0) {
                return end.si_code == CLD_KILLED || end.si_code == CLD_DUMPED ? end.si_status : 0;
            }
            throwIfStopped(m_stop);
            if (Clock::now() >= m_deadline) {
                return std::nullopt;
            }
            pollfd handle = {.fd = m_handle.get(), .events = POLLIN, .revents = 0};
            poll(&handle, 1, millisecondsBetweenLooks); // a negative one is only waited for
        }
    }

    void kill() const {
        if (m_handle.get() >= 0) { // unlike the number it never means another process
            syscall(SYS_pidfd_send_signal, m_handle.get(), SIGKILL, nullptr, 0);
        } else {
            ::kill(m_process, SIGKILL);
        }
    }

private:
    [[noreturn]] static void fail(const std::filesystem::path& program, int problem) {
        throw DataError(fmt::format("{}: cannot be started ({}); install it, or name it in {}",
                                    place(program), std::generic_category().message(problem),
                                    programVariable));
    }

    void spawn(const std::filesystem::path& program, const std::filesystem::path& file, int model,
               int reply, const ImportLimits& limits) {
        posix_spawn_file_actions_t actions;
        posix_spawnattr_t attributes;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, model, STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, reply, STDOUT_FILENO);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
        posix_spawnattr_init(&attributes);
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_setsigmask(&attributes, &none);
        posix_spawnattr_setsigdefault(&attributes, &all);
        // A group of its own: Ctrl-C asks this process alone, which then ends the other.
        posix_spawnattr_setpgroup(&attributes, 0);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF |
                                                  POSIX_SPAWN_SETPGROUP);
        std::array<std::string, 4> words = {program.string(), file.string(),
                                            fmt::format("{}", limits.bytes),
                                            fmt::format("{}", std::ceil(limits.seconds))};
        std::array<char*, 5> arguments = {words[0].data(), words[1].data(), words[2].data(),
                                          words[3].data(), nullptr};
        const int problem = posix_spawn(&m_process, words[0].c_str(), &actions, &attributes,
                                        arguments.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
        if (problem != 0) {
            fail(program, problem);
        }
    }

    /// Whether anything happened.
    bool waitForBytes() {
        std::array<pollfd, 2> watched = {{{.fd = m_reply.get(), .events = POLLIN, .revents = 0},
                                          {.fd = m_handle.get(),
                                           .events = POLLIN,
                                           .revents = 0}}}; // a negative one is passed over
        const bool isReady = poll(watched.data(), watched.size(), millisecondsBetweenLooks) > 0;
        // Its end of the pipe may live on in a process that another thread of the host has made.
        m_ended = watched[1].revents != 0 && (watched[0].revents & POLLIN) == 0;
        return isReady;
    }

    std::stop_token m_stop;
    Clock::time_point m_deadline;
    Descriptor m_reply;
    Descriptor m_handle;
    pid_t m_process = -1;
    bool m_ended = false;
};

} // namespace

Mesh readInProcess(const std::filesystem::path& file, int descriptor, const ModelFormat& format,
                   const MeshImportOptions& options, const ImportLimits& limits,
                   const std::stop_token& stop) {
    const auto refuse = [&](const std::string& what) -> DataError {
        return DataError(fmt::format("{}: the {} importer {}; the file may be damaged: export the "
                                     "model again, or as OBJ",
                                     place(file), format.name, what));
    };
    const std::string tooLong =
        fmt::format("did not finish within {}", durationText(limits.seconds));
    ImportProcess process(findProgram(options, file), file, descriptor, limits, stop);
    try {
        auto reply =
            receiveReply([&](std::span<char> bytes) { process.receive(bytes); }, limits.bytes);
        if (Mesh* mesh = std::get_if<Mesh>(&reply)) {
            return std::move(*mesh);
        }
        const auto& refusal = std::get<ImportRefusal>(reply);
        if (refusal.outOfMemory) {
            throw refuse(fmt::format("needs more than {} MB of memory", limits.bytes >> 20U));
        }
        throw DataError(printable(refusal.reason));
    } catch (const TimeOver&) {
        throw refuse(tooLong);
    } catch (const BadReply& fault) {
        throw refuse(fmt::format("gave a wrong reply ({})", fault.what()));
    } catch (const ReplyCut&) {
        const std::optional<int> signal = process.endingSignal();
        if (!signal || signal == SIGXCPU) {
            throw refuse(tooLong);
        }
        throw refuse(signal == 0 ? std::string("ended without a reply")
                                 : fmt::format("failed ({})", sigdescr_np(*signal)));
    }
}

} // namespace insolate::study
