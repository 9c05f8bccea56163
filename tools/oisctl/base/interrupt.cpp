#include "base/interrupt.h"

#include <array>
#include <atomic>
#include <csignal>

namespace oisctl {

namespace {

constexpr std::array kEndingSignals = {SIGINT, SIGTERM, SIGHUP};

// Any thread looks at it, and any may have been the one that the signal came to.
std::atomic<int> gEndingSignal = 0;
static_assert(std::atomic<int>::is_always_lock_free, "a signal's handler may not wait");

extern "C" void noteSignal(int signal) {
    int none = 0;
    // A closed output outranks the rest: nobody is there to read what would follow.
    if (!gEndingSignal.compare_exchange_strong(none, signal) && signal == SIGPIPE) gEndingSignal = signal;
}

}  // namespace

InterruptGuard::InterruptGuard() {
    struct sigaction action {};
    action.sa_handler = noteSignal;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    for (const int signal : kEndingSignals) sigaction(signal, &action, nullptr);
}

InterruptGuard::~InterruptGuard() {
    for (const int signal : kEndingSignals) std::signal(signal, SIG_DFL);
}

void endWhenOutputCloses() {
    struct sigaction action {};
    action.sa_handler = noteSignal;
    sigaction(SIGPIPE, &action, nullptr);
}

bool outputClosed() {
    return gEndingSignal == SIGPIPE;
}

bool interrupted() {
    return gEndingSignal != 0;
}

int endingSignal() {
    return gEndingSignal;
}

}  // namespace oisctl
