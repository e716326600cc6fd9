#include "app/terminal/interrupt.h"

#include "app/errors.h"

#include <atomic>
#include <csignal>

namespace insolate::app {

namespace {

std::atomic<int> receivedSignal{0};
static_assert(std::atomic<int>::is_always_lock_free, "written by a signal handler");

extern "C" void rememberSignal(int signal) {
    receivedSignal.store(signal, std::memory_order_relaxed);
}

} // namespace

void installInterruptHandlers() {
    struct sigaction action = {};
    action.sa_handler = rememberSignal;
    sigemptyset(&action.sa_mask);
    // Back to the default after the first: whoever presses twice means it.
    action.sa_flags = static_cast<int>(SA_RESETHAND) | SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    // A reader that goes away (a pipe into head) is a failed write, not a sudden death.
    std::signal(SIGPIPE, SIG_IGN);
    // So is a file that reaches its largest size.
    std::signal(SIGXFSZ, SIG_IGN);
}

int pendingSignal() {
    return receivedSignal.load(std::memory_order_relaxed);
}

void throwIfInterrupted() {
    if (const int signal = pendingSignal(); signal != 0) {
        throw Interrupted(signal);
    }
}

} // namespace insolate::app
