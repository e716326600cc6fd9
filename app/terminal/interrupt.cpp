#include "app/terminal/interrupt.h"

#include "study/files/output_folder.h"

#include <csignal>
#include <ctime>
#include <utility>

#include <poll.h>
#include <pthread.h>
#include <unistd.h>

namespace insolate::app {

namespace {

/// The signals that ask to stop, and the one by which the destructor ends the waiting.
sigset_t watchedSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGUSR1);
    return signals;
}

} // namespace

Interruption::Interruption(LastWords lastWords) : m_lastWords(std::move(lastWords)) {
    // A shell starts background work with SIGINT ignored, and what is ignored cannot be waited for.
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
    // A reader that goes away (a pipe into head) is a failed write, not a sudden death.
    std::signal(SIGPIPE, SIG_IGN);
    // So is a file that reaches its largest size.
    std::signal(SIGXFSZ, SIG_IGN);
    const sigset_t signals = watchedSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    m_thread = std::thread([this] { wait(); });
}

Interruption::~Interruption() {
    m_ended = true;
    pthread_kill(m_thread.native_handle(), SIGUSR1);
    m_thread.join();
}

void Interruption::holdsFolder(study::OutputFolder* folder) {
    const std::lock_guard lock(m_mutex);
    m_folder = folder;
}

void Interruption::wait() {
    const sigset_t signals = watchedSignals();
    int received = 0;
    while (sigwait(&signals, &received) == 0 && !m_ended) {
        if (received != SIGUSR1) {
            m_signal = received;
            m_message = m_lastWords(128 + received);
            m_stop.request_stop();
            break;
        }
    }
    // Work that is between two questions for the stop, inside a library or waiting for a file, gets
    // this long; a second signal means that somebody does not want to wait at all.
    timespec patience = {0, 700'000'000};
    while (!m_ended) {
        const int second = sigtimedwait(&signals, nullptr, &patience);
        if (!m_ended && second != SIGUSR1) {
            endNow();
        }
    }
}

void Interruption::endNow() {
    {
        const std::lock_guard lock(m_mutex);
        if (m_folder != nullptr && m_folder->abandon()) {
            // The results got their names before the request came through.
            _exit(128 + m_signal);
        }
    }
    // A pipe that nobody reads any more must not hold the end up: what it has no room for at once
    // is left out, and the exit code says the same.
    pollfd standardError = {.fd = STDERR_FILENO, .events = POLLOUT, .revents = 0};
    if (poll(&standardError, 1, 0) == 1 && (standardError.revents & POLLOUT) != 0) {
        [[maybe_unused]] const ssize_t written =
            write(STDERR_FILENO, m_message.data(), m_message.size());
    }
    _exit(128 + m_signal);
}

} // namespace insolate::app
