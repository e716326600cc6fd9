#include "app/terminal/interrupt.h"

#include <csignal>

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

Interruption::Interruption() {
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

void Interruption::wait() {
    const sigset_t signals = watchedSignals();
    for (;;) {
        int received = 0;
        if (sigwait(&signals, &received) != 0) {
            return;
        }
        if (m_ended) {
            return;
        }
        if (received == SIGUSR1) {
            continue;
        }
        if (m_signal.exchange(received) != 0) {
            _exit(128 + received); // whoever asks twice means it
        }
        m_stop.request_stop();
    }
}

} // namespace insolate::app
