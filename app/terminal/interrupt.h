/// Ctrl-C and termination requests, turned into a stop token.
#pragma once

#include <atomic>
#include <stop_token>
#include <thread>

namespace insolate::app {

/// Waits for SIGINT and SIGTERM on a thread of its own: the first asks the work to stop, a second
/// one ends the process at once. Made before any other thread, because threads inherit which
/// signals are held back from them.
class Interruption {
public:
    Interruption();
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    [[nodiscard]] std::stop_token token() const { return m_stop.get_token(); }
    /// The signal that asked to stop, or 0.
    [[nodiscard]] int signal() const { return m_signal.load(); }

private:
    void wait();

    std::stop_source m_stop;
    std::atomic<int> m_signal{0};
    std::atomic<bool> m_ended{false};
    std::thread m_thread;
};

} // namespace insolate::app
