/// Ctrl-C and termination requests: a stop token for the work, and an end for what does not heed
/// it.
#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>

namespace insolate::study {
class OutputFolder;
}

namespace insolate::app {

/// Waits for SIGINT and SIGTERM on a thread of its own. The first asks the work to stop; work that
/// has not ended within the patience, or a second signal, ends the process with 128 + N, after the
/// output folder was given up. Made before any other thread, because threads inherit which signals
/// are held back from them.
class Interruption {
public:
    /// The line with which a process that must end at once takes its leave on standard error, made
    /// of the exit code. At most 4,096 bytes, which a pipe takes whole or not at all.
    using LastWords = std::function<std::string(int exitCode)>;

    explicit Interruption(LastWords lastWords);
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    [[nodiscard]] std::stop_token token() const { return m_stop.get_token(); }
    /// The signal that asked to stop, or 0.
    [[nodiscard]] int signal() const { return m_signal.load(); }
    /// The folder to give up when the process must end at once; null for none.
    void holdsFolder(study::OutputFolder* folder);

private:
    void wait();
    [[noreturn]] void endNow();

    LastWords m_lastWords;
    std::string m_message; ///< of the signal that came
    std::stop_source m_stop;
    std::atomic<int> m_signal{0};
    std::atomic<bool> m_ended{false};
    std::mutex m_mutex;
    study::OutputFolder* m_folder = nullptr;
    std::thread m_thread;
};

} // namespace insolate::app
